#include "line_faults.h"

#include <algorithm>
#include <iterator>

namespace softboard {

constexpr uint32_t SAMPLES_PER_MS = 8;

// T.30 has at least 55 ms of silence between a frame and a fast modem's training, and none within either.
constexpr uint32_t GAP_SAMPLES = 50 * SAMPLES_PER_MS;

// There may be such a gap in front of the DCS as well; the frame itself takes longer than this.
constexpr uint32_t DCS_SAMPLES = 150 * SAMPLES_PER_MS;

// By FastModem: its longest training, and 300 ms of the TCF's 1.5 s.
constexpr uint32_t UNSPOILT_MS[] = {943 + 300, 253 + 300, 1393 + 300};
constexpr int16_t NOISE_PEAK = 6000;

void TrainingFault::on_frame(bool sent, const uint8_t* frame, size_t length) {
    const DcsRate* const rate = sent ? dcs_rate(frame, length) : nullptr;
    rate_ = rate != nullptr && rate->rate > limit_ ? rate : nullptr;
    silence_ = 0;
    dcs_ = 0;
    dcs_over_ = false;
    training_ = 0;
}

int16_t TrainingFault::noise() {
    random_ = random_ * 1664525u + 1013904223u;
    return static_cast<int16_t>(static_cast<int32_t>(random_ >> 16) % (2 * NOISE_PEAK) - NOISE_PEAK);
}

void TrainingFault::spoil(int16_t (&audio)[FRAME_SAMPLES]) {
    if (rate_ == nullptr) return;
    for (int16_t& sample : audio) {
        silence_ = sample == 0 ? silence_ + 1 : 0;
        if (sample != 0 && !dcs_over_) ++dcs_;
        if (silence_ >= GAP_SAMPLES && dcs_ >= DCS_SAMPLES) dcs_over_ = true;
        if (!dcs_over_ || silence_ >= GAP_SAMPLES) continue;
        ++training_;
        if (training_ > UNSPOILT_MS[static_cast<size_t>(rate_->modem)] * SAMPLES_PER_MS) sample = noise();
    }
}

// ---- hanging up ---------------------------------------------------------------------------------------------------

// Beyond every short training, and short of the end of any page with something on it.
constexpr uint32_t IMAGE_SAMPLES = 1200 * SAMPLES_PER_MS;

constexpr uint8_t POST_MESSAGE_COMMANDS[] = {T30_MPS, T30_EOM, T30_EOP, T30_PRI_MPS, T30_PRI_EOM, T30_PRI_EOP, T30_PPS};

void HangUpDuringPage::on_frame(const uint8_t* frame, size_t length) {
    if (!in_page_ || length < 3) return;
    const uint8_t command = frame[2] & 0xFE;
    due_ |= std::find(std::begin(POST_MESSAGE_COMMANDS), std::end(POST_MESSAGE_COMMANDS), command) !=
            std::end(POST_MESSAGE_COMMANDS);
}

void HangUpDuringPage::on_audio(const int16_t (&audio)[FRAME_SAMPLES], bool trained, uint32_t pages_done) {
    in_page_ = page_ != 0 && trained && pages_done + 1 == page_;
    if (!in_page_) return;
    image_ +=
        static_cast<uint32_t>(std::count_if(std::begin(audio), std::end(audio), [](int16_t s) { return s != 0; }));
    due_ |= image_ >= IMAGE_SAMPLES;
}

}  // namespace softboard

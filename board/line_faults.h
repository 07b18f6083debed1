// Faults of the telephone line between two fax machines, which the board makes to order.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dcs.h"
#include "fax_engine.h"

namespace softboard {

// A line that is too bad for some rates: it drowns the training check (TCF) of every rate above its limit in noise, so
// that the receiver says FTT and the sender falls back.
class TrainingFault {
  public:
    explicit TrainingFault(uint32_t limit) : limit_(limit) {}  // bit/s; 0 = nothing passes
    void on_frame(bool sent, const uint8_t* frame, size_t length);
    void spoil(int16_t (&audio)[FRAME_SAMPLES]);

  private:
    int16_t noise();

    const uint32_t limit_;
    const DcsRate* rate_ = nullptr;  // of the DCS being sent; null = nothing to spoil
    uint32_t silence_ = 0;           // samples of it, up to now
    uint32_t dcs_ = 0;               // samples of the DCS, up to now
    bool dcs_over_ = false;          // the gap between the DCS and the training has come
    uint32_t training_ = 0;          // samples of the training and the TCF, up to now
    uint32_t random_ = 1;
};

// A far end that hangs up in the middle of a page's image, or at the latest when the page is about to be confirmed.
class HangUpDuringPage {
  public:
    explicit HangUpDuringPage(uint32_t page) : page_(page) {}  // 1 = the first; 0 = never
    // A frame that the end that hangs up has sent or received.
    void on_frame(const uint8_t* frame, size_t length);
    // Audio of the end that sends. The session has been trained, and pages_done of its pages are confirmed.
    void on_audio(const int16_t (&audio)[FRAME_SAMPLES], bool trained, uint32_t pages_done);
    bool is_due() const { return due_; }

  private:
    const uint32_t page_;
    bool in_page_ = false;
    uint32_t image_ = 0;  // samples of it, up to now
    bool due_ = false;
};

}  // namespace softboard

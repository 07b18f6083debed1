#include "bare_engines.h"

#include <spandsp.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <vector>

#include "bench_folder.h"
#include "own_process.h"
#include "stopwatch.h"
#include "text.h"

namespace {

constexpr int FRAME_SAMPLES = 160;
constexpr double FRAME_SECONDS = 0.02;

struct ReleaseFax {
    void operator()(fax_state_t* fax) const { fax_free(fax); }
};

}  // namespace

struct BareFax::End {
    explicit End(bool calling) : fax(fax_init(nullptr, calling ? TRUE : FALSE)) {
        if (fax == nullptr) throw std::bad_alloc();
        t30_state_t* const t30 = fax_get_t30_state(fax.get());
        fax_set_transmit_on_idle(fax.get(), TRUE);
        t30_set_supported_modems(t30, T30_SUPPORT_V27TER | T30_SUPPORT_V29 | T30_SUPPORT_V17);
        t30_set_supported_compressions(
            t30, T30_SUPPORT_T4_1D_COMPRESSION | T30_SUPPORT_T4_2D_COMPRESSION | T30_SUPPORT_T6_COMPRESSION);
        t30_set_supported_image_sizes(t30, T30_SUPPORT_215MM_WIDTH | T30_SUPPORT_255MM_WIDTH | T30_SUPPORT_303MM_WIDTH |
                                               T30_SUPPORT_UNLIMITED_LENGTH);
        t30_set_supported_resolutions(t30, T30_SUPPORT_STANDARD_RESOLUTION | T30_SUPPORT_FINE_RESOLUTION |
                                               T30_SUPPORT_SUPERFINE_RESOLUTION | T30_SUPPORT_R8_RESOLUTION);
        t30_set_rx_encoding(t30, T4_COMPRESSION_ITU_T6);
        t30_set_tx_ident(t30, calling ? "sender" : "receiver");
        t30_set_phase_e_handler(t30, on_phase_e, this);
    }

    static void on_phase_e(t30_state_t*, void* end, int completion) {
        static_cast<End*>(end)->through = true;
        static_cast<End*>(end)->completion = completion;
    }

    t30_state_t* t30() const { return fax_get_t30_state(fax.get()); }

    std::unique_ptr<fax_state_t, ReleaseFax> fax;
    bool through = false;
    int completion = T30_ERR_OK;
};

BareFax::BareFax(const BareFaxSettings& settings) : ends_{std::make_unique<End>(true), std::make_unique<End>(false)} {
    for (const auto& end : ends_) t30_set_ecm_capability(end->t30(), settings.ecm ? TRUE : FALSE);
    t30_set_tx_file(ends_[0]->t30(), settings.send_path.c_str(), -1, -1);
    t30_set_rx_file(ends_[1]->t30(), settings.receive_path.c_str(), -1);
}

BareFax::~BareFax() = default;

bool BareFax::carry_frame() {
    int16_t audio[2][FRAME_SAMPLES] = {};
    for (int i = 0; i < 2; ++i) fax_tx(ends_[i]->fax.get(), audio[i], FRAME_SAMPLES);
    for (int i = 0; i < 2; ++i) fax_rx(ends_[i]->fax.get(), audio[1 - i], FRAME_SAMPLES);
    return !ends_[0]->through || !ends_[1]->through;
}

bool BareFax::is_good() const {
    return ends_[0]->through && ends_[1]->through && ends_[0]->completion == T30_ERR_OK &&
           ends_[1]->completion == T30_ERR_OK;
}

BareFaxResult run_bare_fax(const BareFaxSettings& settings) {
    BareFaxResult result;
    const Stopwatch watch;
    BareFax fax(settings);
    result.line_seconds = FRAME_SECONDS;
    while (fax.carry_frame()) result.line_seconds += FRAME_SECONDS;
    result.seconds = watch.seconds();
    result.good = fax.is_good();
    return result;
}

// ---- many of them -------------------------------------------------------------------------------------------------

namespace {

struct Share {
    uint32_t ticks = 0;
    bool good = true;
};

// Every `stride`th of the faxes, from the first on.
Share carry_in_real_time(unsigned first, unsigned stride, const std::vector<BareFaxSettings>& all) {
    std::vector<std::unique_ptr<BareFax>> faxes;
    for (size_t i = first; i < all.size(); i += stride) faxes.push_back(std::make_unique<BareFax>(all[i]));
    Share share;
    auto tick = std::chrono::steady_clock::now();
    for (bool going_on = true; going_on; ++share.ticks) {
        going_on = false;
        for (const auto& fax : faxes) going_on |= fax->carry_frame();
        tick += std::chrono::milliseconds(20);
        const auto left = tick - std::chrono::steady_clock::now();
        if (left.count() > 0) Sleep(static_cast<DWORD>(std::chrono::ceil<std::chrono::milliseconds>(left).count()));
    }
    for (const auto& fax : faxes) share.good &= fax->is_good();
    return share;
}

}  // namespace

BareFaxesResult run_bare_faxes_in_real_time(unsigned count, const BareFaxSettings& settings) {
    const BenchFolder folder;
    std::vector<BareFaxSettings> all(count, settings);
    for (unsigned i = 0; i < count; ++i) all[i].receive_path = folder.file(format("%u.tif", i));
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    std::vector<Share> shares(system.dwNumberOfProcessors);
    const auto stride = static_cast<unsigned>(shares.size());
    BareFaxesResult result;
    const double before = process_seconds();
    {
        std::vector<OwnedThread> threads;
        for (unsigned i = 0; i < stride; ++i) {
            threads.push_back(thread_start([&, i] { shares[i] = carry_in_real_time(i, stride, all); }));
        }
    }
    result.processor_seconds = process_seconds() - before;
    result.good = true;
    for (const Share& share : shares) {
        result.good &= share.good;
        result.line_seconds = std::max(result.line_seconds, share.ticks * FRAME_SECONDS);
    }
    return result;
}

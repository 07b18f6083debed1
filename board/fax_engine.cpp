#include "fax_engine.h"

#include "failure.h"
#include "log.h"
#include "page_reader.h"

namespace softboard {

constexpr uint8_t X_BIT = 0x01;

static uint8_t command_of(uint8_t fcf) {
    return fcf & static_cast<uint8_t>(~X_BIT);
}

// The modems that a highest rate leaves. With none, T.30 knows V.27ter at 2400 bit/s only.
struct RateModems {
    uint32_t up_to;
    int modems;
};
constexpr RateModems RATE_MODEMS[] = {
    {2400, 0},
    {4800, T30_SUPPORT_V27TER},
    {9600, T30_SUPPORT_V27TER | T30_SUPPORT_V29},
    {14400, T30_SUPPORT_V27TER | T30_SUPPORT_V29 | T30_SUPPORT_V17},
};

static int modems_up_to(uint32_t rate) {
    for (const RateModems& entry : RATE_MODEMS) {
        if (rate <= entry.up_to) return entry.modems;
    }
    return RATE_MODEMS[3].modems;
}

static const char* text_or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

FaxEngine::FaxEngine(const EngineSettings& settings, EngineEvents events)
    : sending_(!settings.send_path.empty()),
      events_(std::move(events)),
      fax_(fax_init(nullptr, settings.calling ? TRUE : FALSE)) {
    if (fax_ == nullptr) throw std::bad_alloc();
    t30_ = fax_get_t30_state(fax_.get());
    configure(settings);
    fax_set_transmit_on_idle(fax_.get(), TRUE);
    t30_set_phase_b_handler(t30_, on_phase_b, this);
    t30_set_phase_d_handler(t30_, on_phase_d, this);
    t30_set_phase_e_handler(t30_, on_phase_e, this);
    t30_set_real_time_frame_handler(t30_, on_frame, this);
}

// Ends what may still be running, which is what frees all that spandsp holds; nobody wants to hear of it any more.
FaxEngine::~FaxEngine() {
    t30_set_phase_e_handler(t30_, nullptr, nullptr);
    t30_terminate(t30_);
}

void FaxEngine::configure(const EngineSettings& settings) {
    t30_set_tx_ident(t30_, settings.local_id.substr(0, T30_MAX_IDENT_LEN).c_str());
    t30_set_tx_sub_address(t30_, settings.sub_address.substr(0, T30_MAX_IDENT_LEN).c_str());
    t30_set_supported_modems(t30_, modems_up_to(settings.max_rate));
    t30_set_supported_compressions(
        t30_, T30_SUPPORT_T4_1D_COMPRESSION | T30_SUPPORT_T4_2D_COMPRESSION | T30_SUPPORT_T6_COMPRESSION);
    t30_set_supported_image_sizes(t30_, T30_SUPPORT_215MM_WIDTH | T30_SUPPORT_255MM_WIDTH | T30_SUPPORT_303MM_WIDTH |
                                            T30_SUPPORT_UNLIMITED_LENGTH | T30_SUPPORT_US_LETTER_LENGTH |
                                            T30_SUPPORT_US_LEGAL_LENGTH);
    t30_set_supported_resolutions(t30_, T30_SUPPORT_STANDARD_RESOLUTION | T30_SUPPORT_FINE_RESOLUTION |
                                            T30_SUPPORT_SUPERFINE_RESOLUTION | T30_SUPPORT_R8_RESOLUTION);
    t30_set_supported_t30_features(t30_, T30_SUPPORT_SUB_ADDRESSING);
    t30_set_rx_encoding(t30_, T4_COMPRESSION_ITU_T6);
    t30_set_ecm_capability(t30_, settings.ecm ? TRUE : FALSE);
    if (sending_) {
        t30_set_tx_file(t30_, settings.send_path.c_str(), -1, -1);
    } else {
        received_file_.emplace();
        t30_set_rx_file(t30_, received_file_->path().c_str(), -1);
    }
}

void FaxEngine::transmit(int16_t (&audio)[FRAME_SAMPLES]) {
    fax_tx(fax_.get(), audio, FRAME_SAMPLES);
}

void FaxEngine::receive(int16_t (&audio)[FRAME_SAMPLES]) {
    fax_rx(fax_.get(), audio, FRAME_SAMPLES);
}

void FaxEngine::hang_up() {
    t30_terminate(t30_);
}

// ---- what the engine says -----------------------------------------------------------------------------------------

// Phase B ends the identification: DIS or DTC has come from a receiver, DCS from a sender.
int FaxEngine::on_phase_b(t30_state_t* t30, void* self, int) {
    static_cast<FaxEngine*>(self)->events_.remote_known(
        {text_or_empty(t30_get_rx_ident(t30)), text_or_empty(t30_get_rx_sub_address(t30))});
    return T30_ERR_OK;
}

int FaxEngine::on_phase_d(t30_state_t*, void* self, int fcf) {
    static_cast<FaxEngine*>(self)->report_page_end(fcf);
    return T30_ERR_OK;
}

void FaxEngine::on_phase_e(t30_state_t*, void* self, int completion) {
    static_cast<FaxEngine*>(self)->events_.finished(completion);
}

void FaxEngine::on_frame(t30_state_t*, void* user, int received, const uint8_t* frame, int length) {
    if (length < 3) return;
    FaxEngine& self = *static_cast<FaxEngine*>(user);
    const uint8_t command = command_of(frame[2]);
    if (command == T4_FCD || command == command_of(T4_RCP)) return;
    self.events_.frame(received == FALSE, frame, static_cast<size_t>(length));
    if (command == T30_PPS) {
        self.partial_page_ = length > 3 && command_of(frame[3]) == T30_NULL;
    } else if (command == T30_MCF && self.partial_page_) {
        self.partial_page_ = false;
        self.events_.partial_page_end();
    } else if (command == T30_CFR) {
        self.events_.trained();
    }
}

// Phase D: a sender is told the far end's response, a receiver the far end's command, whether or not the page is good.
void FaxEngine::report_page_end(int fcf) {
    if (!sending_) {
        take_received_page(fcf);
    } else if (fcf == T30_MCF || fcf == T30_RTP || fcf == T30_PIP) {
        events_.page_confirmed();
    }
}

void FaxEngine::take_received_page(int fcf) {
    t30_stats_t stats;
    t30_get_transfer_statistics(t30_, &stats);
    if (stats.pages_rx == pages_received_) return;  // a page that was not accepted
    ReceivedPage page;
    page.bad_rows = static_cast<uint32_t>(stats.bad_rows);
    if (read_received_page(received_file_->path(), pages_received_, page)) {
        pages_received_ = stats.pages_rx;
        const uint8_t command = command_of(static_cast<uint8_t>(fcf));
        events_.page_received(std::move(page), command == T30_EOP || command == T30_PRI_EOP);
    } else {
        BOARD_LOG(LOG_ERROR, "a received page could not be read back");
        t30_set_status(t30_, T30_ERR_FILEERROR);
    }
}

}  // namespace softboard

// One end of a T.30 session: spandsp's engine with its fax modems, as audio on one side and events on the other.
// Used by one thread, which the events are called on.
#pragma once

#include <spandsp.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "page.h"
#include "temp_file.h"

namespace softboard {

constexpr int FRAME_SAMPLES = 160;  // 20 ms of 8 kHz audio

struct RemoteIdentity {
    std::string station_id;   // CSI or TSI
    std::string sub_address;  // SUB
};

struct EngineSettings {
    bool calling = false;
    bool ecm = true;
    uint32_t max_rate = 0;  // bit/s
    std::string local_id;
    std::string sub_address;
    std::string send_path;  // TIFF file to send; empty = the engine receives
};

struct EngineEvents {
    std::function<void(bool sent, const uint8_t* frame, size_t length)> frame;  // T.30 frames, no image data
    std::function<void(const RemoteIdentity& remote)> remote_known;
    std::function<void()> trained;
    std::function<void()> partial_page_end;
    std::function<void()> page_confirmed;                             // sending
    std::function<void(ReceivedPage page, bool last)> page_received;  // receiving
    std::function<void(int completion)> finished;                     // T30_ERR_*
};

class FaxEngine {
  public:
    // Throws Failure when there is no temporary file, std::bad_alloc when there is no memory.
    FaxEngine(const EngineSettings& settings, EngineEvents events);
    FaxEngine(const FaxEngine&) = delete;
    FaxEngine& operator=(const FaxEngine&) = delete;
    ~FaxEngine();

    // Each call is 20 ms of line time.
    void transmit(int16_t (&audio)[FRAME_SAMPLES]);
    void receive(int16_t (&audio)[FRAME_SAMPLES]);
    // The far end is gone.
    void hang_up();

  private:
    static int on_phase_b(t30_state_t* t30, void* self, int fcf);
    static int on_phase_d(t30_state_t* t30, void* self, int fcf);
    static void on_phase_e(t30_state_t* t30, void* self, int completion);
    static void on_frame(t30_state_t* t30, void* self, int received, const uint8_t* frame, int length);

    void configure(const EngineSettings& settings);
    void report_page_end(int fcf);
    void take_received_page(int fcf);

    const bool sending_;
    const EngineEvents events_;
    std::optional<TempFile> received_file_;  // unless sending
    struct Release {
        void operator()(fax_state_t* fax) const { fax_free(fax); }
    };
    std::unique_ptr<fax_state_t, Release> fax_;  // before the file above is deleted
    t30_state_t* t30_ = nullptr;
    int pages_received_ = 0;
    bool partial_page_ = false;  // the last post-message command was PPS-NULL
};

}  // namespace softboard

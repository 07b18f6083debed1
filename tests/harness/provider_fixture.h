// The fixture of every provider test: a freshly loaded provider over the scripted driver, with Windows replaced and the
// journal empty. See harness.h.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "fake_windows.h"
#include "journal.h"
#include "provider_exports.h"
#include "scripted_driver.h"
#include "tapi_side.h"
#include "text.h"
#include "waiting.h"

namespace harness {

constexpr DWORD kTspiVersion = 0x00020000;
constexpr DWORD kProviderId = 3;
constexpr DWORD kDeviceIdBase = 7;

// A LINEERR_* value as the entry points return it.
constexpr LONG failed(DWORD lineerr) {
    return static_cast<LONG>(lineerr);
}

// One record of the shared segment, as other programs read it.
#pragma pack(push, 1)
struct SharedRecord {
    uint32_t reserved;
    uint32_t status;
    uint32_t line_status;
    char szRemoteId[21];
    uint8_t padding0;
    wchar_t wszCalledId[256];
    wchar_t wszCallerId[256];
    uint8_t padding1[2];
    uint32_t dwPageCount;
};
#pragma pack(pop)
static_assert(sizeof(SharedRecord) == 1064);

class ProviderFixture : public testing::Test {
  protected:
    // Loads the provider and puts the fakes in place. Nothing of it has been called yet.
    void SetUp() override;
    // Opens all gates, closes the lines that are open, shuts the provider down if it is up, waits for its threads, and
    // fails the test if something hangs or if there were problems (journal.h).
    void TearDown() override;

    ProviderExports tsp;
    HMODULE module = nullptr;
    // What TSPI_providerEnumDevices counted last.
    DWORD line_count = 0;
    DWORD phone_count = 0;
    DWORD options = 0;

    // TAPI's calls with the usual arguments.
    LONG enumerate();
    LONG initialise();  // with the lines that were enumerated
    LONG shut_down();
    // Enumerates and initialises, both with success, and begins a new chapter of the journal.
    void start_provider();

    // The line of an index is LINE1 for index 0 and so on in every text; its TAPI handle HTLINE1. Expects success.
    HDRVLINE open_line(unsigned index);
    // The same, until its thread waits for calls, and with a new chapter.
    HDRVLINE open_waiting_line(unsigned index);
    LONG close_line(unsigned index);
    HDRVLINE line(unsigned index) const;
    HDRVCALL call(unsigned index) const;
    uint32_t channel_number(unsigned index) const;
    uint32_t unit(unsigned index) const;
    Channel& channel(unsigned index) const { return driver.channel(channel_number(index)); }
    SharedRecord& shared_record(unsigned index) const;

    // The answer to TSPI_lineGetDevCaps, its fixed part.
    LINEDEVCAPS device_caps(unsigned index) const;

    // A call comes in and is offered; ring_det_thread stands in its pause of 6000 ms until sleep_gate(6000) opens.
    void offer_call(unsigned index, const CallData& data = {});
    // The same, answered within the pause; ring_det_thread is parked.
    void take_call(unsigned index, const CallData& data = {});
    // A call is placed and connected; its worker has ended.
    void place_call(unsigned index, const std::wstring& number = L"5551234");

    // The next request ID; requests have numbers from 0x11 on.
    DRV_REQUESTID next_request() { return ++last_request_; }

  private:
    void load();
    void unload();

    std::unique_ptr<Replacements> replacements_;
    std::map<unsigned, HDRVLINE> open_lines_;
    bool initialised_ = false;
    DRV_REQUESTID last_request_ = 0x10;
};

}  // namespace harness

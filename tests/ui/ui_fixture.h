// The fixture of tests about installation and configuration: nothing has initialised the provider, as in a program that
// only shows its dialogs.
#pragma once

#include "harness.h"
// reports_an_exception is declared there.
#include "line_fixture.h"

namespace harness {

// What a 32-bit result looks like in an exit trace.
constexpr char kFailed[] = "(-2147483576) Failed";

// A window handle of any value.
inline HWND window(uint64_t value) {
    return reinterpret_cast<HWND>(value);
}
inline const HWND kOwner = window(0x1234);

// TAPI's way back out of a dialog; the provider has no use for it.
LONG CALLBACK unused_callback(DWORD_PTR, DWORD, LPVOID, DWORD);

// Every trace and everything asked of the driver library, the modules and the memory, in one sequence.
inline View everything() {
    return all_of(TRACE | DRIVER | WINDOWS).all_levels();
}

class UiFixture : public ProviderFixture {
  protected:
    // The log changes the last error with every question and every line, as a log that writes to a file may do.
    void SetUp() override;
    // What was loaded is unloaded and what was allocated is freed, whatever happened.
    void TearDown() override;

    LONG install() { return tsp.TUISPI_providerInstall(unused_callback, kOwner, kProviderId); }
    LONG configure_line(DWORD device = kDeviceIdBase, HWND owner = kOwner, const wchar_t* device_class = L"tapi/line") {
        return tsp.TUISPI_lineConfigDialog(unused_callback, device, owner, device_class);
    }

    // For a test in which a fault ends a function before it can give anything back.
    static void forget_what_is_held();
};

// The whole of a call of TUISPI_lineConfigDialog or TUISPI_providerInstall in a process that has not initialised the
// provider, from what it does inside.
Lines whole_configuration(const Lines& inside, const std::string& result, const std::string& verdict);
Lines whole_installation(const Lines& inside, const std::string& result, const std::string& verdict);

}  // namespace harness

#include "fake_windows.h"

#include "journal.h"
#include "text.h"

namespace harness {

FakeWindows windows;

const std::wstring kHostParameters = L"HKLM\\SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters";
const std::wstring kFaxDevices = L"HKLM\\SOFTWARE\\Microsoft\\Fax\\Devices";

void journal_windows(const std::string& text) {
    add_entry({WINDOWS, text});
}

void FakeWindows::reset() {
    *this = FakeWindows{};
    registry.set(kHostParameters, L"kxcall", L"C:\\boards\\kxcall.cfg");
    files.root = text("qorvtsp-test-%lu", GetCurrentProcessId());
}

void FakeWindows::install(Replacements& table) {
    for (const Fakes& fakes : {service_fakes(), version_fakes(), event_log_fakes(), registry_fakes(), object_fakes(),
                               mapping_fakes(), memory_fakes(), module_fakes(), thread_fakes(), file_fakes()})
        for (const Fake& one : fakes) table.replace(one.name, one.function);
}

}  // namespace harness

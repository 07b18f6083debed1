// A machine on which the provider can work, put together for each test and taken apart behind it: real files, services
// and registry keys of the Wine prefix; only TAPI's list of providers, which Wine lacks, is replaced.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "call_configuration.h"
#include "check.h"
#include "event_source.h"
#include "owned.h"
#include "replaced.h"
#include "temporary_folder.h"

constexpr wchar_t FAX_DEVICES_KEY[] = L"SOFTWARE\\Microsoft\\Fax\\Devices";

class MachineInOrder : public testing::Test {
  protected:
    // Everything but the running host service, which costs a second: start_host_service().
    void SetUp() override;
    void TearDown() override;

    void start_host_service();

    // What check tells of one thing, as the administrator reads it.
    static std::string told(const std::string& name);

    // In the system folder.
    static void put_file(const std::string& source, const std::wstring& name);
    static void drop_file(const std::wstring& name);

    static void set_text(const std::wstring& key, const std::wstring& name, const std::wstring& text,
                         DWORD type = REG_SZ);
    static void set_number(const std::wstring& key, const std::wstring& name, DWORD number);
    static void drop_value(const std::wstring& key, const std::wstring& name);
    static void drop_key(const std::wstring& key);

    // A service that is never started unless `command` is a service program.
    static OwnedService add_service(const wchar_t* name, const std::wstring& command = L"C:\\no-such-program.exe");
    static void drop_service(const wchar_t* name);
    static void start(SC_HANDLE service);

    void drop_configuration_file() { folder_.reset(); }
    std::string configuration_path() const { return folder_->file("kxcall.cfg"); }

    std::unique_ptr<Replaced> replaced;

  private:
    static void take_apart();
    std::unique_ptr<TemporaryFolder> folder_;
};

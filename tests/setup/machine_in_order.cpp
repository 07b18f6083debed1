#include "machine_in_order.h"

#include "fax_file.h"
#include "machine.h"
#include "service_control.h"
#include "service_state.h"
#include "text.h"

namespace {

constexpr wchar_t TEMP_FOLDER[] = L"C:\\temp";
constexpr wchar_t FIRST_DEVICE[] = L"SOFTWARE\\Microsoft\\Fax\\Devices\\0001\\UniqueName";

OwnedKey make_key(const std::wstring& path) {
    HKEY key = nullptr;
    EXPECT_EQ(0,
              RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr));
    return OwnedKey(key);
}

}  // namespace

void MachineInOrder::SetUp() {
    take_apart();
    replaced = std::make_unique<Replaced>();
    replaced->tapi.providers = {{1, L"C:\\windows\\system32\\unimdm.tsp"}, {3, L"C:\\Windows\\System32\\QorvTsp.TSP"}};
    folder_ = std::make_unique<TemporaryFolder>();
    put_file(PROVIDER, PROVIDER_FILE);
    put_file(DRIVER, DRIVER_FILE);
    add_service(SERVICE_NAME, wide("\"" + full_path(CALDER) + "\" " + SERVICE_ARGUMENT));
    add_service(L"Fax");
    write_text(configuration_path(), "# none\r\n");
    set_text(PARAMETERS_KEY, L"kxcall", wide(configuration_path()));
    const std::wstring texts = L"%SystemRoot%\\System32\\qorvtsp.tsp";
    set_text(EVENT_SOURCE_KEY, L"EventMessageFile", texts, REG_EXPAND_SZ);
    set_text(EVENT_SOURCE_KEY, L"CategoryMessageFile", texts, REG_EXPAND_SZ);
    set_number(EVENT_SOURCE_KEY, L"CategoryCount", 5);
    set_number(EVENT_SOURCE_KEY, L"TypesSupported", 7);
    CreateDirectoryW(TEMP_FOLDER, nullptr);
    set_number(FIRST_DEVICE, L"TAPI Permanent Lineid", 0x50000);
    set_number(FIRST_DEVICE, L"Rings", 2);
}

void MachineInOrder::TearDown() {
    replaced.reset();
    take_apart();
}

void MachineInOrder::take_apart() {
    EXPECT_EQ(0u, service_remove().error);
    drop_service(L"Fax");
    drop_service(L"TapiSrv");
    for (const wchar_t* file : {PROVIDER_FILE, DRIVER_FILE, L"softboard.ini"}) drop_file(file);
    for (const wchar_t* key :
         {L"SYSTEM\\CurrentControlSet\\Services\\caldservice", EVENT_SOURCE_KEY, L"SOFTWARE\\Microsoft\\Fax"}) {
        drop_key(key);
    }
    RemoveDirectoryW(TEMP_FOLDER);
}

void MachineInOrder::start_host_service() {
    start(open_service(SERVICE_NAME, SERVICE_ALL_ACCESS).get());
}

std::string MachineInOrder::told(const std::string& name) {
    for (const CheckResult& result : check_machine()) {
        if (result.name == name) return check_lines({result}, false);
    }
    return "nothing";
}

void MachineInOrder::put_file(const std::string& source, const std::wstring& name) {
    EXPECT_TRUE(CopyFileW(wide(source).c_str(), in_system_folder(name.c_str()).c_str(), FALSE)) << GetLastError();
}

void MachineInOrder::drop_file(const std::wstring& name) {
    DeleteFileW(in_system_folder(name.c_str()).c_str());
    EXPECT_FALSE(is_file(in_system_folder(name.c_str())));
}

void MachineInOrder::set_text(const std::wstring& key, const std::wstring& name, const std::wstring& text, DWORD type) {
    const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    EXPECT_EQ(0, RegSetValueExW(make_key(key).get(), name.c_str(), 0, type, reinterpret_cast<const BYTE*>(text.c_str()),
                                size));
}

void MachineInOrder::set_number(const std::wstring& key, const std::wstring& name, DWORD number) {
    EXPECT_EQ(0, RegSetValueExW(make_key(key).get(), name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                                sizeof(number)));
}

void MachineInOrder::drop_value(const std::wstring& key, const std::wstring& name) {
    EXPECT_EQ(0, RegDeleteValueW(make_key(key).get(), name.c_str()));
}

void MachineInOrder::drop_key(const std::wstring& key) {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
}

OwnedService MachineInOrder::add_service(const wchar_t* name, const std::wstring& command) {
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    OwnedService service(CreateServiceW(manager.get(), name, name, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                        SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr,
                                        nullptr, nullptr, nullptr));
    EXPECT_TRUE(service) << GetLastError();
    return service;
}

void MachineInOrder::drop_service(const wchar_t* name) {
    const OwnedService service = open_service(name, SERVICE_ALL_ACCESS);
    if (!service) return;
    SERVICE_STATUS status = {};
    if (ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
        EXPECT_TRUE(reaches(service.get(), SERVICE_STOPPED));
    }
    EXPECT_TRUE(DeleteService(service.get()));
}

void MachineInOrder::start(SC_HANDLE service) {
    ASSERT_TRUE(StartServiceW(service, 0, nullptr)) << GetLastError();
    EXPECT_TRUE(reaches(service, SERVICE_RUNNING));
}

// The steps of an installation.
#include "steps.h"

#include <windows.h>

#include <functional>

#include "machine.h"
#include "owned.h"
#include "service_control.h"
#include "telephony.h"
#include "text.h"

namespace {

constexpr DWORD START_TIMEOUT = 30000;  // milliseconds

bool failed(Installation& installation, const std::string& step, uint32_t error) {
    installation.error = step + ": " + windows_error(error);
    return false;
}

bool note(Installation& installation, const Change& change) {
    installation.log.in_progress.push_back(change);
    const uint32_t error = install_log_write(installation.log);
    return error == 0 || failed(installation, "noting in the registry what is about to be changed", error);
}

// Beside the file, where nothing is yet.
std::wstring backup_path(const std::wstring& path) {
    std::wstring backup = path + L".old";
    for (int i = 2; is_file(backup); ++i) backup = path + L".old" + std::to_wstring(i);
    return backup;
}

bool move_away(Installation& installation, const std::wstring& path) {
    const std::wstring backup = backup_path(path);
    if (!note(installation, {ChangeKind::replaced, path, backup})) return false;
    return MoveFileExW(path.c_str(), backup.c_str(), 0) ||
           failed(installation, "renaming " + utf8(path), GetLastError());
}

bool make_key(Installation& installation, const std::wstring& path) {
    if (path.empty() || key_exists(path)) return true;
    const size_t parent = path.find_last_of(L'\\');
    if (!make_key(installation, parent == std::wstring::npos ? L"" : path.substr(0, parent))) return false;
    if (!note(installation, {ChangeKind::key, path})) return false;
    OwnedKey key;
    const uint32_t error = create_key(path, key);
    return error == 0 || failed(installation, "creating the registry key HKLM\\" + utf8(path), error);
}

// The manager, to register services with.
OwnedService open_manager(Installation& installation) {
    OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    if (!manager) failed(installation, "opening the service manager", GetLastError());
    return manager;
}

bool put_service(Installation& installation, const wchar_t* name,
                 const std::function<OwnedService(SC_HANDLE)>& create) {
    if (service_exists(name)) {
        installation.lines.push_back("there is a service " + utf8(name) + "; it stays as it is");
        return true;
    }
    const OwnedService manager = open_manager(installation);
    if (!manager || !note(installation, {ChangeKind::service, name})) return false;
    if (!create(manager.get())) {
        return failed(installation, "registering the service " + utf8(name), GetLastError());
    }
    installation.lines.push_back("registered the service " + utf8(name));
    return true;
}

OwnedService open_host_service(DWORD access) {
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    return OwnedService(OpenServiceW(manager.get(), SERVICE_NAME, access | SERVICE_QUERY_STATUS));
}

DWORD state_of(SC_HANDLE service) {
    SERVICE_STATUS status = {};
    return QueryServiceStatus(service, &status) ? status.dwCurrentState : SERVICE_STOPPED;
}

bool wait_until_running(Installation& installation, SC_HANDLE service) {
    DWORD state = state_of(service);
    for (DWORD waited = 0; state == SERVICE_START_PENDING && waited < START_TIMEOUT; waited += 100) {
        Sleep(100);
        state = state_of(service);
    }
    if (state == SERVICE_RUNNING) return true;
    installation.error = "the service calder does not start; its log is %ProgramData%\\Calder\\calder.log";
    return false;
}

}  // namespace

bool put_file(Installation& installation, const std::wstring& source, const std::wstring& target) {
    const bool exists = is_file(target);
    if (exists && same_files(source, target)) return true;
    if (exists ? !move_away(installation, target) : !note(installation, {ChangeKind::file, target})) {
        return false;
    }
    if (!CopyFileW(source.c_str(), target.c_str(), TRUE)) {
        return failed(installation, "writing " + utf8(target), GetLastError());
    }
    installation.lines.push_back((exists ? "replaced " : "wrote ") + utf8(target));
    return true;
}

bool put_configuration(Installation& installation, const std::string& content, const std::wstring& target) {
    if (is_file(target)) return true;
    if (!note(installation, {ChangeKind::file, target})) return false;
    const OwnedHandle file =
        owned_file(CreateFileW(target.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!file || !WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr)) {
        return failed(installation, "writing " + utf8(target), GetLastError());
    }
    installation.lines.push_back("wrote " + utf8(target));
    return true;
}

bool make_folder(Installation& installation, const std::wstring& path) {
    if (is_folder(path)) return true;
    if (!note(installation, {ChangeKind::folder, path})) return false;
    return CreateDirectoryW(path.c_str(), nullptr) ||
           failed(installation, "making the folder " + utf8(path), GetLastError());
}

bool set_value(Installation& installation, const std::wstring& key, const std::wstring& name,
               const RegistryValue& value) {
    if (!make_key(installation, key)) return false;
    const std::string step = "writing the registry value " + utf8(name) + " of HKLM\\" + utf8(key);
    OwnedKey opened;
    uint32_t error = open_key(key, KEY_READ | KEY_WRITE, opened);
    if (error != 0) return failed(installation, step, error);
    const RegistryValue before = read_value(opened.get(), name);
    if (before == value) return true;
    if (!note(installation, {ChangeKind::value, key, name, text_form(before)})) return false;
    error = write_value(opened.get(), name, value);
    return error == 0 || failed(installation, step, error);
}

bool put_host_service(Installation& installation, const std::wstring& program) {
    if (service_command(SERVICE_NAME).find(program) != std::wstring::npos) return true;
    return put_service(installation, SERVICE_NAME,
                       [&](SC_HANDLE manager) { return host_service_register(manager, program, SERVICE_ACCOUNT); });
}

bool put_fax_stand_in(Installation& installation, const std::wstring& program) {
    if (service_command(FAX_SERVICE_NAME).find(program) != std::wstring::npos) return true;
    return put_service(installation, FAX_SERVICE_NAME,
                       [&](SC_HANDLE manager) { return fax_stand_in_register(manager, program); });
}

bool stop_host_service_of(Installation& installation, const std::wstring& program) {
    if (service_command(SERVICE_NAME).find(program) == std::wstring::npos) return true;
    const OwnedService service = open_host_service(SERVICE_STOP);
    if (!service) return failed(installation, "opening the service calder", GetLastError());
    if (state_of(service.get()) == SERVICE_STOPPED) return true;
    if (!note(installation, {ChangeKind::stopped, SERVICE_NAME})) return false;
    if (host_service_stop(service.get())) return true;
    installation.error = "the service calder does not stop";
    return false;
}

bool start_host_service(Installation& installation) {
    const OwnedService service = open_host_service(SERVICE_START);
    if (!service) return failed(installation, "opening the service calder", GetLastError());
    if (state_of(service.get()) == SERVICE_RUNNING) return true;
    if (!note(installation, {ChangeKind::started, SERVICE_NAME})) return false;
    if (!StartServiceW(service.get(), 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
        return failed(installation, "starting the service calder", GetLastError());
    }
    if (!wait_until_running(installation, service.get())) return false;
    installation.lines.push_back("started the service calder");
    return true;
}

bool add_to_telephony(Installation& installation, const std::wstring& file_name, bool trial) {
    const TapiProviders list = tapi_providers();
    if (!telephony_exists(list) && trial) {
        installation.lines.emplace_back("this machine has no telephony service: only faxhost can use the provider");
        return true;
    }
    if (!telephony_exists(list)) {
        installation.error =
            "this machine has no telephony service to add the provider to; for a trial without it there is "
            "--software-board";
        return false;
    }
    if (list.error != 0) {
        installation.error = "asking telephony for its providers: " + telephony_error(static_cast<LONG>(list.error));
        return false;
    }
    if (find_provider(list, file_name)) return true;
    if (!note(installation, {ChangeKind::provider, file_name})) return false;
    if (const LONG error = telephony_add(file_name)) {
        installation.error = "telephony did not take the provider: " + telephony_error(error) +
                             "; the application event log may tell why";
        return false;
    }
    installation.lines.push_back("added " + utf8(file_name) + " to telephony");
    return true;
}

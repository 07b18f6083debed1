// One function per kind of change, and the loop over them.
#include "undo.h"

#include <windows.h>

#include <algorithm>

#include "machine.h"
#include "owned.h"
#include "registry.h"
#include "service_control.h"
#include "telephony.h"
#include "text.h"

namespace {

UndoResult failed(const std::string& what, uint32_t error) {
    return {Undone::no, what + ": " + windows_error(error)};
}

bool is_in_use(uint32_t error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED || error == ERROR_USER_MAPPED_FILE;
}

// A file that came from a read-only medium is read-only, too.
bool delete_even_read_only(const std::wstring& path) {
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    return DeleteFileW(path.c_str()) != FALSE;
}

UndoResult delete_file(const std::wstring& path) {
    if (!is_file(path)) return {};
    if (delete_even_read_only(path)) return {Undone::yes, "removed " + utf8(path)};
    const uint32_t error = GetLastError();
    if (!is_in_use(error)) return failed("removing " + utf8(path), error);
    return {Undone::no, utf8(path) + " is in use (" + windows_error(error) +
                            "): end what uses it, the telephony service (net stop tapisrv) or faxhost"};
}

// Whatever is there goes while the installation is in progress; later only what was installed.
UndoResult undo_file(const Change& change) {
    if (!change.detail.empty() && is_file(change.name) && file_fingerprint(change.name) != change.detail) {
        return {Undone::left, utf8(change.name) + " stays: it is not what was installed any more"};
    }
    return delete_file(change.name);
}

UndoResult undo_replaced(const Change& change) {
    if (!is_file(change.detail)) return {};
    const UndoResult deleted = delete_file(change.name);
    if (deleted.undone == Undone::no) return deleted;
    if (!MoveFileExW(change.detail.c_str(), change.name.c_str(), 0)) {
        return failed("putting " + utf8(change.detail) + " back as " + utf8(change.name), GetLastError());
    }
    return {Undone::yes, "put the former " + utf8(change.name) + " back"};
}

UndoResult undo_folder(const Change& change) {
    if (RemoveDirectoryW(change.name.c_str())) return {Undone::yes, "removed the folder " + utf8(change.name)};
    const uint32_t error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return {};
    if (error == ERROR_DIR_NOT_EMPTY)
        return {Undone::left, "the folder " + utf8(change.name) + " stays: it is not empty"};
    return failed("removing the folder " + utf8(change.name), error);
}

UndoResult undo_key(const Change& change) {
    if (!key_exists(change.name)) return {};
    const uint32_t error = delete_empty_key(change.name);
    if (error == ERROR_DIR_NOT_EMPTY) {
        return {Undone::left, "the registry key HKLM\\" + utf8(change.name) + " stays: it is not empty"};
    }
    if (error != 0) return failed("removing the registry key HKLM\\" + utf8(change.name), error);
    return {Undone::yes, "removed the registry key HKLM\\" + utf8(change.name)};
}

// As with files: later only what was installed.
UndoResult undo_value(const Change& change) {
    OwnedKey key;
    uint32_t error = open_key(change.name, KEY_READ | KEY_WRITE, key);
    if (error == ERROR_FILE_NOT_FOUND) return {};
    const std::string what = "the registry value " + utf8(change.detail) + " of HKLM\\" + utf8(change.name);
    if (error == 0 && !change.put.empty() && text_form(read_value(key.get(), change.detail)) != change.put) {
        return {Undone::left, what + " stays: it is not what was installed any more"};
    }
    if (error == 0) error = write_value(key.get(), change.detail, registry_value_of(change.before));
    if (error != 0) return failed("restoring " + what, error);
    return {Undone::yes, (change.before.empty() ? "removed " : "restored ") + what};
}

OwnedService open_service(const Change& change, DWORD access) {
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    return OwnedService(OpenServiceW(manager.get(), change.name.c_str(), access));
}

UndoResult undo_service(const Change& change) {
    const OwnedService service = open_service(change, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE);
    const std::string what = "the service " + utf8(change.name);
    if (!service && GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST) return {};
    if (!service) return failed("opening " + what, GetLastError());
    if (!host_service_stop(service.get())) return {Undone::no, what + " does not stop: end its process"};
    if (!DeleteService(service.get())) return failed("removing " + what, GetLastError());
    return {Undone::yes, "removed " + what};
}

UndoResult undo_started(const Change& change) {
    const OwnedService service = open_service(change, SERVICE_STOP | SERVICE_QUERY_STATUS);
    if (!service || host_service_stop(service.get())) return {};
    return {Undone::no, "the service " + utf8(change.name) + " does not stop"};
}

UndoResult undo_stopped(const Change& change) {
    const OwnedService service = open_service(change, SERVICE_START);
    if (!service && GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST) return {};
    if (StartServiceW(service.get(), 0, nullptr) || GetLastError() == ERROR_SERVICE_ALREADY_RUNNING) {
        return {Undone::yes, "started the service " + utf8(change.name) + " again"};
    }
    return failed("starting the service " + utf8(change.name) + " again", GetLastError());
}

UndoResult undo_provider(const Change& change) {
    const LONG error = telephony_remove(change.name);
    if (error == 0) return {Undone::yes, "removed " + utf8(change.name) + " from telephony"};
    return {Undone::no, "removing " + utf8(change.name) + " from telephony: " + telephony_error(error)};
}

constexpr UndoResult (*UNDO[])(const Change&) = {
    undo_file,    undo_replaced, undo_folder,  undo_key,      undo_value,
    undo_service, undo_started,  undo_stopped, undo_provider,
};
static_assert(std::size(UNDO) == static_cast<size_t>(ChangeKind::provider) + 1);

}  // namespace

UndoResult undo_change(const Change& change) {
    return UNDO[static_cast<size_t>(change.kind)](change);
}

void undo_changes(InstallLog& log, std::vector<Change>& changes, std::vector<std::string>& lines,
                  std::vector<std::string>& problems) {
    for (size_t i = changes.size(); i-- > 0;) {
        const UndoResult result = undo_change(changes[i]);
        if (result.undone == Undone::no) {
            problems.push_back(result.text);
            continue;
        }
        if (!result.text.empty()) lines.push_back(result.text);
        changes.erase(changes.begin() + static_cast<ptrdiff_t>(i));
        if (const uint32_t error = install_log_write(log)) {
            problems.push_back("noting in the registry what is left to undo: " + windows_error(error));
        }
    }
}

void discard_replaced(InstallLog& log, const std::vector<Change>& changes, std::vector<std::string>& lines) {
    for (const Change& change : changes) {
        if (change.kind != ChangeKind::replaced) continue;
        if (delete_even_read_only(change.detail)) {
            const auto is_note = [&](const Change& note) { return note.name == change.detail; };
            log.done.erase(std::remove_if(log.done.begin(), log.done.end(), is_note), log.done.end());
            continue;
        }
        MoveFileExW(change.detail.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
        lines.push_back("the former " + utf8(change.name) +
                        " is still in use: what uses it goes on with it until restarted; it goes when Windows starts");
    }
    install_log_write(log);  // a note of a file that is gone does no harm
}

// Events, mutexes, waits and sleeps. The objects are real; what differs is told in FakeObjects. Only the wide forms of
// the creating functions are replaced: the narrow ones are called by ACE alone.
#include <windows.h>

#include <atomic>

#include "fake_windows.h"
#include "journal.h"
#include "scripted_driver.h"
#include "text.h"
#include "waiting.h"

namespace harness {

namespace {

std::string wait_time(DWORD milliseconds) {
    return milliseconds == INFINITE ? "INFINITE" : text("%lu", milliseconds);
}

// Decides about the next creation of a kind and makes the object; the outcome is what GetLastError will say.
template <class Create>
HANDLE create(const std::string& kind, int& created, std::map<int, FakeObjects::Creation>& decided, Create make) {
    int number;
    FakeObjects::Creation creation;
    {
        std::lock_guard<std::mutex> holding(world());
        number = ++created;
        if (decided.count(number)) creation = decided[number];
    }
    std::string name = text(kind == "CreateEvent" ? "EVENT%d" : "MUTEX%d", number);
    HANDLE handle = creation.result == fails ? nullptr : make();
    if (handle) know_object(handle, name);
    journal_windows(kind + (handle ? " -> " + name : " failed"));
    SetLastError(creation.result == fails            ? creation.error
                 : creation.result == exists_already ? ERROR_ALREADY_EXISTS
                                                     : ERROR_SUCCESS);
    return handle;
}

HANDLE WINAPI create_event(LPSECURITY_ATTRIBUTES attributes, BOOL manual, BOOL signalled, LPCWSTR name) {
    if (!manual || name) return CreateEventW(attributes, manual, signalled, name);
    if (signalled) problem("an event was created signalled");
    return create("CreateEvent", windows.objects.events_created, windows.objects.events,
                  [=] { return CreateEventW(attributes, manual, signalled, nullptr); });
}

HANDLE WINAPI create_mutex(LPSECURITY_ATTRIBUTES attributes, BOOL owned, LPCWSTR name) {
    if (name) return CreateMutexW(attributes, owned, name);
    if (owned) problem("a mutex was created owned");
    return create("CreateMutex", windows.objects.mutexes_created, windows.objects.mutexes,
                  [=] { return CreateMutexW(attributes, owned, nullptr); });
}

HANDLE WINAPI open_event(DWORD access, BOOL inherits, LPCWSTR name) {
    HANDLE handle = OpenEventW(access, inherits, name);
    DWORD error = GetLastError();
    journal_windows(text("OpenEventW(0x%lX, %d, ", access, inherits) + quoted(name) + ")" + (handle ? "" : " failed"));
    if (handle) know_object(handle, "NAMED_EVENT");
    SetLastError(error);
    return handle;
}

BOOL WINAPI set_event(HANDLE event) {
    std::string name = object_name(event);
    if (!name.empty()) journal_windows("SetEvent(" + name + ")");
    driver.answered_alert();
    return SetEvent(event);
}

BOOL WINAPI reset_event(HANDLE event) {
    std::string name = object_name(event);
    if (!name.empty()) journal_windows("ResetEvent(" + name + ")");
    return ResetEvent(event);
}

BOOL WINAPI release_mutex(HANDLE mutex) {
    std::string name = object_name(mutex);
    if (!name.empty()) journal_windows("ReleaseMutex(" + name + ")");
    BOOL released = ReleaseMutex(mutex);
    if (windows.objects.release_works) return released;
    SetLastError(ERROR_NOT_OWNER);
    return FALSE;
}

DWORD WINAPI wait_for_object(HANDLE object, DWORD milliseconds) {
    std::string name = object_name(object);
    if (!name.empty()) journal_windows("WaitForSingleObject(" + name + ", " + wait_time(milliseconds) + ")");
    if (!name.empty() && windows.objects.on_wait)
        if (std::optional<DWORD> decided = windows.objects.on_wait(object, milliseconds)) return *decided;
    bool shortened = milliseconds != INFINITE && milliseconds > windows.objects.longest_wait;
    return WaitForSingleObject(object, shortened ? windows.objects.longest_wait : milliseconds);
}

BOOL WINAPI close_handle(HANDLE handle) {
    std::string name = object_name(handle);
    if (name.empty() && handle && handle == windows.mapping.handle) {
        journal_windows("CloseHandle(MAPPING) again");
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (name.empty()) return CloseHandle(handle);
    journal_windows("CloseHandle(" + name + ")");
    if (name == "MAPPING" && windows.mapping.close_error) {
        SetLastError(windows.mapping.close_error);
        return FALSE;
    }
    {
        std::lock_guard<std::mutex> holding(world());
        windows.objects.open.erase(handle);
    }
    // The segment's handle is kept, so that no other object gets its number while the provider remembers it.
    return handle == windows.mapping.handle ? TRUE : CloseHandle(handle);
}

void WINAPI sleep(DWORD milliseconds) {
    journal_windows(text("Sleep(%lu)", milliseconds));
    sleep_gate(milliseconds).pass();
    if (windows.on_sleep)
        windows.on_sleep(milliseconds);
    else
        Sleep(milliseconds / 1000 + 1);
}

// The one critical section that the provider makes while it runs and that is a variable of its module. Those of ACE and
// of the C++ runtime lie elsewhere or are made when the module is loaded.
std::atomic<LPCRITICAL_SECTION> reset_lock{nullptr};

bool lies_in_a_module(const void* address) {
    HMODULE module = nullptr;
    constexpr DWORD flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    return GetModuleHandleExA(flags, static_cast<LPCSTR>(address), &module) != FALSE;
}

void WINAPI initialise_section(LPCRITICAL_SECTION section) {
    if (lies_in_a_module(section)) {
        reset_lock = section;
        journal_windows("InitializeCriticalSection(RESET_LOCK)");
    }
    InitializeCriticalSection(section);
}

void WINAPI delete_section(LPCRITICAL_SECTION section) {
    if (section == reset_lock) {
        journal_windows("DeleteCriticalSection(RESET_LOCK)");
        reset_lock = nullptr;
    }
    DeleteCriticalSection(section);
}

// Entered already when the line is written.
void WINAPI enter_section(LPCRITICAL_SECTION section) {
    EnterCriticalSection(section);
    if (section == reset_lock) journal_windows("EnterCriticalSection(RESET_LOCK)");
}

// Still held when the line is written.
void WINAPI leave_section(LPCRITICAL_SECTION section) {
    if (section == reset_lock) journal_windows("LeaveCriticalSection(RESET_LOCK)");
    LeaveCriticalSection(section);
}

}  // namespace

std::string object_name(HANDLE handle) {
    std::lock_guard<std::mutex> holding(world());
    auto known = windows.objects.open.find(handle);
    return known == windows.objects.open.end() ? "" : known->second;
}

void know_object(HANDLE handle, const std::string& name) {
    {
        std::lock_guard<std::mutex> holding(world());
        windows.objects.open[handle] = name;
    }
    name_pointer(handle, name);
}

Gate& sleep_gate(DWORD milliseconds) {
    static std::mutex lock;
    static std::map<DWORD, Gate> gates;
    std::lock_guard<std::mutex> holding(lock);
    return gates[milliseconds];
}

Fakes object_fakes() {
    return {fake("CreateEventW", create_event),
            fake("CreateMutexW", create_mutex),
            fake("OpenEventW", open_event),
            fake("SetEvent", set_event),
            fake("ResetEvent", reset_event),
            fake("ReleaseMutex", release_mutex),
            fake("CloseHandle", close_handle),
            fake("WaitForSingleObject", wait_for_object),
            fake("Sleep", sleep),
            fake("InitializeCriticalSection", initialise_section),
            fake("DeleteCriticalSection", delete_section),
            fake("EnterCriticalSection", enter_section),
            fake("LeaveCriticalSection", leave_section)};
}

}  // namespace harness

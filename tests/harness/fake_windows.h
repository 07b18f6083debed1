// Windows as the provider sees it in a test: what it imports is replaced by functions that write to the journal and do
// as a test says. By default everything works as on a healthy machine.
//
//     windows.services.state.erase(L"Fax");              the fax service is not installed
//     windows.version = {5, 1};                           Windows XP
//     windows.event_log.source_opens = false;
//     windows.objects.events[2] = {fails, ERROR_NO_SYSTEM_RESOURCES};   the second event cannot be created
//     windows.memory.fail_once_after("[4] Dev Specific cmd 3 (<*>", 112);
//     windows.registry.set(kFaxDevices + L"\\0000000001\\Data", L"Rings", 3);
//     windows.modules[L"qorvconf.cpl"].load_error = 126;  the control-panel module cannot be loaded
//     windows.providers.files = {L"unimdm.tsp"};          TAPI has one provider
//     sleep_gate(6000).close();                           a thread that sleeps 6000 ms stays there until it opens
//
// Journal lines of kind WINDOWS, in windows_calls(): Sleep(6000), CreateEvent -> EVENT1, SetEvent(EVENT1),
// WaitForSingleObject(EVENT1, 1000), OpenServiceW("calder", 0x4), RegQueryValueExW("kxcall") and so on. Only objects
// that look like the provider's own are journalled: manual-reset events and mutexes without a name, and the critical
// section of the start-up resets, EnterCriticalSection(RESET_LOCK); and only the modules and the environment variable
// that the provider asks for itself.
#pragma once

#include <windows.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "import_table.h"
#include "waiting.h"

namespace harness {

struct FakeServices {
    DWORD manager_error = 0;  // 0 = the manager can be opened
    std::map<std::wstring, DWORD> state = {{L"calder", SERVICE_RUNNING}, {L"Fax", SERVICE_STOPPED}};  // what exists
    DWORD open_error = ERROR_SERVICE_DOES_NOT_EXIST;  // what the others get
    bool query_works = true;
    int open_handles = 0;
};

struct FakeVersion {
    DWORD major = 6, minor = 1, platform = VER_PLATFORM_WIN32_NT;
    int failures = 0;  // so many questions fail before one is answered
};

struct FakeEventLog {
    bool source_opens = true;
    bool takes_entries = true;
    int open_sources = 0;
};

struct FakeRegistry {
    struct Key {
        std::wstring path;  // from the root, "HKLM\\SOFTWARE\\..."
        std::map<std::wstring, std::vector<uint8_t>> values = {};
        std::map<std::wstring, DWORD> types = {};
        DWORD open_error = 0;  // 0 = it can be opened
    };
    std::vector<Key> keys;  // in the order in which they are enumerated
    int open_keys = 0;

    // The key of that path, made with its parents when it is not there.
    Key& key(const std::wstring& path);
    void set(const std::wstring& path, const std::wstring& name, DWORD value);
    void set(const std::wstring& path, const std::wstring& name, const std::wstring& value);
    void remove(const std::wstring& path);
};
extern const std::wstring kHostParameters;  // HKLM\SYSTEM\...\caldservice\Parameters
extern const std::wstring kFaxDevices;      // HKLM\SOFTWARE\Microsoft\Fax\Devices

enum CreationResult { works, fails, exists_already };

struct FakeObjects {
    struct Creation {
        CreationResult result = works;
        DWORD error = ERROR_NO_SYSTEM_RESOURCES;  // of a failure
    };
    // What the n-th creation (from 1) gives, counted over the whole test.
    std::map<int, Creation> events, mutexes;
    int events_created = 0, mutexes_created = 0;
    std::map<HANDLE, std::string> open;  // the provider's open handles and their names

    bool release_works = true;      // ReleaseMutex
    DWORD longest_wait = INFINITE;  // milliseconds; a wait with a longer time-out gives up earlier
    // The result of a wait instead of the wait itself; the wait goes on when there is none.
    std::function<std::optional<DWORD>(HANDLE, DWORD)> on_wait = nullptr;
};

struct FakeMapping {
    DWORD descriptor_error = 0;  // 0 = each of these works
    DWORD mapping_error = 0;
    DWORD view_error = 0;
    DWORD unmap_error = 0;
    DWORD close_error = 0;
    bool exists_already = false;
    uint8_t* view = nullptr;  // the shared segment while it is mapped
    HANDLE handle = nullptr;
};

struct Allocation {
    const char* function;  // malloc, calloc, GlobalAlloc, LocalAlloc, HeapAlloc
    size_t size;
};

struct FakeMemory {
    // What LocalAlloc gave and LocalFree has not taken back: BLOCK1, BLOCK2, ... in the order in which they came.
    std::map<void*, std::string> local_blocks = {};
    int local_blocks_given = 0;

    // Whether an allocation fails. Asked on every thread of the provider, for every allocation of its module, those of
    // the C++ runtime and of ACE included.
    std::function<bool(const Allocation&)> fails = nullptr;

    // The first allocation of such a size, in bytes, after the journal holds a line fails, and no other. (A thrown
    // bad_alloc makes the C++ runtime allocate, and it gives up when it cannot.)
    void fail_once_after(const std::string& line, size_t smallest, size_t largest);
    void fail_once_after(const std::string& line, size_t size) { fail_once_after(line, size, size); }
};

// A module that the provider loads by its name. It has the one export that the provider looks for.
struct FakeModule {
    DWORD load_error = 0;    // 0 = it can be loaded
    DWORD export_error = 0;  // 0 = the export is there
    int loaded = 0;          // loads that no unload has followed
};

// TAPI's list of providers, as tapi32.dll's lineGetProviderListW tells it.
struct FakeProviders {
    std::vector<std::wstring> files = {};  // how the providers are recorded
    std::deque<LONG> failures = {};        // what the next calls return instead of the list
    std::deque<DWORD> growth = {};         // how many bytes the list is larger at each of the next calls
    std::function<void()> on_call = nullptr;
};

// What the control-panel module's do_prop_sheet does; it is called with the module's handle.
using PropertySheet = std::function<int32_t(HWND)>;

struct FakeThreads {
    bool start = true;  // false: _beginthread fails
    int running = 0;    // threads that the provider has started and whose bodies have not returned
    std::vector<HANDLE> handles = {};
};

struct FakeFiles {
    // Where the root of the current drive is; the folder is made for the test and has no "temp" in it at first.
    std::string root = "";
};

struct FakeWindows {
    FakeServices services;
    FakeVersion version;
    FakeEventLog event_log;
    FakeRegistry registry;
    FakeObjects objects;
    FakeMapping mapping;
    FakeMemory memory;
    std::map<std::wstring, FakeModule> modules = {{L"tapi32.dll", {}}, {L"qorvconf.cpl", {}}};
    FakeProviders providers;
    PropertySheet property_sheet = [](HWND) { return 0; };
    std::optional<std::wstring> windir = L"C:\\windows";  // the environment variable, when it is set
    std::function<void()> on_windir = nullptr;            // called before it is told
    FakeThreads threads;
    FakeFiles files;
    // What a Sleep does, after it is in the journal; by default a thousandth of it passes.
    std::function<void(DWORD)> on_sleep = nullptr;

    // A healthy machine, as a test finds it.
    void reset();
    // Puts the fakes into the module's import table.
    void install(Replacements& table);
    // Waits until every thread of the provider has ended.
    bool all_threads_end(int milliseconds);
    // Removes what the fakes made on the disk and kept open.
    void clean_up();
};

extern FakeWindows windows;

// A gate that every Sleep of this length passes, open until closed.
Gate& sleep_gate(DWORD milliseconds);

// One replaced function; each file of fakes has a list of its own.
struct Fake {
    const char* name;
    void* function;
};
using Fakes = std::vector<Fake>;
Fakes service_fakes();
Fakes version_fakes();
Fakes event_log_fakes();
Fakes registry_fakes();
Fakes object_fakes();
Fakes mapping_fakes();
Fakes memory_fakes();
Fakes module_fakes();
Fakes thread_fakes();
Fakes file_fakes();

template <class Function>
Fake fake(const char* name, Function* function) {
    return {name, reinterpret_cast<void*>(function)};
}

// For the fakes: a line of kind WINDOWS.
void journal_windows(const std::string& text);
// The name under which an object of the provider is known; empty for other handles.
std::string object_name(HANDLE handle);
// Counts a handle among the provider's own, under a name.
void know_object(HANDLE handle, const std::string& name);

}  // namespace harness

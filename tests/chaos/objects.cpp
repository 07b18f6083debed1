#include "objects.h"

#include <deque>
#include <iterator>
#include <map>
#include <set>

#include "text.h"

namespace chaos {

using harness::fake;
using harness::Fakes;
using harness::text;

Shortages shortages;

namespace {

enum class Kind { event, mutex };

struct Object {
    Kind kind;
    std::string name;
    bool is_open = true;
    bool signalled = false;          // of an event
    const Thread* holder = nullptr;  // of a mutex
    uint32_t depth = 0;
};

// Handles of this world are far from those of Windows, and none is given twice.
constexpr uintptr_t FIRST_HANDLE = 0x7C000000;
std::deque<Object> objects;  // never shrinks: a name is wanted of what was closed as well
std::set<size_t> open_objects;
std::map<std::string, const Object*> locks;           // the newest of each owner
std::map<const Thread*, const Object*> wanted_locks;  // by those who wait for one

struct Section {
    const Thread* holder = nullptr;
    uint32_t depth = 0;
};
std::map<LPCRITICAL_SECTION, Section> sections;

// A line has a mutex and three events, created in this order.
constexpr const char* OBJECTS_OF_A_LINE[] = {"lock", "worker_idle_event", "drop_done_event", "ring_det_wait_event"};
std::map<std::string, size_t> objects_of_owner;  // created since the last mutex

HANDLE handle_of(size_t index) {
    return reinterpret_cast<HANDLE>(FIRST_HANDLE + index * 4);
}

// Null for a handle of Windows.
Object* find_object(HANDLE handle) {
    if (is_from_a_freed_record(handle)) give_up("a handle from a record that was freed is used");
    const auto value = reinterpret_cast<uintptr_t>(handle);
    const size_t index = (value - FIRST_HANDLE) / 4;
    if (value < FIRST_HANDLE || index >= objects.size()) return nullptr;
    if (!objects[index].is_open) give_up("a handle that was closed is used: " + objects[index].name);
    return &objects[index];
}

HANDLE create(Kind kind) {
    point();
    if (chance().below(1000) < shortages.of_handles) {
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return nullptr;
    }
    const std::string& owner = current_task().owner;
    size_t& created = objects_of_owner[owner];
    if (kind == Kind::mutex) created = 0;
    const char* role = created < std::size(OBJECTS_OF_A_LINE) ? OBJECTS_OF_A_LINE[created++] : "event";
    objects.push_back({kind, role + (" of " + owner)});
    open_objects.insert(objects.size() - 1);
    if (kind == Kind::mutex) locks[owner] = &objects.back();
    SetLastError(ERROR_SUCCESS);
    return handle_of(objects.size() - 1);
}

HANDLE WINAPI create_event(LPSECURITY_ATTRIBUTES attributes, BOOL manual, BOOL signalled, LPCWSTR name) {
    if (!has_turn() || name || !manual || signalled) return CreateEventW(attributes, manual, signalled, name);
    return create(Kind::event);
}

HANDLE WINAPI create_mutex(LPSECURITY_ATTRIBUTES attributes, BOOL owned, LPCWSTR name) {
    if (!has_turn() || name || owned) return CreateMutexW(attributes, owned, name);
    return create(Kind::mutex);
}

BOOL WINAPI set_event(HANDLE handle) {
    Object* event = has_turn() ? find_object(handle) : nullptr;
    if (!event) return SetEvent(handle);
    point();
    event = find_object(handle);
    event->signalled = true;
    point();
    return TRUE;
}

BOOL WINAPI reset_event(HANDLE handle) {
    Object* event = has_turn() ? find_object(handle) : nullptr;
    if (!event) return ResetEvent(handle);
    point();
    event = find_object(handle);
    event->signalled = false;
    return TRUE;
}

BOOL WINAPI release_mutex(HANDLE handle) {
    Object* mutex = has_turn() ? find_object(handle) : nullptr;
    if (!mutex) return ReleaseMutex(handle);
    if (mutex->holder != running()) give_up("a lock is given back by somebody who does not hold it: " + mutex->name);
    if (--mutex->depth == 0) mutex->holder = nullptr;
    point();
    return TRUE;
}

bool is_free_for(const Object& mutex, const Thread* thread) {
    return !mutex.holder || mutex.holder == thread;
}

DWORD take_mutex(HANDLE handle, Object& mutex, Milliseconds at_most) {
    const Thread* me = running();
    wanted_locks[me] = &mutex;
    const bool came = wait(
        mutex.name, [&mutex, me] { return is_free_for(mutex, me); }, at_most);
    wanted_locks.erase(me);
    if (!came) return WAIT_TIMEOUT;
    find_object(handle);
    mutex.holder = me;
    ++mutex.depth;
    return WAIT_OBJECT_0;
}

DWORD await_event(HANDLE handle, const Object& event, Milliseconds at_most) {
    arrived();
    const bool came = wait(
        event.name, [&event] { return event.signalled; }, at_most);
    find_object(handle);
    return came ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

DWORD WINAPI wait_for_object(HANDLE handle, DWORD milliseconds) {
    Object* object = has_turn() ? find_object(handle) : nullptr;
    if (!object) return WaitForSingleObject(handle, milliseconds);
    const Milliseconds at_most = milliseconds == INFINITE ? FOR_EVER : milliseconds;
    return object->kind == Kind::mutex ? take_mutex(handle, *object, at_most) : await_event(handle, *object, at_most);
}

BOOL WINAPI close_handle(HANDLE handle) {
    Object* object = has_turn() ? find_object(handle) : nullptr;
    if (!object) return CloseHandle(handle);
    point();
    object = find_object(handle);
    if (object->holder) give_up(object->name + " is closed while somebody holds it: " + name_of(object->holder));
    object->is_open = false;
    open_objects.erase(static_cast<size_t>((reinterpret_cast<uintptr_t>(handle) - FIRST_HANDLE) / 4));
    return TRUE;
}

void WINAPI sleep_for(DWORD milliseconds) {
    if (has_turn())
        sleep(milliseconds);
    else
        Sleep(milliseconds);
}

// A real section is taken along, so that threads which do not belong to the world are kept out as well.
void WINAPI enter_section(LPCRITICAL_SECTION section) {
    if (has_turn()) {
        Section& entered = sections[section];
        const Thread* me = running();
        const auto is_free = [&entered, me] { return !entered.holder || entered.holder == me; };
        if (!is_free()) wait("a critical section", is_free);
        entered.holder = me;
        ++entered.depth;
    }
    EnterCriticalSection(section);
}

void WINAPI leave_section(LPCRITICAL_SECTION section) {
    LeaveCriticalSection(section);
    if (!has_turn()) return;
    Section& left = sections[section];
    if (--left.depth != 0) return;
    left.holder = nullptr;
    point();
}

void WINAPI delete_section(LPCRITICAL_SECTION section) {
    if (has_turn()) sections.erase(section);
    DeleteCriticalSection(section);
}

using ThreadBody = void(__cdecl*)(void*);

uintptr_t __cdecl begin_thread(ThreadBody body, unsigned, void* argument) {
    start_thread(current_task().thread + " of " + current_task().owner, [body, argument] { body(argument); });
    point();
    return 1;
}

}  // namespace

std::string held_locks() {
    std::string held;
    for (const Object& object : objects)
        if (object.holder) held += "  " + object.name + " by " + name_of(object.holder) + "\n";
    for (const auto& [section, state] : sections)
        if (state.holder) held += "  a critical section by " + name_of(state.holder) + "\n";
    return held;
}

bool waits_for_lock_of(const Thread* thread, const Thread* holder) {
    const auto wanted = wanted_locks.find(thread);
    return wanted != wanted_locks.end() && wanted->second->holder == holder;
}

bool holds_lock_of(const std::string& owner) {
    const auto lock = locks.find(owner);
    return lock != locks.end() && lock->second->is_open && lock->second->holder == running();
}

bool lock_is_free(const std::string& owner) {
    const auto lock = locks.find(owner);
    return lock == locks.end() || !lock->second->holder;
}

std::string open_handles() {
    std::string open;
    for (size_t index : open_objects) open += "  " + objects[index].name + "\n";
    return open;
}

size_t open_handle_count() {
    return open_objects.size();
}

Fakes object_fakes() {
    return {fake("CreateEventW", create_event),
            fake("CreateMutexW", create_mutex),
            fake("SetEvent", set_event),
            fake("ResetEvent", reset_event),
            fake("ReleaseMutex", release_mutex),
            fake("WaitForSingleObject", wait_for_object),
            fake("CloseHandle", close_handle),
            fake("Sleep", sleep_for),
            fake("EnterCriticalSection", enter_section),
            fake("LeaveCriticalSection", leave_section),
            fake("DeleteCriticalSection", delete_section),
            fake("_beginthread", begin_thread)};
}

}  // namespace chaos

// Memory, threads, files and debug output. The provider and the test program share the C runtime's DLL, so what one
// allocates the other may free.
#include <windows.h>

#include <process.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "fake_windows.h"
#include "journal.h"
#include "text.h"
#include "waiting.h"

namespace harness {

namespace {

bool allocation_fails(const char* function, size_t size) {
    return windows.memory.fails && windows.memory.fails({function, size});
}

void* allocate(size_t size) {
    if (!allocation_fails("malloc", size)) return std::malloc(size);
    errno = ENOMEM;
    return nullptr;
}

void* allocate_cleared(size_t count, size_t size) {
    if (!allocation_fails("calloc", count * size)) return std::calloc(count, size);
    errno = ENOMEM;
    return nullptr;
}

HGLOBAL WINAPI allocate_global(UINT flags, SIZE_T size) {
    if (!allocation_fails("GlobalAlloc", size)) return GlobalAlloc(flags, size);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

HLOCAL WINAPI allocate_local(UINT flags, SIZE_T size) {
    std::string call = text("LocalAlloc(0x%X, %llu)", flags, static_cast<unsigned long long>(size));
    if (allocation_fails("LocalAlloc", size)) {
        journal_windows(call + " failed");
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    HLOCAL block = LocalAlloc(flags, size);
    std::string name = text("BLOCK%d", ++windows.memory.local_blocks_given);
    journal_windows(call + " -> " + name);
    windows.memory.local_blocks[block] = name;
    return block;
}

HLOCAL WINAPI free_local(HLOCAL block) {
    auto known = windows.memory.local_blocks.find(block);
    if (known != windows.memory.local_blocks.end()) {
        journal_windows("LocalFree(" + known->second + ")");
        windows.memory.local_blocks.erase(known);
    }
    return LocalFree(block);
}

LPVOID WINAPI allocate_from_heap(HANDLE heap, DWORD flags, SIZE_T size) {
    if (!allocation_fails("HeapAlloc", size)) return HeapAlloc(heap, flags, size);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

using ThreadBody = void(__cdecl*)(void*);

struct ThreadStart {
    ThreadBody body;
    void* argument;
};

void count_threads(int change) {
    {
        std::lock_guard<std::mutex> holding(world());
        windows.threads.running += change;
    }
    world_changed();
}

// Keeps a handle of the calling thread, to wait for its very end.
void remember_this_thread() {
    HANDLE handle = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &handle, SYNCHRONIZE, FALSE, 0);
    std::lock_guard<std::mutex> holding(world());
    windows.threads.handles.push_back(handle);
}

void __cdecl run_thread(void* argument) {
    remember_this_thread();
    ThreadStart start = *static_cast<ThreadStart*>(argument);
    delete static_cast<ThreadStart*>(argument);
    start.body(start.argument);
    count_threads(-1);
}

uintptr_t __cdecl begin_thread(ThreadBody body, unsigned stack_size, void* argument) {
    journal_windows(text("_beginthread(stack=%u)", stack_size));
    if (!windows.threads.start) {
        errno = EAGAIN;
        return static_cast<uintptr_t>(-1);
    }
    count_threads(1);
    return _beginthread(run_thread, stack_size, new ThreadStart{body, argument});
}

void __cdecl end_thread() {
    count_threads(-1);
    _endthread();
}

// A path at the root of the current drive goes to the test's own folder.
FILE* open_file(const char* path, const char* mode) {
    std::string opened = path;
    if (path[0] == '\\') opened = windows.files.root + path;
    FILE* file = std::fopen(opened.c_str(), mode);
    journal_windows("fopen(" + quoted(path) + ", " + quoted(mode) + ")" + (file ? "" : " failed"));
    return file;
}

void WINAPI debug_output_a(LPCSTR message) {
    journal_windows("OutputDebugStringA(" + quoted(message) + ")");
}

void WINAPI debug_output_w(LPCWSTR message) {
    journal_windows("OutputDebugStringW(" + quoted(message) + ")");
}

}  // namespace

bool FakeWindows::all_threads_end(int milliseconds) {
    bool all_returned = wait_until(
        [this] {
            std::lock_guard<std::mutex> holding(world());
            return threads.running == 0;
        },
        milliseconds);
    if (!all_returned) return false;
    std::vector<HANDLE> ending;
    {
        std::lock_guard<std::mutex> holding(world());
        ending.swap(threads.handles);
    }
    for (HANDLE handle : ending) {
        if (WaitForSingleObject(handle, static_cast<DWORD>(milliseconds)) != WAIT_OBJECT_0) return false;
        CloseHandle(handle);
    }
    return true;
}

void FakeMemory::fail_once_after(const std::string& line, size_t smallest, size_t largest) {
    fails = [=, has_failed = false](const Allocation& one) mutable {
        if (has_failed || one.size < smallest || one.size > largest) return false;
        return has_failed = count(all_of(~0u).all_levels(), line) > 0;
    };
}

void FakeWindows::clean_up() {
    if (mapping.handle) CloseHandle(mapping.handle);
    mapping.handle = nullptr;
    DeleteFileA((files.root + "\\temp\\QorvTspPanic.txt").c_str());
    RemoveDirectoryA((files.root + "\\temp").c_str());
    RemoveDirectoryA(files.root.c_str());
}

Fakes memory_fakes() {
    return {
        fake("malloc", allocate),           fake("calloc", allocate_cleared), fake("GlobalAlloc", allocate_global),
        fake("LocalAlloc", allocate_local), fake("LocalFree", free_local),    fake("HeapAlloc", allocate_from_heap)};
}

Fakes thread_fakes() {
    return {fake("_beginthread", begin_thread), fake("_endthread", end_thread)};
}

Fakes file_fakes() {
    return {fake("fopen", open_file), fake("OutputDebugStringA", debug_output_a),
            fake("OutputDebugStringW", debug_output_w)};
}

}  // namespace harness

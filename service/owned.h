// Owners of Windows handles, shared by the programs of this house: what a failure path must undo undoes itself.
#pragma once

#include <windows.h>
#include <winsvc.h>

#include <memory>

struct HandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
// A kernel handle; null when there is none.
using OwnedHandle = std::unique_ptr<void, HandleCloser>;

// CreateFile and the snapshot calls say INVALID_HANDLE_VALUE where others say null.
inline OwnedHandle owned_file(HANDLE handle) {
    return OwnedHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

struct ViewUnmapper {
    void operator()(const void* view) const { UnmapViewOfFile(view); }
};
template <typename T>
using OwnedView = std::unique_ptr<T, ViewUnmapper>;

struct ServiceCloser {
    using pointer = SC_HANDLE;
    void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
// The service manager or a service.
using OwnedService = std::unique_ptr<SC_HANDLE, ServiceCloser>;

struct KeyCloser {
    using pointer = HKEY;
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using OwnedKey = std::unique_ptr<HKEY, KeyCloser>;

struct ModuleFreer {
    using pointer = HMODULE;
    void operator()(HMODULE module) const { FreeLibrary(module); }
};
// A DLL loaded by LoadLibrary.
using OwnedModule = std::unique_ptr<HMODULE, ModuleFreer>;

struct LocalFreer {
    void operator()(void* memory) const { LocalFree(memory); }
};
// Memory that a Windows call gave from the local heap.
template <typename T>
using OwnedLocal = std::unique_ptr<T, LocalFreer>;

// Holds an SRWLOCK for the length of a scope. Unlike a mutex of the compiler's run time it costs no kernel handle.
struct ScopedLock {
    explicit ScopedLock(SRWLOCK& lock) : lock(lock) { AcquireSRWLockExclusive(&lock); }
    ~ScopedLock() { ReleaseSRWLockExclusive(&lock); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;
    SRWLOCK& lock;
};

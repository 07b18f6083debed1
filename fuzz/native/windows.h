// What the software board's parsers need of Windows, on this machine: files, which are kept in memory, and locks, which
// a program of one thread needs only to be told when it would wait for itself.
#pragma once

#include <cstddef>
#include <cstdint>

#define __stdcall

using BOOL = int;
using WORD = uint16_t;
using DWORD = uint32_t;
using HANDLE = void*;

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(-1);
constexpr BOOL TRUE = 1;
constexpr DWORD MAX_PATH = 260;
constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD FILE_SHARE_WRITE = 2;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD OPEN_ALWAYS = 4;
constexpr DWORD FILE_CURRENT = 1;
constexpr DWORD INFINITE = UINT32_MAX;
constexpr DWORD WAIT_OBJECT_0 = 0;

struct LARGE_INTEGER {
    int64_t QuadPart;
};

HANDLE CreateFileA(const char* path, DWORD access, DWORD share, void* security, DWORD creation, DWORD attributes,
                   HANDLE model);
BOOL ReadFile(HANDLE file, void* data, DWORD bytes, DWORD* done, void* overlapped);
BOOL WriteFile(HANDLE file, const void* data, DWORD bytes, DWORD* done, void* overlapped);
BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD origin);
BOOL CloseHandle(HANDLE handle);
BOOL CopyFileA(const char* from, const char* to, BOOL must_be_new);
BOOL DeleteFileA(const char* path);
BOOL SetFileAttributesA(const char* path, DWORD attributes);
DWORD GetTempPathA(DWORD size, char* path);

// How many files there are.
std::size_t memory_files();

struct SYSTEMTIME {
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};
void GetLocalTime(SYSTEMTIME* time);

struct SRWLOCK {
    bool held;
};
#define SRWLOCK_INIT \
    { false }
BOOL TryAcquireSRWLockExclusive(SRWLOCK* lock);
void AcquireSRWLockExclusive(SRWLOCK* lock);
void ReleaseSRWLockExclusive(SRWLOCK* lock);
void AcquireSRWLockShared(SRWLOCK* lock);
void ReleaseSRWLockShared(SRWLOCK* lock);

struct CONDITION_VARIABLE {};
#define CONDITION_VARIABLE_INIT \
    {}
BOOL SleepConditionVariableSRW(CONDITION_VARIABLE* condition, SRWLOCK* lock, DWORD milliseconds, DWORD flags);
inline void WakeConditionVariable(CONDITION_VARIABLE*) {}
inline void WakeAllConditionVariable(CONDITION_VARIABLE*) {}
inline void YieldProcessor() {}

struct SYSTEM_INFO {
    DWORD dwNumberOfProcessors;
};
inline void GetSystemInfo(SYSTEM_INFO* system) {
    system->dwNumberOfProcessors = 1;
}
inline DWORD GetCurrentProcessId() {
    return 1;
}
inline DWORD GetCurrentThreadId() {
    return 1;
}
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

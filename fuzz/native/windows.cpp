#include "windows.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

// ---- files --------------------------------------------------------------------------------------------------------

// The disk is full when a file comes to this size.
constexpr int64_t MOST_BYTES = 256 << 10;

using Bytes = std::vector<uint8_t>;

struct OpenFile {
    std::shared_ptr<Bytes> bytes;
    DWORD access;
    int64_t position = 0;
};

static std::map<std::string, std::shared_ptr<Bytes>> files;

size_t memory_files() {
    return files.size();
}

HANDLE CreateFileA(const char* path, DWORD access, DWORD, void*, DWORD creation, DWORD, HANDLE) {
    if (creation == OPEN_EXISTING && files.count(path) == 0) return INVALID_HANDLE_VALUE;
    std::shared_ptr<Bytes>& bytes = files[path];
    if (bytes == nullptr || creation == CREATE_ALWAYS) bytes = std::make_shared<Bytes>();
    return new OpenFile{bytes, access};
}

BOOL ReadFile(HANDLE handle, void* data, DWORD bytes, DWORD* done, void*) {
    auto& file = *static_cast<OpenFile*>(handle);
    if ((file.access & GENERIC_READ) == 0) return 0;
    const auto size = static_cast<int64_t>(file.bytes->size());
    *done = static_cast<DWORD>(std::clamp<int64_t>(size - file.position, 0, bytes));
    if (*done != 0) memcpy(data, file.bytes->data() + file.position, *done);
    file.position += *done;
    return 1;
}

BOOL WriteFile(HANDLE handle, const void* data, DWORD bytes, DWORD* done, void*) {
    auto& file = *static_cast<OpenFile*>(handle);
    const int64_t end = file.position + bytes;
    if ((file.access & GENERIC_WRITE) == 0 || end > MOST_BYTES) return 0;
    if (bytes != 0 && end > static_cast<int64_t>(file.bytes->size())) file.bytes->resize(static_cast<size_t>(end));
    if (bytes != 0) memcpy(file.bytes->data() + file.position, data, bytes);
    file.position = end;
    *done = bytes;
    return 1;
}

BOOL SetFilePointerEx(HANDLE handle, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD origin) {
    auto& file = *static_cast<OpenFile*>(handle);
    const int64_t bases[] = {0, file.position, static_cast<int64_t>(file.bytes->size())};
    int64_t target = 0;
    if (__builtin_add_overflow(bases[origin], distance.QuadPart, &target) || target < 0) return 0;
    file.position = target;
    if (position != nullptr) position->QuadPart = target;
    return 1;
}

BOOL CloseHandle(HANDLE handle) {
    delete static_cast<OpenFile*>(handle);
    return 1;
}

BOOL CopyFileA(const char* from, const char* to, BOOL must_be_new) {
    if (files.count(from) == 0 || (must_be_new != 0 && files.count(to) != 0)) return 0;
    files[to] = std::make_shared<Bytes>(*files[from]);
    return 1;
}

BOOL DeleteFileA(const char* path) {
    return static_cast<BOOL>(files.erase(path));
}

BOOL SetFileAttributesA(const char*, DWORD) {
    return 1;
}

DWORD GetTempPathA(DWORD size, char* path) {
    return static_cast<DWORD>(snprintf(path, size, "/"));
}

// ---- time, locks and threads --------------------------------------------------------------------------------------

void GetLocalTime(SYSTEMTIME* time) {
    *time = {2026, 11, 1, 23, 12, 34, 56, 789};
}

static void stop(const char* why) {
    fprintf(stderr, "%s\n", why);
    abort();
}

BOOL TryAcquireSRWLockExclusive(SRWLOCK* lock) {
    if (lock->held) return 0;
    lock->held = true;
    return 1;
}

void AcquireSRWLockExclusive(SRWLOCK* lock) {
    if (TryAcquireSRWLockExclusive(lock) == 0) stop("a lock is taken by the thread that holds it");
}

void ReleaseSRWLockExclusive(SRWLOCK* lock) {
    lock->held = false;
}

void AcquireSRWLockShared(SRWLOCK* lock) {
    AcquireSRWLockExclusive(lock);
}

void ReleaseSRWLockShared(SRWLOCK* lock) {
    ReleaseSRWLockExclusive(lock);
}

BOOL SleepConditionVariableSRW(CONDITION_VARIABLE*, SRWLOCK*, DWORD, DWORD) {
    stop("the only thread waits for another one");
    return 0;
}

DWORD WaitForSingleObject(HANDLE, DWORD) {
    stop("the only thread waits for another one");
    return 0;
}

#include "bench_folder.h"

#include <windows.h>

static std::string temporary_folder() {
    char path[MAX_PATH + 1];
    GetTempPathA(sizeof path, path);
    return path;
}

BenchFolder::BenchFolder() : path_(temporary_folder() + "fax-bench") {
    CreateDirectoryA(path_.c_str(), nullptr);
    empty();
}

BenchFolder::~BenchFolder() {
    empty();
    RemoveDirectoryA(path_.c_str());
}

void BenchFolder::empty() const {
    WIN32_FIND_DATAA found;
    const HANDLE search = FindFirstFileA(file("*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return;
    do {
        DeleteFileA(file(found.cFileName).c_str());
    } while (FindNextFileA(search, &found));
    FindClose(search);
}

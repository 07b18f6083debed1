#include "temporary_folder.h"

#include <windows.h>

#include <algorithm>

#include "owned.h"
#include "text.h"

TemporaryFolder::TemporaryFolder() {
    static int number = 0;
    wchar_t parent[MAX_PATH + 1] = L"";
    GetTempPathW(MAX_PATH, parent);
    path = utf8(parent) + format("host-test-%lu-%d", GetCurrentProcessId(), ++number);
    CreateDirectoryW(wide(path).c_str(), nullptr);
}

TemporaryFolder::~TemporaryFolder() {
    remove_tree(path);
}

std::vector<std::string> TemporaryFolder::files() const {
    std::vector<std::string> names;
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(wide(path + "\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    do {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) names.push_back(file(utf8(found.cFileName)));
    } while (FindNextFileW(search, &found));
    FindClose(search);
    std::sort(names.begin(), names.end());
    return names;
}

void remove_tree(const std::string& path) {
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(wide(path + "\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return;
    do {
        const std::string name = utf8(found.cFileName);
        const std::string full = path + "\\" + name;
        if (name == "." || name == "..") continue;
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            remove_tree(full);
        } else {
            DeleteFileW(wide(full).c_str());
        }
    } while (FindNextFileW(search, &found));
    FindClose(search);
    RemoveDirectoryW(wide(path).c_str());
}

void write_text(const std::string& path, const std::string& text) {
    const OwnedHandle file = owned_file(
        CreateFileW(wide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

std::string read_text(const std::string& path) {
    const OwnedHandle file =
        owned_file(CreateFileW(wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                               nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size = {};
    if (!file || !GetFileSizeEx(file.get(), &size)) return "";
    std::string text(static_cast<size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
    text.resize(read);
    return text;
}

// The host service's log on disk.
#include "log_file.h"

#include <windows.h>

#include <sddl.h>
#include <shlobj.h>

#include "owned.h"
#include "program.h"
#include "text.h"

// Whoever makes the folder first, the service or an administrator who runs the program by hand: administrators own it,
// services may write in it, everybody may read.
static constexpr char FOLDER_DESCRIPTOR[] =
    "D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;CO)(A;OICI;0x1301bf;;;SU)(A;OICI;FRFX;;;BU)";

static void create_log_folder(const std::wstring& folder) {
    void* descriptor = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorA(FOLDER_DESCRIPTOR, SDDL_REVISION_1, &descriptor, nullptr);
    const OwnedLocal<void> owner(descriptor);
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), descriptor, FALSE};
    CreateDirectoryW(folder.c_str(), &attributes);
}

LogFile service_log() {
    // Not from the environment, which a service may have got from an earlier time of the machine's life.
    wchar_t data_folder[MAX_PATH] = L"";
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, data_folder))) {
        return {program_folder() + L"\\calder.log"};
    }
    const std::wstring folder = std::wstring(data_folder) + L"\\Calder";
    create_log_folder(folder);
    return {folder + L"\\calder.log"};
}

static std::wstring kept_name(const std::wstring& path, int age) {
    return age == 0 ? path : path + L"." + std::to_wstring(age);
}

static void rotate(const std::wstring& path) {
    for (int age = LOG_FILES_KEPT - 1; age >= 0; --age) {
        MoveFileExW(kept_name(path, age).c_str(), kept_name(path, age + 1).c_str(), MOVEFILE_REPLACE_EXISTING);
    }
}

unsigned long log_write(const LogFile& log, std::string_view line) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    std::string text =
        format("%04u-%02u-%02u %02u:%02u:%02u ", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond);
    text.append(line).append("\r\n");

    WIN32_FILE_ATTRIBUTE_DATA present = {};
    if (GetFileAttributesExW(log.path.c_str(), GetFileExInfoStandard, &present)) {
        const long long size = (static_cast<long long>(present.nFileSizeHigh) << 32) | present.nFileSizeLow;
        if (size + static_cast<long long>(text.size()) > LOG_FILE_LIMIT) rotate(log.path);
    }
    const OwnedHandle file = owned_file(CreateFileW(log.path.c_str(), FILE_APPEND_DATA,
                                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return GetLastError();
    DWORD written = 0;
    const BOOL good = WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    return good ? 0 : GetLastError();
}

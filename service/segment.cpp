// The shared segment's two doors. Its descriptor matters because the provider's own admits hardly anyone: a segment
// that exists already is used as it is, and so whoever creates it first decides who may read.
#include "segment.h"

#include <sddl.h>

#include <string>

#include "text.h"

// Everything for SYSTEM, the administrators and the account of the telephony service, reading for everyone.
constexpr char DESCRIPTOR[] = "D:P(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;NS)(A;;GR;;;WD)";

static uint32_t map_view(FaxSegment& segment) {
    if (!segment.mapping) return GetLastError();
    segment.view.reset(static_cast<const FaxStatusBlock*>(
        MapViewOfFile(segment.mapping.get(), FILE_MAP_READ, 0, 0, FAX_SEGMENT_SIZE)));
    if (!segment.view) return GetLastError();
    segment.records = segment.view.get();
    return 0;
}

uint32_t fax_segment_open(FaxSegment& segment) {
    uint32_t first_error = 0;
    for (const wchar_t* prefix : {L"", L"Global\\"}) {
        const std::wstring name = std::wstring(prefix) + FAX_SEGMENT_NAME;
        segment.mapping.reset(OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str()));
        const uint32_t error = map_view(segment);
        if (error == 0) return 0;
        if (first_error == 0) first_error = error;
    }
    return first_error;
}

// "(A;;GA;;;S-1-5-...)": everything for the account of this process, which in the foreground is a user's.
static std::string own_account_entry() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return "";
    const OwnedHandle owner(token);
    alignas(TOKEN_USER) char buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    char* sid = nullptr;
    if (!GetTokenInformation(token, TokenUser, buffer, sizeof(buffer), &size) ||
        !ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, &sid)) {
        return "";
    }
    const OwnedLocal<char> sid_owner(sid);
    return format("(A;;GA;;;%s)", sid);
}

uint32_t fax_segment_create(FaxSegment& segment, bool& existed) {
    const std::string text = DESCRIPTOR + own_account_entry();
    void* descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(text.c_str(), SDDL_REVISION_1, &descriptor, nullptr)) {
        return GetLastError();
    }
    const OwnedLocal<void> owner(descriptor);
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), descriptor, FALSE};
    segment.mapping.reset(
        CreateFileMappingW(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE, 0, FAX_SEGMENT_SIZE, FAX_SEGMENT_NAME));
    existed = GetLastError() == ERROR_ALREADY_EXISTS;
    return map_view(segment);
}

// The shared segment: a real mapping without its name, so that tests which run side by side do not share it.
#include <windows.h>

#include <sddl.h>

#include "fake_windows.h"
#include "journal.h"
#include "text.h"

namespace harness {

namespace {

// The descriptors made so far and the text of each.
std::map<void*, std::string>& descriptors() {
    static std::map<void*, std::string> known;
    return known;
}

std::string shown(LPSECURITY_ATTRIBUTES attributes) {
    if (!attributes) return "no attributes";
    return text("%lu, \"%s\", %d", attributes->nLength, descriptors()[attributes->lpSecurityDescriptor].c_str(),
                attributes->bInheritHandle);
}

BOOL WINAPI convert_descriptor(LPCWSTR text_form, DWORD revision, PSECURITY_DESCRIPTOR* descriptor, PULONG size) {
    journal_windows("ConvertStringSecurityDescriptor(" + quoted(text_form) + text(", %lu)", revision));
    if (windows.mapping.descriptor_error) {
        SetLastError(windows.mapping.descriptor_error);
        return FALSE;
    }
    BOOL converted = ConvertStringSecurityDescriptorToSecurityDescriptorW(text_form, revision, descriptor, size);
    if (converted) descriptors()[*descriptor] = narrow(text_form);
    return converted;
}

HANDLE WINAPI create_mapping(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protection, DWORD size_high,
                             DWORD size_low, LPCWSTR name) {
    std::string backing = file == INVALID_HANDLE_VALUE ? "page file" : "a file";
    journal_windows("CreateFileMappingW(" + backing + ", {" + shown(attributes) + "}" +
                    text(", 0x%lX, %lu, %lu, ", protection, size_high, size_low) + quoted(name) + ")");
    if (windows.mapping.mapping_error) {
        SetLastError(windows.mapping.mapping_error);
        return nullptr;
    }
    HANDLE mapping = CreateFileMappingW(file, nullptr, protection, size_high, size_low, nullptr);
    if (mapping) know_object(mapping, "MAPPING");
    windows.mapping.handle = mapping;
    SetLastError(windows.mapping.exists_already ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return mapping;
}

LPVOID WINAPI map_view(HANDLE mapping, DWORD access, DWORD offset_high, DWORD offset_low, SIZE_T size) {
    bool whole = size == 0 || size == 4307072;
    journal_windows("MapViewOfFile(" + object_name(mapping) +
                    text(", 0x%lX, %lu, %lu, ", access, offset_high, offset_low) +
                    (whole ? "whole" : text("%llu", static_cast<unsigned long long>(size))) + ")");
    if (windows.mapping.view_error) {
        SetLastError(windows.mapping.view_error);
        return nullptr;
    }
    void* view = MapViewOfFile(mapping, access, offset_high, offset_low, size);
    windows.mapping.view = static_cast<uint8_t*>(view);
    name_pointer(view, "VIEW");
    return view;
}

BOOL WINAPI unmap_view(LPCVOID view) {
    journal_windows("UnmapViewOfFile(" + name_of(view) + ")");
    if (windows.mapping.unmap_error) {
        SetLastError(windows.mapping.unmap_error);
        return FALSE;
    }
    if (view == windows.mapping.view) windows.mapping.view = nullptr;
    return UnmapViewOfFile(view);
}

}  // namespace

Fakes mapping_fakes() {
    return {fake("ConvertStringSecurityDescriptorToSecurityDescriptorW", convert_descriptor),
            fake("CreateFileMappingW", create_mapping), fake("MapViewOfFile", map_view),
            fake("UnmapViewOfFile", unmap_view)};
}

}  // namespace harness

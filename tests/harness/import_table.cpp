#include "import_table.h"

#include <algorithm>
#include <cctype>

#include "text.h"

namespace harness {

namespace {

struct Image {
    explicit Image(HMODULE module) : base(reinterpret_cast<uint8_t*>(module)) {
        auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
        headers = reinterpret_cast<IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    }
    template <class Record>
    Record* at(uint64_t address) const {
        return reinterpret_cast<Record*>(base + address);
    }
    // The table of a kind, null when the module has none.
    template <class Record>
    Record* directory(int kind) const {
        uint32_t address = headers->OptionalHeader.DataDirectory[kind].VirtualAddress;
        return address ? at<Record>(address) : nullptr;
    }

    uint8_t* base;
    IMAGE_NT_HEADERS64* headers;
};

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

void write_slot(void** slot, void* address) {
    DWORD before = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &before);
    *slot = address;
    VirtualProtect(slot, sizeof(*slot), before, &before);
}

}  // namespace

std::vector<Import> imports_of(HMODULE module) {
    Image image(module);
    std::vector<Import> imports;
    auto* descriptor = image.directory<IMAGE_IMPORT_DESCRIPTOR>(IMAGE_DIRECTORY_ENTRY_IMPORT);
    for (; descriptor && descriptor->Name; ++descriptor) {
        std::string name = lower_case(image.at<char>(descriptor->Name));
        auto* lookup = image.at<IMAGE_THUNK_DATA64>(descriptor->OriginalFirstThunk);
        auto* address = image.at<IMAGE_THUNK_DATA64>(descriptor->FirstThunk);
        for (; lookup->u1.AddressOfData; ++lookup, ++address) {
            bool by_ordinal = IMAGE_SNAP_BY_ORDINAL64(lookup->u1.Ordinal);
            std::string function = by_ordinal ? text("#%llu", IMAGE_ORDINAL64(lookup->u1.Ordinal))
                                              : image.at<IMAGE_IMPORT_BY_NAME>(lookup->u1.AddressOfData)->Name;
            imports.push_back({name, function, reinterpret_cast<void**>(&address->u1.Function)});
        }
    }
    return imports;
}

std::vector<std::string> exports_of(HMODULE module) {
    Image image(module);
    std::vector<std::string> names;
    auto* table = image.directory<IMAGE_EXPORT_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_EXPORT);
    if (!table) return names;
    auto* name = image.at<uint32_t>(table->AddressOfNames);
    for (uint32_t i = 0; i < table->NumberOfNames; ++i) names.push_back(image.at<char>(name[i]));
    return names;
}

Replacements::Replacements(HMODULE module) : imports_(imports_of(module)) {}

Replacements::~Replacements() {
    restore();
}

bool Replacements::replace(const std::string& name, void* replacement) {
    bool found = false;
    for (const Import& import : imports_) {
        if (import.name != name) continue;
        saved_.push_back({name, import.slot, *import.slot});
        write_slot(import.slot, replacement);
        found = true;
    }
    return found;
}

void* Replacements::original(const std::string& name) const {
    for (const Saved& saved : saved_)
        if (saved.name == name) return saved.original;
    for (const Import& import : imports_)
        if (import.name == name) return *import.slot;
    return nullptr;
}

void Replacements::restore() {
    for (auto saved = saved_.rbegin(); saved != saved_.rend(); ++saved) write_slot(saved->slot, saved->original);
    saved_.clear();
}

}  // namespace harness

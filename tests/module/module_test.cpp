// The provider's file as Windows loads it: what it exports and what it imports.
#include <algorithm>
#include <set>

#include "harness.h"

using namespace harness;

namespace {

class ProviderModule : public ProviderFixture {};

std::set<std::string> expected_exports() {
    return {
#define X(name) #name,
        PROVIDER_EXPORTS(X)
#undef X
    };
}

// The DLLs of Windows that a service provider may need; everything else is linked in.
const std::set<std::string> kWindowsModules = {"advapi32.dll", "iphlpapi.dll", "kernel32.dll",
                                               "msvcrt.dll",   "mswsock.dll",  "netapi32.dll",
                                               "ole32.dll",    "user32.dll",   "ws2_32.dll"};

}  // namespace

TEST_F(ProviderModule, ExportsTheServiceProviderFunctionsUndecoratedAndNothingElse) {
    std::vector<std::string> names = exports_of(module);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), expected_exports());
    EXPECT_EQ(names.size(), expected_exports().size());
}

TEST_F(ProviderModule, ImportsOnlyFromWindowsAndTheDriverLibrary) {
    for (const Import& import : imports_of(module)) {
        bool known = import.module == "calddlld.dll" || kWindowsModules.count(import.module) == 1;
        EXPECT_TRUE(known) << import.module << " " << import.name;
    }
}

TEST_F(ProviderModule, FindsTheDriverLibraryByItsNameAlone) {
    std::vector<Import> imports = imports_of(module);
    EXPECT_TRUE(std::any_of(imports.begin(), imports.end(), [](const Import& one) {
        return one.module == "calddlld.dll" && one.name == "DornInitialize";
    }));
}

TEST_F(ProviderModule, ImportsFromTheDriverLibraryOnlyWhatItsInterfaceHas) {
    std::vector<std::string> offered = exports_of(GetModuleHandleA("calddlld.dll"));
    for (const Import& import : imports_of(module)) {
        if (import.module != "calddlld.dll") continue;
        EXPECT_TRUE(std::find(offered.begin(), offered.end(), import.name) != offered.end()) << import.name;
    }
}

TEST_F(ProviderModule, IsA64BitLibrary) {
    auto* base = reinterpret_cast<uint8_t*>(module);
    auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
    auto* headers = reinterpret_cast<IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    EXPECT_EQ(headers->FileHeader.Machine, IMAGE_FILE_MACHINE_AMD64);
    EXPECT_TRUE(headers->FileHeader.Characteristics & IMAGE_FILE_DLL);
}

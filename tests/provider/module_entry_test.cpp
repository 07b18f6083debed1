// The module's entry point, called as the loader calls it.
#include "harness.h"

using namespace harness;

namespace {

class ModuleEntry : public ProviderFixture {
  protected:
    // Calls the entry point that the module's header names.
    BOOL call_entry(DWORD reason) {
        auto* base = reinterpret_cast<uint8_t*>(module);
        auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
        auto* headers = reinterpret_cast<IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
        using Entry = BOOL(WINAPI*)(HINSTANCE, DWORD, LPVOID);
        auto entry = reinterpret_cast<Entry>(base + headers->OptionalHeader.AddressOfEntryPoint);
        return entry(module, reason, nullptr);
    }
};

constexpr DWORD kUnknownReason = 77;

}  // namespace

TEST_F(ModuleEntry, TellsTheDebuggerAboutAnUnknownReason) {
    EXPECT_EQ(call_entry(kUnknownReason), TRUE);
    EXPECT_TRUE(reads(windows_calls().only({"OutputDebugString<*>"}), {"OutputDebugStringA(\"TSP:DLL_OTHER\n\")"}));
    EXPECT_TRUE(reads(traces().all_levels(), {}));
}

namespace {

int debugger_lines;
void WINAPI debugger_throws_once(const char* line) {
    if (++debugger_lines == 1) throw 1;
    EXPECT_STREQ(line, "TSP:DLLMain catch\n");
}

}  // namespace

TEST_F(ModuleEntry, TellsTheDebuggerAboutAnException) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("OutputDebugStringA", reinterpret_cast<void*>(debugger_throws_once)));
    debugger_lines = 0;
    EXPECT_EQ(call_entry(kUnknownReason), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(debugger_lines, 2);
}

TEST_F(ModuleEntry, SaysNothingAboutThreads) {
    EXPECT_EQ(call_entry(DLL_THREAD_ATTACH), TRUE);
    EXPECT_EQ(call_entry(DLL_THREAD_DETACH), TRUE);
    EXPECT_TRUE(reads(windows_calls().only({"OutputDebugString<*>"}), {}));
    EXPECT_TRUE(reads(traces().all_levels(), {}));
}

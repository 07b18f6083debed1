// The module's entry point, called as the loader calls it.
#include <algorithm>
#include <cstdarg>
#include <cstring>

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

namespace {

// Formatting whose text is as long as its space and has no end; the byte behind the space is not zero either.
size_t formatting_space;
int __cdecl endless_formatting(char* buffer, size_t size, const char*, va_list) {
    formatting_space = size;
    std::fill(buffer, buffer + size + 1, 'x');
    return -1;
}

size_t told_length;
void WINAPI debugger_measures(const char* line) {
    told_length = std::strlen(line);
}

}  // namespace

TEST_F(ModuleEntry, TellsTheDebugger8192CharactersAtMost) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_vsnprintf", reinterpret_cast<void*>(endless_formatting)));
    ASSERT_TRUE(more.replace("OutputDebugStringA", reinterpret_cast<void*>(debugger_measures)));
    EXPECT_EQ(call_entry(kUnknownReason), TRUE);
    EXPECT_EQ(formatting_space, 8192u);
    EXPECT_EQ(told_length, 8192u);
}

namespace {

int lines_at_the_end;
void WINAPI debugger_counts(const char*) {
    ++lines_at_the_end;
}

}  // namespace

TEST_F(ModuleEntry, SaysNothingWhenTheModuleGoes) {
    const std::string copy = text("qorvtsp-copy-%lu.tsp", GetCurrentProcessId());
    ASSERT_TRUE(CopyFileA(provider_path().c_str(), copy.c_str(), FALSE));
    HMODULE other = LoadLibraryA(copy.c_str());
    ASSERT_NE(other, nullptr);
    // Not put back: the table goes with the module.
    auto* of_the_copy = new Replacements(other);
    ASSERT_TRUE(of_the_copy->replace("OutputDebugStringA", reinterpret_cast<void*>(debugger_counts)));
    lines_at_the_end = 0;
    EXPECT_TRUE(FreeLibrary(other));
    EXPECT_EQ(GetModuleHandleA(copy.c_str()), nullptr);
    EXPECT_EQ(lines_at_the_end, 0);
    EXPECT_TRUE(DeleteFileA(copy.c_str()));
}

TEST_F(ModuleEntry, SaysNothingAboutThreads) {
    EXPECT_EQ(call_entry(DLL_THREAD_ATTACH), TRUE);
    EXPECT_EQ(call_entry(DLL_THREAD_DETACH), TRUE);
    EXPECT_TRUE(reads(windows_calls().only({"OutputDebugString<*>"}), {}));
    EXPECT_TRUE(reads(traces().all_levels(), {}));
}

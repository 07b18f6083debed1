#include "watchdog.h"

#include <windows.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "journal.h"

namespace harness {

namespace {

constexpr DWORD kLongestTest = 45000;  // milliseconds; the test runner itself gives up after a minute

HANDLE stop_event;
HANDLE watching_thread;
void* trap_handler;

constexpr DWORD kLongestWords = 5000;

// The last words may hang as well, when a thread stopped in the middle of the journal.
DWORD WINAPI end_after_the_last_words(void*) {
    Sleep(kLongestWords);
    TerminateProcess(GetCurrentProcess(), 3);
    return 0;
}

[[noreturn]] void die(const char* why) {
    CreateThread(nullptr, 0, end_after_the_last_words, nullptr, 0, nullptr);
    std::printf("%s; the journal:\n", why);
    std::fflush(stdout);
    std::printf("%s", whole_journal().c_str());
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 3);
    std::abort();
}

DWORD WINAPI watch(void*) {
    if (WaitForSingleObject(stop_event, kLongestTest) == WAIT_TIMEOUT) die("the test hangs");
    return 0;
}

LONG WINAPI last_words(EXCEPTION_POINTERS* fault) {
    std::printf("fault 0x%lX at %p\n", fault->ExceptionRecord->ExceptionCode, fault->ExceptionRecord->ExceptionAddress);
    die("the test crashes");
}

// The variant of the provider that traps undefined behaviour does it with an instruction that no processor knows, which
// the provider would take for a fault like any other.
LONG CALLBACK last_words_of_a_trap(EXCEPTION_POINTERS* fault) {
    HMODULE module = nullptr;
    constexpr DWORD flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    GetModuleHandleExA(flags, static_cast<LPCSTR>(fault->ExceptionRecord->ExceptionAddress), &module);
    if (fault->ExceptionRecord->ExceptionCode != static_cast<DWORD>(EXCEPTION_ILLEGAL_INSTRUCTION) ||
        module != GetModuleHandleA("qorvtsp.tsp"))
        return EXCEPTION_CONTINUE_SEARCH;
    std::printf("at %p of the provider at %p\n", fault->ExceptionRecord->ExceptionAddress, static_cast<void*>(module));
    die("undefined behaviour");
}

// The provider's C++ runtime and the test's own share the C runtime, so an uncaught exception of either ends here.
void last_words_of_abort(int) {
    die("the test aborts");
}

}  // namespace

void start_watchdog() {
    SetUnhandledExceptionFilter(last_words);
    trap_handler = AddVectoredExceptionHandler(1, last_words_of_a_trap);
    std::signal(SIGABRT, last_words_of_abort);
    stop_event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    watching_thread = CreateThread(nullptr, 0, watch, nullptr, 0, nullptr);
}

void stop_watchdog() {
    RemoveVectoredExceptionHandler(trap_handler);
    SetEvent(stop_event);
    WaitForSingleObject(watching_thread, INFINITE);
    CloseHandle(watching_thread);
    CloseHandle(stop_event);
}

}  // namespace harness

#include "wanted_thread.h"

#include <atomic>
#include <cstdlib>

#include "waiting.h"

namespace harness {

namespace {

using ThreadBody = void(__cdecl*)(void*);

constexpr size_t kMoreThanAnyArgument = 4096;

ThreadBody wanted_body;
std::atomic<void*> wanted_argument;

uintptr_t __cdecl keep_the_wish(ThreadBody body, unsigned, void* argument) {
    wanted_body = body;
    wanted_argument = argument;
    return 1;
}

}  // namespace

WantedThread::WantedThread(HMODULE provider) : table_(provider) {
    wanted_argument = nullptr;
    table_.replace("_beginthread", reinterpret_cast<void*>(&keep_the_wish));
}

uint8_t* WantedThread::argument() const {
    return static_cast<uint8_t*>(wanted_argument.load());
}

void WantedThread::run(void* argument) const {
    Call thread([=] { return wanted_body(argument), 0; });
    thread.result();
}

// The provider and the test share the C runtime, and so its heap.
void WantedThread::run_with_zeros() const {
    run(std::calloc(1, kMoreThanAnyArgument));
}

}  // namespace harness

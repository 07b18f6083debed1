// With Microsoft's compiler, catch (...) catches hardware faults when told so (/EHa). This cross compiler's does not;
// here a frame of its own stands around the body, with a handler in the system's unwind tables that takes faults, and
// faults only, to a landing in that frame. Handlers further in, the driver library's own, say, get their chance first,
// faults inside the C runtime are caught too, and the way without a fault costs one call.
#include "fault_guard.h"

#include <windows.h>

#include <algorithm>
#include <iterator>

#include "provider.h"

#ifdef _MSC_VER

extern "C" int call_with_fault_frame(GuardedBody body, void* context, int argument) {
    return body(context, argument);
}

#else

namespace {

constexpr DWORD FAULTS[] = {
    static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION),      static_cast<DWORD>(EXCEPTION_IN_PAGE_ERROR),
    static_cast<DWORD>(EXCEPTION_DATATYPE_MISALIGNMENT), static_cast<DWORD>(EXCEPTION_ILLEGAL_INSTRUCTION),
    static_cast<DWORD>(EXCEPTION_PRIV_INSTRUCTION),      static_cast<DWORD>(EXCEPTION_INT_DIVIDE_BY_ZERO),
    static_cast<DWORD>(EXCEPTION_INT_OVERFLOW),          static_cast<DWORD>(EXCEPTION_ARRAY_BOUNDS_EXCEEDED),
    static_cast<DWORD>(EXCEPTION_FLT_DIVIDE_BY_ZERO),    static_cast<DWORD>(EXCEPTION_FLT_INVALID_OPERATION),
};

bool is_fault(DWORD code) {
    return std::find(std::begin(FAULTS), std::end(FAULTS), code) != std::end(FAULTS);
}

}  // namespace

extern "C" {

extern char fault_guard_landing[];

// The language handler of the frame: takes a fault to the landing, lets everything else and the unwind pass go by.
EXCEPTION_DISPOSITION fault_guard_handler(EXCEPTION_RECORD* record, void* frame, CONTEXT*, void* dispatcher) {
    constexpr DWORD UNWINDING = 0x66;  // EXCEPTION_UNWIND
    if ((record->ExceptionFlags & UNWINDING) == 0 && is_fault(record->ExceptionCode)) {
        auto* context = static_cast<DISPATCHER_CONTEXT*>(dispatcher);
        RtlUnwindEx(frame, fault_guard_landing, record, nullptr, context->ContextRecord, context->HistoryTable);
    }
    return ExceptionContinueSearch;
}
}

// The nop keeps the return address inside the frame's body: right before the epilogue the unwinder would take the frame
// for one that is being left and not ask its handler.
asm(R"(
    .text
    .globl call_with_fault_frame
    .def call_with_fault_frame; .scl 2; .type 32; .endef
    .seh_proc call_with_fault_frame
call_with_fault_frame:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    movq %rcx, %rax
    movq %rdx, %rcx
    movl %r8d, %edx
    call *%rax
    nop
    addq $40, %rsp
    ret
    .globl fault_guard_landing
fault_guard_landing:
    movl $0x80000000, %eax
    addq $40, %rsp
    ret
    .seh_handler fault_guard_handler, @except
    .seh_endproc
)");

#endif

int call_with_fault_guard(GuardedBody body, void* context) {
    const size_t held_before = LineLock::held_by_this_thread();
    const int result = call_with_fault_frame(body, context, 0);
    if (result == FAULTED) LineLock::release_since(held_before);
    return result;
}

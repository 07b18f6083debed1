// The provider's life as TAPI drives it: module entry, enumeration of the lines, start-up and shutdown.
#include "provider.h"

#include <process.h>
#include <sddl.h>

#include <memory>
#include <new>

#include "diag/diag.h"
#include "entry_point.h"
#include "reset/LumLineResetReg.h"

namespace {

constexpr wchar_t SHARED_SEGMENT[] = L"HalvorsundMSFTSPSharedMemory";
constexpr uint32_t FIRST_MODULE = 2;
constexpr uint32_t LAST_MODULE = 126;
constexpr uint32_t LAST_MODULE_EXPANDED = 254;
constexpr uint32_t DEFAULT_RATE = 14400;

// Whether the host service runs; if not, the administrator is told. `caller` names the reporter in the trace.
bool require_host_service(const char* caller) {
    if (QORV_IsRunning()) return true;
    TRACE(TRACE_PANIC, "Calder Host Service is not running!");
    if (report_event(EVENT_HARDWARE_FAILURE, EVENT_HOST_SERVICE_DOWN, 0, nullptr) != 0)
        TRACE(TRACE_INFO, "%s called report_event with error", caller);
    return false;
}

// ---- enumeration --------------------------------------------------------------------------------------------------

bool query_module(uint32_t module, DornModuleInfoRecord& info) {
    info = {};
    info.dwModule = module;
    DornModuleInfo(nullptr, &info);
    return info.status == 0 && info.dwPresence[0] && info.dwPresence[1] && info.dwPresence[2];
}

void add_lines_of_module(uint32_t module, const DornModuleInfoRecord& info, DWORD* lpdwNumLines) {
    TRACE(TRACE_INFO, "Found Module %X with %d ordinals", module, info.dwChannelCount);
    for (uint32_t i = 0; i < info.dwChannelCount; ++i) {
        TRACE(TRACE_INFO, "%d) located on Module %X [%d to %d]", *lpdwNumLines, module, info.dwFirstChannel,
              info.dwFirstChannel + info.dwChannelCount);
        set_line_channel(*lpdwNumLines, static_cast<int32_t>(info.dwFirstChannel + i));
        ++*lpdwNumLines;
    }
}

// Numbers the lines densely in module order and, within a module, in channel order.
void scan_modules(DWORD* lpdwNumLines) {
    const uint32_t last = _dorn_pkt_version_exp != 0 ? LAST_MODULE_EXPANDED : LAST_MODULE;
    DornModuleInfoRecord info;
    for (uint32_t module = FIRST_MODULE; module <= last; ++module)
        if (query_module(module, info)) add_lines_of_module(module, info, lpdwNumLines);
    TRACE(TRACE_INFO, "%d lines available", *lpdwNumLines);
}

// ---- the shared segment --------------------------------------------------------------------------------------------

const wchar_t* segment_descriptor() {
    switch (os_recognition()) {
        case OS_VERSION_NETSERVER:
            return L"O:SYG:SYD:(A;;GR;;;NS) (A;;GA;;;SY)";
        case OS_VERSION_FUTURE:
            return L"O:NSG:NSD:(A;;GR;;;NS)";
        default:
            return L"O:BAG:BAD:(A;;GR;;;WD) (A;;GA;;;BA)";
    }
}

LONG fail_with_last_error(std::unique_ptr<SECURITY_ATTRIBUTES>& attributes, DWORD error) {
    attributes.reset();
    TRACE(TRACE_ERROR, "GetLastError() = %d", error);
    return LINEERR_OPERATIONFAILED;
}

LONG map_shared_segment() {
    std::unique_ptr<SECURITY_ATTRIBUTES> attributes(new (std::nothrow) SECURITY_ATTRIBUTES{});
    if (!attributes) {
        TRACE(TRACE_INFO, "TSPI_providerInit No Memory available - lpAttributes");
        return LINEERR_NOMEM;
    }
    attributes->nLength = sizeof(SECURITY_ATTRIBUTES);
    attributes->bInheritHandle = TRUE;
    // The descriptor that the conversion allocates lives as long as the process does.
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(segment_descriptor(), SDDL_REVISION_1,
                                                              &attributes->lpSecurityDescriptor, nullptr)) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "TSPI_providerInit ConvertStringSecurityDescriptorToSecurityDescriptor failed");
        return fail_with_last_error(attributes, error);
    }
    TRACE(TRACE_INFO, "Creating Shared Memory %ls", SHARED_SEGMENT);
    globals.ghMapFile = CreateFileMappingW(INVALID_HANDLE_VALUE, attributes.get(), PAGE_READWRITE, 0,
                                           SHARED_SEGMENT_SIZE, SHARED_SEGMENT);
    if (!globals.ghMapFile) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "%s",
              "TSPI_providerInit() Could not create file-mapping object.    #%*#%*#%*#%*#%*#%*#%*#%*");
        return fail_with_last_error(attributes, error);
    }
    globals.gpSharedMemory =
        static_cast<FaxStatusBlock*>(MapViewOfFile(globals.ghMapFile, FILE_MAP_ALL_ACCESS, 0, 0, SHARED_SEGMENT_SIZE));
    if (!globals.gpSharedMemory) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "%s", "TSPI_providerInit() Could not map view of file. #%*#%*#%*#%*#%*#%*#%*#%*#%*#%*#%*#%*");
        return fail_with_last_error(attributes, error);
    }
    TRACE(TRACE_INFO, "Mapped Shared Memory %ls", SHARED_SEGMENT);
    return 0;
}

void release_shared_segment() {
    if (globals.gpSharedMemory && !UnmapViewOfFile(globals.gpSharedMemory)) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "Couldn't Unmap SharedMemory");
        TRACE(TRACE_ERROR, "GetLastError() = %d", error);
    }
    if (!globals.ghMapFile) return;
    TRACE(TRACE_INFO, "Closing Shared Memory %ls", SHARED_SEGMENT);
    if (!CloseHandle(globals.ghMapFile)) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "Could not close handle to file mapping (ghMapFile)");
        TRACE(TRACE_ERROR, "GetLastError() = %d", error);
    }
}

// ---- start-up: the channel resets ---------------------------------------------------------------------------------

LONG create_reset_done_event() {
    globals.ghResetDoneEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const DWORD error = GetLastError();
    if (error == ERROR_ALREADY_EXISTS) {
        globals.ghResetDoneEvent = nullptr;
        TRACE(TRACE_INFO, "TSPI_providerInit - erroralreadyexists");
    }
    if (globals.ghResetDoneEvent) return 0;
    report_event_num(EVENT_SYSTEM_FAILURE, EVENT_EVENT_NOT_CREATED, error);
    return LINEERR_RESOURCEUNAVAIL;
}

// Holds the lock over the reset count, so that no reset can finish the count before all are started.
class ResetLock {
  public:
    ResetLock() { EnterCriticalSection(&globals.gResetLock); }
    ~ResetLock() { LeaveCriticalSection(&globals.gResetLock); }
    ResetLock(const ResetLock&) = delete;
    ResetLock& operator=(const ResetLock&) = delete;
};

LONG attach_and_start_reset(uint32_t index) {
    set_line_max_rate(index, DEFAULT_RATE);
    const int32_t channel = line_channel(index);
    DornAttachRecord attach{};
    attach.dwChannel = static_cast<uint32_t>(channel);
    DornLine* hChannel = DornLineAttach(&attach);
    if (!hChannel) {
        TRACE(TRACE_INFO, "TSPI_providerInit() LineAttach for chan %d failed!", channel);
        report_event_num(EVENT_HARDWARE_FAILURE, EVENT_ATTACH_FAILURE, static_cast<uint32_t>(channel));
        set_line_channel(index, ~channel);
        return LINEERR_RESOURCEUNAVAIL;
    }
    auto* args = new (std::nothrow) ResetThreadArgs{hChannel, index};
    if (!args) {
        TRACE(TRACE_INFO, "Memory allocation failure during providerinit");
        report_no_memory("tspi_PROVIDERINIT");
        detach_channel(hChannel);
        TRACE(TRACE_INFO, "TSPI_providerInit() #1 for chan %d failed!", channel);
        set_line_channel(index, ~channel);
        return LINEERR_RESOURCEUNAVAIL;
    }
    TRACE(TRACE_INFO, "TSPI_providerInit: _beginthread ResetChannelThread started");
    _beginthread(ResetChannelThread, THREAD_STACK_SIZE, args);
    ++globals.gdwResetsPending;
    return 0;
}

// Resets all channels side by side and waits until the last has reported. A channel that fails does not stop the
// others.
LONG reset_channels() {
    LONG result = 0;
    int32_t started;
    InitializeCriticalSection(&globals.gResetLock);
    {
        const ResetLock lock;
        globals.gdwResetsPending = 0;
        TRACE(TRACE_INFO, "gdwNumLines=%d", globals.gdwNumLines);
        with_faults_as_exceptions([&] {
            for (uint32_t index = 0; index < globals.gdwNumLines; ++index) {
                const LONG line_result = attach_and_start_reset(index);
                if (line_result != 0) result = line_result;
            }
        });
        started = globals.gdwResetsPending;
    }
    if (started >= 1) WaitForSingleObject(globals.ghResetDoneEvent, INFINITE);
    CloseHandle(globals.ghResetDoneEvent);
    DeleteCriticalSection(&globals.gResetLock);
    return result;
}

}  // namespace

// Threads come and go without the fault guard: it keeps a record a thread, which would be made anew behind the end of a
// thread and never go. 0x80000048 is not zero, so that the loader takes it as success like TRUE.
extern "C" BOOL WINAPI DllMain(HINSTANCE hinstDLL, DWORD reason, LPVOID) {
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            globals.ghInstance = hinstDLL;
            return TRUE;
        case DLL_PROCESS_DETACH:
        case DLL_THREAD_ATTACH:
        case DLL_THREAD_DETACH:
            return TRUE;
        default:
            break;
    }
    if (completes([] { debug_print("TSP:DLL_OTHER\n"); })) return TRUE;
    debug_print("TSP:DLLMain catch\n");
    return static_cast<BOOL>(LINEERR_OPERATIONFAILED);
}

extern "C" LONG WINAPI TSPI_providerEnumDevices(DWORD dwPermanentProviderID, LPDWORD lpdwNumLines, LPDWORD, HPROVIDER,
                                                LINEEVENT lpfnLineCreateProc, PHONEEVENT) {
    const char* name = __func__;
    return provider_entry(
        name, TRACE_PROVIDER_EXIT, LibraryEnd::UnlessOpenedBefore,
        [&] { TRACE(TRACE_PROVIDER_ENTER, "%s: dwPermanentProviderID(%d)", name, dwPermanentProviderID); },
        [&]() -> LONG {
            *lpdwNumLines = 0;
            if (!require_host_service("tspi_PROVIDERENUMDEVICES")) return LINEERR_OPERATIONFAILED;
            scan_modules(lpdwNumLines);
            globals.glpfnLineCreateProc = lpfnLineCreateProc;
            TRACE(TRACE_INFO, "assigned lpfnLineCreateProc");
            return 0;
        });
}

// On success the libraries stay in use until TSPI_providerShutdown.
extern "C" LONG WINAPI TSPI_providerInit(DWORD dwTSPIVersion, DWORD dwPermanentProviderID, DWORD dwLineDeviceIDBase,
                                         DWORD dwPhoneDeviceIDBase, DWORD_PTR dwNumLines, DWORD_PTR dwNumPhones,
                                         ASYNC_COMPLETION lpfnCompletionProc, LPDWORD lpdwTSPIOptions) {
    const char* name = __func__;
    const auto start = [&]() -> LONG {
        if (!IsFaxServicePresent()) {
            TRACE(TRACE_INFO, "IsFaxServicePresent()==FALSE");
            return LINEERR_RESOURCEUNAVAIL;
        }
        if (const LONG error = map_shared_segment()) return error;
        globals.gdwLineDeviceIDBase = dwLineDeviceIDBase;
        globals.gdwPermanentProviderID = dwPermanentProviderID;
        globals.glpfnCompletionProc = lpfnCompletionProc;
        globals.gdwNumLines = static_cast<uint32_t>(dwNumLines);
        *lpdwTSPIOptions = 0;
        globals.gbProviderInitialised = 1;
        // The trace names another function here; administrators' tools know the line so.
        if (!require_host_service("tspi_lineclosecall")) return LINEERR_NODRIVER;
        if (const LONG error = create_reset_done_event()) return error;
        return reset_channels();
    };
    return provider_entry(
        name, TRACE_PROVIDER_EXIT, LibraryEnd::OnFailure,
        [&] {
            TRACE(TRACE_PROVIDER_ENTER,
                  "%s: dwTSPIVersion(0x%x), dwPermanentProviderID(%d), dwLineDeviceIDBase(%d), "
                  "dwPhoneDeviceIDBase(%d), dwNumLines(%d), dwNumPhones(%d), lpfnCompletionProc(%p), "
                  "lpdwTSPIOptions(%p)",
                  name, dwTSPIVersion, dwPermanentProviderID, dwLineDeviceIDBase, dwPhoneDeviceIDBase,
                  static_cast<int>(dwNumLines), static_cast<int>(dwNumPhones), lpfnCompletionProc, lpdwTSPIOptions);
        },
        [&]() -> LONG {
            LONG result = LINEERR_OPERATIONFAILED;
            if (!completes([&] { result = start(); })) TRACE(TRACE_INFO, "TSPI_providerInit - Catch Error");
            return result;
        });
}

// View and handle keep their stale values: TAPI has closed every line by now, and initialises anew before the next.
extern "C" LONG WINAPI TSPI_providerShutdown(DWORD dwTSPIVersion, DWORD dwPermanentProviderID) {
    const char* name = __func__;
    return provider_entry(
        name, TRACE_PROVIDER_EXIT, LibraryEnd::Always,
        [&] {
            TRACE(TRACE_PROVIDER_ENTER, "%s: dwTSPIVersion(0x%x), dwPermanentProviderID(%d)", name, dwTSPIVersion,
                  dwPermanentProviderID);
        },
        []() -> LONG {
            release_shared_segment();
            return 0;
        });
}

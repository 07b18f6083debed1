// The provider's life in the host.
#include "provider.h"

#include "events.h"
#include "names.h"
#include "own_process.h"
#include "program.h"
#include "text.h"

namespace {

constexpr DWORD PERMANENT_PROVIDER_ID = 1;
constexpr DWORD LOWEST_VERSION = 0x00010003;
constexpr DWORD HIGHEST_VERSION = 0x00030001;
constexpr DWORD THREAD_END_TIMEOUT = 5000;  // milliseconds

Failure keep_others_out(Provider& provider) {
    provider.only_one.reset(CreateMutexW(nullptr, FALSE, TELEPHONY_HOST_MUTEX));
    // Without the right to the global name another account's host has it.
    const DWORD error = GetLastError();
    if (provider.only_one && error != ERROR_ALREADY_EXISTS) return {};
    provider.only_one.reset();
    return {EXIT_PROVIDER, "LINEERR_INUSE", "another host is using the provider on this machine",
            "end it, or wait until it has ended"};
}

template <typename Function>
bool find(HMODULE module, const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    return function != nullptr;
}

// The name of the first entry point that the module lacks, or null.
const char* find_functions(HMODULE module, TspiFunctions& tspi) {
#define FIND(function) \
    if (!find(module, "TSPI_" #function, tspi.function)) return "TSPI_" #function
    FIND(lineNegotiateTSPIVersion);
    FIND(lineNegotiateExtVersion);
    FIND(lineSelectExtVersion);
    FIND(lineGetExtensionID);
    FIND(providerEnumDevices);
    FIND(providerInit);
    FIND(providerShutdown);
    FIND(lineGetDevCaps);
    FIND(lineGetAddressCaps);
    FIND(lineGetNumAddressIDs);
    FIND(lineGetLineDevStatus);
    FIND(lineGetAddressStatus);
    FIND(lineGetID);
    FIND(lineSetStatusMessages);
    FIND(lineSetDefaultMediaDetection);
    FIND(lineOpen);
    FIND(lineClose);
    FIND(lineMakeCall);
    FIND(lineAnswer);
    FIND(lineDrop);
    FIND(lineCloseCall);
    FIND(lineGetCallInfo);
    FIND(lineGetCallStatus);
    FIND(lineGetCallAddressID);
    FIND(lineDevSpecific);
#undef FIND
    if (!find(module, "TUISPI_lineConfigDialog", tspi.TUISPI_lineConfigDialog)) return "TUISPI_lineConfigDialog";
    return nullptr;
}

enum class ServiceState { absent, stopped, running, unknown };

ServiceState service_state(const wchar_t* name) {
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return ServiceState::unknown;
    const OwnedService service(OpenServiceW(manager.get(), name, SERVICE_QUERY_STATUS));
    if (!service) {
        return GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST ? ServiceState::absent : ServiceState::unknown;
    }
    SERVICE_STATUS status = {};
    if (!QueryServiceStatus(service.get(), &status)) return ServiceState::unknown;
    return status.dwCurrentState == SERVICE_RUNNING || status.dwCurrentState == SERVICE_START_PENDING
               ? ServiceState::running
               : ServiceState::stopped;
}

// The provider's start fails for a few reasons that one can see from outside.
Failure start_failure(LONG result, const char* doing) {
    Failure failure = line_error_failure(result, doing, EXIT_PROVIDER);
    const ServiceState calder = service_state(L"calder");
    if (calder == ServiceState::absent) {
        failure.text = "the host service calder is not installed";
        failure.advice = "install and start it: calder install --fax-stand-in, net start calder";
    } else if (calder == ServiceState::stopped) {
        failure.text = "the host service calder does not run";
        failure.advice = "start it: net start calder";
    } else if (service_state(L"Fax") == ServiceState::absent) {
        failure.text = "this machine has no Windows service Fax";
        failure.advice = "install the fax service, or put a stand-in in its place: calder install --fax-stand-in";
    }
    return failure;
}

Failure initialise(Provider& provider, DWORD dwLineDeviceIDBase) {
    const TspiFunctions& tspi = provider.tspi;
    LONG result = tspi.lineNegotiateTSPIVersion(static_cast<DWORD>(INITIALIZE_NEGOTIATION), LOWEST_VERSION,
                                                HIGHEST_VERSION, &provider.dwTSPIVersion);
    if (result != 0) return line_error_failure(result, "negotiating its version", EXIT_PROVIDER);

    DWORD dwNumPhones = 0;
    result = tspi.providerEnumDevices(PERMANENT_PROVIDER_ID, &provider.dwNumLines, &dwNumPhones, nullptr,
                                      hub_line_event, nullptr);
    if (result != 0) return start_failure(result, "counting its lines");

    provider.dwLineDeviceIDBase = dwLineDeviceIDBase;
    DWORD dwTSPIOptions = 0;
    result = tspi.providerInit(provider.dwTSPIVersion, PERMANENT_PROVIDER_ID, dwLineDeviceIDBase, 0,
                               provider.dwNumLines, dwNumPhones, hub_completion, &dwTSPIOptions);
    if (result != 0) return start_failure(result, "initialising");
    provider.initialised = true;
    return {};
}

}  // namespace

std::wstring default_provider_path() {
    return program_folder() + L"\\qorvtsp.tsp";
}

Failure provider_load(Provider& provider, const std::wstring& path) {
    provider.threads_before = process_counts().threads;
    // The provider's folder takes the program's place in the search, so that its driver library is found beside it.
    provider.module.reset(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    if (!provider.module) {
        return {EXIT_PROVIDER, "LINEERR_NODRIVER", utf8(path) + " cannot be loaded, " + windows_error(GetLastError()),
                "check that qorvtsp.tsp and calddlld.dll lie together, or name the provider with --provider"};
    }
    if (const char* missing = find_functions(provider.module.get(), provider.tspi)) {
        return {EXIT_PROVIDER, "LINEERR_NODRIVER", utf8(path) + " has no " + missing,
                "name the fax boards' provider with --provider"};
    }
    return {};
}

Failure provider_start(Provider& provider, const ProviderOptions& options) {
    if (Failure failure = provider_load(provider, options.path)) return failure;
    if (Failure failure = keep_others_out(provider)) return failure;
    return initialise(provider, options.dwLineDeviceIDBase);
}

Failure provider_check_line(const Provider& provider, DWORD dwDeviceID) {
    if (dwDeviceID >= provider.dwLineDeviceIDBase && dwDeviceID - provider.dwLineDeviceIDBase < provider.dwNumLines) {
        return {};
    }
    const std::string name = lineerr_name(LINEERR_BADDEVICEID);
    if (provider.dwNumLines == 0) {
        return {EXIT_PROVIDER, name, "the provider found no board, so there are no lines", "check the board's driver"};
    }
    return {EXIT_PROVIDER, name,
            format("there is no line %lu: the provider has the lines %lu to %lu", dwDeviceID,
                   provider.dwLineDeviceIDBase, provider.dwLineDeviceIDBase + provider.dwNumLines - 1),
            lineerr_advice(LINEERR_BADDEVICEID)};
}

Provider::~Provider() {
    if (initialised) tspi.providerShutdown(dwTSPIVersion, PERMANENT_PROVIDER_ID);
    // A thread of the provider reports its end before it has left the provider's code, which is about to be unloaded.
    if (module) wait_for_threads(threads_before, THREAD_END_TIMEOUT);
}

// The provider as the telephony service has it: loaded, negotiated with, enumerated, initialised, shut down, unloaded.
#pragma once

#include <string>

#include "failure.h"
#include "owned.h"
#include "tapi20.h"

// The entry points that the host uses, by name without the prefix TSPI_.
struct TspiFunctions {
    decltype(&::TSPI_lineNegotiateTSPIVersion) lineNegotiateTSPIVersion;
    decltype(&::TSPI_lineNegotiateExtVersion) lineNegotiateExtVersion;
    decltype(&::TSPI_lineSelectExtVersion) lineSelectExtVersion;
    decltype(&::TSPI_lineGetExtensionID) lineGetExtensionID;
    decltype(&::TSPI_providerEnumDevices) providerEnumDevices;
    decltype(&::TSPI_providerInit) providerInit;
    decltype(&::TSPI_providerShutdown) providerShutdown;
    decltype(&::TSPI_lineGetDevCaps) lineGetDevCaps;
    decltype(&::TSPI_lineGetAddressCaps) lineGetAddressCaps;
    decltype(&::TSPI_lineGetNumAddressIDs) lineGetNumAddressIDs;
    decltype(&::TSPI_lineGetLineDevStatus) lineGetLineDevStatus;
    decltype(&::TSPI_lineGetAddressStatus) lineGetAddressStatus;
    decltype(&::TSPI_lineGetID) lineGetID;
    decltype(&::TSPI_lineSetStatusMessages) lineSetStatusMessages;
    decltype(&::TSPI_lineSetDefaultMediaDetection) lineSetDefaultMediaDetection;
    decltype(&::TSPI_lineOpen) lineOpen;
    decltype(&::TSPI_lineClose) lineClose;
    decltype(&::TSPI_lineMakeCall) lineMakeCall;
    decltype(&::TSPI_lineAnswer) lineAnswer;
    decltype(&::TSPI_lineDrop) lineDrop;
    decltype(&::TSPI_lineCloseCall) lineCloseCall;
    decltype(&::TSPI_lineGetCallInfo) lineGetCallInfo;
    decltype(&::TSPI_lineGetCallStatus) lineGetCallStatus;
    decltype(&::TSPI_lineGetCallAddressID) lineGetCallAddressID;
    decltype(&::TSPI_lineDevSpecific) lineDevSpecific;
    decltype(&::TUISPI_lineConfigDialog) TUISPI_lineConfigDialog;  // the provider is its own user-interface module
};

// Started by provider_start, stopped by its owner's end. One per process, and one per machine: the shared segment and
// the boards have room for one.
struct Provider {
    Provider() = default;
    ~Provider();
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    OwnedHandle only_one;  // the named mutex that keeps a second host out
    OwnedModule module;
    TspiFunctions tspi = {};
    DWORD dwTSPIVersion = 0;
    DWORD dwExtVersion = 0;
    DWORD dwLineDeviceIDBase = 0;
    DWORD dwNumLines = 0;
    DWORD threads_before = 0;  // of this process, before the provider was loaded
    bool initialised = false;
};

struct ProviderOptions {
    std::wstring path;             // qorvtsp.tsp; its driver library is looked for beside it
    DWORD dwLineDeviceIDBase = 0;  // device ID of the first line
};

// qorvtsp.tsp beside the running program.
std::wstring default_provider_path();

// Loads the provider and finds its entry points. Its configuration dialog needs no more.
Failure provider_load(Provider& provider, const std::wstring& path);

// Loads and initialises the provider. Blocks until every channel has been reset. What fails is named and undone by the
// provider's owner.
Failure provider_start(Provider& provider, const ProviderOptions& options);

// LINEERR_BADDEVICEID unless the device ID is one of the provider's.
Failure provider_check_line(const Provider& provider, DWORD dwDeviceID);

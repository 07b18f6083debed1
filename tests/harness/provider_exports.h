// The provider's exports with their signatures, as TAPI finds them.
#pragma once

#include <windows.h>
// tapi.h wants windows.h first.
#include <tapi.h>
#include <tspi.h>

#include <string>

namespace harness {

#define PROVIDER_EXPORTS(X)               \
    X(TSPI_lineAccept)                    \
    X(TSPI_lineAnswer)                    \
    X(TSPI_lineClose)                     \
    X(TSPI_lineCloseCall)                 \
    X(TSPI_lineConditionalMediaDetection) \
    X(TSPI_lineDevSpecific)               \
    X(TSPI_lineDial)                      \
    X(TSPI_lineDrop)                      \
    X(TSPI_lineGetAddressCaps)            \
    X(TSPI_lineGetAddressStatus)          \
    X(TSPI_lineGetCallAddressID)          \
    X(TSPI_lineGetCallInfo)               \
    X(TSPI_lineGetCallStatus)             \
    X(TSPI_lineGetDevCaps)                \
    X(TSPI_lineGetExtensionID)            \
    X(TSPI_lineGetID)                     \
    X(TSPI_lineGetLineDevStatus)          \
    X(TSPI_lineGetNumAddressIDs)          \
    X(TSPI_lineMakeCall)                  \
    X(TSPI_lineNegotiateExtVersion)       \
    X(TSPI_lineNegotiateTSPIVersion)      \
    X(TSPI_lineOpen)                      \
    X(TSPI_lineSelectExtVersion)          \
    X(TSPI_lineSetDefaultMediaDetection)  \
    X(TSPI_lineSetMediaMode)              \
    X(TSPI_lineSetStatusMessages)         \
    X(TSPI_providerConfig)                \
    X(TSPI_providerEnumDevices)           \
    X(TSPI_providerGenericDialogData)     \
    X(TSPI_providerInit)                  \
    X(TSPI_providerInstall)               \
    X(TSPI_providerRemove)                \
    X(TSPI_providerShutdown)              \
    X(TSPI_providerUIIdentify)            \
    X(TUISPI_lineConfigDialog)            \
    X(TUISPI_providerConfig)              \
    X(TUISPI_providerInstall)             \
    X(TUISPI_providerRemove)

// One pointer for every export, under the export's own name.
struct ProviderExports {
#define X(name) decltype(&::name) name = nullptr;
    PROVIDER_EXPORTS(X)
#undef X
};

// The path of the built provider, beside which the test program's folder lies; or what QORV_PROVIDER says, for runs
// over a variant of it.
std::string provider_path();
// Looks every export up; one that is missing is null.
ProviderExports find_exports(HMODULE provider);

}  // namespace harness

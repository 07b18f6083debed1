// faxhost configure: the configuration dialog of the provider's lines, as TAPI opens it.
#include "commands.h"
#include "session.h"

namespace {

// TAPI's way for a dialog to ask the provider something; this one asks nothing.
LONG CALLBACK nothing_to_ask(DWORD_PTR, DWORD, LPVOID, DWORD) {
    return static_cast<LONG>(LINEERR_OPERATIONUNAVAIL);
}

}  // namespace

Failure command_configure(const Arguments& arguments) {
    Session session(arguments);
    if (Failure failure = session_load(session)) return failure;
    const LONG result =
        session.provider.tspi.TUISPI_lineConfigDialog(nothing_to_ask, arguments.line, nullptr, L"tapi/line");
    if (result == 0) return {};
    Failure failure = line_error_failure(result, "showing the configuration dialog", EXIT_PROVIDER);
    failure.text = "the board's configuration dialog cannot be shown";
    failure.advice = "check that there is a screen, and that qorvconf.cpl lies beside this program";
    return failure;
}

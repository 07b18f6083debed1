// The LINEERR_* codes by name, and what to do about those that the provider returns.
#include "names.h"
#include "text.h"

namespace {

#define NAMED(constant, advice) \
    { static_cast<uint32_t>(constant), #constant, advice }

struct NamedError {
    uint32_t value;
    const char* name;
    const char* advice;
};

constexpr NamedError LINE_ERRORS[] = {
    NAMED(LINEERR_ALLOCATED, ""),
    NAMED(LINEERR_BADDEVICEID, "faxhost lines shows the device IDs there are"),
    NAMED(LINEERR_BEARERMODEUNAVAIL, ""),
    NAMED(LINEERR_CALLUNAVAIL, "an incoming call took the line at the same moment; send again"),
    NAMED(LINEERR_COMPLETIONOVERRUN, ""),
    NAMED(LINEERR_CONFERENCEFULL, ""),
    NAMED(LINEERR_DIALBILLING, "take the \"$\" out of the number"),
    NAMED(LINEERR_DIALDIALTONE, ""),
    NAMED(LINEERR_DIALPROMPT, "take the \"?\" out of the number"),
    NAMED(LINEERR_DIALQUIET, "take the \"@\" out of the number"),
    NAMED(LINEERR_INCOMPATIBLEAPIVERSION, "this is no provider for TAPI 2.0"),
    NAMED(LINEERR_INCOMPATIBLEEXTVERSION, "this provider does not speak the fax service's extension 2.0"),
    NAMED(LINEERR_INIFILECORRUPT, ""),
    NAMED(LINEERR_INUSE, "the line has a call already; wait until it is over"),
    NAMED(LINEERR_INVALADDRESS, ""),
    NAMED(LINEERR_INVALADDRESSID, ""),
    NAMED(LINEERR_INVALADDRESSMODE, ""),
    NAMED(LINEERR_INVALADDRESSSTATE, ""),
    NAMED(LINEERR_INVALAPPHANDLE, ""),
    NAMED(LINEERR_INVALAPPNAME, ""),
    NAMED(LINEERR_INVALBEARERMODE, ""),
    NAMED(LINEERR_INVALCALLCOMPLMODE, ""),
    NAMED(LINEERR_INVALCALLHANDLE, "the call is gone; start again"),
    NAMED(LINEERR_INVALCALLPARAMS, ""),
    NAMED(LINEERR_INVALCALLPRIVILEGE, ""),
    NAMED(LINEERR_INVALCALLSELECT, ""),
    NAMED(LINEERR_INVALCALLSTATE, "the call is no longer in a state for this; start again"),
    NAMED(LINEERR_INVALCALLSTATELIST, ""),
    NAMED(LINEERR_INVALCARD, ""),
    NAMED(LINEERR_INVALCOMPLETIONID, ""),
    NAMED(LINEERR_INVALCONFCALLHANDLE, ""),
    NAMED(LINEERR_INVALCONSULTCALLHANDLE, ""),
    NAMED(LINEERR_INVALCOUNTRYCODE, ""),
    NAMED(LINEERR_INVALDEVICECLASS, ""),
    NAMED(LINEERR_INVALDEVICEHANDLE, "faxhost lines shows the device IDs there are"),
    NAMED(LINEERR_INVALDIALPARAMS, ""),
    NAMED(LINEERR_INVALDIGITLIST, ""),
    NAMED(LINEERR_INVALDIGITMODE, ""),
    NAMED(LINEERR_INVALDIGITS, ""),
    NAMED(LINEERR_INVALEXTVERSION, ""),
    NAMED(LINEERR_INVALGROUPID, ""),
    NAMED(LINEERR_INVALLINEHANDLE, "the line is closed; start again"),
    NAMED(LINEERR_INVALLINESTATE, ""),
    NAMED(LINEERR_INVALLOCATION, ""),
    NAMED(LINEERR_INVALMEDIALIST, ""),
    NAMED(LINEERR_INVALMEDIAMODE, ""),
    NAMED(LINEERR_INVALMESSAGEID, ""),
    NAMED(LINEERR_INVALPARAM, ""),
    NAMED(LINEERR_INVALPARKID, ""),
    NAMED(LINEERR_INVALPARKMODE, ""),
    NAMED(LINEERR_INVALPOINTER, ""),
    NAMED(LINEERR_INVALPRIVSELECT, ""),
    NAMED(LINEERR_INVALRATE, ""),
    NAMED(LINEERR_INVALREQUESTMODE, ""),
    NAMED(LINEERR_INVALTERMINALID, ""),
    NAMED(LINEERR_INVALTERMINALMODE, ""),
    NAMED(LINEERR_INVALTIMEOUT, ""),
    NAMED(LINEERR_INVALTONE, ""),
    NAMED(LINEERR_INVALTONELIST, ""),
    NAMED(LINEERR_INVALTONEMODE, ""),
    NAMED(LINEERR_INVALTRANSFERMODE, ""),
    NAMED(LINEERR_LINEMAPPERFAILED, ""),
    NAMED(LINEERR_NOCONFERENCE, ""),
    NAMED(LINEERR_NODEVICE, "faxhost lines shows the device IDs there are"),
    NAMED(LINEERR_NODRIVER,
          "check that the service calder runs (net start calder) and that qorvtsp.tsp and calddlld.dll lie together"),
    NAMED(LINEERR_NOMEM, "free memory and start again"),
    NAMED(LINEERR_NOREQUEST, ""),
    NAMED(LINEERR_NOTOWNER, ""),
    NAMED(LINEERR_NOTREGISTERED, ""),
    NAMED(LINEERR_OPERATIONFAILED, "look at the provider's lines with --trace 1-4"),
    NAMED(
        LINEERR_OPERATIONUNAVAIL,
        "the channel could not be reset or has no firmware; check the board and kxcall.cfg, and look with --trace 1-4"),
    NAMED(LINEERR_RATEUNAVAIL, ""),
    NAMED(LINEERR_RESOURCEUNAVAIL,
          "the channel failed its reset or the board does not give it; check the board and kxcall.cfg, and look with "
          "--trace 1-4"),
    NAMED(LINEERR_REQUESTOVERRUN, ""),
    NAMED(LINEERR_STRUCTURETOOSMALL, ""),
    NAMED(LINEERR_TARGETNOTFOUND, ""),
    NAMED(LINEERR_TARGETSELF, ""),
    NAMED(LINEERR_UNINITIALIZED, ""),
    NAMED(LINEERR_USERUSERINFOTOOBIG, ""),
    NAMED(LINEERR_REINIT, ""),
    NAMED(LINEERR_ADDRESSBLOCKED, ""),
    NAMED(LINEERR_BILLINGREJECTED, ""),
    NAMED(LINEERR_INVALFEATURE, ""),
    NAMED(LINEERR_NOMULTIPLEINSTANCE, ""),
    NAMED(LINEERR_INVALAGENTID, ""),
    NAMED(LINEERR_INVALAGENTGROUP, ""),
    NAMED(LINEERR_INVALPASSWORD, ""),
    NAMED(LINEERR_INVALAGENTSTATE, ""),
    NAMED(LINEERR_INVALAGENTACTIVITY, ""),
    NAMED(LINEERR_DIALVOICEDETECT, ""),
    NAMED(LINEERR_USERCANCELLED, ""),
    NAMED(LINEERR_INVALADDRESSTYPE, ""),
    NAMED(LINEERR_INVALAGENTSESSIONSTATE, ""),
    NAMED(LINEERR_DISCONNECTED, ""),
    NAMED(LINEERR_SERVICE_NOT_RUNNING, ""),
};

#undef NAMED

}  // namespace

std::string lineerr_name(int32_t result) {
    if (result == 0) return "0";
    for (const NamedError& row : LINE_ERRORS) {
        if (row.value == static_cast<uint32_t>(result)) return row.name;
    }
    return format("0x%08X", static_cast<uint32_t>(result));
}

const char* lineerr_advice(int32_t result) {
    for (const NamedError& row : LINE_ERRORS) {
        if (row.value == static_cast<uint32_t>(result)) return row.advice;
    }
    return "";
}

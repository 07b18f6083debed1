// Media modes and status messages. The lines do G3 fax only and report every event, so these functions only say which
// requests a fax line can honour; they store nothing.
#include "diag/diag.h"
#include "entry_point.h"
#include "provider.h"

const uint32_t FaxRateTable[16] = {2400, 9600, 4800, 9600, 0, 0, 0, 14400, 0, 0, 0, 14400, 0, 0, 0, 0};

uint32_t fax_rate_of_capabilities(DornLine* channel) {
    uint32_t code = 0;
    if (DornLineCapCheck(channel, CAPABILITY_FIRMWARE) != 0)
        code = DornLineCapCheck(channel, CAPABILITY_HIGH_RATE) != 0 ? 0x8340 : 0x3840;
    // The rate lies in the high byte but is looked for in the low one, so that every channel comes to 2400 bit/s.
    // Clients count on that ceiling.
    return FaxRateTable[(static_cast<int8_t>(code & 0xFF) >> 2) & 0x0F];
}

namespace {

bool has_only(uint32_t bits, uint32_t allowed) {
    return (bits & ~allowed) == 0;
}

bool call_parameters_fit(const LINECALLPARAMS& params, uint32_t ceiling) {
    return has_only(params.dwBearerMode, LINEBEARERMODE_VOICE) && params.dwMaxRate <= ceiling &&
           has_only(params.dwMediaMode, LINEMEDIAMODE_G3FAX) && params.dwCallParamFlags == 0 &&
           has_only(params.dwAddressMode, LINEADDRESSMODE_ADDRESSID);
}

}  // namespace

// Zero, a request to stop detecting, is refused like every mode but fax.
extern "C" LONG WINAPI TSPI_lineSetDefaultMediaDetection(HDRVLINE hdLine, DWORD dwMediaModes) {
    return line_entry(__func__, line_of(hdLine), [&](LineEntry&) -> LONG {
        return dwMediaModes == LINEMEDIAMODE_G3FAX ? 0 : LINEERR_INVALMEDIAMODE;
    });
}

extern "C" LONG WINAPI TSPI_lineSetMediaMode(HDRVCALL hdCall, DWORD dwMediaMode) {
    return line_entry(__func__, line_of(hdCall), [&](LineEntry&) -> LONG {
        return has_only(dwMediaMode, LINEMEDIAMODE_G3FAX) ? 0 : LINEERR_INVALMEDIAMODE;
    });
}

extern "C" LONG WINAPI TSPI_lineSetStatusMessages(HDRVLINE hdLine, DWORD, DWORD) {
    return line_entry(__func__, line_of(hdLine), [&](LineEntry&) -> LONG { return 0; });
}

extern "C" LONG WINAPI TSPI_lineConditionalMediaDetection(HDRVLINE hdLine, DWORD dwMediaModes,
                                                          LPLINECALLPARAMS const lpCallParams) {
    LineRec* pLine = line_of(hdLine);
    if (!pLine) return null_line_query(__func__);
    return line_entry(__func__, pLine, [&](LineEntry&) -> LONG {
        const uint32_t ceiling = fax_rate_of_capabilities(pLine->hChannel);
        const bool fits = has_only(dwMediaModes, LINEMEDIAMODE_G3FAX) && call_parameters_fit(*lpCallParams, ceiling);
        return fits ? 0 : LINEERR_INVALMEDIAMODE;
    });
}

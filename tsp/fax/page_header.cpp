// The header line at the top of every page. The limit of each piece is the length of what is there already, not the
// room that is left; so a local identifier longer than the header text is dropped and the date template is cut.
// Installations have tuned their header texts to it.
#include "fax/page_header.h"

#include <cstdio>
#include <cstring>

#include "diag/diag.h"

namespace {

constexpr char DATE_TEMPLATE[] = "       %m/%d/%y %H:%M:%S   P%P";

// Appends "<piece> " at text + length, at most limit characters; returns the length of the whole text.
size_t append_piece(char* text, size_t length, size_t limit, const char* piece, const char* complaint) {
    if (_snprintf(text + length, limit, "%s ", piece) < 0) {
        TRACE(TRACE_ERROR, "%s", complaint);
        text[length] = '\0';
    } else {
        text[length + limit] = '\0';
    }
    return strlen(text);
}

}  // namespace

void build_page_header(char (&text)[HEADER_SIZE], const FaxParameters& parameters) {
    memset(text, 0, sizeof text);
    size_t length = 0;
    size_t limit = HEADER_SIZE - 1;
    if (parameters.szHeaderText[0]) {
        length = limit = append_piece(text, 0, limit, parameters.szHeaderText, "Thread_Send_Fax _snprintf#1");
        if (limit == 0) return;
    }
    if (parameters.szLocalId[0]) {
        length = limit = append_piece(text, length, limit, parameters.szLocalId, "Thread_Send_Fax _snprintf#2");
        if (limit == 0) return;
    }
    strncpy(text + length, DATE_TEMPLATE, limit);
    text[length + limit] = '\0';
}

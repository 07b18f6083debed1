// The property sheet of the software board: its channels with their numbers, and the stations of its switch, as the
// board's INI file has them. It shows and does not change: the file is the place for that.
#include <windows.h>
// commctrl.h wants windows.h first.
#include <commctrl.h>

#include <string>
#include <vector>

#include "config.h"
#include "resource.h"

namespace {

using softboard::BoardConfig;
using softboard::ChannelConfig;
using softboard::StationConfig;

using Row = std::vector<std::string>;

struct Column {
    const char* title;
    int width;  // pixels
};
constexpr Column CHANNEL_COLUMNS[] = {
    {"Channel", 55}, {"Unit", 40}, {"Number", 75}, {"Name", 125}, {"Highest rate", 80}, {"ECM", 40},
};
constexpr Column STATION_COLUMNS[] = {
    {"Number", 90},
    {"Name", 130},
    {"Station id", 110},
    {"What it does", 120},
};

// What both pages show; lives as long as the sheet is open.
struct Sheet {
    std::string source;  // where the values come from
    std::vector<Row> channels;
    std::vector<Row> stations;
    bool shown = false;  // the first page has come up
};

Row channel_row(const ChannelConfig& channel) {
    return {std::to_string(channel.number),
            std::to_string(channel.unit),
            channel.phone,
            channel.name,
            std::to_string(channel.fax.max_rate) + " bit/s",
            channel.fax.ecm ? "yes" : "no"};
}

std::string habit(const StationConfig& station) {
    if (!station.calls.empty()) return "calls " + station.calls;
    if (station.busy) return "is busy";
    return station.answers ? "answers" : "does not answer";
}

Row station_row(const StationConfig& station) {
    return {station.number, station.name, station.ident, habit(station)};
}

Sheet read_sheet() {
    softboard::Mistakes mistakes;
    const std::string path = softboard::config_path();
    const BoardConfig config = softboard::read_config(path, mistakes);
    Sheet sheet;
    sheet.source = path.empty() ? "The board's defaults: there is no softboard.ini." : "From " + path;
    if (!mistakes.empty()) {
        const std::string count = mistakes.size() == 1 ? "1 mistake" : std::to_string(mistakes.size()) + " mistakes";
        sheet.source += " (" + count + " in it, which the board's log names by line)";
    }
    for (const ChannelConfig& channel : config.channels) sheet.channels.push_back(channel_row(channel));
    for (const StationConfig& station : config.stations) sheet.stations.push_back(station_row(station));
    return sheet;
}

// ---- the pages ----------------------------------------------------------------------------------------------------

template <size_t N>
void fill_list(HWND list, const Column (&columns)[N], const std::vector<Row>& rows) {
    SendMessageA(list, LVM_SETEXTENDEDLISTVIEWSTYLE, LVS_EX_FULLROWSELECT, LVS_EX_FULLROWSELECT);
    for (size_t i = 0; i < N; ++i) {
        LVCOLUMNA column{};
        column.mask = LVCF_TEXT | LVCF_WIDTH;
        column.pszText = const_cast<char*>(columns[i].title);
        column.cx = columns[i].width;
        SendMessageA(list, LVM_INSERTCOLUMNA, i, reinterpret_cast<LPARAM>(&column));
    }
    for (size_t row = 0; row < rows.size(); ++row) {
        for (size_t i = 0; i < rows[row].size(); ++i) {
            LVITEMA item{};
            item.mask = LVIF_TEXT;
            item.iItem = static_cast<int>(row);
            item.iSubItem = static_cast<int>(i);
            item.pszText = const_cast<char*>(rows[row][i].c_str());
            SendMessageA(list, i == 0 ? LVM_INSERTITEMA : LVM_SETITEMA, 0, reinterpret_cast<LPARAM>(&item));
        }
    }
}

Sheet& sheet_of_page(LPARAM page) {
    return *reinterpret_cast<Sheet*>(reinterpret_cast<const PROPSHEETPAGEA*>(page)->lParam);
}

INT_PTR CALLBACK channels_page(HWND dialog, UINT message, WPARAM, LPARAM page) {
    if (message != WM_INITDIALOG) return FALSE;
    Sheet& sheet = sheet_of_page(page);
    sheet.shown = true;
    SetDlgItemTextA(dialog, IDC_SOURCE, sheet.source.c_str());
    fill_list(GetDlgItem(dialog, IDC_LIST), CHANNEL_COLUMNS, sheet.channels);
    return TRUE;
}

INT_PTR CALLBACK stations_page(HWND dialog, UINT message, WPARAM, LPARAM page) {
    if (message != WM_INITDIALOG) return FALSE;
    fill_list(GetDlgItem(dialog, IDC_LIST), STATION_COLUMNS, sheet_of_page(page).stations);
    return TRUE;
}

PROPSHEETPAGEA new_page(HMODULE module, WORD dialog, DLGPROC procedure, Sheet& sheet) {
    PROPSHEETPAGEA page{};
    page.dwSize = sizeof page;
    page.hInstance = module;
    page.pszTemplate = MAKEINTRESOURCEA(dialog);
    page.pfnDlgProc = procedure;
    page.lParam = reinterpret_cast<LPARAM>(&sheet);
    return page;
}

// Negative when it cannot be shown. Where there is no screen, the system reports a sheet that nobody has seen as
// closed.
int32_t show(HMODULE module, HWND owner, Sheet sheet) {
    const INITCOMMONCONTROLSEX classes = {sizeof classes, ICC_LISTVIEW_CLASSES | ICC_TAB_CLASSES};
    InitCommonControlsEx(&classes);
    PROPSHEETPAGEA pages[] = {new_page(module, IDD_CHANNELS, channels_page, sheet),
                              new_page(module, IDD_STATIONS, stations_page, sheet)};
    PROPSHEETHEADERA header{};
    header.dwSize = sizeof header;
    header.dwFlags = PSH_PROPSHEETPAGE | PSH_NOAPPLYNOW | PSH_NOCONTEXTHELP;
    header.hwndParent = owner;
    header.hInstance = module;
    header.pszCaption = "Halvorsund software board";
    header.nPages = sheet.stations.empty() ? 1 : 2;
    header.ppsp = pages;
    return PropertySheetA(&header) < 0 || !sheet.shown ? -1 : 0;
}

}  // namespace

// What the provider calls: module is this module's handle, owner the window above the sheet. Blocks until the sheet is
// closed. Negative = it could not be shown.
extern "C" int32_t WINAPI do_prop_sheet(HMODULE module, HWND owner) {
    try {
        return show(module, owner, read_sheet());
    } catch (...) {
        return -1;
    }
}

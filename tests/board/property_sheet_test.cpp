// The configuration dialog of the software board, as the provider opens it: its pages are read as a user would.
#include <windows.h>
// commctrl.h wants windows.h first.
#include <commctrl.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "resource.h"
#include "support.h"

namespace {

using PropertySheetProc = int32_t(WINAPI*)(HMODULE, HWND);
using Rows = std::vector<std::vector<std::string>>;

constexpr char CAPTION[] = "Halvorsund software board";
constexpr DWORD PATIENCE = 30000;  // milliseconds

// The dialog, open on a thread of its own while the test looks at it, and closed by the test.
class ConfigurationDialog : public testing::Test {
  protected:
    void SetUp() override {
        module_ = LoadLibraryA(QORVCONF);
        ASSERT_NE(module_, nullptr);
        do_prop_sheet_ =
            reinterpret_cast<PropertySheetProc>(reinterpret_cast<void*>(GetProcAddress(module_, "do_prop_sheet")));
        ASSERT_NE(do_prop_sheet_, nullptr);
    }
    void TearDown() override { FreeLibrary(module_); }

    // What the provider is told once `look` has seen the dialog and the button has been pressed.
    int32_t open(const std::function<void(HWND)>& look, int button = PSBTN_CANCEL) {
        int32_t result = 99;
        auto thread = std::make_unique<softboard::Thread>([&] { result = do_prop_sheet_(module_, nullptr); });
        const HWND sheet = comes_up();
        EXPECT_NE(sheet, nullptr) << "no dialog has come up";
        if (sheet) look(sheet);
        // A press may come too early for a dialog that is still being made.
        while (!thread->ended()) {
            if (const HWND dialog = own_dialog()) PostMessageA(dialog, PSM_PRESSBUTTON, button, 0);
            Sleep(20);
        }
        thread.reset();
        return result;
    }

    static std::string text_of(HWND page, int control) {
        char text[512] = {};
        GetDlgItemTextA(page, control, text, sizeof text);
        return text;
    }

    static Rows rows_of(HWND page) {
        const HWND list = GetDlgItem(page, IDC_LIST);
        const HWND header = reinterpret_cast<HWND>(SendMessageA(list, LVM_GETHEADER, 0, 0));
        const auto columns = SendMessageA(header, HDM_GETITEMCOUNT, 0, 0);
        Rows rows(SendMessageA(list, LVM_GETITEMCOUNT, 0, 0));
        for (size_t row = 0; row < rows.size(); ++row) {
            for (int column = 0; column < columns; ++column) {
                char text[128] = {};
                LVITEMA item{};
                item.iSubItem = column;
                item.pszText = text;
                item.cchTextMax = sizeof text;
                SendMessageA(list, LVM_GETITEMTEXTA, row, reinterpret_cast<LPARAM>(&item));
                rows[row].push_back(text);
            }
        }
        return rows;
    }

    static HWND page_of(HWND sheet) {
        return reinterpret_cast<HWND>(SendMessageA(sheet, PSM_GETCURRENTPAGEHWND, 0, 0));
    }

  private:
    // Stops at this process's own dialog; others may be on the screen.
    static BOOL CALLBACK is_not_it(HWND window, LPARAM found) {
        DWORD process = 0;
        char caption[64] = {};
        GetWindowThreadProcessId(window, &process);
        GetWindowTextA(window, caption, sizeof caption);
        if (process != GetCurrentProcessId() || !IsWindowVisible(window) || std::string(caption) != CAPTION)
            return TRUE;
        *reinterpret_cast<HWND*>(found) = window;
        return FALSE;
    }

    static HWND own_dialog() {
        HWND dialog = nullptr;
        EnumWindows(is_not_it, reinterpret_cast<LPARAM>(&dialog));
        return dialog;
    }

    // The sheet, complete with its first page.
    static HWND comes_up() {
        const ULONGLONG deadline = GetTickCount64() + PATIENCE;
        while (GetTickCount64() < deadline) {
            const HWND sheet = own_dialog();
            if (sheet && page_of(sheet)) return sheet;
            Sleep(10);
        }
        return nullptr;
    }

    HMODULE module_ = nullptr;
    PropertySheetProc do_prop_sheet_ = nullptr;
};

}  // namespace

TEST_F(ConfigurationDialog, ShowsTheChannelsWithTheirNumbers) {
    const Board board(
        "[module.2]\nchannels = 2\nfirst_channel = 20\nfirst_unit = 7\n"
        "[channel.21]\nnumber = 555123\nname = Reception\nmax_rate = 9600\necm = no\n");
    EXPECT_EQ(open([&](HWND sheet) {
                  EXPECT_EQ(text_of(page_of(sheet), IDC_SOURCE), "From " + board.file("softboard.ini"));
                  const Rows expected = {{"20", "7", "120", "Channel 20", "14400 bit/s", "yes"},
                                         {"21", "8", "555123", "Reception", "9600 bit/s", "no"}};
                  EXPECT_EQ(rows_of(page_of(sheet)), expected);
              }),
              0);
}

TEST_F(ConfigurationDialog, ShowsTheStationsOnAPageOfTheirOwn) {
    const Board board(
        "[station.far]\nnumber = 200\nname = Far machine\nident = FAR\n"
        "[station.full]\nnumber = 300\nbusy = yes\n"
        "[station.absent]\nnumber = 301\nanswers = no\n");
    EXPECT_EQ(open([&](HWND sheet) {
                  SendMessageA(sheet, PSM_SETCURSEL, 1, 0);
                  const Rows rows = rows_of(page_of(sheet));
                  ASSERT_EQ(rows.size(), 3u);
                  EXPECT_EQ(rows[0], (std::vector<std::string>{"200", "Far machine", "FAR", "answers"}));
                  EXPECT_EQ(rows[1].back(), "is busy");
                  EXPECT_EQ(rows[2].back(), "does not answer");
              }),
              0);
}

TEST_F(ConfigurationDialog, SaysThatTheFileHasMistakes) {
    const Board board("[channel.0]\ncolour = red\n");
    open([&](HWND sheet) {
        EXPECT_EQ(text_of(page_of(sheet), IDC_SOURCE),
                  "From " + board.file("softboard.ini") + " (1 mistake in it, which the board's log names by line)");
    });
}

TEST_F(ConfigurationDialog, MayBeClosedWithOkAndOpenedAgain) {
    const Board board("");
    for (int button : {PSBTN_OK, PSBTN_CANCEL})
        EXPECT_EQ(open([](HWND sheet) { EXPECT_EQ(rows_of(page_of(sheet)).size(), 4u); }, button), 0);
}

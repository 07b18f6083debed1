// A board of a test's own, and the driver calls in the order in which the provider makes them.
#pragma once

#include <calddlld.h>
#include <gtest/gtest.h>
#include <sync.h>

#include <functional>
#include <string>
#include <vector>

#include "import_table.h"

// The library, started with this INI text, in a folder of its own that goes when the board does.
class Board {
  public:
    explicit Board(const std::string& ini = "");
    ~Board();
    std::string file(const std::string& name) const { return folder_ + "\\" + name; }
    // Ends the library before the test does.
    void shut_down();

  private:
    std::string folder_;
    bool up_ = false;
};

// Empty when there is no such file.
std::string read_text(const std::string& path);

// The library's time, which can be put forward. Waits that are going on do not notice.
class BoardTime {
  public:
    BoardTime();
    void put_forward(int seconds);

  private:
    harness::Replacements table_;
};

// Whether a session of this process has its document or its pages in a file.
bool has_temporary_files();

DornLine* attach(uint32_t channel);
int detach(DornLine* line);
int alert(DornLine* line);
int alert_unit(uint32_t unit);
KXResult reset(DornLine* line, const std::string& configuration = "");

// ---- calls --------------------------------------------------------------------------------------------------------

DornWaitForCallRecord wait_for_call(DornLine* line, uint32_t timeout = 0);
KXResult answer(DornLine* line);
KXResult terminate(DornLine* line);
KXResult set_up(DornLine* line, const char* number);
KXResult wait_for_complete(DornLine* line);
// Sets up and waits: the cause, or 0 when either has failed.
uint32_t dial(DornLine* line, const char* number);

constexpr uint32_t CONNECTED = 339;

// A line that answers the next call, on a thread of its own.
std::unique_ptr<softboard::Thread> answering(DornLine* line, KXResult* result = nullptr);

// Two attached lines with a connected call between them.
struct ConnectedLines {
    DornLine* caller;
    DornLine* called;
    ConnectedLines(uint32_t calling_channel, uint32_t called_channel, const char* number);
};

// ---- TIFF ---------------------------------------------------------------------------------------------------------

DornTiff* open_tiff(const std::string& path, const char* mode);
KXResult close_tiff(DornTiff* tiff);

// ---- fax ----------------------------------------------------------------------------------------------------------

struct FaxJob {
    KXResult result{KX_STATUS_ERROR, 99};  // of the last call made
    std::string failed_call;               // empty = none
    uint32_t pages = 0;                    // sent or received
    std::string remote_id;
    std::string second_id;
    double seconds = 0;
};

struct FaxOptions {
    std::string local_id;
    std::string header;
    std::vector<DornExtraTag> extra_tags;
    std::function<void(uint32_t pages)> after_page;  // called between two driver calls
};

FaxJob send_fax(DornLine* line, const std::string& path, const FaxOptions& options = {});
FaxJob receive_fax(DornLine* line, const std::string& path, const FaxOptions& options = {});

struct Transfer {
    FaxJob sent;
    FaxJob received;
};
Transfer transfer(const ConnectedLines& lines, const std::string& from, const std::string& to,
                  const FaxOptions& sending = {}, const FaxOptions& receiving = {});

void expect_good(const FaxJob& job, uint32_t pages);

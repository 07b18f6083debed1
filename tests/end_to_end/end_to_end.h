// A provider on a software board of the test's making, with the host service running.
//
//     given_board("[station.far]\nnumber = 200\nbusy = yes\n");
//     const std::unique_ptr<Line> line = open_line(0);
//     EXPECT_EQ("FS_BUSY", send(*line, "200", fax).failure.name);
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "call.h"
#include "fax_file.h"
#include "fax_job.h"
#include "fax_pages.h"
#include "line.h"
#include "own_process.h"
#include "provider.h"
#include "temporary_folder.h"

// One fax from the call to its end.
struct Fax {
    Failure failure;  // of the call, or of the job's commands; the job's own result is below
    CallInfo call;    // of a received fax
    FaxResult result;
    std::vector<uint32_t> told_pages;  // page counts in the order in which they were told
};

class EndToEnd : public testing::Test {
  protected:
    static void SetUpTestSuite();
    void TearDown() override;

    // Starts the provider on a board with this softboard.ini (channels 100 to 103 unless it says otherwise).
    void given_board(const std::string& ini);

    std::unique_ptr<Line> open_line(DWORD dwDeviceID, bool receiving = false);

    // Each runs one fax on an open line and ends its call. `on_page` is called with the page count whenever it is told.
    Fax send(Line& line, const std::string& number, const std::string& file);
    Fax receive(Line& line, const std::string& file);

    // A three-page fax in the test's folder.
    std::string three_pages();

    // The file has these pages and no others.
    static void expect_pages(const std::vector<FaxPage>& pages, const std::string& file);
    // The pages of the one file that a station has stored in the test's folder.
    std::string file_of_station(const std::string& station) const;

    TemporaryFolder folder;
    OwnedHandle stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};  // as Ctrl-C would
    std::function<void(uint32_t pages)> on_page;
    Completion completion = Completion::tapi;
    std::string header;  // empty = no header line
    StatusReader status;
    std::unique_ptr<Provider> provider;
};

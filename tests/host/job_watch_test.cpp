// How the host service notices finished jobs.
#include "job_watch.h"

#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>

class JobWatching : public testing::Test {
  protected:
    void SetUp() override { watch = job_watch_begin(records.data()); }

    // What has been noticed since the last look, a line each.
    std::vector<std::string> look() {
        std::vector<std::string> lines;
        for (const FinishedJob& job : job_watch_look(watch, records.data())) lines.push_back(finished_job_text(job));
        return lines;
    }

    FaxStatusBlock& record() { return records[3]; }
    void body(const char* remote_id, uint32_t pages) {
        std::strncpy(record().szRemoteId, remote_id, sizeof(record().szRemoteId));
        record().dwPageCount = pages;
    }
    void close_call() {
        const uint32_t status = record().status;
        const uint32_t line_status = record().line_status;
        record() = {};
        record().status = status;
        record().line_status = line_status;
    }

    std::vector<FaxStatusBlock> records{FAX_RECORD_COUNT};
    JobWatch watch;
};

using Lines = std::vector<std::string>;

TEST_F(JobWatching, TellsAJobWhoseResultIsNew) {
    body("555", 1);
    EXPECT_EQ(Lines(), look());
    record().status = 4;
    EXPECT_EQ(Lines{"unit 3: KX_STATUS_ERROR_HANGUP, remote id \"555\", pages 1"}, look());
    close_call();
    EXPECT_EQ(Lines(), look());
}

TEST_F(JobWatching, TellsAJobThatEndedWellWhenItsCallIsClosed) {
    body("555", 2);
    wcscpy(record().wszCalledId, L"101");
    wcscpy(record().wszCallerId, L"100");
    EXPECT_EQ(Lines(), look());
    close_call();
    EXPECT_EQ(Lines{"unit 3: KX_STATUS_OK, remote id \"555\", called 101, caller 100, pages 3"}, look());
}

TEST_F(JobWatching, TellsTheSameResultAgainForTheNextJob) {
    for (int job = 0; job < 2; ++job) {
        body("555", 1);
        look();
        close_call();
        EXPECT_EQ(1u, look().size()) << job;
    }
}

TEST_F(JobWatching, TellsAJobOnceWhenItsResultIsNewAndItsCallClosedBetweenTwoLooks) {
    body("555", 0);
    look();
    record().status = 7;
    close_call();
    EXPECT_EQ(Lines{"unit 3: KX_STATUS_ALERT, remote id \"555\", pages 0"}, look());
    EXPECT_EQ(Lines(), look());
}

TEST_F(JobWatching, TellsAJobWhoseBodyTheNextOneReplaced) {
    body("555", 2);
    look();
    body("666", 0);
    EXPECT_EQ(Lines{"unit 3: KX_STATUS_OK, remote id \"555\", pages 3"}, look());
}

TEST_F(JobWatching, DoesNotTellWhatWasThereBefore) {
    record().status = 6;
    watch = job_watch_begin(records.data());
    EXPECT_EQ(Lines(), look());
}

TEST_F(JobWatching, KeepsChannelsApart) {
    records[0].status = 2;
    records[0].line_status = 1;
    records[4047].status = 7;
    EXPECT_EQ((Lines{"unit 0: KX_STATUS_ERROR / APIERR_FILEIO, pages 0", "unit 4047: KX_STATUS_ALERT, pages 0"}),
              look());
}

// Which record of the shared segment is a line's.
#include "record_finder.h"

#include <gtest/gtest.h>

#include <cwchar>

class RecordFinding : public testing::Test {
  protected:
    void SetUp() override { segment.records = records.data(); }

    void begin(bool receiving, const std::string& caller = "") { finder_begin(finder, segment, receiving, caller); }
    std::optional<uint32_t> look(const std::map<unsigned long, uint32_t>& taken = {}) {
        return finder_look(finder, taken);
    }

    std::vector<FaxStatusBlock> records{FAX_RECORD_COUNT};
    FaxSegment segment;
    RecordFinder finder;
};

TEST_F(RecordFinding, TakesTheOneThatChanged) {
    begin(false);
    EXPECT_FALSE(look());
    records[4047].szRemoteId[0] = '1';
    EXPECT_EQ(4047u, look());
}

TEST_F(RecordFinding, DoesNotTakeAResultForAChange) {
    begin(false);
    records[3].status = 7;
    EXPECT_FALSE(look());
}

TEST_F(RecordFinding, WaitsAsLongAsSeveralFit) {
    begin(false);
    records[3].szRemoteId[0] = '1';
    records[5].dwPageCount = 1;
    EXPECT_FALSE(look());
    EXPECT_EQ(5u, look({{0, 3}}));
}

TEST_F(RecordFinding, TellsASendingLineByItsMissingNumbers) {
    begin(false);
    records[3].szRemoteId[0] = '1';
    records[5].szRemoteId[0] = '2';
    wcscpy(records[5].wszCallerId, L"100");
    EXPECT_EQ(3u, look());
}

TEST_F(RecordFinding, TellsAReceivingLineByItsCaller) {
    begin(true, "101");
    wcscpy(records[3].wszCallerId, L"100");
    wcscpy(records[5].wszCallerId, L"101");
    records[7].szRemoteId[0] = '2';
    EXPECT_EQ(5u, look());
}

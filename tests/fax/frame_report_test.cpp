// The board's reports of T.30 frames: which of them announce more pages, and in which direction.
#include <set>

#include "board_report_fixture.h"

using namespace harness;

namespace {

using FrameReport = BoardReportFixture;

// With and without the X bit.
const std::set<uint8_t> kMorePages = {MPS, MPS + 1, PRI_MPS, PRI_MPS + 1, EOM, EOM + 1, PRI_EOM, PRI_EOM + 1};
const std::set<uint8_t> kWrappers = {PPS, PPS + 1, EOR, EOR + 1};

std::string trace_of(int direction, int latch, int command, int real_command) {
    return text("[4] setting fsk_dir = %d, GotMPS = %d, fifo[2] = %d, fifo[3] = %d", direction, latch, command,
                real_command);
}

}  // namespace

TEST_F(FrameReport, OfEveryCommandThatAnnouncesMorePagesIsLatched) {
    for (int fcf = 0; fcf < 256; ++fcf) {
        new_chapter();
        frame(SENT, {static_cast<uint8_t>(fcf), 0});
        bool announces_more = kMorePages.count(static_cast<uint8_t>(fcf)) > 0;
        EXPECT_EQ(latched(), announces_more ? 2 : 0) << fcf;
        if (announces_more) frame(SENT, {0x01});
    }
}

TEST_F(FrameReport, OfAWrapperIsLatchedByTheCommandInsideIt) {
    for (uint8_t wrapper : kWrappers)
        for (uint8_t inside :
             {0x00, 0x2E, 0x2F, 0x4C, 0x4E, 0x4F, 0x5E, 0x5F, 0x8E, 0x8F, 0x9E, 0x9F, 0xBE, 0xCE, 0xFF}) {
            new_chapter();
            frame(SENT, {0x01});
            frame(SENT, {wrapper, inside});
            EXPECT_EQ(latched(), kMorePages.count(inside) ? 2 : 0) << int{wrapper} << " " << int{inside};
        }
}

TEST_F(FrameReport, OfAnotherCommandIsNotLatchedByTheByteBehindIt) {
    frame(SENT, {0x2E, MPS});
    frame(SENT, {DCS, MPS});
    EXPECT_EQ(latched(), 0);
}

TEST_F(FrameReport, IsLatchedAsTwoWhenSentAndAsOneWhenReceived) {
    announce_more_pages(SENT);
    EXPECT_EQ(latched(), 2);
    announce_more_pages(RECEIVED);
    EXPECT_EQ(latched(), 1);
    frame_report({direction_tag(77), frame_tag({0xFF, 0xC8, MPS})});
    EXPECT_EQ(latched(), 2);
}

TEST_F(FrameReport, IsLatchedAsTwoForADirectionBelowZero) {
    frame_report({{14, {0xFF, 0xFF, 0xFF, 0xFF}}, frame_tag({0xFF, 0xC8, MPS, 0})});
    EXPECT_TRUE(reads(story(), {trace_of(-1, 2, 0x4E, 0)}));
    EXPECT_EQ(latched(), 2);
}

TEST_F(FrameReport, IsTracedWhenItIsLatched) {
    frame(SENT, {PPS, EOM + 1, 0});
    frame_report({frame_tag({0xFF, 0xC8, PRI_MPS, 0x17}), direction_tag(0)});
    frame_report({direction_tag(5), frame_tag({0xFF, 0xC8, MPS})});
    EXPECT_TRUE(reads(story(), {trace_of(1, 2, 0xBE, 0x8F), trace_of(0, 1, 0x5E, 0x17), trace_of(5, 2, 0x4E, 0)}));
}

TEST_F(FrameReport, OfAnyOtherFrameClearsTheLatchOfItsOwnDirection) {
    announce_more_pages(SENT);
    frame(RECEIVED, {0x2E});
    EXPECT_EQ(latched(), 2);
    frame(SENT, {0x2E});
    EXPECT_EQ(latched(), 0);
    announce_more_pages(RECEIVED);
    frame(SENT, {0x2E});
    EXPECT_EQ(latched(), 1);
    frame(RECEIVED, {0x2E});
    EXPECT_EQ(latched(), 0);
}

TEST_F(FrameReport, OfFewerThanThreeBytesClearsTheLatchOfItsOwnDirection) {
    for (const std::vector<uint8_t>& bytes : std::vector<std::vector<uint8_t>>{{}, {0xFF}, {MPS, MPS}}) {
        announce_more_pages(SENT);
        frame_report({direction_tag(RECEIVED), frame_tag(bytes)});
        EXPECT_EQ(latched(), 2);
        frame_report({direction_tag(SENT), frame_tag(bytes)});
        EXPECT_EQ(latched(), 0);
    }
}

TEST_F(FrameReport, WithoutAFrameClearsTheLatchOfItsOwnDirection) {
    announce_more_pages(SENT);
    frame_report({direction_tag(SENT)});
    EXPECT_EQ(latched(), 0);
}

TEST_F(FrameReport, OfAWrapperAloneHasNothingInside) {
    announce_more_pages(SENT);
    frame_report({direction_tag(SENT), frame_tag({0xFF, 0xC8, PPS})});
    EXPECT_EQ(latched(), 0);
}

TEST_F(FrameReport, WithoutADirectionClearsTheLatchOnlyByAnnouncingMorePages) {
    announce_more_pages(SENT);
    frame_report({frame_tag({0xFF, 0xC8, 0x2E})});
    EXPECT_EQ(latched(), 2);
    new_chapter();
    frame_report({frame_tag({0xFF, 0xC8, MPS, 0})});
    EXPECT_TRUE(reads(story(), {trace_of(0, 0, 0x4E, 0)}));
    EXPECT_EQ(latched(), 0);
}

TEST_F(FrameReport, MayHoldOtherTaggedValues) {
    frame_report({{3, {1, 2, 3}}, direction_tag(SENT), {20, {9}}, frame_tag({0xFF, 0xC8, MPS, 0}), {99, {}}});
    EXPECT_EQ(latched(), 2);
}

TEST_F(FrameReport, IsReadWithARecordThatTheDriverGetsBackUnchanged) {
    std::vector<std::vector<uint8_t>> given;
    driver.on.DornGetTaggedValues = [&](DornReport*, DornTaggedValue* value) {
        auto* bytes = reinterpret_cast<uint8_t*>(value);
        given.emplace_back(bytes, bytes + 24);
        put_value(value, 0, uint32_t{0x11223344});
        return given.size() < 3 ? 1 : 2;
    };
    frame_report({});
    ASSERT_EQ(given.size(), 3u);
    EXPECT_EQ(given[0], std::vector<uint8_t>(24));
    EXPECT_EQ(value_at<uint32_t>(given[1], 0), 0x11223344u);
    EXPECT_EQ(value_at<uint32_t>(given[2], 0), 0x11223344u);
}

TEST_F(FrameReport, IsTakenWithTheLineLock) {
    driver.on.QorvLogLogMsg = [this](uint32_t, int, const char* line, const char*, uint32_t) {
        if (std::strstr(line, "setting fsk_dir")) note_lock("latched");
    };
    announce_more_pages();
    EXPECT_TRUE(reads(all_of(NOTE), {"latched under the lock"}));
    EXPECT_FALSE(line_is_locked());
}

TEST_F(FrameReport, IsTracedBeforeItIsLatched) {
    driver.on.QorvLogLogMsg = [this](uint32_t, int, const char* line, const char*, uint32_t) {
        if (std::strstr(line, "setting fsk_dir")) note(text("latched is %d", latched()));
    };
    announce_more_pages();
    EXPECT_TRUE(reads(all_of(NOTE), {"latched is 0"}));
    EXPECT_EQ(latched(), 2);
}

TEST_F(FrameReport, OfAnotherClassOrTypeOrSubCodeIsNotLookedAt) {
    const std::vector<Tag> tags = {direction_tag(SENT), frame_tag({0xFF, 0xC8, MPS, 0})};
    driver.report(4, 8, 8, 5, tags);
    driver.report(4, 9, 7, 5, tags);
    driver.report(4, 11, 8, 2, tags);
    driver.report(4, 9, 8, 4, tags);
    driver.report(4, 9, 8, 7, tags);
    EXPECT_TRUE(holds_no(all_of(DRIVER_QUERY), "DornGetTaggedValues()"));
    EXPECT_TRUE(reads(story(), {}));
    EXPECT_EQ(latched(), 0);
}

TEST_F(FrameReport, OfAUnitWithoutAnOpenLineIsNotLookedAt) {
    driver.channel(4).unit = 99;
    announce_more_pages();
    EXPECT_TRUE(holds_no(all_of(DRIVER_QUERY), "DornGetTaggedValues()"));
    EXPECT_TRUE(reads(story(), {}));
    driver.channel(4).unit = 14;
    EXPECT_EQ(latched(), 0);
}

TEST_F(FrameReport, BelongsToTheUnitThatTheDriverKnowsTheLineBy) {
    driver.on.DornLineUnitGet = [](DornLine*) { return 14u; };
    driver.channel(4).unit = 99;
    announce_more_pages();
    EXPECT_EQ(latched(), 2);
    driver.channel(4).unit = 14;
}

TEST_F(FrameReport, LeavesTheOtherLineAlone) {
    open_line(1);
    Channel& other = driver.channel(5);
    other.handler = driver.channel(4).handler;
    driver.report(5, 9, 8, 5, {direction_tag(SENT), frame_tag({0xFF, 0xC8, MPS, 0})});
    EXPECT_EQ(latched(), 0);
    announce_more_pages();
    driver.report(5, 9, 8, 5, {direction_tag(SENT), frame_tag({0xFF, 0xC8, 0x2E})});
    EXPECT_EQ(latched(), 2);
    other.handler = nullptr;
}

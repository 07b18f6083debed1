// The header line of a transmission: which text the board is given for which header text and local identifier.
#include <cstdarg>
#include <cstdio>

#include "fax_fixture.h"

using namespace harness;

namespace {

const std::string kTemplate = "       %m/%d/%y %H:%M:%S   P%P";

class PageHeader : public OutgoingFaxFixture {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        open_file();
        new_chapter();
    }

    // The text that the board is given; "none" when there is no header call.
    std::string header_of(const std::string& header, const std::string& local_id, uint32_t add_header = 1) {
        std::string text = "none";
        driver.on.DornFaxHeader = [&](DornLine*, DornFaxRecord* record) {
            text = value_at<const char*>(reinterpret_cast<const uint8_t*>(record), 669);
            return 0;
        };
        send_fax({header, local_id, add_header});
        return text;
    }
};

std::string times(size_t count, char character) {
    return std::string(count, character);
}

// The provider's other texts are formatted as usual.
int refuse_header_pieces(char* buffer, size_t size, const char* format, ...) {
    if (std::string(format) == "%s ") return -1;
    va_list arguments;
    va_start(arguments, format);
    int length = _vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

}  // namespace

TEST_F(PageHeader, IsGivenToTheBoardBetweenTheHandlerAndTheLocalId) {
    send_fax({"Company Name", "+1 555 0100", 1});
    EXPECT_TRUE(reads_in_order(of_the_job(all_of(DRIVER | DRIVER_QUERY)),
                               {"DornLineIncomingCmdFuncAccess(CHAN4)",
                                "DornFaxHeader(CHAN4, 0, 2, \"Company Name +1 555 0100        %m/%d/%y %H:%M:%S \")",
                                "DornFaxSetLocalId(CHAN4, \"+1 555 0100\")"}));
    std::vector<uint8_t> record = records_of("DornFaxHeader").at(0);
    ASSERT_EQ(record.size(), 801u);
    EXPECT_EQ(value_at<uint32_t>(record, 661), 0u);
    EXPECT_EQ(value_at<uint32_t>(record, 665), 2u);
}

TEST_F(PageHeader, IsLeftOutUnlessItIsAskedFor) {
    EXPECT_EQ(header_of("Company Name", "+1 555 0100", 0), "none");
}

TEST_F(PageHeader, IsLeftOutWhenThereIsNothingToSay) {
    EXPECT_EQ(header_of("", ""), "none");
}

TEST_F(PageHeader, IsPrintedForAnyFlagButZero) {
    EXPECT_NE(header_of("ABC", "", 0x80000000), "none");
}

TEST_F(PageHeader, CutsTheTemplateToTheLengthOfBothTexts) {
    EXPECT_EQ(header_of("Company Name", "+1 555 0100"), "Company Name +1 555 0100        %m/%d/%y %H:%M:%S ");
}

TEST_F(PageHeader, DropsALocalIdThatDoesNotFitIntoTheHeadersLength) {
    EXPECT_EQ(header_of("ACME", "555 1234"), "ACME      ");
    EXPECT_TRUE(reads(traces().levels({2}), {"[2] Thread_Send_Fax _snprintf#2"}));
}

TEST_F(PageHeader, TakesALocalIdThatJustFits) {
    EXPECT_EQ(header_of("ACME", "1234"), "ACME 1234        %m/");
    EXPECT_TRUE(reads(traces().levels({2}), {}));
}

TEST_F(PageHeader, DropsALocalIdThatIsOneTooLong) {
    EXPECT_EQ(header_of("ACME", "12345"), "ACME      ");
    EXPECT_TRUE(reads(traces().levels({2}), {"[2] Thread_Send_Fax _snprintf#2"}));
}

TEST_F(PageHeader, CutsTheTemplateToAShortHeaderAlone) {
    EXPECT_EQ(header_of("ABC", ""), "ABC     ");
}

TEST_F(PageHeader, CutsTheTemplateToALocalIdAlone) {
    EXPECT_EQ(header_of("", "01234567890123456789"), "01234567890123456789        %m/%d/%y %H:%M");
}

TEST_F(PageHeader, MayBeOneCharacterOfEitherText) {
    EXPECT_EQ(header_of("A", ""), "A   ");
    EXPECT_EQ(header_of("", "1"), "1   ");
    EXPECT_EQ(header_of("A", "1"), "A 1     ");
}

TEST_F(PageHeader, HoldsTheWholeTemplateFromThirtyBytesOn) {
    EXPECT_EQ(header_of(times(28, 'h'), ""), times(28, 'h') + " " + kTemplate.substr(0, 29));
    EXPECT_EQ(header_of(times(29, 'h'), ""), times(29, 'h') + " " + kTemplate);
    EXPECT_EQ(header_of("", times(30, 'i')), times(30, 'i') + " " + kTemplate);
}

TEST_F(PageHeader, HoldsTwoTextsOf49Characters) {
    EXPECT_EQ(header_of(times(49, 'h'), times(49, 'i')), times(49, 'h') + " " + times(49, 'i') + " " + kTemplate);
    EXPECT_EQ(header_of(times(49, 'h'), ""), times(49, 'h') + " " + kTemplate);
    EXPECT_EQ(header_of("", times(49, 'i')), times(49, 'i') + " " + kTemplate);
}

TEST_F(PageHeader, DropsAFullLocalIdBehindAShorterHeader) {
    EXPECT_EQ(header_of(times(48, 'h'), times(49, 'i')), times(48, 'h') + " " + kTemplate);
}

TEST_F(PageHeader, TakesPercentSignsOfTheTextsAsTheyAre) {
    EXPECT_EQ(header_of("50% off %s %d", "%n%n"), "50% off %s %d %n%n" + (" " + kTemplate.substr(0, 19)));
}

TEST_F(PageHeader, StaysEmptyWhenTheHeaderTextCannotBeFormatted) {
    Replacements table(module);
    ASSERT_TRUE(table.replace("_snprintf", reinterpret_cast<void*>(&refuse_header_pieces)));
    EXPECT_EQ(header_of("ACME", "555"), "");
    EXPECT_TRUE(holds(traces(), "[2] Thread_Send_Fax _snprintf#1"));
    EXPECT_TRUE(holds_no(traces(), "[2] Thread_Send_Fax _snprintf#2"));
}

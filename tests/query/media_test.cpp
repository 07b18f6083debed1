// Media detection, media modes and status messages: what a fax line accepts. Nothing is stored.
#include <cstddef>
#include <set>

#include "caps_answer.h"

using namespace harness;

namespace {

class Media : public QueryFixture {
  protected:
    LONG detect(HDRVLINE asked, DWORD modes) { return tsp.TSPI_lineSetDefaultMediaDetection(asked, modes); }
    LONG set_mode(HDRVCALL asked, DWORD mode) { return tsp.TSPI_lineSetMediaMode(asked, mode); }
    LONG set_messages(HDRVLINE asked, DWORD line_states, DWORD address_states) {
        return tsp.TSPI_lineSetStatusMessages(asked, line_states, address_states);
    }
    LONG could_be_made(DWORD modes, LINECALLPARAMS* parameters) { return could_be_made(line(0), modes, parameters); }
    LONG could_be_made(HDRVLINE asked, DWORD modes, LINECALLPARAMS* parameters) {
        return tsp.TSPI_lineConditionalMediaDetection(asked, modes, parameters);
    }
};

class DefaultMediaDetection : public Media {};
class MediaMode : public Media {};
class StatusMessages : public Media {};
class ConditionalMediaDetection : public Media {};

constexpr DWORD kFax = 0x20;
constexpr LONG kRefused = failed(LINEERR_INVALMEDIAMODE);

// Every mode that TAPI knows but fax, alone and beside it, and some that it does not know.
std::set<DWORD> modes_with_others_than_fax() {
    std::set<DWORD> modes = {0xFFFFFFFF, ~kFax};
    for (int bit = 0; bit < 32; ++bit)
        if (DWORD mode = 1ul << bit; mode != kFax) modes.insert({mode, mode | kFax});
    return modes;
}

Lines good(const std::string& query) {
    return {"[16] " + kNoCall + query, "[17] " + kNoCall + query + "(0) Good"};
}
Lines refused(const std::string& query) {
    return {"[16] " + kNoCall + query, "[17] " + kNoCall + query + "(-2147483601) Failed"};
}

}  // namespace

TEST_F(Media, SettingsChangeNothing) {
    offer_call(0);
    EXPECT_TRUE(leaves_the_line_as_it_is([this] {
        LINECALLPARAMS parameters = {};
        EXPECT_EQ(detect(line(0), kFax), 0);
        EXPECT_EQ(set_mode(call(0), 0), 0);
        EXPECT_EQ(set_mode(call(0), LINEMEDIAMODE_DATAMODEM), kRefused);
        EXPECT_EQ(set_messages(line(0), 0, 0), 0);
        EXPECT_EQ(could_be_made(kFax, &parameters), 0);
    }));
}

// ---- default media detection ----------------------------------------------------------------------------------------

TEST_F(DefaultMediaDetection, IsForFaxAlone) {
    EXPECT_EQ(detect(line(0), kFax), 0);
    EXPECT_EQ(detect(line(0), 0), kRefused);
    EXPECT_TRUE(reads(query_story(), joined({good("TSPI_lineSetDefaultMediaDetection"),
                                             refused("TSPI_lineSetDefaultMediaDetection")})));
    for (DWORD modes : modes_with_others_than_fax()) EXPECT_EQ(detect(line(0), modes), kRefused) << modes;
}

TEST_F(DefaultMediaDetection, NeedsNoHandle) {
    EXPECT_EQ(detect(nullptr, kFax), 0);
    EXPECT_EQ(detect(nullptr, 0x30), kRefused);
    EXPECT_TRUE(reads(query_story(), {
                                         "[16] TSPI_lineSetDefaultMediaDetection",
                                         "[17] TSPI_lineSetDefaultMediaDetection(0) Good",
                                         "[16] TSPI_lineSetDefaultMediaDetection",
                                         "[17] TSPI_lineSetDefaultMediaDetection(-2147483601) Failed",
                                     }));
}

TEST_F(DefaultMediaDetection, CatchesAFault) {
    EXPECT_TRUE(survives("TSPI_lineSetDefaultMediaDetection", [this] { return detect(wild_line(), kFax); }));
    EXPECT_EQ(detect(line(0), kFax), 0);
}

// ---- the call's media mode ------------------------------------------------------------------------------------------

TEST_F(MediaMode, IsFaxOrNone) {
    EXPECT_EQ(set_mode(call(0), kFax), 0);
    EXPECT_EQ(set_mode(call(0), 0x24), kRefused);
    EXPECT_TRUE(reads(query_story(), joined({good("TSPI_lineSetMediaMode"), refused("TSPI_lineSetMediaMode")})));
    EXPECT_EQ(set_mode(call(0), 0), 0);
    for (DWORD mode : modes_with_others_than_fax()) EXPECT_EQ(set_mode(call(0), mode), kRefused) << mode;
}

TEST_F(MediaMode, NeedsNoHandle) {
    EXPECT_EQ(set_mode(nullptr, 0), 0);
    EXPECT_EQ(set_mode(nullptr, 1), kRefused);
    EXPECT_TRUE(reads(query_story(), {
                                         "[16] TSPI_lineSetMediaMode",
                                         "[17] TSPI_lineSetMediaMode(0) Good",
                                         "[16] TSPI_lineSetMediaMode",
                                         "[17] TSPI_lineSetMediaMode(-2147483601) Failed",
                                     }));
}

TEST_F(MediaMode, CatchesAFault) {
    EXPECT_TRUE(survives("TSPI_lineSetMediaMode", [this] { return set_mode(wild_call(), kFax); }));
    EXPECT_EQ(set_mode(call(0), kFax), 0);
}

// ---- status messages ------------------------------------------------------------------------------------------------

TEST_F(StatusMessages, MayBeWishedForInAnyWay) {
    EXPECT_EQ(set_messages(line(0), 0xFFFFFFFF, 0xFFFFFFFF), 0);
    EXPECT_EQ(set_messages(nullptr, 0, 0), 0);
    EXPECT_TRUE(
        reads(query_story(), joined({good("TSPI_lineSetStatusMessages"),
                                     {"[16] TSPI_lineSetStatusMessages", "[17] TSPI_lineSetStatusMessages(0) Good"}})));
}

TEST_F(StatusMessages, AreSentWhateverWasWishedFor) {
    EXPECT_EQ(set_messages(line(0), 0, 0), 0);
    offer_call(0);
    EXPECT_TRUE(holds(events(), "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x1)"));
    EXPECT_TRUE(holds(events(), "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)"));
}

TEST_F(StatusMessages, CatchAFault) {
    EXPECT_TRUE(survives("TSPI_lineSetStatusMessages", [this] { return set_messages(wild_line(), 0, 0); }));
    EXPECT_EQ(set_messages(line(0), 0, 0), 0);
}

// ---- conditional media detection ------------------------------------------------------------------------------------

namespace {

// What the channel can do, and what the provider asks about it.
struct Capabilities {
    std::set<int> numbers;
    Lines questions;
};

void PrintTo(const Capabilities& capabilities, std::ostream* out) {
    *out << testing::PrintToString(capabilities.numbers);
}

class DetectionWith : public ConditionalMediaDetection, public testing::WithParamInterface<Capabilities> {
  protected:
    void SetUp() override {
        ConditionalMediaDetection::SetUp();
        driver.channel(4).capabilities = GetParam().numbers;
    }
};

const Lines kBothQuestions = {"DornLineCapCheck(CHAN4, 14)", "DornLineCapCheck(CHAN4, 41)"};

}  // namespace

TEST_P(DetectionWith, AsksForTheCapabilitiesAndTakesNoLock) {
    LINECALLPARAMS parameters = {};
    EXPECT_EQ(could_be_made(kFax, &parameters), 0);
    EXPECT_TRUE(reads(query_story(), joined({{"[16] " + kNoCall + "TSPI_lineConditionalMediaDetection"},
                                             GetParam().questions,
                                             {"[17] " + kNoCall + "TSPI_lineConditionalMediaDetection(0) Good"}})));
}

TEST_P(DetectionWith, AllowsNoMoreThan2400BitsPerSecond) {
    LINECALLPARAMS parameters = {};
    for (DWORD rate : {1ul, 2399ul, 2400ul}) {
        parameters.dwMaxRate = rate;
        EXPECT_EQ(could_be_made(kFax, &parameters), 0) << rate;
    }
    for (DWORD rate : {2401ul, 4800ul, 9600ul, 14400ul, 0x80000000ul, 0xFFFFFFFFul}) {
        parameters.dwMaxRate = rate;
        EXPECT_EQ(could_be_made(kFax, &parameters), kRefused) << rate;
    }
}

TEST_P(DetectionWith, AsksForTheCapabilitiesOfARequestThatIsRefusedToo) {
    EXPECT_EQ(could_be_made(1, nullptr), kRefused);
    EXPECT_TRUE(
        reads(query_story(), joined({{"[16] " + kNoCall + "TSPI_lineConditionalMediaDetection"},
                                     GetParam().questions,
                                     {"[17] " + kNoCall + "TSPI_lineConditionalMediaDetection(-2147483601) Failed"}})));
}

INSTANTIATE_TEST_SUITE_P(EachCombination, DetectionWith,
                         testing::Values(Capabilities{{14, 20, 41}, kBothQuestions}, Capabilities{{14}, kBothQuestions},
                                         Capabilities{{20, 41}, {"DornLineCapCheck(CHAN4, 14)"}},
                                         Capabilities{{}, {"DornLineCapCheck(CHAN4, 14)"}}));

TEST_F(ConditionalMediaDetection, AllowsWhatAFaxLineCanHonour) {
    LINECALLPARAMS parameters = {};
    EXPECT_EQ(could_be_made(0, &parameters), 0);
    EXPECT_EQ(could_be_made(kFax, &parameters), 0);
    parameters.dwBearerMode = LINEBEARERMODE_VOICE;
    parameters.dwMaxRate = 2400;
    parameters.dwMediaMode = kFax;
    parameters.dwAddressMode = LINEADDRESSMODE_ADDRESSID;
    EXPECT_EQ(could_be_made(kFax, &parameters), 0);
}

TEST_F(ConditionalMediaDetection, LooksAtNothingElseAndWritesNothing) {
    Answer<LINECALLPARAMS> answer;
    answer->dwBearerMode = answer->dwMaxRate = answer->dwMediaMode = 0;
    answer->dwCallParamFlags = answer->dwAddressMode = 0;
    Answer<LINECALLPARAMS> before = answer;
    EXPECT_EQ(could_be_made(kFax, &answer.caps), 0);
    EXPECT_EQ(differences(before, answer), Lines{});
}

TEST_F(ConditionalMediaDetection, IsRefusedForOtherModesThanFax) {
    LINECALLPARAMS parameters = {};
    for (DWORD modes : modes_with_others_than_fax()) {
        EXPECT_EQ(could_be_made(modes, &parameters), kRefused) << modes;
        // Before the parameters are looked at.
        EXPECT_EQ(could_be_made(modes, nullptr), kRefused) << modes;
    }
}

namespace {

// One field of the call's parameters: what passes in it, and what does not.
struct Field {
    const char* name;
    DWORD LINECALLPARAMS::*field;
    size_t offset;
    std::vector<DWORD> allowed, refused;
};

void PrintTo(const Field& field, std::ostream* out) {
    *out << field.name;
}

class CallParameter : public ConditionalMediaDetection, public testing::WithParamInterface<Field> {
  protected:
    // Parameters that can be read up to and with this field, and as far as they can, are allowed.
    LINECALLPARAMS* cut_behind_the_field(LonePage& page) {
        const size_t size = GetParam().offset + sizeof(DWORD);
        auto* parameters = page.last<LINECALLPARAMS>(size);
        std::memset(parameters, 0, size);
        return parameters;
    }
};

#define FIELD(name) #name, &LINECALLPARAMS::name, offsetof(LINECALLPARAMS, name)

}  // namespace

TEST_P(CallParameter, AloneDecidesWhenAllElseIsAllowed) {
    LINECALLPARAMS parameters = {};
    for (DWORD value : GetParam().allowed) {
        parameters.*GetParam().field = value;
        EXPECT_EQ(could_be_made(kFax, &parameters), 0) << value;
    }
    for (DWORD value : GetParam().refused) {
        parameters.*GetParam().field = value;
        EXPECT_EQ(could_be_made(kFax, &parameters), kRefused) << value;
    }
}

TEST_P(CallParameter, IsRefusedBeforeTheNextOneIsLookedAt) {
    LonePage page;
    LINECALLPARAMS* parameters = cut_behind_the_field(page);
    for (DWORD value : GetParam().refused) {
        parameters->*GetParam().field = value;
        EXPECT_EQ(could_be_made(kFax, parameters), kRefused) << value;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, CallParameter,
                         testing::Values(Field{FIELD(dwBearerMode), {0, 1}, {2, 3, 4, 8, 0x80000000, 0xFFFFFFFF}},
                                         Field{FIELD(dwMaxRate), {0, 2400}, {2401, 14400}},
                                         Field{FIELD(dwMediaMode), {0, 0x20}, {1, 2, 4, 0x10, 0x24, 0x30, 0xFFFFFFFF}},
                                         Field{FIELD(dwCallParamFlags), {0}, {1, 2, 4, 0x80000000, 0xFFFFFFFF}},
                                         Field{FIELD(dwAddressMode), {0, 1}, {2, 3, 0x80000000, 0xFFFFFFFF}}));

TEST_F(ConditionalMediaDetection, LooksAtEachParameterInItsTurn) {
    // With all of it allowed, the first that cannot be read is the one that comes next.
    for (size_t readable : {offsetof(LINECALLPARAMS, dwBearerMode), offsetof(LINECALLPARAMS, dwMaxRate),
                            offsetof(LINECALLPARAMS, dwMediaMode), offsetof(LINECALLPARAMS, dwCallParamFlags),
                            offsetof(LINECALLPARAMS, dwAddressMode)}) {
        LonePage page;
        auto* parameters = page.last<LINECALLPARAMS>(readable);
        std::memset(parameters, 0, readable);
        EXPECT_TRUE(survives("TSPI_lineConditionalMediaDetection", [&] { return could_be_made(kFax, parameters); }))
            << readable;
    }
}

TEST_F(ConditionalMediaDetection, NeedsAHandle) {
    LINECALLPARAMS parameters = {};
    EXPECT_EQ(could_be_made(nullptr, kFax, &parameters), failed(LINEERR_INVALLINEHANDLE));
    EXPECT_EQ(could_be_made(nullptr, 1, nullptr), failed(LINEERR_INVALLINEHANDLE));
    const Lines expected = {
        "[16] TSPI_lineConditionalMediaDetection",
        "[2] TSPI_lineConditionalMediaDetection pLine=NULL",
        "[9] TSPI_lineConditionalMediaDetection(-2147483605)",
    };
    EXPECT_TRUE(reads(query_story(), joined({expected, expected})));
}

TEST_F(ConditionalMediaDetection, UsesAnyOtherHandleAsGiven) {
    std::vector<uint8_t> copy = line_memory();
    LINECALLPARAMS parameters = {};
    EXPECT_EQ(could_be_made(reinterpret_cast<HDRVLINE>(copy.data()), kFax, &parameters), 0);
    EXPECT_TRUE(reads(driver_calls(), kBothQuestions));
}

TEST_F(ConditionalMediaDetection, CatchesAFault) {
    LINECALLPARAMS parameters = {};
    EXPECT_TRUE(survives("TSPI_lineConditionalMediaDetection", [&] { return could_be_made(kFax, nullptr); }));
    EXPECT_TRUE(
        survives("TSPI_lineConditionalMediaDetection", [&] { return could_be_made(wild_line(), kFax, &parameters); }));
    EXPECT_EQ(could_be_made(kFax, &parameters), 0);
}

TEST_F(ConditionalMediaDetection, CatchesWhatTheDriverRaises) {
    LINECALLPARAMS parameters = {};
    driver.on.DornLineCapCheck = [](DornLine*, int) -> int { throw 1; };
    EXPECT_TRUE(survives("TSPI_lineConditionalMediaDetection", [&] { return could_be_made(kFax, &parameters); }));
    driver.on.DornLineCapCheck = [](DornLine*, int) -> int {
        cause_access_violation();
        return 0;
    };
    EXPECT_TRUE(survives("TSPI_lineConditionalMediaDetection", [&] { return could_be_made(kFax, &parameters); }));
    driver.on.DornLineCapCheck = ScriptedDriver::usual().DornLineCapCheck;
    EXPECT_EQ(could_be_made(kFax, &parameters), 0);
}

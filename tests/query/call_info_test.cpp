// The information record of a call, with its two parties, and how it is written into the trace.
#include <cstddef>

#include "caps_answer.h"

using namespace harness;

namespace {

constexpr DWORD kFixedSize = 324;  // LINECALLINFO as TAPI 2.0 has it
static_assert(offsetof(LINECALLINFO, dwCallerIDAddressType) == kFixedSize);

constexpr DWORD kAddress = 8, kName = 4, kUnavailable = 0x40;

struct InfoAnswer : Answer<LINECALLINFO> {
    explicit InfoAnswer(DWORD total = 4096, DWORD used = kFixedSize) {
        caps.dwTotalSize = total;
        caps.dwUsedSize = used;
    }
};

DWORD size_of(const std::string& text) {
    return static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
}

// The parties as they are told.
struct Parties {
    std::string called, caller, name;

    DWORD sizes() const { return size_of(called) + size_of(caller) + size_of(name); }
};

void put_fixed_fields(LINECALLINFO& info) {
    info.dwMediaMode = 0x20;
    info.dwRate = 2400;
    info.dwCalledIDFlags = info.dwCallerIDFlags = kUnavailable;
    info.dwBearerMode = 1;
    info.dwCallStates = 0xC3FF;
    info.dwOrigin = 1;
    info.dwReason = 1;
    info.dwConnectedIDFlags = info.dwRedirectionIDFlags = info.dwRedirectingIDFlags = kUnavailable;
}

InfoAnswer expected_without_texts(const Parties& parties, DWORD total = 4096) {
    InfoAnswer answer(total);
    std::memset(answer.bytes, 0, kFixedSize);
    answer->dwTotalSize = total;
    answer->dwUsedSize = kFixedSize;
    answer->dwNeededSize = kFixedSize + parties.sizes();
    put_fixed_fields(answer.caps);
    return answer;
}

void put_text(InfoAnswer& answer, const std::string& text, DWORD& size, DWORD& offset) {
    if (text.empty()) return;
    offset = answer->dwUsedSize;
    size = size_of(text);
    std::memcpy(answer.bytes + offset, widen(text).c_str(), size);
    answer->dwUsedSize += size;
}

InfoAnswer expected_for(const Parties& parties, DWORD total = 4096) {
    InfoAnswer answer = expected_without_texts(parties, total);
    if (!parties.called.empty()) answer->dwCalledIDFlags = kAddress;
    if (!parties.caller.empty()) answer->dwCallerIDFlags = kAddress;
    if (!parties.name.empty()) answer->dwCallerIDFlags |= kName;
    put_text(answer, parties.called, answer->dwCalledIDSize, answer->dwCalledIDOffset);
    put_text(answer, parties.caller, answer->dwCallerIDSize, answer->dwCallerIDOffset);
    put_text(answer, parties.name, answer->dwCallerIDNameSize, answer->dwCallerIDNameOffset);
    return answer;
}

const Parties kParties = {"5551234", "5550100", "SENDER"};

class CallInfo : public QueryFixture {
  protected:
    LONG ask(InfoAnswer& answer) { return tsp.TSPI_lineGetCallInfo(call(0), &answer.caps); }
    testing::AssertionResult is(const InfoAnswer& expected, InfoAnswer seen) {
        LONG result = ask(seen);
        Lines wrong = differences<LINECALLINFO>(expected, seen);
        if (result == 0 && wrong.empty()) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "result " << result << ", differs " << testing::PrintToString(wrong);
    }

    // A call comes in. The driver gives a name only beside a number; the number is then taken away again.
    void offer(const Parties& parties) {
        const bool name_alone = parties.caller.empty() && !parties.name.empty();
        const std::string number = name_alone ? "0987654321" : parties.caller;
        offer_call(0, {parties.called, "", number, parties.name, ""});
        if (name_alone) *text_of_line(number) = '\0';
        new_chapter();
    }
};

}  // namespace

// ---- the parties ----------------------------------------------------------------------------------------------------

namespace {

void PrintTo(const Parties& parties, std::ostream* out) {
    *out << '"' << parties.called << "\", \"" << parties.caller << "\", \"" << parties.name << '"';
}

class CallInfoOf : public CallInfo, public testing::WithParamInterface<Parties> {};

}  // namespace

TEST_P(CallInfoOf, TellsThePartiesThatAreKnown) {
    offer(GetParam());
    EXPECT_TRUE(is(expected_for(GetParam()), InfoAnswer()));
}

TEST_P(CallInfoOf, FitsExactly) {
    offer(GetParam());
    const DWORD needed = kFixedSize + GetParam().sizes();
    EXPECT_TRUE(is(expected_for(GetParam(), needed), InfoAnswer(needed)));
}

TEST_P(CallInfoOf, LeavesTheTextsOutWhenOneByteIsMissing) {
    offer(GetParam());
    const DWORD total = kFixedSize + GetParam().sizes() - 1;
    EXPECT_TRUE(is(expected_without_texts(GetParam(), total), InfoAnswer(total)));
}

INSTANTIATE_TEST_SUITE_P(EveryCombination, CallInfoOf,
                         testing::Values(Parties{"", "", ""}, Parties{"5551234", "", ""}, Parties{"", "5550100", ""},
                                         Parties{"", "", "SENDER"}, Parties{"5551234", "5550100", ""},
                                         Parties{"5551234", "", "SENDER"}, Parties{"", "5550100", "SENDER"}, kParties,
                                         Parties{"1", "2", "3"}));
INSTANTIATE_TEST_SUITE_P(LongTexts, CallInfoOf,
                         testing::Values(Parties{std::string(255, '1'), std::string(255, '2'), std::string(255, 'N')}));

TEST_F(CallInfo, TellsThePartiesInAFixedOrderBehindTheFixedPart) {
    offer(kParties);
    InfoAnswer answer;
    EXPECT_EQ(ask(answer), 0);
    EXPECT_EQ(answer->dwCalledIDFlags, 8u);
    EXPECT_EQ(answer->dwCallerIDFlags, 0xCu);
    EXPECT_EQ(answer->dwCalledIDOffset, 324u);
    EXPECT_EQ(answer->dwCallerIDOffset, 340u);
    EXPECT_EQ(answer->dwCallerIDNameOffset, 356u);
    EXPECT_EQ(answer->dwUsedSize, 370u);
    EXPECT_EQ(answer->dwNeededSize, 370u);
    EXPECT_EQ(answer->dwOrigin, 1u);
}

TEST_F(CallInfo, KeepsUnavailableBesideANameWithoutANumber) {
    offer({"", "", "SENDER"});
    InfoAnswer answer;
    EXPECT_EQ(ask(answer), 0);
    EXPECT_EQ(answer->dwCallerIDFlags, 0x44u);
    EXPECT_EQ(answer->dwCallerIDSize, 0u);
}

TEST_F(CallInfo, CutsATextAfter255Characters) {
    // The last byte of the line's field is no terminator.
    offer({std::string(255, '1'), "5550100", ""});
    text_of_line(std::string(255, '1'))[255] = '9';
    EXPECT_TRUE(is(expected_for({std::string(255, '1'), "5550100", ""}), InfoAnswer()));
}

TEST_F(CallInfo, NeedsSixBytesWithoutACall) {
    InfoAnswer answer;
    EXPECT_EQ(ask(answer), 0);
    EXPECT_EQ(answer->dwNeededSize, answer->dwUsedSize + 6);
    EXPECT_EQ(answer->dwUsedSize, kFixedSize);
    EXPECT_EQ(answer->dwCalledIDFlags, 0x40u);
    EXPECT_EQ(answer->dwCallerIDFlags, 0x40u);
}

TEST_F(CallInfo, ForgetsThePartiesWhenTheCallIsClosed) {
    offer(kParties);
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(is(expected_for({}), InfoAnswer()));
}

// ---- the record -----------------------------------------------------------------------------------------------------

TEST_F(CallInfo, ClearsAsMuchAsTheCallerUses) {
    offer(kParties);
    InfoAnswer answer(4096, 1000);
    EXPECT_EQ(ask(answer), 0);
    EXPECT_EQ(answer->dwNeededSize, 1000 + kParties.sizes());
    EXPECT_EQ(answer->dwCalledIDOffset, 1000u);
    EXPECT_EQ(answer->dwUsedSize, 1000 + kParties.sizes());
    for (size_t i = kFixedSize; i < 1000; ++i) EXPECT_EQ(answer.bytes[i], 0) << i;
    EXPECT_TRUE(answer.untouched_from(1000 + kParties.sizes()));
}

TEST_F(CallInfo, LeavesWhatIsNotInUse) {
    offer(kParties);
    InfoAnswer answer(kFixedSize, kFixedSize - 1);
    EXPECT_EQ(ask(answer), 0);
    EXPECT_EQ(answer.bytes[kFixedSize - 1], 0xCC);
    EXPECT_EQ(answer->dwNeededSize, kFixedSize - 1 + kParties.sizes());
    EXPECT_EQ(answer->hLine, 0u);
    EXPECT_EQ(answer->dwLineDeviceID, 0u);

    InfoAnswer little_used(kFixedSize, kFixedSize - kParties.sizes() + 1);
    EXPECT_EQ(ask(little_used), 0);
    EXPECT_EQ(little_used->dwCalledIDFlags, 0x40u);
    EXPECT_EQ(little_used->dwDevSpecificSize, 0xCCCCCCCCu);
    EXPECT_EQ(little_used->dwCallDataSize, 0xCCCCCCCCu);
}

TEST_F(CallInfo, TellsTheMediaModeOfThePlacedCall) {
    LINECALLPARAMS parameters = {};
    parameters.dwMediaMode = LINEMEDIAMODE_DATAMODEM;
    EXPECT_EQ(make_call(L"5551234", &parameters), 0x21);
    worker_ends();
    InfoAnswer expected = expected_for({});
    expected->dwMediaMode = LINEMEDIAMODE_DATAMODEM;
    EXPECT_TRUE(is(expected, InfoAnswer()));
}

TEST_F(CallInfo, BelongsToTheLineThatIsAsked) {
    open_waiting_line(1);
    offer_call(1, {"5551234"});
    InfoAnswer of_first, of_second;
    EXPECT_EQ(ask(of_first), 0);
    EXPECT_EQ(tsp.TSPI_lineGetCallInfo(call(1), &of_second.caps), 0);
    EXPECT_EQ(of_first->dwCalledIDFlags, 0x40u);
    EXPECT_EQ(of_second->dwCalledIDFlags, 8u);
}

TEST_F(CallInfo, ChangesNothing) {
    offer(kParties);
    EXPECT_TRUE(leaves_the_line_as_it_is([this] {
        InfoAnswer answer;
        EXPECT_EQ(ask(answer), 0);
    }));
}

TEST_F(CallInfo, ReadsThePartiesAndTheMediaModeUnderTheLock) {
    offer(kParties);
    InfoAnswer answer, at_the_lock;
    before_the_lock_is_taken([&] {
        at_the_lock = answer;
        Call closing([this] { return close_call(); });
        EXPECT_EQ(closing.result(), 0);
    });
    EXPECT_EQ(ask(answer), 0);
    EXPECT_EQ(differences<LINECALLINFO>(expected_for({}), answer), Lines{});
    EXPECT_EQ(at_the_lock->dwMediaMode, 0u);
    EXPECT_EQ(at_the_lock->dwRate, 0u);
    EXPECT_EQ(count(on_this_thread(windows_calls()), "WaitForSingleObject(LOCK, INFINITE)"), 1u);
}

// ---- the trace ------------------------------------------------------------------------------------------------------

namespace {

// What stands in front of the lines of the dump.
const std::string kIdentity = "hdCall(0xLINE1), hdLine(0xLINE1), htLine(0xHTLINE1), dwDeviceID(0x7), htCall(0xHTCALL1)";

Lines dump_begins(const std::string& identity, const std::string& line) {
    return {"[8] " + line + "DumpCallInfo", "[8] DumpCallInfo: " + identity};
}

Lines under(const std::string& identity, const Lines& texts) {
    Lines result;
    for (const std::string& text : texts) result.push_back("[4] " + identity + ": " + text);
    return result;
}

const Lines kFixedFields = {"dwBearerMode(0x1)",
                            "dwMediaMode(0x20)",
                            "dwRate(0x960)",
                            "dwCallStates(0xc3ff)",
                            "dwOrigin(0x1)",
                            "dwReason(0x1)",
                            "dwConnectedIDFlags(0x40)",
                            "dwRedirectionIDFlags(0x40)",
                            "dwRedirectingIDFlags(0x40)"};

// The whole story of a good query about the offered call.
Lines good_query(const Lines& dumped) {
    return joined({valid_line(kCall, "TSPI_lineGetCallInfo"),
                   kOneHoldOfTheLock,
                   dump_begins(kIdentity, kCall),
                   under(kIdentity, joined({dumped, kFixedFields})),
                   {"[9] " + kCall + "DumpCallInfo", "[17] " + kCall + "TSPI_lineGetCallInfo(0) Good"}});
}

}  // namespace

TEST_F(CallInfo, IsWrittenIntoTheTraceWithAllItsTexts) {
    offer(kParties);
    InfoAnswer answer;
    EXPECT_EQ(ask(answer), 0);
    EXPECT_TRUE(reads(query_story(), good_query({
                                         "dwTotalSize(0x1000)",
                                         "dwUsedSize(0x172)",
                                         "dwNeededSize(0x172)",
                                         "dwCalledIDFlags(0x8)",
                                         "dwCalledIDSize(0x10), dwCalledIDOffset(1440x)",
                                         "5551234",
                                         "dwCallerIDFlags(0xc)",
                                         "dwCallerIDSize(0x10), dwCallerIDOffset(1540x)",
                                         "5550100",
                                         "dwCallerIDNameSize(0xe), dwCallerIDNameOffset(1640x)",
                                         "SENDER",
                                     })));
}

TEST_F(CallInfo, IsWrittenIntoTheTraceWithoutTextsThatAreNotKnown) {
    offer({});
    InfoAnswer answer;
    EXPECT_EQ(ask(answer), 0);
    EXPECT_TRUE(reads(query_story(), good_query({"dwTotalSize(0x1000)", "dwUsedSize(0x144)", "dwNeededSize(0x14a)",
                                                 "dwCalledIDFlags(0x40)", "dwCallerIDFlags(0x40)"})));
}

TEST_F(CallInfo, IsWrittenIntoTheTraceWithANameAlone) {
    offer({"", "", "SENDER"});
    InfoAnswer answer;
    EXPECT_EQ(ask(answer), 0);
    EXPECT_TRUE(reads(query_story(), good_query({"dwTotalSize(0x1000)", "dwUsedSize(0x152)", "dwNeededSize(0x156)",
                                                 "dwCalledIDFlags(0x40)", "dwCallerIDFlags(0x44)",
                                                 "dwCallerIDNameSize(0xe), dwCallerIDNameOffset(1440x)", "SENDER"})));
}

TEST_F(CallInfo, IsWrittenIntoTheTraceAlsoWhenItIsSmallerThanItsFixedPart) {
    offer(kParties);
    InfoAnswer answer(16, 16);
    EXPECT_EQ(ask(answer), 0);
    EXPECT_TRUE(answer.untouched_from(16));
    EXPECT_TRUE(reads(query_story(), good_query({"dwTotalSize(0x10)", "dwUsedSize(0x10)", "dwNeededSize(0x3e)",
                                                 "dwCalledIDFlags(0x40)", "dwCallerIDFlags(0x40)"})));
}

namespace {

int __cdecl noted_snprintf(char*, size_t, const char* format, ...) {
    note(quoted(format));
    return 0;
}

}  // namespace

TEST_F(CallInfo, IsNotFormattedWhenNobodyWantsItInTheTrace) {
    offer(kParties);
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snprintf", reinterpret_cast<void*>(noted_snprintf)));
    driver.uninteresting_levels = {4, 8, 9, 16, 17};
    InfoAnswer answer;
    EXPECT_EQ(ask(answer), 0);
    EXPECT_TRUE(reads(all_of(NOTE), {}));
}

// ---- handles that are refused ---------------------------------------------------------------------------------------

namespace {

// Memory that can be read as a line, and is none.
class NoLine : public CallInfo {
  protected:
    void SetUp() override {
        CallInfo::SetUp();
        name_pointer(memory, "NOLINE");
    }
    LONG ask_no_line(LINECALLINFO* info) { return tsp.TSPI_lineGetCallInfo(reinterpret_cast<HDRVCALL>(memory), info); }

    static uint64_t memory[1024];
    const std::string identity =
        "hdLine(0xNOLINE), htLine(0x0000000000000000), dwDeviceID(0x0), htCall(0x0000000000000000)";
};
uint64_t NoLine::memory[1024] = {};

}  // namespace

TEST_F(CallInfo, NeedsAHandle) {
    InfoAnswer answer, untouched;
    EXPECT_EQ(tsp.TSPI_lineGetCallInfo(nullptr, &answer.caps), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_EQ(differences<LINECALLINFO>(untouched, answer), Lines{});
    EXPECT_TRUE(reads(query_story(), {
                                         "[16] TSPI_lineGetCallInfo",
                                         "[8] IsValidLine",
                                         "[9] IsValidLine(0)",
                                         "[2] TSPI_lineGetCallInfo - Invalid Call Handle",
                                         "[8] DumpCallInfo",
                                         "[2] DumpCallInfo pLine=NULL",
                                         "[9] DumpCallInfo",
                                         "[17] TSPI_lineGetCallInfo(-2147483624) Failed",
                                     }));
}

TEST_F(CallInfo, DoesNotLookAtTheRecordWithoutAHandle) {
    EXPECT_EQ(tsp.TSPI_lineGetCallInfo(nullptr, nullptr), failed(LINEERR_INVALCALLHANDLE));
}

TEST_F(NoLine, IsRefusedAndTheCallersRecordWrittenIntoTheTrace) {
    InfoAnswer answer;
    std::memset(answer.bytes, 0, kFixedSize);
    answer->dwTotalSize = 4096;
    answer->dwUsedSize = 370;
    answer->dwCalledIDFlags = kAddress;
    put_text(answer, "CALLED", answer->dwCalledIDSize, answer->dwCalledIDOffset);
    answer->dwCallerIDFlags = kName;
    answer->dwCallerIDSize = 16;
    put_text(answer, "NAME", answer->dwCallerIDNameSize, answer->dwCallerIDNameOffset);
    answer->dwNeededSize = 0xFF1;
    answer->dwBearerMode = 0x11;
    answer->dwMediaMode = 0x12;
    answer->dwRate = 0xABCDEF;
    answer->dwCallStates = 0x13;
    answer->dwOrigin = 0x14;
    answer->dwReason = 0x15;
    answer->dwConnectedIDFlags = 0x16;
    answer->dwRedirectionIDFlags = 0x17;
    answer->dwRedirectingIDFlags = 0x18;
    InfoAnswer before = answer;
    EXPECT_EQ(ask_no_line(&answer.caps), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_EQ(differences<LINECALLINFO>(before, answer), Lines{});
    const std::string dumped = "hdCall(0xNOLINE), " + identity;
    EXPECT_TRUE(reads(
        query_story(),
        joined({{
                    "[16] " + identity + ": TSPI_lineGetCallInfo",
                    "[8] " + identity + ": IsValidLine",
                    "[9] " + identity + ": IsValidLine(0)",
                    "[2] TSPI_lineGetCallInfo - Invalid Call Handle",
                },
                dump_begins(dumped, identity + ": "),
                under(dumped, {"dwTotalSize(0x1000)", "dwUsedSize(0x18a)", "dwNeededSize(0xff1)",
                               "dwCalledIDFlags(0x8)", "dwCalledIDSize(0xe), dwCalledIDOffset(1720x)", "CALLED",
                               "dwCallerIDFlags(0x4)", "dwCallerIDNameSize(0xa), dwCallerIDNameOffset(1800x)", "NAME",
                               "dwBearerMode(0x11)", "dwMediaMode(0x12)", "dwRate(0xabcdef)", "dwCallStates(0x13)",
                               "dwOrigin(0x14)", "dwReason(0x15)", "dwConnectedIDFlags(0x16)",
                               "dwRedirectionIDFlags(0x17)", "dwRedirectingIDFlags(0x18)"}),
                {"[9] " + identity + ": DumpCallInfo",
                 "[17] " + identity + ": TSPI_lineGetCallInfo(-2147483624) Failed"}})));
}

TEST_F(NoLine, HasItsRecordWrittenIntoTheTraceWithoutEmptyTexts) {
    InfoAnswer answer;
    std::memset(answer.bytes, 0, kFixedSize);
    answer->dwCalledIDFlags = kAddress;
    answer->dwCalledIDOffset = 0x100;
    answer->dwCallerIDFlags = kAddress | kName | kUnavailable;
    answer->dwCallerIDOffset = 0xFFFFFFFF;
    EXPECT_EQ(ask_no_line(&answer.caps), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(reads(traces().levels({4}),
                      under("hdCall(0xNOLINE), " + identity,
                            {"dwTotalSize(0x0)", "dwUsedSize(0x0)", "dwNeededSize(0x0)", "dwCalledIDFlags(0x8)",
                             "dwCalledIDSize(0x0), dwCalledIDOffset(1000x)", "dwCallerIDFlags(0x4c)",
                             "dwCallerIDSize(0x0), dwCallerIDOffset(ffffffff0x)",
                             "dwCallerIDNameSize(0x0), dwCallerIDNameOffset(00x)", "dwBearerMode(0x0)",
                             "dwMediaMode(0x0)", "dwRate(0x0)", "dwCallStates(0x0)", "dwOrigin(0x0)", "dwReason(0x0)",
                             "dwConnectedIDFlags(0x0)", "dwRedirectionIDFlags(0x0)", "dwRedirectingIDFlags(0x0)"})));
}

// ---- faults ---------------------------------------------------------------------------------------------------------

TEST_F(CallInfo, CatchesAFault) {
    offer(kParties);
    EXPECT_TRUE(survives("TSPI_lineGetCallInfo", [this] { return tsp.TSPI_lineGetCallInfo(call(0), nullptr); }));
    EXPECT_TRUE(survives("TSPI_lineGetCallInfo", [this] {
        InfoAnswer answer;
        return tsp.TSPI_lineGetCallInfo(wild_call(), &answer.caps);
    }));
    EXPECT_TRUE(is(expected_for(kParties), InfoAnswer()));
}

TEST_F(NoLine, CannotHaveARecordTracedThatCannotBeRead) {
    EXPECT_TRUE(survives("TSPI_lineGetCallInfo", [this] { return ask_no_line(nullptr); }));
}

TEST_F(NoLine, LosesALineOfTheTraceToATextThatCannotBeRead) {
    LonePage page;
    auto* info = page.last<LINECALLINFO>(kFixedSize);
    std::memset(info, 0, kFixedSize);
    info->dwCallerIDFlags = kName;
    info->dwCallerIDNameSize = 2;
    info->dwCallerIDNameOffset = kFixedSize;
    EXPECT_EQ(ask_no_line(info), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(reads_in_order(on_this_thread(all_of(TRACE | WINDOWS)),
                               {"[4] <*>: dwCallerIDNameSize(0x2), dwCallerIDNameOffset(1440x)",
                                "OutputDebugStringW(\"!!!!Exception in logging TSP\")", "[4] <*>: dwBearerMode(0x0)",
                                "[17] <*>: TSPI_lineGetCallInfo(-2147483624) Failed"}));
}

TEST_F(CallInfo, GivesTheLockBackAfterAFaultUnderIt) {
    offer(kParties);
    LonePage page;
    auto* info = page.last<LINECALLINFO>(offsetof(LINECALLINFO, dwMediaMode));
    info->dwTotalSize = 4096;
    info->dwUsedSize = 12;
    EXPECT_TRUE(survives("TSPI_lineGetCallInfo", [&] { return tsp.TSPI_lineGetCallInfo(call(0), info); }));
    EXPECT_TRUE(lock_is_given_back());
    EXPECT_TRUE(is(expected_for(kParties), InfoAnswer()));
}

// The provider's resources: the message table of the event log, the string table, the version.
#include "harness.h"

using namespace harness;

namespace {

class Resources : public ProviderFixture {
  protected:
    std::string message(DWORD id) {
        wchar_t text[512] = L"no message";
        FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS, module, id, 0, text, 512, nullptr);
        return narrow(text);
    }

    // The message as a viewer of the event log shows it, with an entry's three strings.
    std::string message_with(DWORD id, const wchar_t* first, const wchar_t* second, const wchar_t* third) {
        DWORD_PTR strings[] = {reinterpret_cast<DWORD_PTR>(first), reinterpret_cast<DWORD_PTR>(second),
                               reinterpret_cast<DWORD_PTR>(third)};
        wchar_t text[512] = L"no message";
        FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, module, id, 0, text, 512,
                       reinterpret_cast<va_list*>(strings));
        return narrow(text);
    }

    std::string string(UINT id) {
        wchar_t text[512] = L"no string";
        LoadStringW(module, id, text, 512);
        return narrow(text);
    }
};

struct Text {
    DWORD id;
    const char* text;
};

constexpr Text kCategories[] = {
    {1, "Hardware Failure.\r\n"},     {2, "Hardware Configuration.\r\n"}, {3, "System Failure.\r\n"},
    {4, "System Configuration.\r\n"}, {5, "NOT CLASSIFIED.\r\n"},
};

constexpr Text kMessages[] = {
    {0x80000011, "Chan %2 doesn't support MMR format.\r\n"},
    {0x80000017, "Error accessing phone number database.\r\n"},
    {0xC0000006, "You have chosen an incorrect command.\r\n"},
    {0xC0000007, "CreateMutex failed, error %2.\r\n"},
    {0xC0000008, "CreateEvent failed, error %2.\r\n"},
    {0xC0000009, "Memory allocation failure.\r\n"},
    {0xC000000A, "beginthread failed, error %2.\r\n"},
    {0xC000000B, "Reset failure or no fw, chan %2, status %3.\r\n"},
    {0xC000000C, "Timeout waiting for reset done interrupt.\r\n"},
    {0xC000000D, "Firmware download error.\r\n"},
    {0xC000000E, "Attach failure, chan %2.\r\n"},
    {0xC000000F, "Driver startup failed.\r\n"},
    {0xC0000010, "Error reading parameters from registry.\r\n"},
    {0xC0000012, "Unknown DevSpecific command %2.\r\n"},
    {0xC0000013, "Digital configuration file read error.\r\n"},
    {0xC0000014, "Digital configuration file format error.\r\n"},
    {0xC0000015, "Digital configuration error.\r\n"},
    {0xC0000016, "Error attempting to determine country code.\r\n"},
};

// The misspellings are part of the texts.
constexpr Text kStrings[] = {
    {1, "Warning"},
    {101,
     "Vantreli Halvorsund Telephony Service Provider can be removed by using the Control Panel Add/Remove Programs "
     "applet after terminating all telephony applications."},
    {102, "CreateMutex failed, error %2."},
    {103, "CreateEvent failed, error %2."},
    {104, "Memory allocation failure."},
    {105, "Failed to Beginthread, error %2."},
    {106, "Reset failure or no firmware on channel %2, status %3."},
    {107, "Timeout waiting for reset done interrupt."},
    {108, "Firmware download error."},
    {109, "Falied to attach to channel %2."},
    {110, "Driver startup failed."},
    {111, "Error reading parameters from registry."},
    {112, "Chan %2 is doesn't support MMR format."},
    {113,
     "The application generated an unknown DevSpecific command %2. This TSP should only be used with Microsoft Shared "
     "Fax."},
    {114, "Could not read digital configuration file."},
    {115, "Digital configuration file format error."},
    {116, "Digital configuration error."},
    {117, "Error attempting to determine country code."},
    {118, "Error accessing phone number database."},
    {119, "Testing to see if the message works."},
    {120, "Could not proceed operation due to bad parameters definition."},
    {121, "Hardware Incompatibility"},
    {122, "Hardware Configuration"},
    {123, "System Configuration"},
};

// A message's text with the second and third string in their places.
std::string inserted(std::string text, const std::string& second, const std::string& third) {
    const std::pair<const char*, std::string> strings[] = {{"%2", second}, {"%3", third}};
    for (const auto& [place, string] : strings) {
        size_t found = text.find(place);
        if (found != std::string::npos) text.replace(found, 2, string);
    }
    return text;
}

}  // namespace

TEST_F(Resources, NameTheCategoriesOfTheEventLog) {
    for (const Text& category : kCategories) EXPECT_EQ(message(category.id), category.text) << category.id;
}

TEST_F(Resources, HaveTheTextOfEveryEventLogEntry) {
    for (const Text& known : kMessages) EXPECT_EQ(message(known.id), known.text) << std::hex << known.id;
}

TEST_F(Resources, InsertTheSecondAndThirdStringOfEveryEntry) {
    for (const Text& known : kMessages)
        EXPECT_EQ(message_with(known.id, L"first", L"A", L"1F"), inserted(known.text, "A", "1F"))
            << std::hex << known.id;
    EXPECT_EQ(message_with(0xC000000B, L"", L"A", L"1F"), "Reset failure or no fw, chan A, status 1F.\r\n");
    EXPECT_EQ(message_with(0x80000011, L"", L"FFFFFFFF", L""), "Chan FFFFFFFF doesn't support MMR format.\r\n");
}

TEST_F(Resources, InsertNothingIntoACategory) {
    for (const Text& category : kCategories)
        EXPECT_EQ(message_with(category.id, L"first", L"A", L"1F"), category.text) << category.id;
}

TEST_F(Resources, HaveNoOtherMessages) {
    for (DWORD id = 0; id <= 0x30; ++id) {
        for (DWORD severity : {0x00000000u, 0x40000000u, 0x80000000u, 0xC0000000u}) {
            bool known = std::any_of(std::begin(kMessages), std::end(kMessages),
                                     [&](const Text& one) { return one.id == (severity | id); });
            bool category = severity == 0 && id >= 1 && id <= 5;
            if (!known && !category) {
                EXPECT_EQ(message(severity | id), "no message") << std::hex << (severity | id);
            }
        }
    }
}

TEST_F(Resources, HaveTheStringsOfTheConfigurationAsTheyAreSpelled) {
    for (const Text& known : kStrings) EXPECT_EQ(string(known.id), known.text) << known.id;
}

TEST_F(Resources, HaveNoStringUnderTheIdOfAnEventLogEntry) {
    for (const Text& known : kMessages) {
        wchar_t text[256] = L"";
        EXPECT_EQ(LoadStringW(module, known.id, text, 256), 0) << std::hex << known.id;
    }
}

TEST_F(Resources, TellTheVersion) {
    EXPECT_NE(FindResourceW(module, MAKEINTRESOURCEW(VS_VERSION_INFO), MAKEINTRESOURCEW(16)), nullptr);
}

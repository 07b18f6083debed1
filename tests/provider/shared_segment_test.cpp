// The shared segment as TSPI_providerInit creates and maps it.
#include <algorithm>

#include "start_up.h"

using namespace harness;

using SharedSegment = StartUp;

TEST_F(SharedSegment, IsCreatedAsItsReadersExpectIt) {
    EXPECT_EQ(initialise(), 0);
    const Lines expected = {
        "ConvertStringSecurityDescriptor(\"O:NSG:NSD:(A;;GR;;;NS)\", 1)",
        "CreateFileMappingW(page file, {24, \"O:NSG:NSD:(A;;GR;;;NS)\", 1}, 0x4, 0, 4307072, "
        "\"HalvorsundMSFTSPSharedMemory\")",
        "MapViewOfFile(MAPPING, 0xF001F, 0, 0, whole)",
    };
    EXPECT_TRUE(reads(own(windows_calls()).only({"Conv<*>", "CreateFile<*>", "MapView<*>"}), expected));
}

TEST_F(SharedSegment, IsUsedAsItIsWhenItExistsAlready) {
    windows.mapping.exists_already = true;
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(holds(traces(), "[4] Mapped Shared Memory HalvorsundMSFTSPSharedMemory"));
}

TEST_F(SharedSegment, IsNotWrittenTo) {
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(std::count(windows.mapping.view, windows.mapping.view + 4307072, 0), 4307072);
}

struct Descriptor {
    DWORD major, minor;
    const char* text;
};

std::ostream& operator<<(std::ostream& out, const Descriptor& one) {
    return out << one.major << "." << one.minor;
}

class DescriptorOfTheSegment : public SharedSegment, public testing::WithParamInterface<Descriptor> {};

TEST_P(DescriptorOfTheSegment, DependsOnTheWindowsVersion) {
    windows.version.major = GetParam().major;
    windows.version.minor = GetParam().minor;
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads(windows_calls().only({"Conv<*>"}),
                      {std::string("ConvertStringSecurityDescriptor(\"") + GetParam().text + "\", 1)"}));
}

INSTANTIATE_TEST_SUITE_P(EachVersion, DescriptorOfTheSegment,
                         testing::Values(Descriptor{4, 0, "O:BAG:BAD:(A;;GR;;;WD) (A;;GA;;;BA)"},
                                         Descriptor{5, 0, "O:BAG:BAD:(A;;GR;;;WD) (A;;GA;;;BA)"},
                                         Descriptor{5, 1, "O:BAG:BAD:(A;;GR;;;WD) (A;;GA;;;BA)"},
                                         Descriptor{5, 2, "O:SYG:SYD:(A;;GR;;;NS) (A;;GA;;;SY)"},
                                         Descriptor{5, 3, "O:NSG:NSD:(A;;GR;;;NS)"},
                                         Descriptor{6, 1, "O:NSG:NSD:(A;;GR;;;NS)"},
                                         Descriptor{10, 0, "O:NSG:NSD:(A;;GR;;;NS)"}));

TEST_F(SharedSegment, IsNotMadeWithoutMemoryForItsAttributes) {
    windows.memory.fail_once_after(kFaxServiceFound, sizeof(SECURITY_ATTRIBUTES));
    EXPECT_EQ(initialise(), failed(LINEERR_NOMEM));
    const Lines expected = {
        kStartUpEntry,
        "[4] Future Version ",
        kFaxServiceFound,
        "[4] TSPI_providerInit No Memory available - lpAttributes",
        "[15] TSPI_providerInit(-2147483580) Failed",
    };
    EXPECT_TRUE(reads(traces(), expected));
    EXPECT_TRUE(reads(event_log(), {}));
    EXPECT_EQ(driver.initialisations, 0);
}

TEST_F(SharedSegment, IsNotMadeWithoutItsDescriptor) {
    windows.mapping.descriptor_error = 1338;
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = {
        "[4] TSPI_providerInit ConvertStringSecurityDescriptorToSecurityDescriptor failed",
        "[2] GetLastError() = 1338",
        "[15] TSPI_providerInit(-2147483576) Failed",
    };
    EXPECT_TRUE(reads_in_order(traces(), expected));
    EXPECT_TRUE(holds_no(traces(), "[4] Creating Shared Memory<*>"));
    EXPECT_EQ(driver.initialisations, 0);
}

TEST_F(SharedSegment, FailsTheStartWhenItCannotBeCreated) {
    windows.mapping.mapping_error = 1455;
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = {
        "[4] Creating Shared Memory HalvorsundMSFTSPSharedMemory",
        "[4] TSPI_providerInit() Could not create file-mapping object.    #%*#%*#%*#%*#%*#%*#%*#%*",
        "[2] GetLastError() = 1455",
        "[15] TSPI_providerInit(-2147483576) Failed",
    };
    EXPECT_TRUE(reads_in_order(traces(), expected));
    EXPECT_TRUE(holds_no(windows_calls(), "MapViewOfFile(<*>"));
    EXPECT_EQ(driver.initialisations, 0);
}

TEST_F(SharedSegment, StaysOpenWhenItCannotBeMapped) {
    windows.mapping.view_error = 8;
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = {
        "[4] TSPI_providerInit() Could not map view of file. "
        "#%*#%*#%*#%*#%*#%*#%*#%*#%*#%*#%*#%*",
        "[2] GetLastError() = 8",
        "[15] TSPI_providerInit(-2147483576) Failed",
    };
    EXPECT_TRUE(reads_in_order(traces(), expected));
    EXPECT_TRUE(holds_no(windows_calls(), "CloseHandle(MAPPING)"));
    EXPECT_EQ(driver.initialisations, 0);
}

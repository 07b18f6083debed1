// The shared segment as TSPI_providerInit creates and maps it.
#include <algorithm>

#include "start_up.h"

using namespace harness;

using SharedSegment = StartUp;

TEST_F(SharedSegment, IsUsedAsItIsWhenItExistsAlready) {
    windows.mapping.exists_already = true;
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads_in_order(own(everything()), joined({kReadyForResets, {"[15] TSPI_providerInit(0) Good"}})));
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
    windows.memory.fail_once_after("[9] IsFaxServicePresent(1)", sizeof(SECURITY_ATTRIBUTES));
    EXPECT_EQ(initialise(), failed(LINEERR_NOMEM));
    const Lines expected = joined({
        kBegun,
        {"[4] TSPI_providerInit No Memory available - lpAttributes", "[15] TSPI_providerInit(-2147483580) Failed",
         "DornShutdown()"},
    });
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(SharedSegment, IsNotMadeWithoutItsDescriptor) {
    windows.mapping.descriptor_error = 1338;
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = joined({
        kBegun,
        kSegmentDescribed,
        {"[4] TSPI_providerInit ConvertStringSecurityDescriptorToSecurityDescriptor failed",
         "[2] GetLastError() = 1338", "[15] TSPI_providerInit(-2147483576) Failed", "DornShutdown()"},
    });
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(SharedSegment, FailsTheStartWhenItCannotBeCreated) {
    windows.mapping.mapping_error = 1455;
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = joined({
        kBegun,
        kSegmentCreated,
        {"[4] TSPI_providerInit() Could not create file-mapping object.    #%*#%*#%*#%*#%*#%*#%*#%*",
         "[2] GetLastError() = 1455", "[15] TSPI_providerInit(-2147483576) Failed", "DornShutdown()"},
    });
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(SharedSegment, StaysOpenWhenItCannotBeMapped) {
    windows.mapping.view_error = 8;
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = joined({
        kBegun,
        kMappingAsked,
        {"[4] TSPI_providerInit() Could not map view of file. #%*#%*#%*#%*#%*#%*#%*#%*#%*#%*#%*#%*",
         "[2] GetLastError() = 8", "[15] TSPI_providerInit(-2147483576) Failed", "DornShutdown()"},
    });
    EXPECT_TRUE(reads(everything(), expected));
}

// ---- the memory of its attributes ---------------------------------------------------------------------------------

namespace {

using Allocate = void*(__cdecl*)(size_t);
using Free = void(__cdecl*)(void*);
Allocate allocate;
Free give_back;
void* attributes;
bool attributes_seen;

// The attributes are the first block of their size after the fax service has been found.
void* __cdecl watched_malloc(size_t size) {
    void* block = allocate(size);
    if (size == sizeof(SECURITY_ATTRIBUTES) && !attributes_seen &&
        holds(traces().levels({9}), "[9] IsFaxServicePresent(1)")) {
        attributes_seen = true;
        attributes = block;
    }
    return block;
}

void __cdecl watched_free(void* block) {
    if (block && block == attributes) {
        attributes = nullptr;
        note("the attributes are freed");
    }
    give_back(block);
}

struct EndOfTheAttributes {
    DWORD FakeMapping::*failure;
    std::string before, after;
};

std::ostream& operator<<(std::ostream& out, const EndOfTheAttributes& one) {
    return out << one.before;
}

class AttributesOfTheSegment : public SharedSegment, public testing::WithParamInterface<EndOfTheAttributes> {};

}  // namespace

TEST_P(AttributesOfTheSegment, AreFreedAsSoonAsItIsMappedOrHasFailed) {
    Replacements more(module);
    attributes_seen = false;
    ASSERT_TRUE(more.replace("malloc", allocate, watched_malloc));
    ASSERT_TRUE(more.replace("free", give_back, watched_free));
    if (GetParam().failure) windows.mapping.*GetParam().failure = 8;
    initialise();
    EXPECT_TRUE(reads(own(all_of(TRACE | NOTE).levels({2, 4, 8}))
                          .only({GetParam().before, "the attributes are freed", GetParam().after}),
                      {GetParam().before, "the attributes are freed", GetParam().after}));
}

INSTANTIATE_TEST_SUITE_P(
    EachEnd, AttributesOfTheSegment,
    testing::Values(
        EndOfTheAttributes{nullptr, "[4] Mapped Shared Memory HalvorsundMSFTSPSharedMemory", "[8] QORV_IsRunning"},
        EndOfTheAttributes{&FakeMapping::descriptor_error,
                           "[4] TSPI_providerInit ConvertStringSecurityDescriptorToSecurityDescriptor failed",
                           "[2] GetLastError() = 8"},
        EndOfTheAttributes{&FakeMapping::mapping_error,
                           "[4] TSPI_providerInit() Could not create file-mapping object.    #%*#%*#%*#%*#%*#%*#%*#%*",
                           "[2] GetLastError() = 8"},
        EndOfTheAttributes{&FakeMapping::view_error,
                           "[4] TSPI_providerInit() Could not map view of file. #%*#%*#%*#%*#%*#%*#%*#%*#%*#%*#%*#%*",
                           "[2] GetLastError() = 8"}));

// The stamp of a received file when the driver's stream functions fail.
#include <memory>

#include "fax_fixture.h"
#include "tiff_file.h"

using namespace harness;

namespace {

// Where the stamp is, and where the directory's reader stands.
constexpr uint32_t kValueOffset = 0x4C;
constexpr long kPosition = 0x21;

const char *const kTell = "_mdll_ftell(STREAM2)", *const kSeek = "_mdll_fseek(STREAM2, 76, 0)",
                  *const kWrite = "_mdll_fwrite(STREAM2, \"0538968064\\x00\")",
                  *const kSeekBack = "_mdll_fseek(STREAM2, 33, 0)";

class TiffStampFailure : public IncomingFaxFixture {
  protected:
    // Has the provider stamp an entry with this offset, and gives what it answered the directory's reader.
    int answer_to_an_entry() {
        int answer = -1;
        write_tiff(file(), {stamped_page()});
        open_file("r+");
        driver.on.DornFaxRcvPageTiff = fax_step(-1, KX_STATUS_ALERT, 0);
        receive_fax();
        driver.on.DornTiffReadIFD = [&](DornTiffRecord* record) {
            DornTiffEntry entry = {305, 2, 11, kValueOffset};
            std::fseek(static_cast<FILE*>(record->hTiff->stream), kPosition, SEEK_SET);
            answer = record->tagCallback(record->hTiff, &entry, record->qwCallerValue);
            return 1;
        };
        // Whatever a trace does to it, the answer is the error of the call that failed.
        before(driver.on.QorvLogLogMsg, [] { SetLastError(ERROR_ARENA_TRASHED); });
        new_chapter();
        EXPECT_EQ(close_file(FAXRECEIVE), 0u);
        EXPECT_TRUE(holds(driver_calls(), "DornTiffClose(TIFF2)"));
        return answer;
    }

    // What the answering showed.
    static View stamping() { return all_of(TRACE | DRIVER).levels({1, 2, 4}).only({"_mdll_<*>", "[2] <*>"}); }

    // The seek of this number, from 1, fails with this error.
    static void let_a_seek_fail(int number, DWORD error) {
        driver.on._mdll_fseek = [number, error, seen = std::make_shared<int>(0)](void*, long, int) {
            if (++*seen != number) return 0;
            SetLastError(error);
            return -1;
        };
    }
};

}  // namespace

TEST_F(TiffStampFailure, IsNoneWhenAllGoesWell) {
    EXPECT_EQ(answer_to_an_entry(), 0);
    EXPECT_TRUE(reads(stamping(), {kTell, kSeek, kWrite, kSeekBack}));
}

TEST_F(TiffStampFailure, OfTheSeekToTheValueIsTracedAndEndsTheReading) {
    let_a_seek_fail(1, ERROR_SEEK);
    EXPECT_EQ(answer_to_an_entry(), ERROR_SEEK);
    EXPECT_TRUE(reads(stamping(), {kTell, kSeek, "[2] Error seeking to offset 4C"}));
}

TEST_F(TiffStampFailure, OfTheWriteIsTracedAndEndsTheReading) {
    driver.on._mdll_fwrite = [](const void*, size_t, size_t count, void*) {
        SetLastError(ERROR_DISK_FULL);
        return count - 1;
    };
    EXPECT_EQ(answer_to_an_entry(), ERROR_DISK_FULL);
    EXPECT_TRUE(reads(stamping(), {kTell, kSeek, kWrite, "[2] Error writing 11 bytes on offset 4C"}));
}

TEST_F(TiffStampFailure, OfTheSeekBackIsTracedAndEndsTheReading) {
    let_a_seek_fail(2, ERROR_NEGATIVE_SEEK);
    EXPECT_EQ(answer_to_an_entry(), ERROR_NEGATIVE_SEEK);
    EXPECT_TRUE(reads(stamping(), {kTell, kSeek, kWrite, kSeekBack, "[2] Error seeking to offset 21 on end"}));
}

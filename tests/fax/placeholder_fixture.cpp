#include "placeholder_fixture.h"

#include <algorithm>

using namespace harness;

Lines PlaceholderFixture::steps() const {
    return {
        "DornTiffClose(TIFF2)",
        "DornTiffOpen(\"" + file() + "\", \"w+\")",
        "DornTiffWriteImage(TIFF3, \"\\x00\\x00\\x00\\x00\")",
        "DornTiffWriteImage(TIFF3, end)",
        "DornTiffWriteRes(TIFF3, 0)",
        "DornTiffWriteIFD(TIFF3, 254:4[1] 0x2)",
        "DornTiffWriteIFD(TIFF3, 256:4[1] 0x6C0)",
        "DornTiffWriteIFD(TIFF3, 257:4[1] 0x4)",
        "DornTiffWriteIFD(TIFF3, 258:3[1] 0x1)",
        "DornTiffWriteIFD(TIFF3, 259:3[1] 0x4)",
        "DornTiffWriteIFD(TIFF3, 262:3[1] 0x0)",
        "DornTiffWriteIFD(TIFF3, 266:3[1] 0x2)",
        "DornTiffWriteIFD(TIFF3, 273:4[1] 0x0)",
        "DornTiffWriteIFD(TIFF3, 277:3[1] 0x1)",
        "DornTiffWriteIFD(TIFF3, 278:4[1] 0x4)",
        "DornTiffWriteIFD(TIFF3, 279:4[1] 0x0)",
        "DornTiffWriteIFD(TIFF3, 282:5[1] 0xC)",
        "DornTiffWriteIFD(TIFF3, 283:5[1] 0x14)",
        "DornTiffWriteIFD(TIFF3, 293:4[1] 0x0)",
        "DornTiffWriteIFD(TIFF3, 296:3[1] 0x2)",
        "DornTiffWriteIFD(TIFF3, 297:3[2] 0x0)",
        "DornTiffWriteIFD(TIFF3, 326:3[1] 0x0)",
        "DornTiffWriteIFD(TIFF3, 327:3[1] 0x0)",
        "_mdll_fseek(STREAM3, 0, 2)",
        "[8] PadToEven",
        "_mdll_ftell(STREAM3)",
        "[9] PadToEven(28)",
        "_mdll_fwrite(STREAM3, \"0538968064\\x00\")",
        "DornTiffWriteIFD(TIFF3, 305:2[11] 0x1C)",
        "_mdll_fseek(STREAM3, 0, 2)",
        "[8] PadToEven",
        "_mdll_ftell(STREAM3)",
        "_mdll_fwrite(STREAM3, \"\\x00\")",
        "[9] PadToEven(40)",
        "_mdll_fwrite(STREAM3, \"TO: ME\\x00\")",
        "DornTiffWriteIFD(TIFF3, 337:2[7] 0x28)",
        "DornTiffWriteIFD(TIFF3, end)",
    };
}

Lines PlaceholderFixture::steps_up_to(const std::string& call) const {
    Lines all = steps();
    auto last = std::find(all.begin(), all.end(), call);
    EXPECT_NE(last, all.end()) << call;
    return Lines(all.begin(), last == all.end() ? last : last + 1);
}

void PlaceholderFixture::expect_rebuilding(const Lines& steps, int result, const Lines& close) const {
    const Lines unit = {"DornLineUnitGet(CHAN4)"};
    EXPECT_TRUE(
        reads(whole_request(),
              accepted_request(
                  0x14, "2 (eTspCmd_TIFFCLOSE)",
                  joined({{"DornTiffClose(TIFF1)"},
                          inside("UpdateFaxStatus",
                                 {unit,
                                  inside("GetFaxExtendedStatusCode", {unit}),
                                  {"DornTiffOpen(\"" + file() + "\", \"r+\")", "DornTiffReadIFD(TIFF2, 0x20000400)"},
                                  inside_with_result("RebuildPlaceholderTiff", result, {steps}),
                                  close})}))));
}

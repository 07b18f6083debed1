// The host service's log.
#include "log_file.h"

#include <gtest/gtest.h>

#include "fax_pages.h"
#include "temporary_folder.h"
#include "text.h"

TEST(LogFile, GetsOneDatedLinePerEvent) {
    const TemporaryFolder folder;
    const LogFile log = {wide(folder.file("a.log"))};
    EXPECT_EQ(0u, log_write(log, "started"));
    EXPECT_EQ(0u, log_write(log, "stopped"));
    const std::string text = read_text(folder.file("a.log"));
    EXPECT_EQ(2u * (20 + 7 + 2), text.size());
    EXPECT_EQ(" started\r\n", text.substr(19, 10));
}

TEST(LogFile, IsRotatedBeforeItGrowsBeyondItsLimit) {
    const TemporaryFolder folder;
    const LogFile log = {wide(folder.file("a.log"))};
    const std::string line(LOG_FILE_LIMIT / 2, 'x');
    for (int i = 0; i < 12; ++i) EXPECT_EQ(0u, log_write(log, line));
    EXPECT_EQ(1u + LOG_FILES_KEPT, folder.files().size());
    for (const std::string& file : folder.files()) {
        EXPECT_LE(file_size(file), static_cast<uint64_t>(LOG_FILE_LIMIT)) << file;
    }
}

TEST(LogFile, SaysWhyItCannotBeWritten) {
    const TemporaryFolder folder;
    EXPECT_EQ(3u, log_write({wide(folder.file("none\\a.log"))}, "lost"));
}

// The order of what is printed.
#include "journal.h"

#include <gtest/gtest.h>

#include <vector>

TEST(Journal, MakesLinesInTheirOrderOnAThreadOfItsOwn) {
    std::vector<int> made;
    DWORD thread = GetCurrentThreadId();
    {
        const Journal journal;
        for (int i = 0; i < 100; ++i) {
            journal_post([&, i] {
                made.push_back(i);
                thread = GetCurrentThreadId();
                return std::string();
            });
        }
    }
    ASSERT_EQ(100u, made.size());
    for (int i = 0; i < 100; ++i) EXPECT_EQ(i, made[i]);
    EXPECT_NE(GetCurrentThreadId(), thread);
}

TEST(Journal, IsNotNeededForALine) {
    bool made = false;
    journal_post([&made] {
        made = true;
        return std::string();
    });
    EXPECT_TRUE(made);
}

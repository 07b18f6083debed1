// A hardware fault runs no destructor: the fault guard gives back the line locks that were taken under it, and no
// others.
#include "inner_fixture.h"

using namespace harness;

namespace {

class LockAfterFault : public InnerFixture {
  protected:
    void SetUp() override {
        InnerFixture::SetUp();
        start_provider();
        open_waiting_line(0);
        std::lock_guard<std::mutex> holding(world());
        for (const auto& [handle, name] : windows.objects.open)
            if (name == "MUTEX1") mutex = handle;
        ASSERT_NE(mutex, nullptr);
    }

    // How often the guard gives the lock back after a fault under so many locks.
    size_t given_back_of(int times) {
        new_chapter();
        fault_with_locks(line(0), times);
        return count(windows_calls(), "ReleaseMutex(MUTEX1)");
    }

    HANDLE mutex = nullptr;
};

}  // namespace

TEST_F(LockAfterFault, IsGivenBackAsOftenAsItWasTaken) {
    for (int times : {0, 1, 2, 16}) {
        EXPECT_EQ(given_back_of(times), static_cast<size_t>(times));
        EXPECT_FALSE(ReleaseMutex(mutex)) << times;
    }
}

TEST_F(LockAfterFault, IsGivenBackSixteenTimesAtMost) {
    EXPECT_EQ(given_back_of(18), 16u);
    for (bool held : {true, true, false}) EXPECT_EQ(ReleaseMutex(mutex) != FALSE, held);
    // What could not be given back is forgotten.
    EXPECT_EQ(given_back_of(1), 1u);
    EXPECT_FALSE(ReleaseMutex(mutex));
}

TEST_F(LockAfterFault, IsLeftAloneByAFaultOfTheLog) {
    driver.on.QorvLogIsInterested = [](uint32_t, int) { return cause_access_violation(), 0; };
    new_chapter();
    fault_with_locks(line(0), 2);
    EXPECT_TRUE(reads(windows_calls().only({"WaitForSingleObject(MUTEX1<*>", "ReleaseMutex(MUTEX1)"}),
                      {"WaitForSingleObject(MUTEX1, INFINITE)", "WaitForSingleObject(MUTEX1, INFINITE)",
                       "ReleaseMutex(MUTEX1)", "ReleaseMutex(MUTEX1)"}));
    EXPECT_FALSE(ReleaseMutex(mutex));
}

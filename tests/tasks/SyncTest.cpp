// CTAKSync: the counting semaphore behind synchronous sends, thread start and thread end.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "TAKSync.h"
#include "TasksTestSupport.h"

using namespace taskstest;

namespace {

const char kTaskBaseSource[] = "src/Commons/Common/src/TAKTaskBase";

class ASync : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_Sync.Create()); }
    void TearDown() override {
        if (m_Sync.IsCreated()) {
            m_Sync.Destroy();
        }
    }
    CTAKSync m_Sync;
};

}  // namespace

TEST_F(ASync, CountsGivesAndTakesOneEach) {
    m_Sync.Give();
    m_Sync.Give();
    MustReturn("two takes after two gives", [this] {
        m_Sync.Take();
        m_Sync.Take();
    });
    EXPECT_FALSE(m_Sync.SyncTry(0));
}

TEST_F(ASync, SyncTryZeroNeverWaits) {
    bool first = true;
    MustReturn("SyncTry(0)", [&] { first = m_Sync.SyncTry(0); });
    EXPECT_FALSE(first);

    m_Sync.Give();
    EXPECT_TRUE(m_Sync.SyncTry(0));
    EXPECT_FALSE(m_Sync.SyncTry(0));
}

TEST_F(ASync, SyncTryWithAllBitsWaitsUntilAGive) {
    Signal aboutToWait;
    std::atomic<bool> given{false};
    bool result = false;
    bool givenWhenReturned = false;
    BoundedThread waiter([&] {
        aboutToWait.Set();
        result = m_Sync.SyncTry(CTAKSync::WAIT_FOREVER);
        givenWhenReturned = given.load();
    });
    ASSERT_TRUE(aboutToWait.Wait());
    given = true;
    m_Sync.Give();
    waiter.Join("the waiter");

    EXPECT_TRUE(result);
    EXPECT_TRUE(givenWhenReturned) << "returned before anyone gave";
    EXPECT_FALSE(m_Sync.SyncTry(0)) << "the give was not consumed";
}

TEST_F(ASync, SyncTryWithATimeOutTakesAGiveThatArrivesWhileWaiting) {
    Signal aboutToWait;
    std::atomic<bool> given{false};
    bool result = false;
    bool givenWhenReturned = false;
    BoundedThread waiter([&] {
        aboutToWait.Set();
        // Far longer than the test takes: only the give can end this wait with true.
        result = m_Sync.SyncTry(600000);
        givenWhenReturned = given.load();
    });
    ASSERT_TRUE(aboutToWait.Wait());
    given = true;
    m_Sync.Give();
    waiter.Join("the waiter");

    EXPECT_TRUE(result);
    EXPECT_TRUE(givenWhenReturned);
}

TEST_F(ASync, SyncTryOfOneSecondWithoutAGiveReturnsFalseAfterAboutASecond) {
    auto start = std::chrono::steady_clock::now();
    bool result = m_Sync.SyncTry(1000);
    auto elapsed = std::chrono::steady_clock::now() - start;

    EXPECT_FALSE(result);
    EXPECT_GE(elapsed, std::chrono::milliseconds(900));
    EXPECT_LE(elapsed, std::chrono::seconds(10));
}

TEST_F(ASync, DestroyDropsPendingGives) {
    m_Sync.Give();
    m_Sync.Destroy();
    ASSERT_TRUE(m_Sync.Create());
    EXPECT_FALSE(m_Sync.SyncTry(0));
}

TEST_F(ASync, CreateTwiceFailsWithTheLogLine) {
    LogMark mark;
    EXPECT_FALSE(m_Sync.Create());
    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "Create", "FlagCreate() return true")) << mark.Text();
}

TEST(ASyncNotCreated, ReturnsAtOnceIgnoresGivesAndLogs) {
    CTAKSync sync;
    LogMark mark;
    sync.Give();
    MustReturn("Take() on a sync not created", [&] { sync.Take(); });
    EXPECT_FALSE(sync.SyncTry(0));
    EXPECT_FALSE(sync.SyncTry(1000));
    sync.Destroy();

    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "Take", "FlagCreate() return false")) << mark.Text();
    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "SyncTry", "FlagCreate() return false")) << mark.Text();
    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "Destroy", "FlagCreate() return false")) << mark.Text();

    // The give before Create() was not counted.
    ASSERT_TRUE(sync.Create());
    EXPECT_FALSE(sync.SyncTry(0));
    sync.Destroy();
}

TEST(ASyncStillCreated, OnlyLogsWhenDestructed) {
    LogMark mark;
    {
        CTAKSync sync;
        ASSERT_TRUE(sync.Create());
    }
    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "~CTAKSync", "FlagCreate() return true")) << mark.Text();
}

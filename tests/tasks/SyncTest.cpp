// CTAKSync, the counting semaphore behind synchronous sends, thread start and thread end; and
// CTAKSingleton, one lazily made instance whichever thread asks first.
#include <gtest/gtest.h>

#include "TAKSingleton.h"
#include "TAKSync.h"
#include "TasksTestSupport.h"

namespace {

class ASync : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_Sync.Create()); }
    void TearDown() override { m_Sync.Destroy(); }
    CTAKSync m_Sync;
};

std::atomic<int> g_Constructed{0};

class Counted : public CTAKSingleton<Counted> {
public:
    Counted() { ++g_Constructed; }
};

}  // namespace

TEST_F(ASync, CountsGivesAndTakesAndSyncTryZeroNeverWaits) {
    MustReturn("SyncTry(0)", [&] { EXPECT_FALSE(m_Sync.SyncTry(0)); });
    m_Sync.Give();
    m_Sync.Give();
    m_Sync.Give();
    MustReturn("two takes after three gives", [this] {
        m_Sync.Take();
        m_Sync.Take();
    });
    EXPECT_TRUE(m_Sync.SyncTry(0));
    EXPECT_FALSE(m_Sync.SyncTry(0));

    m_Sync.Give();
    m_Sync.Destroy();
    ASSERT_TRUE(m_Sync.Create());
    EXPECT_FALSE(m_Sync.SyncTry(0)) << "a give survived Destroy()";
    EXPECT_FALSE(m_Sync.Create());
}

// With no limit, or a limit far longer than the test takes, only the give can end the wait with true;
// had it returned true without waiting, the give would still be there.
TEST_F(ASync, SyncTryWaitsUntilAGive) {
    for (unsigned long long timeout : {CTAKSync::WAIT_FOREVER, 600000ULL}) {
        SCOPED_TRACE(timeout);
        Signal aboutToWait;
        bool result = false;
        BoundedThread waiter([&] {
            aboutToWait.Set();
            result = m_Sync.SyncTry(timeout);
        });
        ASSERT_TRUE(aboutToWait.Wait());
        m_Sync.Give();
        waiter.Join("the waiter");
        EXPECT_TRUE(result);
        EXPECT_FALSE(m_Sync.SyncTry(0)) << "the give was not consumed";
    }
}

TEST_F(ASync, SyncTryOfOneSecondWithoutAGiveReturnsFalseAfterAboutASecond) {
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(m_Sync.SyncTry(1000));
    auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::milliseconds(900));
    EXPECT_LE(elapsed, std::chrono::seconds(10));
}

TEST(ASyncNotCreated, ReturnsAtOnceIgnoresGivesAndLogs) {
    LogMark mark;
    {
        CTAKSync sync;
        sync.Give();
        MustReturn("Take() on a sync not created", [&] { sync.Take(); });
        EXPECT_FALSE(sync.SyncTry(1000));
        sync.Destroy();
        ASSERT_TRUE(sync.Create());
        EXPECT_FALSE(sync.SyncTry(0)) << "the give before Create() was counted";
    }
    for (const char* func : {"Take", "SyncTry", "Destroy"}) {
        EXPECT_TRUE(HasError(mark, func, "FlagCreate() return false")) << func;
    }
}

// GetInstance() does not take m_tSingletonLock: here it is held all along, and nobody may block on it.
TEST(ASingleton, IsMadeOnFirstUseOnceForAllThreads) {
    EXPECT_EQ(g_Constructed.load(), 0) << "made before anyone asked";
    constexpr int kThreads = 8;
    Signal go;
    std::vector<Counted*> seen(kThreads, nullptr);
    {
        std::lock_guard<std::mutex> guard(Counted::m_tSingletonLock);
        std::vector<std::unique_ptr<BoundedThread>> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.push_back(std::make_unique<BoundedThread>([&, i] {
                EXPECT_TRUE(go.Wait());
                seen[i] = Counted::GetInstance();
            }));
        }
        go.Set();
    }
    EXPECT_EQ(g_Constructed.load(), 1);
    EXPECT_NE(seen[0], nullptr);
    EXPECT_EQ(std::vector<Counted*>(kThreads, seen[0]), seen);
}

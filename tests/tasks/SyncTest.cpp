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

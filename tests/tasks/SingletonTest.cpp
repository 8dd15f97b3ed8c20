// CTAKSingleton: one lazily made instance, whichever thread asks first.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

#include "TAKSingleton.h"
#include "TasksTestSupport.h"

using namespace taskstest;

namespace {

std::atomic<int> g_Constructed{0};

class Counted : public CTAKSingleton<Counted> {
public:
    Counted() { ++g_Constructed; }
};

class Locked : public CTAKSingleton<Locked> {};

}  // namespace

TEST(ASingleton, IsMadeOnFirstUseOnceForAllThreads) {
    EXPECT_EQ(g_Constructed.load(), 0) << "made before anyone asked";
    constexpr int kThreads = 8;
    Counter ready;
    Signal go;
    std::vector<Counted*> seen(kThreads, nullptr);
    {
        std::vector<std::unique_ptr<BoundedThread>> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.push_back(std::make_unique<BoundedThread>([&, i] {
                ready.Add();
                EXPECT_TRUE(go.Wait());
                seen[i] = Counted::GetInstance();
            }));
        }
        ASSERT_TRUE(ready.WaitAtLeast(kThreads));
        go.Set();
        for (auto& thread : threads) {
            thread->Join("GetInstance()");
        }
    }
    EXPECT_EQ(g_Constructed.load(), 1);
    for (Counted* instance : seen) {
        EXPECT_EQ(instance, seen[0]);
    }
    EXPECT_NE(seen[0], nullptr);
}

TEST(ASingleton, CanBeAskedForWhileItsLockIsHeld) {
    MustReturn("GetInstance() under m_tSingletonLock", [] {
        std::lock_guard<std::mutex> guard(Locked::m_tSingletonLock);
        EXPECT_NE(Locked::GetInstance(), nullptr);
    });
}

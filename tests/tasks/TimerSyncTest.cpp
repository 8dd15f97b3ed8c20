// CTAKTimer (the main-loop wrapper under it is met through the timer and the task base); CTAKSync, the
// counting semaphore behind synchronous sends, thread start and thread end; and CTAKSingleton, one lazily
// made instance whichever thread asks first.
#include <list>

#include "TAKSingleton.h"
#include "TAKSync.h"
#include "TAKTimer.h"
#include "TasksTestSupport.h"

namespace {

std::atomic<int> g_Constructed{0};

class Counted : public CTAKSingleton<Counted> {
public:
    Counted() { ++g_Constructed; }
};

// Calls of a timer callback or loop source: how many, and whether any ran on the test's own thread.
struct Calls {
    Counter count;
    pthread_t owner = pthread_self();
    std::atomic<bool> onOwner{false};

    static void Record(void* data) {
        Calls* calls = static_cast<Calls*>(data);
        calls->onOwner = calls->onOwner || pthread_equal(pthread_self(), calls->owner);
        calls->count.Add();
    }
};

// Stops the program rather than leaving a timer thread on a freed object behind.
void DestroyTimer(CTAKTimer& timer) {
    MustReturn("CTAKTimer::Destroy()", [&] { timer.Destroy(); });
}

}  // namespace

// A timer that is wrong would fire again within one interval after its last due call; the reference
// timer, with the same interval, fires many more times before the test looks. A destroyed timer can be
// made again, also when destroyed before its thread may even have entered the loop.
TEST(ATimer, RunsTheCallbackExactlyItsRepeatCountOnItsOwnThreadAndCanBeMadeAgain) {
    // Name, interval (all bits set: never), repeat count and the calls expected.
    const std::vector<std::tuple<const char*, unsigned long long, unsigned long long, long>> cases = {
        {"tak-test-three", 5, 3, 3}, {"tak-test-zero", 5, 0, 0}, {"tak-test-never", ~0ULL, 5, 0}};
    std::vector<Calls> calls(cases.size());
    std::vector<std::unique_ptr<CTAKTimer>> timers;
    for (size_t i = 0; i < cases.size(); ++i) {
        auto [name, intervalMs, repeatCount, expected] = cases[i];
        timers.push_back(std::make_unique<CTAKTimer>(name));
        ASSERT_TRUE(timers[i]->Create(intervalMs, repeatCount, Calls::Record, &calls[i]));
    }
    Calls reference;
    CTAKTimer referenceTimer("tak-test-ref");
    referenceTimer.Destroy();  // not created: only logs
    ASSERT_TRUE(referenceTimer.Create(5, CTAKTimer::REPEAT_FOREVER, Calls::Record, &reference));
    EXPECT_FALSE(referenceTimer.Create(1, 1, Calls::Record, &reference));

    ASSERT_TRUE(calls[0].count.WaitAtLeast(3));
    ASSERT_TRUE(reference.count.WaitAtLeast(reference.count.Get() + 10));
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(std::get<0>(cases[i]));
        EXPECT_EQ(calls[i].count.Get(), std::get<3>(cases[i]));
        EXPECT_FALSE(calls[i].onOwner) << "the callback ran on the owner's thread";
        DestroyTimer(*timers[i]);
    }
    DestroyTimer(referenceTimer);
    ASSERT_TRUE(referenceTimer.Create(2, CTAKTimer::REPEAT_FOREVER, Calls::Record, &reference));
    ASSERT_TRUE(reference.count.WaitAtLeast(reference.count.Get() + 3));
    DestroyTimer(referenceTimer);
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(referenceTimer.Create(1, CTAKTimer::REPEAT_FOREVER, Calls::Record, &reference));
        DestroyTimer(referenceTimer);
    }
}

TEST(ASync, CountsGivesAndTakesAndSyncTryZeroNeverWaits) {
    CTAKSync sync;
    ASSERT_TRUE(sync.Create());
    MustReturn("three gives, two takes and SyncTry(0)", [&] {
        EXPECT_FALSE(sync.SyncTry(0));
        sync.Give(), sync.Give(), sync.Give(), sync.Take(), sync.Take();
        EXPECT_TRUE(sync.SyncTry(0));
        EXPECT_FALSE(sync.SyncTry(0));
    });
    sync.Give();
    sync.Destroy();
    ASSERT_TRUE(sync.Create());
    EXPECT_FALSE(sync.SyncTry(0)) << "a give survived Destroy()";
    EXPECT_FALSE(sync.Create());
    sync.Destroy();
}

// GetInstance() does not take m_tSingletonLock: here it is held all along, and nobody may block on it.
TEST(ASingleton, IsMadeOnFirstUseOnceForAllThreads) {
    EXPECT_EQ(g_Constructed.load(), 0) << "made before anyone asked";
    constexpr int kThreads = 8;
    Signal go;
    std::vector<Counted*> seen(kThreads, nullptr);
    {
        std::lock_guard<std::mutex> guard(Counted::m_tSingletonLock);
        std::list<BoundedThread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] { seen[i] = go.Wait() ? Counted::GetInstance() : nullptr; });
        }
        go.Set();
    }
    EXPECT_EQ(g_Constructed.load(), 1);
    EXPECT_NE(seen[0], nullptr);
    EXPECT_EQ(std::vector<Counted*>(kThreads, seen[0]), seen);
}

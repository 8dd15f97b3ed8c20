// CTAKTimer and the main-loop wrapper under it.
#include <gtest/gtest.h>

#include <tuple>

#include "TAKMainLoop.h"
#include "TAKTimer.h"
#include "TasksTestSupport.h"

namespace {

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
    static gboolean Once(gpointer data) { return Record(data), FALSE; }
};

// Stops the program rather than leaving a timer thread on a freed object behind.
void DestroyTimer(CTAKTimer& timer) {
    MustReturn("CTAKTimer::Destroy()", [&] { timer.Destroy(); });
}

}  // namespace

// A timer that is wrong would fire again within one interval after its last due call; the reference
// timer, with the same interval, fires many more times before the test looks.
TEST(ATimer, RunsTheCallbackExactlyItsRepeatCountOnItsOwnThread) {
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
    ASSERT_TRUE(referenceTimer.Create(5, CTAKTimer::REPEAT_FOREVER, Calls::Record, &reference));

    ASSERT_TRUE(calls[0].count.WaitAtLeast(3));
    ASSERT_TRUE(reference.count.WaitAtLeast(reference.count.Get() + 10));
    for (size_t i = 0; i < cases.size(); ++i) {
        const char* name = std::get<0>(cases[i]);
        SCOPED_TRACE(name);
        EXPECT_EQ(calls[i].count.Get(), std::get<3>(cases[i]));
        EXPECT_FALSE(calls[i].onOwner) << "the callback ran on the owner's thread";
        DestroyTimer(*timers[i]);
    }
    DestroyTimer(referenceTimer);
}

TEST(ATimer, DestroyEndsTheThreadAndTheTimerCanBeCreatedAgain) {
    Calls calls;
    CTAKTimer timer("tak-test-end");
    timer.Destroy();  // not created: only logs
    for (int life = 0; life < 2; ++life) {
        SCOPED_TRACE(life);
        ASSERT_TRUE(timer.Create(2, CTAKTimer::REPEAT_FOREVER, Calls::Record, &calls));
        EXPECT_FALSE(timer.Create(1, 1, Calls::Record, &calls));
        ASSERT_TRUE(calls.count.WaitAtLeast(calls.count.Get() + 3));
        DestroyTimer(timer);  // a timer still created could not be created in the next life
    }
    // Destroyed before its thread may even have entered the loop.
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(timer.Create(1, CTAKTimer::REPEAT_FOREVER, Calls::Record, &calls));
        DestroyTimer(timer);
    }
}

// Sources added from another thread while the loop runs, or is about to, are dispatched on the loop's
// thread, the only other one here. On the default context only attached sources are tried: an invoke there
// may run in place.
TEST(AMainLoop, DispatchesItsSourcesOnTheThreadThatRunsIt) {
    for (bool defaultContext : {false, true}) {
        SCOPED_TRACE(defaultContext);
        CTAKMainLoop loop;
        Calls calls;
        ASSERT_TRUE(loop.Create(defaultContext));
        BoundedThread runner([&] { loop.MainLoopRun(); });
        EXPECT_NE(loop.AddIdleSource(Calls::Once, &calls), nullptr);
        EXPECT_NE(loop.AddTimeoutSource(1, Calls::Once, &calls), nullptr);
        if (!defaultContext) {
            loop.MainContextInvoke(Calls::Once, &calls);
        }
        ASSERT_TRUE(calls.count.WaitAtLeast(defaultContext ? 2 : 3));
        loop.Destory();
        runner.Join("MainLoopRun() after Destory()");
        EXPECT_FALSE(calls.onOwner) << "a source ran on the thread that added it";
    }
}

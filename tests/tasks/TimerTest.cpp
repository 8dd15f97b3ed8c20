// CTAKTimer and the main-loop wrapper under it.
#include <dirent.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <fstream>
#include <string>

#include "TAKMainLoop.h"
#include "TAKTimer.h"
#include "TasksTestSupport.h"

using namespace taskstest;

namespace {

const char kTimerSource[] = "src/Commons/Common/src/TAKTimer";
const char kTaskBaseSource[] = "src/Commons/Common/src/TAKTaskBase";

// What a timer callback saw: how often it ran and on which thread.
struct Fired {
    Counter count;
    std::atomic<bool> onCallerThread{false};
    pthread_t caller = pthread_self();

    static void Callback(void* data) {
        Fired* fired = static_cast<Fired*>(data);
        if (pthread_equal(pthread_self(), fired->caller)) {
            fired->onCallerThread = true;
        }
        fired->count.Add();
    }
};

bool ThreadNamed(const std::string& name) {
    DIR* dir = opendir("/proc/self/task");
    if (dir == nullptr) {
        return false;
    }
    bool found = false;
    while (dirent* entry = readdir(dir)) {
        std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
        std::string value;
        if (std::getline(comm, value) && value == name) {
            found = true;
            break;
        }
    }
    closedir(dir);
    return found;
}

// Stops the program rather than leaving a timer thread on a freed object behind.
void DestroyTimer(CTAKTimer& timer) {
    MustReturn("CTAKTimer::Destroy()", [&] { timer.Destroy(); });
}

}  // namespace

// A timer that is wrong would fire again within one interval after its last due call; the reference
// timer, with the same interval, fires many more times before the test looks.
TEST(ATimer, WithRepeatCountThreeRunsTheCallbackThreeTimesAndStops) {
    Fired three;
    Fired reference;
    CTAKTimer timer("tak-test-three");
    CTAKTimer referenceTimer("tak-test-ref");
    ASSERT_TRUE(timer.Create(5, 3, Fired::Callback, &three));
    ASSERT_TRUE(referenceTimer.Create(5, CTAKTimer::REPEAT_FOREVER, Fired::Callback, &reference));

    ASSERT_TRUE(three.count.WaitAtLeast(3));
    long referenceAtThird = reference.count.Get();
    ASSERT_TRUE(reference.count.WaitAtLeast(referenceAtThird + 10));
    EXPECT_EQ(three.count.Get(), 3);
    EXPECT_FALSE(three.onCallerThread) << "the callback ran on the owner's thread";

    DestroyTimer(timer);
    DestroyTimer(referenceTimer);
}

TEST(ATimer, WithRepeatCountZeroOrAnAllBitsIntervalAttachesNothing) {
    Fired zeroCount;
    Fired allBitsInterval;
    Fired reference;
    CTAKTimer zeroTimer("tak-test-zero");
    CTAKTimer neverTimer("tak-test-never");
    CTAKTimer referenceTimer("tak-test-ref");
    ASSERT_TRUE(zeroTimer.Create(5, 0, Fired::Callback, &zeroCount));
    ASSERT_TRUE(neverTimer.Create(CTAKTimer::INTERVAL_NEVER, 5, Fired::Callback, &allBitsInterval));
    ASSERT_TRUE(referenceTimer.Create(5, CTAKTimer::REPEAT_FOREVER, Fired::Callback, &reference));

    ASSERT_TRUE(reference.count.WaitAtLeast(10));
    EXPECT_EQ(zeroCount.count.Get(), 0);
    EXPECT_EQ(allBitsInterval.count.Get(), 0);
    // Both threads still run their idle loops until Destroy().
    EXPECT_TRUE(zeroTimer.IsCreated());
    EXPECT_TRUE(ThreadNamed("tak-test-zero"));
    EXPECT_TRUE(ThreadNamed("tak-test-never"));

    DestroyTimer(zeroTimer);
    DestroyTimer(neverTimer);
    DestroyTimer(referenceTimer);
}

TEST(ATimer, DestroyEndsTheThreadAndTheTimerCanBeCreatedAgain) {
    Fired fired;
    CTAKTimer timer("tak-test-end");
    for (int life = 0; life < 2; ++life) {
        ASSERT_TRUE(timer.Create(2, CTAKTimer::REPEAT_FOREVER, Fired::Callback, &fired));
        ASSERT_TRUE(fired.count.WaitAtLeast(fired.count.Get() + 3)) << "life " << life;
        EXPECT_TRUE(ThreadNamed("tak-test-end"));

        DestroyTimer(timer);
        EXPECT_FALSE(timer.IsCreated());
        EXPECT_TRUE(WaitUntil([] { return !ThreadNamed("tak-test-end"); })) << "the timer thread lives on";
    }
}

TEST(ATimer, DestroyedRightAfterCreateDoesNotHang) {
    Fired fired;
    CTAKTimer timer("tak-test-quick");
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(timer.Create(1, CTAKTimer::REPEAT_FOREVER, Fired::Callback, &fired));
        DestroyTimer(timer);
    }
    EXPECT_FALSE(timer.IsCreated());
}

TEST(ATimer, CreateTwiceFailsAndDestroyWithoutCreateLogs) {
    Fired fired;
    CTAKTimer timer("tak-test-twice");
    LogMark mark;
    timer.Destroy();
    EXPECT_TRUE(mark.HasError(kTimerSource, "Destroy", "FlagCreate() return false")) << mark.Text();

    ASSERT_TRUE(timer.Create(CTAKTimer::INTERVAL_NEVER, 0, Fired::Callback, &fired));
    EXPECT_FALSE(timer.Create(1, 1, Fired::Callback, &fired));
    EXPECT_TRUE(mark.HasError(kTimerSource, "Create", "FlagCreate() return true")) << mark.Text();
    DestroyTimer(timer);
    EXPECT_EQ(fired.count.Get(), 0);
}

TEST(ATimer, ResetStartsANewCount) {
    Fired fired;
    CTAKTimer timer("tak-test-reset");
    ASSERT_TRUE(timer.Create(2, 2, Fired::Callback, &fired));
    ASSERT_TRUE(fired.count.WaitAtLeast(2));
    timer.Reset(2, 3);
    ASSERT_TRUE(fired.count.WaitAtLeast(5));
    DestroyTimer(timer);
}

namespace {

struct LoopProbe {
    CTAKMainLoop* loop = nullptr;
    Counter calls;
    std::atomic<bool> onLoopThread{true};
    pthread_t loopThread{};

    static gboolean Once(gpointer data) {
        LoopProbe* probe = static_cast<LoopProbe*>(data);
        if (!pthread_equal(pthread_self(), probe->loopThread)) {
            probe->onLoopThread = false;
        }
        probe->calls.Add();
        return FALSE;
    }
};

}  // namespace

TEST(AMainLoop, DispatchesItsSourcesOnTheThreadThatRunsIt) {
    CTAKMainLoop loop;
    LoopProbe probe;
    ASSERT_TRUE(loop.Create(false));
    Signal running;
    BoundedThread runner([&] {
        probe.loopThread = pthread_self();
        running.Set();
        loop.MainLoopRun();
    });
    ASSERT_TRUE(running.Wait());
    // Added from this thread while the loop runs (or is about to) on the other one.
    EXPECT_NE(loop.AddIdleSource(LoopProbe::Once, &probe), nullptr);
    EXPECT_NE(loop.AddTimeoutSource(1, LoopProbe::Once, &probe), nullptr);
    loop.MainContextInvoke(LoopProbe::Once, &probe);
    ASSERT_TRUE(probe.calls.WaitAtLeast(3));
    loop.Destory();
    runner.Join("MainLoopRun() after Destory()");
    EXPECT_TRUE(probe.onLoopThread);
}

TEST(AMainLoop, OnTheDefaultContextRunsAndQuits) {
    CTAKMainLoop loop;
    LoopProbe probe;
    ASSERT_TRUE(loop.Create(true));
    EXPECT_NE(loop.AddIdleSource(LoopProbe::Once, &probe), nullptr);
    BoundedThread runner([&] {
        probe.loopThread = pthread_self();
        loop.MainLoopRun();
    });
    ASSERT_TRUE(probe.calls.WaitAtLeast(1));
    loop.Destory();
    runner.Join("MainLoopRun() on the default context");
    EXPECT_TRUE(probe.onLoopThread);
}

TEST(AMainLoop, NotCreatedAttachesNothingAndDoesNotRun) {
    CTAKMainLoop loop;
    LoopProbe probe;
    EXPECT_EQ(loop.AddIdleSource(LoopProbe::Once, &probe), nullptr);
    EXPECT_EQ(loop.AddTimeoutSource(1, LoopProbe::Once, &probe), nullptr);
    MustReturn("MainLoopRun() of a loop not created", [&] { loop.MainLoopRun(); });
    loop.Destory();
    EXPECT_EQ(probe.calls.Get(), 0);
}

TEST(AMainLoop, CreateTwiceFailsWithTheLogLineAndUnknownSourcesAreIgnored) {
    CTAKMainLoop loop;
    ASSERT_TRUE(loop.Create(false));
    LogMark mark;
    EXPECT_FALSE(loop.Create(false));
    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "Create", "FlagCreate() return true")) << mark.Text();

    GSource* stranger = g_idle_source_new();
    loop.DeleteSource(stranger);
    loop.DeleteSource(nullptr);
    // Ours is the only reference: had the loop dropped one, this would free it twice.
    g_source_unref(stranger);
    loop.Destory();
}

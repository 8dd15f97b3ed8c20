// The task framework: CTAKTaskBase (posting order, the pending queue before t_Create(), synchronous
// sends, EVENT_EXIT, EVENT_RENDEZVOUS, the task's life cycle and its misuse), CTAKTimer
// (the main-loop wrapper under it is met through the timer and the task base), CTAKSync (the counting
// semaphore behind synchronous sends, thread start and thread end) and CTAKSingleton. Nothing here
// sleeps: every wait is bounded.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <future>
#include <list>

#include "TAKSingleton.h"
#include "TAKSync.h"
#include "TAKTaskBase.h"
#include "TAKTimer.h"

namespace {

// Upper bound of every wait; generous so that a loaded two-core machine under a sanitizer passes.
constexpr std::chrono::milliseconds kBound{30000};

// The values added so far, watched by waiters until there are enough; as a Signal, set means one.
struct Counter {
    std::mutex m_Mutex;
    std::condition_variable m_Cond;
    std::vector<long> m_Values;

    void Add(long value = 0) {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Values.push_back(value);
        m_Cond.notify_all();
    }
    std::vector<long> Values() {
        std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Values;
    }
    long Get() { return Values().size(); }
    bool WaitAtLeast(size_t count) {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Cond.wait_for(lock, kBound, [&] { return m_Values.size() >= count; });
    }
    void Set() { Add(); }
    bool Wait() { return WaitAtLeast(1); }
};
using Signal = Counter;

// A thread whose end is awaited within the bound. One that does not end in time still uses the test's
// objects, so there is nothing to recover: the program stops with the reason.
struct BoundedThread {
    std::future<void> m_Done;

    explicit BoundedThread(std::function<void()> fn)
        : m_Done(std::async(std::launch::async, std::move(fn))) {}
    ~BoundedThread() { Join("thread"); }
    void Join(const char* what) {
        if (!m_Done.valid()) {
            return;
        }
        if (m_Done.wait_for(kBound) != std::future_status::ready) {
            fprintf(stderr, "FATAL: %s did not return within %lld ms\n", what, (long long)kBound.count());
            abort();
        }
        m_Done.get();
    }
};

// Runs fn on a thread of its own; the program stops if it does not return within the bound.
inline void MustReturn(const char* what, std::function<void()> fn) {
    BoundedThread(std::move(fn)).Join(what);
}

// Every test event uses this number; the data word tells the events apart.
constexpr unsigned long kTestEvent = 100;

// A task that records the data word of each test event it handles, with hooks set before Create().
struct TestTask : CTAKTaskBase {
    std::function<bool()> onCreate;
    std::function<void(PTEvent*)> onEvent = [](PTEvent*) {};
    std::function<void()> onDestroy = [] {};
    std::function<void()> beforeDestroy = [] {};  // on the owner's thread, as Destroy() begins
    Counter handled;
    pthread_t taskThread{};  // written by t_Create(), before any event

    void Post(long data, bool synchronous = false, unsigned long number = kTestEvent) {
        PTEvent ev{number, this, nullptr, data, 0};
        Send(&ev, synchronous);
    }
    void Destroy() override {
        beforeDestroy();
        CTAKTaskBase::Destroy();
    }
    void ExitAndDestroy() {
        Post(0, false, EVENT_EXIT);
        MustReturn("Destroy() after EVENT_EXIT", [this] { Destroy(); });
    }
    bool t_Create() override {
        taskThread = pthread_self();
        return onCreate ? onCreate() : CTAKTaskBase::t_Create();
    }
    bool t_OnEvent(PTEvent* ev) override {
        if (ev->event < kTestEvent) {
            return CTAKTaskBase::t_OnEvent(ev);
        }
        EXPECT_TRUE(pthread_equal(pthread_self(), taskThread)) << "event handled off the task thread";
        onEvent(ev);
        handled.Add(ev->data);
        return true;
    }
    bool t_Destroy() override {
        EXPECT_TRUE(pthread_equal(pthread_self(), taskThread)) << "t_Destroy() off the task thread";
        onDestroy();
        return CTAKTaskBase::t_Destroy();
    }
};

std::atomic<int> g_Constructed{0};

struct Counted : CTAKSingleton<Counted> {
    Counted() { ++g_Constructed; }
};

// Calls of a timer callback, each recorded as 1 when it ran on the test's own thread, else as 0.
struct Calls : Counter {
    pthread_t owner = pthread_self();
    static void Record(void* data) {
        Calls* calls = static_cast<Calls*>(data);
        calls->Add(pthread_equal(pthread_self(), calls->owner) != 0);
    }
};

}  // namespace

// Every reset creates its task anew. In each life the task handles what it sent itself in t_Create(),
// then what another thread posted before ready. A synchronous send to itself, from t_Create() or from a
// handler, is queued like an asynchronous one: it neither blocks nor runs in place. What is queued
// behind EVENT_EXIT is never handled. Everything queued, also what a handler adds, is handled in one
// idle dispatch: a source of higher priority, attached to the task's context at the first event, runs
// before any later dispatch of the task's idle.
TEST(ATask, HandlesEventsPostedBeforeReadyAfterItsOwnFromTCreateInEveryLife) {
    TestTask task;
    bool probeRan = false;  // task thread only
    long handledAfterProbe = 0;
    task.onEvent = [&](PTEvent* ev) {
        if (ev->data == 1001) {
            probeRan = false;
            g_autoptr(GSource) probe = g_idle_source_new();
            g_source_set_priority(probe, G_PRIORITY_HIGH);
            g_source_set_callback(
                probe, [](gpointer ran) -> gboolean { return *static_cast<bool*>(ran) = true, FALSE; },
                &probeRan, nullptr);
            g_source_attach(probe, g_source_get_context(g_main_current_source()));
        }
        handledAfterProbe += probeRan ? 1 : 0;
        if (ev->data == 100) {
            task.Post(2000, true), task.Post(0, false, CTAKTaskBase::EVENT_EXIT), task.Post(3000);
        }
    };
    std::vector<long> expected;
    for (int life = 0; life < 3; ++life) {
        SCOPED_TRACE(life);
        // Until t_Create() returns, everything from another thread waits in the pending queue.
        Signal othersPosted;
        task.onCreate = [&] {
            EXPECT_TRUE(othersPosted.Wait());
            return task.Post(1001), task.Post(1002, true), true;
        };
        ASSERT_TRUE(task.Create());
        expected.insert(expected.end(), {1001, 1002});
        for (long i = 1; i <= 100; ++i) {
            task.Post(i), expected.push_back(i);
        }
        expected.push_back(2000);
        othersPosted.Set();
        MustReturn("Destroy() after EVENT_EXIT", [&] { task.Destroy(); });
        EXPECT_EQ(task.handled.Values(), expected);
    }
    EXPECT_EQ(handledAfterProbe, 0) << "events came in later loop iterations";
}

// A lost, repeated or reordered event stops its producer's count short. Some events are synchronous:
// when such a send returns, the task has handled it.
TEST(ATask, HandlesEveryEventOfEightProducersOnceAndInEachProducersOrder) {
    constexpr long kPerProducer = 100000;
    constexpr int kProducers = 8;
    std::vector<std::atomic<long>> next(kProducers);  // written only on the task thread
    TestTask task;
    Counter posted;
    // The producers fill the pending queue first, so that the merge at ready is part of the run.
    task.onCreate = [&] { return posted.WaitAtLeast(kProducers); };
    task.onEvent = [&](PTEvent* ev) {
        long producer = ev->data >> 32;
        if (producer < kProducers && next[producer] == (ev->data & 0xffffffffL)) {
            ++next[producer];
        }
    };
    ASSERT_TRUE(task.Create());
    std::atomic<long> syncReturnedEarly{0};
    {
        std::list<BoundedThread> producers;
        for (long p = 0; p < kProducers; ++p) {
            producers.emplace_back([&, p] {
                for (long seq = 0; seq < kPerProducer; ++seq) {
                    // Not before ready: a synchronous send would wait for the task that waits for us.
                    bool synchronous = seq > 1000 && seq % 256 == 0;
                    task.Post((p << 32) | seq, synchronous);
                    syncReturnedEarly += synchronous && next[p] <= seq;
                    seq == 999 ? posted.Add() : void();
                }
            });
        }
    }
    ASSERT_TRUE(task.handled.WaitAtLeast(kProducers * kPerProducer));
    task.ExitAndDestroy();

    EXPECT_TRUE(task.handled.Get() == kProducers * kPerProducer && syncReturnedEarly == 0);
    for (int p = 0; p < kProducers; ++p) {
        EXPECT_EQ(next[p].load(), kPerProducer) << "producer " << p;
    }
}

// Misuse is harmless; events sent while the task is not created are dropped for good. When
// t_Create() fails the thread ends without a loop or t_Destroy(), and the next life starts clean.
TEST(ATask, SurvivesMisuseAndAFailedTCreateAndItsDestroyWaitsForTDestroy) {
    TestTask task;
    task.Destroy(), task.Post(1);
    MustReturn("a synchronous send to a task not created", [&] { task.Post(2, true); });
    PTEvent orphan{kTestEvent, nullptr, nullptr, 0, 0};
    MustReturn("a synchronous send without receiver", [&] { CTAKTaskBase::Send(&orphan, true); });

    Signal releaseCreate;
    task.onCreate = [&] { return !releaseCreate.Wait(); };
    task.onDestroy = [] { ADD_FAILURE() << "t_Destroy() runs only after a loop"; };
    ASSERT_TRUE(task.Create());
    task.Post(3), releaseCreate.Set();  // 3 waits in the pending queue of a life that never gets ready
    MustReturn("Destroy() after t_Create() failed", [&] { task.Destroy(); });
    task.onCreate = nullptr;
    ASSERT_TRUE(!task.IsCreated() && task.Create());
    EXPECT_FALSE(task.Create());
    task.Post(4, true);
    EXPECT_EQ(task.handled.Values(), (std::vector<long>{4})) << "a dropped event came back";

    // A synchronous EVENT_EXIT releases its sender; t_Destroy() then runs on the task thread (checked
    // there), held until the owner calls Destroy(), which returns only after it.
    Signal releaseDestroy;
    std::atomic<bool> destroyFinished{false};
    task.onDestroy = [&] { destroyFinished = releaseDestroy.Wait(); };
    // t_Destroy() is held until Destroy() begins: a Destroy() that does not wait returns first.
    task.beforeDestroy = [&] { releaseDestroy.Set(); };
    MustReturn("a synchronous EVENT_EXIT", [&] { task.Post(0, true, CTAKTaskBase::EVENT_EXIT); });
    MustReturn("Destroy()", [&] {
        task.Destroy();
        EXPECT_TRUE(destroyFinished) << "Destroy() returned while t_Destroy() still ran";
    });
}

// The task gives the first sync and waits for a give on the second: then it frees the array (a leak
// or a double free shows under the sanitizers); without that give it leaves the array, still created,
// to the sender.
TEST(Rendezvous, FreesTheArrayOnlyWhenTheSecondSyncIsGiven) {
    for (bool secondGiven : {true, false}) {
        SCOPED_TRACE(secondGiven);
        TestTask task;
        ASSERT_TRUE(task.Create());
        CTAKSync* syncs = new CTAKSync[2];
        ASSERT_TRUE(syncs[0].Create() && syncs[1].Create());
        task.Post(reinterpret_cast<long>(syncs), false, CTAKTaskBase::EVENT_RENDEZVOUS);
        ASSERT_TRUE(syncs[0].SyncTry(kBound.count()));
        if (secondGiven) {
            syncs[1].Give();  // from here on the array belongs to the task
        }
        task.ExitAndDestroy();
        if (!secondGiven) {
            EXPECT_TRUE(syncs[0].IsCreated() && syncs[1].IsCreated());
            syncs[0].Destroy(), syncs[1].Destroy();
            delete[] syncs;
        }
    }
}

// A timer that is wrong would fire again within one interval after its last due call; the reference
// timer, with the same interval, fires many more times before the test looks. A destroyed timer can be
// made again, also when destroyed before its thread may even have entered the loop.
TEST(ATimer, RunsTheCallbackExactlyItsRepeatCountOnItsOwnThreadAndCanBeMadeAgain) {
    Calls three, reference;
    CTAKTimer timer("tak-test-three"), referenceTimer("tak-test-ref");
    referenceTimer.Destroy();  // not created: only logs
    ASSERT_TRUE(timer.Create(5, 3, Calls::Record, &three) &&
                referenceTimer.Create(5, CTAKTimer::REPEAT_FOREVER, Calls::Record, &reference));
    EXPECT_FALSE(referenceTimer.Create(1, 1, Calls::Record, &reference));
    ASSERT_TRUE(three.WaitAtLeast(3) && reference.WaitAtLeast(reference.Get() + 10));
    EXPECT_EQ(three.Values(), std::vector<long>(3, 0)) << "not three calls, or one on the owner's thread";
    const std::vector<long> referenceCalls = reference.Values();
    EXPECT_EQ(std::count(referenceCalls.begin(), referenceCalls.end(), 1L), 0)
        << "a call on the owner's thread";
    // Bounded: a timer thread left running would call into this test's freed objects.
    MustReturn("CTAKTimer::Destroy()", [&] { timer.Destroy(), referenceTimer.Destroy(); });
    ASSERT_TRUE(referenceTimer.Create(2, CTAKTimer::REPEAT_FOREVER, Calls::Record, &reference) &&
                reference.WaitAtLeast(reference.Get() + 3));
    MustReturn("CTAKTimer::Destroy()", [&] { referenceTimer.Destroy(); });
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(referenceTimer.Create(1, CTAKTimer::REPEAT_FOREVER, Calls::Record, &reference));
        MustReturn("CTAKTimer::Destroy()", [&] { referenceTimer.Destroy(); });
    }
}

TEST(ASync, CountsGivesAndTakesAndSyncTryZeroNeverWaits) {
    CTAKSync sync;
    ASSERT_TRUE(sync.Create());
    MustReturn("three gives, two takes and SyncTry(0)", [&] {
        EXPECT_FALSE(sync.SyncTry(0));
        sync.Give(), sync.Give(), sync.Give(), sync.Take(), sync.Take();
        EXPECT_TRUE(sync.SyncTry(0) && !sync.SyncTry(0));
    });
    sync.Give(), sync.Destroy();
    ASSERT_TRUE(sync.Create());
    EXPECT_FALSE(sync.SyncTry(0) || sync.Create()) << "a give survived Destroy(), or created twice";
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
    EXPECT_TRUE(g_Constructed == 1 && seen[0] != nullptr);
    EXPECT_EQ(std::vector<Counted*>(kThreads, seen[0]), seen);
}

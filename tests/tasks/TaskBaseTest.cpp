// CTAKTaskBase: posting order, the pending queue before t_Create(), synchronous sends, EVENT_EXIT,
// EVENT_RENDEZVOUS, the task's life cycle and the log lines of its failures.
#include <list>

#include "TAKTaskBase.h"
#include "TasksTestSupport.h"

namespace {

// Every test event uses this number; the data word tells the events apart.
constexpr unsigned long kTestEvent = 100;

// A task that records the data word of each test event it handles, with hooks set before Create().
class TestTask : public CTAKTaskBase {
public:
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

protected:
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

}  // namespace

// Every reset creates its task anew. In each life the task handles what it sent itself in t_Create(),
// then what another thread posted before ready. A synchronous send to itself, from t_Create() or from a
// handler, is queued like an asynchronous one: it neither blocks nor runs in place. What is queued
// behind EVENT_EXIT is never handled.
TEST(ATask, HandlesEventsPostedBeforeReadyAfterItsOwnFromTCreateInEveryLife) {
    TestTask task;
    task.onEvent = [&](PTEvent* ev) {
        if (ev->data == 100) {
            task.Post(2000, true);
            task.Post(0, false, CTAKTaskBase::EVENT_EXIT);
            task.Post(3000);
        }
    };
    std::vector<long> expected;
    for (int life = 0; life < 3; ++life) {
        SCOPED_TRACE(life);
        // Until t_Create() returns, everything from another thread waits in the pending queue.
        Signal othersPosted;
        task.onCreate = [&] {
            EXPECT_TRUE(othersPosted.Wait());
            task.Post(1001);
            return task.Post(1002, true), true;
        };
        ASSERT_TRUE(task.Create());
        expected.insert(expected.end(), {1001, 1002});
        for (long i = 1; i <= 100; ++i) {
            task.Post(i);
            expected.push_back(i);
        }
        expected.push_back(2000);
        othersPosted.Set();
        MustReturn("Destroy() after EVENT_EXIT", [&] { task.Destroy(); });
        EXPECT_EQ(task.handled.Values(), expected);
    }
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
                    if (seq == 999) {
                        posted.Add();
                    }
                }
            });
        }
    }
    ASSERT_TRUE(task.handled.WaitAtLeast(kProducers * kPerProducer));
    task.ExitAndDestroy();

    EXPECT_EQ(task.handled.Get(), kProducers * kPerProducer);
    EXPECT_EQ(syncReturnedEarly.load(), 0);
    for (int p = 0; p < kProducers; ++p) {
        EXPECT_EQ(next[p].load(), kPerProducer) << "producer " << p;
    }
}

// The task is held inside event 1 while 2..100 queue up. Everything queued is handled in one idle
// dispatch: a source of higher priority, attached to the task's context during event 1, runs before any
// later dispatch of the task's idle. (That a synchronous sender returns only after its event was handled
// is checked under load by the eight producers.)
TEST(ATask, HandlesEverythingQueuedInOneIdleDispatch) {
    TestTask task;
    Signal firstEntered, releaseFirst, probeRan;
    long handledAfterProbe = 0;  // task thread only until Destroy()
    task.onEvent = [&](PTEvent* ev) {
        if (ev->data == 1) {
            g_autoptr(GSource) probe = g_idle_source_new();
            g_source_set_priority(probe, G_PRIORITY_HIGH);
            g_source_set_callback(
                probe, [](gpointer ran) -> gboolean { return static_cast<Signal*>(ran)->Set(), FALSE; },
                &probeRan, nullptr);
            g_source_attach(probe, g_source_get_context(g_main_current_source()));
            firstEntered.Set();
            EXPECT_TRUE(releaseFirst.Wait());
        }
        handledAfterProbe += probeRan.Get() > 0 ? 1 : 0;
    };
    ASSERT_TRUE(task.Create());
    task.Post(1);
    ASSERT_TRUE(firstEntered.Wait());
    for (long i = 2; i <= 100; ++i) {
        task.Post(i);
    }
    releaseFirst.Set();
    ASSERT_TRUE(task.handled.WaitAtLeast(100) && probeRan.Wait());
    task.ExitAndDestroy();
    EXPECT_EQ(handledAfterProbe, 0) << "events came in later loop iterations";
}

// Misuse is logged and harmless; events sent while the task is not created are dropped for good. When
// t_Create() fails the thread ends without a loop or t_Destroy(), and the next life starts clean.
TEST(ATask, SurvivesMisuseAndAFailedTCreateAndItsDestroyWaitsForTDestroy) {
    TestTask task;
    LogMark before;
    task.Destroy();
    task.Post(1);
    MustReturn("a synchronous send to a task not created", [&] { task.Post(2, true); });
    PTEvent orphan{kTestEvent, nullptr, nullptr, 0, 0};
    MustReturn("a synchronous send without receiver", [&] { CTAKTaskBase::Send(&orphan, true); });
    EXPECT_TRUE(HasError(before, "Destroy", "FlagCreate() return false")) << before.Text();
    EXPECT_TRUE(HasError(before, "Send", "receiver is not created")) << before.Text();
    EXPECT_TRUE(HasError(before, "Send", "receiver is NULL")) << before.Text();

    Signal releaseCreate;
    task.onCreate = [&] { return !releaseCreate.Wait(); };
    task.onDestroy = [] { ADD_FAILURE() << "t_Destroy() runs only after a loop"; };
    ASSERT_TRUE(task.Create());
    task.Post(3);  // waits in the pending queue of a life that never gets ready
    releaseCreate.Set();
    MustReturn("Destroy() after t_Create() failed", [&] { task.Destroy(); });
    EXPECT_FALSE(task.IsCreated());

    task.onCreate = nullptr;
    ASSERT_TRUE(task.Create());
    LogMark created;
    EXPECT_FALSE(task.Create());
    EXPECT_TRUE(HasError(created, "Create", "FlagCreate() return true")) << created.Text();
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
// or a double free shows under the sanitizers); without that give it logs and leaves the array, still
// created, to the sender.
TEST(Rendezvous, FreesTheArrayOnlyWhenTheSecondSyncIsGiven) {
    for (bool secondGiven : {true, false}) {
        SCOPED_TRACE(secondGiven);
        TestTask task;
        ASSERT_TRUE(task.Create());
        CTAKSync* syncs = new CTAKSync[2];
        ASSERT_TRUE(syncs[0].Create() && syncs[1].Create());
        LogMark mark;
        task.Post(reinterpret_cast<long>(syncs), false, CTAKTaskBase::EVENT_RENDEZVOUS);
        ASSERT_TRUE(syncs[0].SyncTry(kBound.count()));
        if (secondGiven) {
            syncs[1].Give();  // from here on the array belongs to the task
        }
        task.ExitAndDestroy();
        EXPECT_EQ(HasError(mark, "t_OnEvent", "ret return false"), !secondGiven) << mark.Text();
        if (!secondGiven) {
            EXPECT_TRUE(syncs[0].IsCreated() && syncs[1].IsCreated());
            syncs[0].Destroy();
            syncs[1].Destroy();
            delete[] syncs;
        }
    }
}

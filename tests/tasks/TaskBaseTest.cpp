// CTAKTaskBase: posting order, the pending queue before t_Create(), synchronous sends, EVENT_EXIT,
// EVENT_RENDEZVOUS, the task's life cycle and the log lines of its failures.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

#include "TAKTaskBase.h"
#include "TasksTestSupport.h"

using namespace taskstest;

namespace {

const char kTaskBaseSource[] = "src/Commons/Common/src/TAKTaskBase";

// Every test event uses this number; the data word tells the events apart.
constexpr unsigned long kTestEvent = 100;

// A task that records the data word of each test event it handles, on its own thread, with hooks that
// the tests set before Create().
class TestTask : public CTAKTaskBase {
public:
    std::function<bool()> onCreate;
    std::function<void(PTEvent*)> onEvent;
    std::function<void()> onDestroy;

    Counter handledCount;
    Signal destroyed;
    std::atomic<bool> createRan{false};
    std::atomic<bool> destroyRan{false};

    void Post(long data, bool synchronous = false, unsigned long number = kTestEvent) {
        PTEvent ev{number, this, nullptr, data, 0};
        Send(&ev, synchronous);
    }
    void PostExit() {
        PTEvent ev{EVENT_EXIT, this, nullptr, 0, 0};
        Send(&ev, false);
    }
    std::vector<long> Handled() {
        std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Handled;
    }
    std::vector<std::pair<unsigned long, bool>> BaseResults() {
        std::lock_guard<std::mutex> guard(m_Mutex);
        return m_BaseResults;
    }
    bool OnTaskThread(pthread_t other) { return pthread_equal(other, m_TaskThread) != 0; }
    pthread_t TaskThread() { return m_TaskThread; }
    pthread_t DestroyThread() { return m_DestroyThread; }

protected:
    bool t_Create() override {
        m_TaskThread = pthread_self();
        createRan = true;
        return onCreate ? onCreate() : CTAKTaskBase::t_Create();
    }
    bool t_OnEvent(PTEvent* ev) override {
        bool handledByBase = CTAKTaskBase::t_OnEvent(ev);
        if (ev->event < kTestEvent) {
            std::lock_guard<std::mutex> guard(m_Mutex);
            m_BaseResults.emplace_back(ev->event, handledByBase);
            return handledByBase;
        }
        EXPECT_TRUE(pthread_equal(pthread_self(), m_TaskThread)) << "event handled off the task thread";
        if (onEvent) {
            onEvent(ev);
        }
        {
            std::lock_guard<std::mutex> guard(m_Mutex);
            m_Handled.push_back(ev->data);
        }
        handledCount.Add();
        return true;
    }
    bool t_Destroy() override {
        m_DestroyThread = pthread_self();
        if (onDestroy) {
            onDestroy();
        }
        destroyRan = true;
        destroyed.Set();
        return CTAKTaskBase::t_Destroy();
    }

private:
    std::mutex m_Mutex;
    std::vector<long> m_Handled;
    std::vector<std::pair<unsigned long, bool>> m_BaseResults;
    pthread_t m_TaskThread{};
    pthread_t m_DestroyThread{};
};

void ExitAndDestroy(TestTask& task) {
    task.PostExit();
    MustReturn("Destroy() after EVENT_EXIT", [&] { task.Destroy(); });
}

std::vector<long> Range(long first, long last) {
    std::vector<long> values;
    for (long v = first; v <= last; ++v) {
        values.push_back(v);
    }
    return values;
}

std::vector<long> Concat(std::vector<long> a, const std::vector<long>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Runs one life of `task`: t_Create() waits until the test has posted 1..100 from its own thread, then
// posts 1001 and 1002 to itself (the second one synchronously, which must not block). Returns what the
// task handled, in order.
std::vector<long> RunOneLifeWithEventsBeforeReady(TestTask& task) {
    Signal createEntered;
    Signal othersPosted;
    long handledBefore = task.handledCount.Get();
    task.onCreate = [&] {
        createEntered.Set();
        EXPECT_TRUE(othersPosted.Wait());
        task.Post(1001);
        task.Post(1002, true);
        return true;
    };
    EXPECT_TRUE(task.Create());
    EXPECT_TRUE(createEntered.Wait());
    for (long i = 1; i <= 100; ++i) {
        task.Post(i);
    }
    othersPosted.Set();
    EXPECT_TRUE(task.handledCount.WaitAtLeast(handledBefore + 102));
    std::vector<long> handled = task.Handled();
    ExitAndDestroy(task);
    return handled;
}

}  // namespace

TEST(ATask, HandlesEventsPostedBeforeReadyAfterItsOwnFromTCreateInOrder) {
    TestTask task;
    std::vector<long> handled = RunOneLifeWithEventsBeforeReady(task);
    EXPECT_EQ(handled, Concat({1001, 1002}, Range(1, 100)));
}

TEST(ATask, WorksAgainAfterExitDestroyAndCreate) {
    TestTask task;
    std::vector<long> expected;
    for (int life = 0; life < 3; ++life) {
        expected = Concat(expected, Concat({1001, 1002}, Range(1, 100)));
        EXPECT_EQ(RunOneLifeWithEventsBeforeReady(task), expected) << "life " << life;
        EXPECT_FALSE(task.IsCreated());
    }
}

TEST(ATask, HandlesEveryEventOfEightProducersOnceAndInEachProducersOrder) {
    // The full count runs in a few seconds even under ThreadSanitizer, so it is the same in every build.
    constexpr long kPerProducer = 100000;
    constexpr int kProducers = 8;
    // Seen only on the task thread while it runs; read by the test after the last event.
    std::vector<long> nextSeq(kProducers, 0);
    long misordered = 0;
    TestTask task;
    Signal someBeforeReady;
    task.onCreate = [&] {
        // Lets the producers fill the pending queue first, so that the merge at ready is part of the run.
        EXPECT_TRUE(someBeforeReady.Wait());
        return true;
    };
    task.onEvent = [&](PTEvent* ev) {
        long producer = ev->data >> 32;
        long seq = ev->data & 0xffffffffL;
        if (producer < 0 || producer >= kProducers || nextSeq[producer] != seq) {
            ++misordered;
            return;
        }
        ++nextSeq[producer];
    };
    ASSERT_TRUE(task.Create());

    Counter posted;
    std::vector<std::unique_ptr<BoundedThread>> producers;
    for (long p = 0; p < kProducers; ++p) {
        producers.push_back(std::make_unique<BoundedThread>([&, p] {
            for (long seq = 0; seq < kPerProducer; ++seq) {
                task.Post((p << 32) | seq);
                if (seq == 999) {
                    posted.Add();
                }
            }
        }));
    }
    ASSERT_TRUE(posted.WaitAtLeast(kProducers));
    someBeforeReady.Set();
    for (auto& producer : producers) {
        producer->Join("a producer");
    }
    ASSERT_TRUE(task.handledCount.WaitAtLeast(kProducers * kPerProducer));
    ExitAndDestroy(task);

    EXPECT_EQ(task.handledCount.Get(), kProducers * kPerProducer);
    EXPECT_EQ(misordered, 0);
    for (int p = 0; p < kProducers; ++p) {
        EXPECT_EQ(nextSeq[p], kPerProducer) << "producer " << p;
    }
}

namespace {

// Counts the iterations of the main loop it is attached to: GLib prepares every attached source once
// per iteration. It never becomes ready, so it never dispatches.
struct IterationCounter {
    GSource source;
    long iterations;

    static gboolean Prepare(GSource* source, gint* timeout) {
        ++reinterpret_cast<IterationCounter*>(source)->iterations;
        *timeout = -1;
        return FALSE;
    }
    static gboolean Dispatch(GSource*, GSourceFunc, gpointer) { return TRUE; }

    // Attaches a counter to the context whose source is being dispatched on the calling thread.
    static IterationCounter* AttachToCurrentLoop() {
        static GSourceFuncs funcs = {Prepare, nullptr, Dispatch, nullptr, nullptr, nullptr};
        GSource* source = g_source_new(&funcs, sizeof(IterationCounter));
        reinterpret_cast<IterationCounter*>(source)->iterations = 0;
        g_source_attach(source, g_source_get_context(g_main_current_source()));
        return reinterpret_cast<IterationCounter*>(source);
    }
    void Detach() {
        g_source_destroy(&source);
        g_source_unref(&source);
    }
};

}  // namespace

TEST(ATask, HandlesEverythingQueuedInOneIdleDispatch) {
    TestTask task;
    Signal firstEntered;
    Signal releaseFirst;
    IterationCounter* counter = nullptr;
    std::vector<long> iterationOfEvent;  // task thread only until the last event was handled
    task.onEvent = [&](PTEvent* ev) {
        if (ev->data == 1) {
            counter = IterationCounter::AttachToCurrentLoop();
            firstEntered.Set();
            EXPECT_TRUE(releaseFirst.Wait());
        }
        iterationOfEvent.push_back(counter->iterations);
        if (ev->data == 100) {
            counter->Detach();
        }
    };
    ASSERT_TRUE(task.Create());
    task.Post(1);
    ASSERT_TRUE(firstEntered.Wait());
    for (long i = 2; i <= 100; ++i) {
        task.Post(i);
    }
    releaseFirst.Set();
    ASSERT_TRUE(task.handledCount.WaitAtLeast(100));
    ExitAndDestroy(task);

    ASSERT_EQ(iterationOfEvent.size(), 100u);
    for (size_t i = 0; i < iterationOfEvent.size(); ++i) {
        EXPECT_EQ(iterationOfEvent[i], iterationOfEvent[0])
            << "event " << i + 1 << " came in a later loop iteration";
    }
}

TEST(SynchronousSend, BlocksTheSenderUntilTheHandlerHasRun) {
    TestTask task;
    Signal firstEntered;
    Signal releaseFirst;
    std::atomic<bool> secondHandled{false};
    std::atomic<bool> secondCarriedSync{false};
    task.onEvent = [&](PTEvent* ev) {
        if (ev->data == 1) {
            firstEntered.Set();
            EXPECT_TRUE(releaseFirst.Wait());
        } else if (ev->data == 2) {
            secondCarriedSync = ev->sync != nullptr;
            secondHandled = true;
        }
    };
    ASSERT_TRUE(task.Create());
    // The task is held inside event 1, so event 2 cannot be handled before the test releases it.
    task.Post(1);
    ASSERT_TRUE(firstEntered.Wait());

    Signal aboutToSend;
    bool handledWhenSendReturned = false;
    BoundedThread sender([&] {
        aboutToSend.Set();
        task.Post(2, true);
        handledWhenSendReturned = secondHandled.load();
    });
    ASSERT_TRUE(aboutToSend.Wait());
    releaseFirst.Set();
    sender.Join("the synchronous sender");

    EXPECT_TRUE(handledWhenSendReturned) << "Send() returned before the task handled the event";
    EXPECT_TRUE(secondCarriedSync);
    ExitAndDestroy(task);
}

TEST(SynchronousSend, ManySendersEachSeeTheirOwnEventHandled) {
    constexpr int kSenders = 4;
    constexpr int kPerSender = 500;
    TestTask task;
    std::mutex doneMutex;
    std::vector<char> done(kSenders * kPerSender, 0);
    task.onEvent = [&](PTEvent* ev) {
        std::lock_guard<std::mutex> guard(doneMutex);
        done[ev->data] = 1;
    };
    ASSERT_TRUE(task.Create());
    std::atomic<int> notDoneOnReturn{0};
    {
        std::vector<std::unique_ptr<BoundedThread>> senders;
        for (int s = 0; s < kSenders; ++s) {
            senders.push_back(std::make_unique<BoundedThread>([&, s] {
                for (int i = 0; i < kPerSender; ++i) {
                    long id = s * kPerSender + i;
                    task.Post(id, true);
                    std::lock_guard<std::mutex> guard(doneMutex);
                    notDoneOnReturn += done[id] ? 0 : 1;
                }
            }));
        }
        for (auto& sender : senders) {
            sender->Join("a synchronous sender");
        }
    }
    EXPECT_EQ(notDoneOnReturn.load(), 0);
    EXPECT_EQ(task.handledCount.Get(), kSenders * kPerSender);
    ExitAndDestroy(task);
}

TEST(SynchronousSend, ToItselfIsPostedWithoutWaiting) {
    TestTask task;
    std::atomic<bool> secondHandledWhenSendReturned{true};
    std::atomic<bool> secondCarriedSync{true};
    task.onEvent = [&](PTEvent* ev) {
        if (ev->data == 1) {
            // Waiting here would deadlock: the task is the only one that can handle event 2.
            task.Post(2, true);
            secondHandledWhenSendReturned = task.handledCount.Get() > 1;
        } else if (ev->data == 2) {
            secondCarriedSync = ev->sync != nullptr;
        }
    };
    ASSERT_TRUE(task.Create());
    task.Post(1);
    ASSERT_TRUE(task.handledCount.WaitAtLeast(2));

    EXPECT_FALSE(secondHandledWhenSendReturned) << "the send to itself ran the event in place";
    EXPECT_FALSE(secondCarriedSync) << "a send to itself must not carry a sync";
    EXPECT_EQ(task.Handled(), (std::vector<long>{1, 2}));
    ExitAndDestroy(task);
}

TEST(ExitEvent, LeavesEventsQueuedBehindItUnhandled) {
    TestTask task;
    Signal firstEntered;
    Signal releaseFirst;
    task.onEvent = [&](PTEvent* ev) {
        if (ev->data == 1) {
            firstEntered.Set();
            EXPECT_TRUE(releaseFirst.Wait());
        }
    };
    ASSERT_TRUE(task.Create());
    task.Post(1);
    ASSERT_TRUE(firstEntered.Wait());
    task.PostExit();
    task.Post(2);
    task.Post(3);
    releaseFirst.Set();

    ASSERT_TRUE(task.destroyed.Wait());
    MustReturn("Destroy() after EVENT_EXIT", [&] { task.Destroy(); });
    EXPECT_EQ(task.Handled(), (std::vector<long>{1}));
    EXPECT_EQ(task.BaseResults(),
              (std::vector<std::pair<unsigned long, bool>>{{CTAKTaskBase::EVENT_EXIT, true}}));
}

TEST(ExitEvent, SentSynchronouslyReleasesTheSender) {
    TestTask task;
    ASSERT_TRUE(task.Create());
    MustReturn("a synchronous EVENT_EXIT", [&] {
        PTEvent ev{CTAKTaskBase::EVENT_EXIT, &task, nullptr, 0, 0};
        CTAKTaskBase::Send(&ev, true);
    });
    MustReturn("Destroy()", [&] { task.Destroy(); });
    EXPECT_TRUE(task.destroyRan);
}

TEST(Destroy, ReturnsOnlyAfterTDestroyRanOnTheTaskThread) {
    TestTask task;
    Signal destroyEntered;
    Signal releaseDestroy;
    std::atomic<bool> destroyFinished{false};
    task.onDestroy = [&] {
        destroyEntered.Set();
        EXPECT_TRUE(releaseDestroy.Wait());
        destroyFinished = true;
    };
    ASSERT_TRUE(task.Create());
    task.Post(1);
    task.PostExit();
    ASSERT_TRUE(destroyEntered.Wait());

    Signal aboutToDestroy;
    bool finishedWhenDestroyReturned = false;
    BoundedThread owner([&] {
        aboutToDestroy.Set();
        task.Destroy();
        finishedWhenDestroyReturned = destroyFinished.load();
    });
    ASSERT_TRUE(aboutToDestroy.Wait());
    releaseDestroy.Set();
    owner.Join("Destroy()");

    EXPECT_TRUE(finishedWhenDestroyReturned) << "Destroy() returned while t_Destroy() still ran";
    EXPECT_TRUE(pthread_equal(task.DestroyThread(), task.TaskThread()));
    EXPECT_FALSE(pthread_equal(task.DestroyThread(), pthread_self()));
    EXPECT_FALSE(task.IsCreated());
}

TEST(TCreateFailure, EndsTheThreadWithoutALoopAndDestroyReturns) {
    TestTask task;
    Signal releaseCreate;
    task.onCreate = [&] {
        EXPECT_TRUE(releaseCreate.Wait());
        return false;
    };
    ASSERT_TRUE(task.Create());
    task.Post(1);
    releaseCreate.Set();
    MustReturn("Destroy() after t_Create() failed", [&] { task.Destroy(); });

    EXPECT_TRUE(task.createRan);
    EXPECT_FALSE(task.destroyRan) << "t_Destroy() runs only after a loop";
    EXPECT_TRUE(task.Handled().empty());
    EXPECT_FALSE(task.IsCreated());

    // The failed life leaves nothing behind: the next one starts clean.
    task.onCreate = nullptr;
    ASSERT_TRUE(task.Create());
    task.Post(2, true);
    EXPECT_EQ(task.Handled(), (std::vector<long>{2}));
    ExitAndDestroy(task);
}

TEST(Create, TwiceReturnsFalseWithTheLogLine) {
    TestTask task;
    ASSERT_TRUE(task.Create());
    LogMark mark;
    EXPECT_FALSE(task.Create());
    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "Create", "FlagCreate() return true")) << mark.Text();
    task.Post(1, true);
    EXPECT_EQ(task.Handled(), (std::vector<long>{1}));
    ExitAndDestroy(task);
}

TEST(Send, ToATaskNotCreatedDropsTheEventWithTheLogLine) {
    TestTask task;
    LogMark mark;
    task.Post(1);
    MustReturn("a synchronous send to a task not created", [&] { task.Post(2, true); });
    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "Send", "receiver is not created")) << mark.Text();

    ASSERT_TRUE(task.Create());
    task.Post(3, true);
    EXPECT_EQ(task.Handled(), (std::vector<long>{3})) << "a dropped event came back";
    ExitAndDestroy(task);

    LogMark afterDestroy;
    task.Post(4);
    EXPECT_TRUE(afterDestroy.HasError(kTaskBaseSource, "Send", "receiver is not created"));
}

TEST(Send, WithoutAReceiverLogsAndReturns) {
    LogMark mark;
    PTEvent ev{kTestEvent, nullptr, nullptr, 0, 0};
    MustReturn("a synchronous send without receiver", [&] { CTAKTaskBase::Send(&ev, true); });
    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "Send", "receiver is NULL")) << mark.Text();
}

TEST(Destroy, OfATaskNotCreatedLogs) {
    TestTask task;
    LogMark mark;
    task.Destroy();
    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "Destroy", "FlagCreate() return false")) << mark.Text();
}

TEST(Rendezvous, GivesTheFirstWaitsForTheSecondAndFreesBoth) {
    TestTask task;
    ASSERT_TRUE(task.Create());
    CTAKSync* syncs = new CTAKSync[2];
    ASSERT_TRUE(syncs[0].Create());
    ASSERT_TRUE(syncs[1].Create());
    task.Post(reinterpret_cast<long>(syncs), false, CTAKTaskBase::EVENT_RENDEZVOUS);
    task.Post(1);

    ASSERT_TRUE(syncs[0].SyncTry(kBound.count()));
    // The task now waits for this give; from here on the array belongs to the task, which frees it.
    syncs[1].Give();
    ASSERT_TRUE(task.handledCount.WaitAtLeast(1));

    EXPECT_EQ(task.BaseResults(),
              (std::vector<std::pair<unsigned long, bool>>{{CTAKTaskBase::EVENT_RENDEZVOUS, true}}));
    ExitAndDestroy(task);
}

TEST(Rendezvous, WithoutTheSecondGiveLogsAndLeavesTheArrayToTheSender) {
    TestTask task;
    ASSERT_TRUE(task.Create());
    CTAKSync* syncs = new CTAKSync[2];
    ASSERT_TRUE(syncs[0].Create());
    ASSERT_TRUE(syncs[1].Create());
    LogMark mark;
    task.Post(reinterpret_cast<long>(syncs), false, CTAKTaskBase::EVENT_RENDEZVOUS);
    task.Post(1);

    ASSERT_TRUE(syncs[0].SyncTry(kBound.count()));
    ASSERT_TRUE(task.handledCount.WaitAtLeast(1));
    EXPECT_EQ(task.BaseResults(),
              (std::vector<std::pair<unsigned long, bool>>{{CTAKTaskBase::EVENT_RENDEZVOUS, false}}));
    EXPECT_TRUE(mark.HasError(kTaskBaseSource, "t_OnEvent", "ret return false")) << mark.Text();
    // Still whole and still created: the sender cleans up.
    EXPECT_TRUE(syncs[0].IsCreated());
    EXPECT_TRUE(syncs[1].IsCreated());
    syncs[0].Destroy();
    syncs[1].Destroy();
    delete[] syncs;
    ExitAndDestroy(task);
}

// Task framework against plain baselines written here, in the same run:
// - asynchronous throughput: 1,000,000 events posted from one thread to a task, against a std::deque +
//   std::mutex + std::condition_variable queue whose consumer drains everything queued per wake-up;
// - synchronous round trip (Send with waiting) against a condition-variable ping-pong of two threads;
// - events handled per idle dispatch while the stream runs.
// The ratios are checked against their targets after the run.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "BenchTarget.h"
#include "TAKTaskBase.h"

namespace {

constexpr long kEvents = 1000000;
constexpr unsigned long kBenchEvent = 100;

// Tells a waiting producer when the consumer has handled a given number of events.
class Completion {
public:
    void Expect(long count) {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Handled = 0;
        m_Target = count;
        m_Done = false;
    }
    // Consumer side, once per event; cheap until the last one.
    void OneHandled() {
        if (++m_Handled != m_Target) {
            return;
        }
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Done = true;
        m_Cond.notify_all();
    }
    void Wait() {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Cond.wait(lock, [this] { return m_Done; });
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Cond;
    bool m_Done = false;
    // Consumer thread only between Expect() and Wait().
    long m_Handled = 0;
    long m_Target = 0;
};

// Counts events and the idle dispatches that carried them: each dispatch is a new idle source with an id
// of its own.
class CountingTask : public CTAKTaskBase {
public:
    Completion completion;
    long dispatches = 0;
    long handled = 0;

protected:
    bool t_OnEvent(PTEvent* ev) override {
        if (CTAKTaskBase::t_OnEvent(ev)) {
            return true;
        }
        guint source = g_source_get_id(g_main_current_source());
        if (source != m_LastSource) {
            m_LastSource = source;
            ++dispatches;
        }
        ++handled;
        completion.OneHandled();
        return true;
    }

private:
    guint m_LastSource = 0;
};

void StopTask(CTAKTaskBase& task) {
    PTEvent ev{CTAKTaskBase::EVENT_EXIT, &task, nullptr, 0, 0};
    CTAKTaskBase::Send(&ev, false);
    task.Destroy();
}

void BM_TaskAsyncThroughput(benchmark::State& state) {
    CountingTask task;
    if (!task.Create()) {
        state.SkipWithError("task not created");
        return;
    }
    for (auto _ : state) {
        task.completion.Expect(kEvents);
        for (long i = 0; i < kEvents; ++i) {
            PTEvent ev{kBenchEvent, &task, nullptr, i, 0};
            CTAKTaskBase::Send(&ev, false);
        }
        task.completion.Wait();
    }
    StopTask(task);
    state.SetItemsProcessed(state.iterations() * kEvents);
    state.counters["events_per_dispatch"] =
        task.dispatches > 0 ? static_cast<double>(task.handled) / static_cast<double>(task.dispatches) : 0;
}
BENCHMARK(BM_TaskAsyncThroughput)->Unit(benchmark::kMillisecond)->UseRealTime();

// The baseline: one lock per post, the consumer swaps the whole queue out per wake-up.
class BaselineQueue {
public:
    Completion completion;

    BaselineQueue() : m_Consumer([this] { m_Run(); }) {}
    ~BaselineQueue() {
        {
            std::lock_guard<std::mutex> guard(m_Mutex);
            m_bStop = true;
        }
        m_Cond.notify_one();
        m_Consumer.join();
    }
    void Post(const PTEvent& ev) {
        {
            std::lock_guard<std::mutex> guard(m_Mutex);
            m_Queue.push_back(ev);
        }
        m_Cond.notify_one();
    }

private:
    void m_Run() {
        std::deque<PTEvent> batch;
        for (;;) {
            {
                std::unique_lock<std::mutex> lock(m_Mutex);
                m_Cond.wait(lock, [this] { return !m_Queue.empty() || m_bStop; });
                if (m_Queue.empty()) {
                    return;
                }
                batch.swap(m_Queue);
            }
            for (const PTEvent& ev : batch) {
                benchmark::DoNotOptimize(ev.data);
                completion.OneHandled();
            }
            batch.clear();
        }
    }

    std::mutex m_Mutex;
    std::condition_variable m_Cond;
    std::deque<PTEvent> m_Queue;
    bool m_bStop = false;
    std::thread m_Consumer;
};

void BM_BaselineAsyncThroughput(benchmark::State& state) {
    BaselineQueue queue;
    for (auto _ : state) {
        queue.completion.Expect(kEvents);
        for (long i = 0; i < kEvents; ++i) {
            queue.Post(PTEvent{kBenchEvent, nullptr, nullptr, i, 0});
        }
        queue.completion.Wait();
    }
    state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(BM_BaselineAsyncThroughput)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_TaskSyncRoundTrip(benchmark::State& state) {
    CountingTask task;
    if (!task.Create()) {
        state.SkipWithError("task not created");
        return;
    }
    task.completion.Expect(-1);
    for (auto _ : state) {
        PTEvent ev{kBenchEvent, &task, nullptr, 0, 0};
        CTAKTaskBase::Send(&ev, true);
    }
    StopTask(task);
}
BENCHMARK(BM_TaskSyncRoundTrip)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_BaselinePingPong(benchmark::State& state) {
    std::mutex mutex;
    std::condition_variable cond;
    bool request = false;
    bool stop = false;
    std::thread responder([&] {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            cond.wait(lock, [&] { return request || stop; });
            if (stop) {
                return;
            }
            request = false;
            cond.notify_all();
        }
    });
    for (auto _ : state) {
        std::unique_lock<std::mutex> lock(mutex);
        request = true;
        cond.notify_all();
        cond.wait(lock, [&] { return !request; });
    }
    {
        std::lock_guard<std::mutex> guard(mutex);
        stop = true;
    }
    cond.notify_all();
    responder.join();
}
BENCHMARK(BM_BaselinePingPong)->Unit(benchmark::kMicrosecond)->UseRealTime();

// Shows the runs as usual and keeps, per benchmark, the seconds per iteration and the counters of the
// median of its repetitions (or of its only run), for the ratio lines.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    struct Figure {
        double secondsPerIteration = 0;
        double eventsPerDispatch = 0;
        bool fromMedian = false;
    };

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.error_occurred || (run.run_type == Run::RT_Aggregate && !median)) {
                continue;
            }
            Figure& figure = m_Figures[run.run_name.function_name];
            if (figure.fromMedian && !median) {
                continue;
            }
            figure.secondsPerIteration =
                run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
            auto counter = run.counters.find("events_per_dispatch");
            figure.eventsPerDispatch = counter != run.counters.end() ? counter->second.value : 0;
            figure.fromMedian = median;
        }
    }

    void PrintRatios(bench::Targets& targets) const {
        const Figure* task = Find("BM_TaskAsyncThroughput");
        const Figure* queue = Find("BM_BaselineAsyncThroughput");
        double throughputRatio = NAN;
        if (task != nullptr && queue != nullptr) {
            double taskRate = kEvents / task->secondsPerIteration;
            double queueRate = kEvents / queue->secondsPerIteration;
            throughputRatio = taskRate / queueRate;
            printf("async throughput: task %.2f M events/s, baseline %.2f M events/s\n", taskRate / 1e6,
                   queueRate / 1e6);
        }
        if (task != nullptr) {
            printf("events handled per idle dispatch under load: %.0f\n", task->eventsPerDispatch);
        }
        const Figure* send = Find("BM_TaskSyncRoundTrip");
        const Figure* pingPong = Find("BM_BaselinePingPong");
        double roundTripRatio = NAN;
        if (send != nullptr && pingPong != nullptr) {
            roundTripRatio = send->secondsPerIteration / pingPong->secondsPerIteration;
            printf("sync round trip: task %.2f us, baseline %.2f us\n", send->secondsPerIteration * 1e6,
                   pingPong->secondsPerIteration * 1e6);
        }
        targets.Check("task events per second / mutex queue", throughputRatio, bench::Bound::AtLeast, 0.5,
                      "x");
        targets.Check("task synchronous round trip / ping-pong", roundTripRatio, bench::Bound::AtMost, 1.5,
                      "x");
    }

private:
    const Figure* Find(const std::string& name) const {
        auto it = m_Figures.find(name);
        return it != m_Figures.end() && it->second.secondsPerIteration > 0 ? &it->second : nullptr;
    }

    std::map<std::string, Figure> m_Figures;
};

}  // namespace

// By default every benchmark runs five times, interleaved with the others, and the ratios use the
// medians: the machines are shared, and a burst of load on one run should not decide a ratio.
int main(int argc, char** argv) {
    std::vector<char*> args(argv, argv + argc);
    static char repetitions[] = "--benchmark_repetitions=5";
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    static char aggregatesOnly[] = "--benchmark_display_aggregates_only=true";
    // Given first, so that the same flags on the command line win.
    args.insert(args.begin() + 1, {repetitions, interleave, aggregatesOnly});
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    bench::Targets targets;
    reporter.PrintRatios(targets);
    return targets.AllMet() ? 0 : 1;
}

// The plan of an apps reset on a root of 10,000 apps (`orvix-host init --apps 10000`): in each iteration,
// interleaved, the baseline CAppDBInfo::GetAllAppList alone, the whole plan printed as a table, and the
// same plan as JSON (for information). The plan reads the list once, like the baseline, and adds the
// settings, the preinstalled lists, the decisions, their log lines and the directory counts. Targets:
// under 1 s, and under 1.2 times the baseline measured in the same run. Both the wall time and the
// thread's CPU time are taken: on a machine busy with other work the wall times carry that work's noise,
// the CPU times do not. The platform log goes to /dev/null, so its formatting is part of the cost, as on
// the device.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <time.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <orvix_host.h>

#include "AppDBInfo.h"
#include "BenchTarget.h"
#include "PlanPrinter.h"
#include "PlanRequest.h"
#include "ResetPlan.h"
#include "TAKDir.h"

namespace {

constexpr int kApps = 10000;
constexpr double kTargetMs = 1000;
constexpr double kTargetRatio = 1.2;

using Clock = std::chrono::steady_clock;

// The calling thread's CPU time.
struct CpuClock {
    using duration = std::chrono::nanoseconds;
    using time_point = std::chrono::time_point<CpuClock>;
    static time_point now() {
        timespec now{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return time_point(duration(now.tv_sec * 1000000000LL + now.tv_nsec));
    }
};

// Wall and CPU time of one stage, summed over the iterations.
struct Stage {
    Clock::duration wall{};
    CpuClock::duration cpu{};
};

struct Figures {
    double baselineMs = 0;
    double planMs = 0;
    double jsonMs = 0;
    double baselineCpuMs = 0;
    double planCpuMs = 0;
};
Figures g_Figures;

double Ms(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

template <typename Fn>
void Time(Stage& stage, Fn&& fn) {
    auto wall = Clock::now();
    auto cpu = CpuClock::now();
    fn();
    stage.cpu += CpuClock::now() - cpu;
    stage.wall += Clock::now() - wall;
}

bool InitRoot(const std::string& root) {
    std::string host = std::string(TAK_BINARY_DIR) + "/tools/orvix-host/orvix-host";
    const gchar* argv[] = {host.c_str(), "init", "--apps", "10000", nullptr};
    gchar** envp = g_environ_setenv(g_get_environ(), "ORVIX_HOST_ROOT", root.c_str(), TRUE);
    gint status = 0;
    g_autoptr(GError) error = nullptr;
    bool ran = g_spawn_sync(nullptr, const_cast<gchar**>(argv), envp, G_SPAWN_STDOUT_TO_DEV_NULL, nullptr,
                            nullptr, nullptr, nullptr, &status, &error);
    g_strfreev(envp);
    if (!ran || !g_spawn_check_wait_status(status, nullptr)) {
        fprintf(stderr, "orvix-host init --apps %d failed: %s\n", kApps, ran ? "see above" : error->message);
        return false;
    }
    return true;
}

std::string Plan(const CPlanRequest& request, bool json, size_t& apps) {
    CResetPlan plan(request);
    plan.Build();
    apps = plan.Get().apps.size();
    return json ? CPlanPrinter::Json(plan.Get()) : CPlanPrinter::Text(plan.Get());
}

void BM_PlanOfAnAppsReset(benchmark::State& state) {
    CPlanRequest request;
    std::string error;
    request.Parse({"reset=tak_app_reset"}, error);
    CResetPlan::Prepare();
    Stage baseline, text, json;
    for (auto _ : state) {
        size_t listed = 0;
        size_t planned = 0;
        size_t plannedJson = 0;
        std::string table;
        std::string document;
        Time(baseline, [&] { listed = CAppDBInfo::GetAllAppList().size(); });
        Time(text, [&] { table = Plan(request, false, planned); });
        Time(json, [&] { document = Plan(request, true, plannedJson); });
        benchmark::DoNotOptimize(table.data());
        benchmark::DoNotOptimize(document.data());
        if (listed != kApps || planned != kApps || plannedJson != kApps) {
            state.SkipWithError("the root does not hold the apps it was made with");
            break;
        }
    }
    if (state.error_occurred()) {
        return;  // no figures: the targets are not measured
    }
    double iterations = static_cast<double>(state.iterations());
    g_Figures = {Ms(baseline.wall) / iterations, Ms(text.wall) / iterations, Ms(json.wall) / iterations,
                 Ms(baseline.cpu) / iterations, Ms(text.cpu) / iterations};
    state.counters["baseline_ms"] = g_Figures.baselineMs;
    state.counters["plan_ms"] = g_Figures.planMs;
    state.counters["json_ms"] = g_Figures.jsonMs;
    state.counters["ratio"] = g_Figures.planMs / g_Figures.baselineMs;
    state.counters["cpu_ratio"] = g_Figures.planCpuMs / g_Figures.baselineCpuMs;
}
BENCHMARK(BM_PlanOfAnAppsReset)->Unit(benchmark::kMillisecond)->MinTime(3.0);

void PrintSummary(bench::Targets& targets) {
    const Figures& f = g_Figures;
    bool measured = f.baselineMs > 0 && f.baselineCpuMs > 0;
    if (measured) {
        printf(
            "plan of tak_app_reset on %d apps: %.1f ms, %.2f x CAppDBInfo::GetAllAppList alone (%.1f ms); in "
            "thread CPU time %.1f ms, %.2f x (%.1f ms); as JSON %.1f ms (%.2f x)\n",
            kApps, f.planMs, f.planMs / f.baselineMs, f.baselineMs, f.planCpuMs,
            f.planCpuMs / f.baselineCpuMs, f.baselineCpuMs, f.jsonMs, f.jsonMs / f.baselineMs);
    }
    targets.Check("plan of an apps reset: 10,000 apps", measured ? f.planMs : NAN, bench::Bound::Below,
                  kTargetMs, " ms");
    targets.Check("plan / app list alone, wall time", measured ? f.planMs / f.baselineMs : NAN,
                  bench::Bound::Below, kTargetRatio, "x");
    targets.Check("plan / app list alone, thread CPU time", measured ? f.planCpuMs / f.baselineCpuMs : NAN,
                  bench::Bound::Below, kTargetRatio, "x");
}

}  // namespace

int main(int argc, char** argv) {
    // Before anything logs: the log opens its file once.
    setenv("ORVIX_LOG_FILE", "/dev/null", 1);
    char pattern[] = "/tmp/bench-plan.XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        return 1;
    }
    orvix::host::SetRoot(pattern);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || !InitRoot(pattern)) {
        TAKDir::RemoveAllFiles(pattern, true, false);
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    bench::Targets targets;
    PrintSummary(targets);
    TAKDir::RemoveAllFiles(pattern, true, false);
    return targets.AllMet() ? 0 : 1;
}

// Foundation benchmarks: the history log against a plain open-append-close loop (the history opens and
// closes its file for every line too, so the plain loop is its floor), and the host settings store.
// history_to_plain is the history's speed as a share of the plain loop's; it should not fall below 0.8
// (what the history adds per line is the real-path check, the size check and the lock).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <vconf.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <orvix_host.h>

#include "BenchTarget.h"
#include "ICVConf.h"
#include "TAKDir.h"
#include "TAKHistoryLog.h"

namespace {

const int kLinesPerRound = 256;
const long long kRotateAboveBytes = 262144;
const double kTargetHistoryToPlain = 0.8;

double g_HistoryToPlain = NAN;  // of the last run of BM_HistoryLogAgainstPlainAppend

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// The same work the history log does per line, minus its checks: format, open, append, close; the file
// is dropped at the history's size limit so that both files stay the same size.
void PlainAppend(const std::string& path, int sequence, long long& size) {
    char line[2048];
    time_t now = time(nullptr);
    struct tm utc {};
    gmtime_r(&now, &utc);
    int length =
        snprintf(line, sizeof(line), "%d-%.2d-%.2dT%.2d:%.2d:%.2d:>[%s][%d]bench line\n", utc.tm_year + 1900,
                 utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, "m_Bench", sequence);
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        return;
    }
    if (write(fd, line, length) != length) {
        abort();
    }
    close(fd);
    size += length;
    if (size > kRotateAboveBytes) {
        unlink(path.c_str());
        size = 0;
    }
}

// Rounds of the two loops alternate, so that both see the same state of the machine.
void BM_HistoryLogAgainstPlainAppend(benchmark::State& state) {
    std::string dir = orvix::host::PathVariable(2) + "/vardell/log";
    TAKDir::Create(dir);
    HistoryLogFileName("bench_history");
    std::string plainPath = dir + "/plain.log";
    Clock::duration history{};
    Clock::duration plain{};
    int sequence = 0;
    long long plainSize = 0;
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        for (int i = 0; i < kLinesPerRound; ++i) {
            WriteHistoryLogFile("[%s][%d]bench line", "m_Bench", sequence + i);
        }
        Clock::time_point middle = Clock::now();
        for (int i = 0; i < kLinesPerRound; ++i) {
            PlainAppend(plainPath, sequence + i, plainSize);
        }
        plain += Clock::now() - middle;
        history += middle - start;
        sequence += kLinesPerRound;
    }
    state.counters["history_lines_per_s"] = sequence / Seconds(history);
    state.counters["plain_lines_per_s"] = sequence / Seconds(plain);
    state.counters["history_to_plain"] = Seconds(plain) / Seconds(history);
    g_HistoryToPlain = state.counters["history_to_plain"].value;
}
BENCHMARK(BM_HistoryLogAgainstPlainAppend)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void BM_SettingsGet(benchmark::State& state) {
    vconf_set_int("db/tak/factory_reset", 1);
    int value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(vconf_get_int("db/tak/factory_reset", &value));
    }
    state.counters["gets_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SettingsGet);

void BM_SettingsSet(benchmark::State& state) {
    int value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(vconf_set_int("db/tak/app_sync_status", ++value));
    }
    state.counters["sets_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SettingsSet);

// Through the adapter, which adds a log line per call (the log goes to /dev/null here).
void BM_AdapterGetString(benchmark::State& state) {
    ICVConf::Set("db/home/homeversion_pkg_id", "org.home.version", true);
    std::string value;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ICVConf::Get("db/home/homeversion_pkg_id", value));
    }
    state.counters["gets_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_AdapterGetString);

}  // namespace

int main(int argc, char** argv) {
    // Before anything logs: the log opens its file once.
    setenv("ORVIX_LOG_FILE", "/dev/null", 1);
    char pattern[] = "/tmp/bench-foundation.XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        return 1;
    }
    orvix::host::SetRoot(pattern);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    TAKDir::RemoveAllFiles(pattern, true, false);
    bench::Targets targets;
    targets.Check("history log: lines per second, history / plain append", g_HistoryToPlain,
                  bench::Bound::AtLeast, kTargetHistoryToPlain, "x");
    return targets.AllMet() ? 0 : 1;
}

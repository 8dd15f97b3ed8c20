// Package information on a store of 10,000 packages, 1,000 of them built-in apps that allow an instant
// reset:
// - BM_IsInstalled, BM_AppInfoFindMetadata: one adapter call each, cycling over all packages;
// - BM_BuiltInResetLookups: what one built-in reset of 1,000 apps asks (per app: IsInstalled, IPkgAppInfo
//   + FindMetadataValue, IPkgInfo + GetAppRemovableFlag), timed in the same iteration as two baselines:
//   the same number of std::unordered_map look-ups, and one read and parse of the records file. With the
//   argument 1 the records file is rewritten (untimed) before every reset, so the reset pays for one
//   reload; "parses_per_reset" counts the parses the kit made during the timed look-ups (1 after a
//   change, 0 without: the file is not parsed per look-up).
// The adapter's log lines go to /dev/null, so their formatting is part of the cost, as on the device.
// A summary with the ratios and the target (the whole set under 100 ms) is printed after the run.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <json/json.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unordered_map>
#include <vector>

#include <orvix_host.h>
#include <orvix_pkgmgr.h>

#include "BenchTarget.h"
#include "PkgInfo.h"
#include "TAKDir.h"

namespace {

constexpr int kPackages = 10000;
constexpr int kBuiltIn = 1000;
constexpr double kTargetMs = 100;
const char kInstantReset[] = "http://orvix.com/tv/metadata/prefer_instant_reset";

using Clock = std::chrono::steady_clock;

std::string g_RecordsText;
std::vector<std::string> g_PkgIds;  // every package; the first kBuiltIn are the built-in apps

struct ResetFigures {
    double resetMs = 0;
    double mapMs = 0;
    double parseMs = 0;
    double parsesPerReset = 0;
};
ResetFigures g_Figures[2];  // [unchanged, changed]

double Ms(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

std::string RecordsPath() {
    return orvix::host::UnderRoot("var/lib/pkgmgr/packages.json");
}

// A record as `orvix-host init` writes it: one app with the instant-reset metadata and one category.
Json::Value PackageJson(int index) {
    std::string n = std::to_string(index);
    bool builtIn = index < kBuiltIn;
    Json::Value app(Json::objectValue);
    app["appid"] = "app" + n;
    Json::Value pair(Json::arrayValue);
    pair.append(kInstantReset);
    pair.append(builtIn ? "true" : "false");
    app["metadata"].append(pair);
    app["categories"].append(builtIn ? "http://orvix.com/category/builtin" : "http://orvix.com/category/app");
    Json::Value package(Json::objectValue);
    package["pkgid"] = "org.orvix.pkg" + n;
    package["version"] = "1.0." + n;
    package["type"] = "tpk";
    package["removable"] = builtIn;
    package["builtin"] = builtIn;
    package["mainapp"] = "app" + n;
    package["apps"].append(app);
    return package;
}

bool WriteStore() {
    Json::Value records(Json::objectValue);
    records["packages"] = Json::Value(Json::arrayValue);
    for (int i = 0; i < kPackages; ++i) {
        records["packages"].append(PackageJson(i));
        g_PkgIds.push_back(records["packages"][i]["pkgid"].asString());
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    g_RecordsText = Json::writeString(builder, records);
    std::string error;
    if (!orvix::host::MakeDirs(orvix::host::UnderRoot("var/lib/pkgmgr")) ||
        !orvix::host::WriteFileAtomically(RecordsPath(), g_RecordsText, &error)) {
        fprintf(stderr, "cannot write the package records: %s\n", error.c_str());
        return false;
    }
    return true;
}

void BM_IsInstalled(benchmark::State& state) {
    size_t next = 0;
    for (auto _ : state) {
        if (!IPkgInfo::IsInstalled(g_PkgIds[next], false)) {
            state.SkipWithError("package not found");
            break;
        }
        next = (next + 7919) % g_PkgIds.size();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_IsInstalled);

void BM_AppInfoFindMetadata(benchmark::State& state) {
    size_t next = 0;
    std::string value;
    for (auto _ : state) {
        if (!IPkgAppInfo(g_PkgIds[next]).FindMetadataValue(kInstantReset, value)) {
            state.SkipWithError("metadata not found");
            break;
        }
        next = (next + 7919) % g_PkgIds.size();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AppInfoFindMetadata);

// The decision the reset makes per built-in app; true when the app would be reset.
bool ResetCondition(const std::string& pkgId) {
    if (!IPkgInfo::IsInstalled(pkgId, false)) {
        return false;
    }
    std::string value;
    if (!IPkgAppInfo(pkgId).FindMetadataValue(kInstantReset, value) || value != "true") {
        return false;
    }
    return IPkgInfo(pkgId, false).GetAppRemovableFlag();
}

// The floor of the same questions: three hash look-ups per app in a map of every package.
int MapLookups(const std::unordered_map<std::string, int>& map) {
    int found = 0;
    for (int i = 0; i < kBuiltIn; ++i) {
        for (int step = 0; step < 3; ++step) {
            found += map.count(std::string(g_PkgIds[i])) > 0 ? 1 : 0;
        }
    }
    return found;
}

// What a reload of the records costs at least: reading the file and parsing its JSON.
bool ParseRecords() {
    g_autofree gchar* text = nullptr;
    gsize length = 0;
    if (!g_file_get_contents(RecordsPath().c_str(), &text, &length, nullptr)) {
        return false;
    }
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    return reader->parse(text, text + length, &root, nullptr) && root["packages"].size() == kPackages;
}

void BM_BuiltInResetLookups(benchmark::State& state) {
    bool changed = state.range(0) != 0;
    std::unordered_map<std::string, int> map;
    for (int i = 0; i < kPackages; ++i) {
        map.emplace(g_PkgIds[i], i);
    }
    Clock::duration reset{}, plain{}, parse{};
    unsigned long parses = 0;
    for (auto _ : state) {
        if (changed) {
            state.PauseTiming();
            orvix::host::WriteFileAtomically(RecordsPath(), g_RecordsText);
            state.ResumeTiming();
        }
        unsigned long loadsBefore = orvix::host::PackageRecordLoads();
        auto t0 = Clock::now();
        int resettable = 0;
        for (int i = 0; i < kBuiltIn; ++i) {
            resettable += ResetCondition(g_PkgIds[i]) ? 1 : 0;
        }
        auto t1 = Clock::now();
        parses += orvix::host::PackageRecordLoads() - loadsBefore;
        int found = MapLookups(map);
        auto t2 = Clock::now();
        bool parsed = ParseRecords();
        auto t3 = Clock::now();
        reset += t1 - t0;
        plain += t2 - t1;
        parse += t3 - t2;
        if (resettable != kBuiltIn || found != 3 * kBuiltIn || !parsed) {
            state.SkipWithError("the store does not answer as written");
            break;
        }
    }
    if (state.error_occurred()) {
        return;  // no figures: the target is not measured
    }
    double iterations = static_cast<double>(state.iterations());
    ResetFigures& figures = g_Figures[changed ? 1 : 0];
    figures = {Ms(reset) / iterations, Ms(plain) / iterations, Ms(parse) / iterations,
               static_cast<double>(parses) / iterations};
    state.counters["reset_ms"] = figures.resetMs;
    state.counters["map_ms"] = figures.mapMs;
    state.counters["parse_ms"] = figures.parseMs;
    state.counters["parses_per_reset"] = figures.parsesPerReset;
}
BENCHMARK(BM_BuiltInResetLookups)
    ->ArgName("changed")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);

void PrintSummary(bench::Targets& targets) {
    const ResetFigures& warm = g_Figures[0];
    const ResetFigures& changed = g_Figures[1];
    bool measured = warm.resetMs > 0 && warm.mapMs > 0 && warm.parseMs > 0;
    if (measured) {
        printf(
            "built-in reset look-ups (%d apps, %d packages), records parsed: %.2f ms; %.2f x one parse of "
            "the "
            "records file (%.2f ms), %.0f x %d unordered_map look-ups (%.3f ms); parses during the look-ups "
            "%.2f\n",
            kBuiltIn, kPackages, warm.resetMs, warm.resetMs / warm.parseMs, warm.parseMs,
            warm.resetMs / warm.mapMs, 3 * kBuiltIn, warm.mapMs, warm.parsesPerReset);
    }
    if (changed.resetMs > 0 && changed.parseMs > 0) {
        printf(
            "the same after the records file changed: %.2f ms, %.2f x one parse of the records file (%.2f "
            "ms); "
            "parses during the look-ups %.2f (one per reset, not one per look-up)\n",
            changed.resetMs, changed.resetMs / changed.parseMs, changed.parseMs, changed.parsesPerReset);
    }
    targets.Check("built-in reset look-ups: 1,000 apps in 10,000 packages", measured ? warm.resetMs : NAN,
                  bench::Bound::Below, kTargetMs, " ms");
}

}  // namespace

int main(int argc, char** argv) {
    // Before anything logs: the log opens its file once.
    setenv("ORVIX_LOG_FILE", "/dev/null", 1);
    char pattern[] = "/tmp/bench-pkginfo.XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        return 1;
    }
    orvix::host::SetRoot(pattern);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || !WriteStore()) {
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

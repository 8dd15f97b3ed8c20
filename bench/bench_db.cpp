// The app data store on a 10,000-app database: reading every app through the store against a plain
// SQLite prepare/step loop that reads the same 105 columns into the same record, and look-ups by id.
//
// BM_AllAppsStoreVsPlain runs both readers in every iteration, alternately, and reports the ratio of
// their times ("ratio" = store / plain; the target is at most 1.15).
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <string>
#include <vector>

#include <orvix_host.h>

#include "AppDBInfo.h"
#include "AppInfo.h"
#include "BenchTarget.h"
#include "TAKDBConnection.h"
#include "TAKDBSchema.h"
#include "WidgetInfoDB.h"

namespace {

constexpr int kApps = 10000;
constexpr double kTargetRatio = 1.15;

std::vector<std::string> g_Ids;
double g_StoreToPlain = NAN;  // of the last run of BM_AllAppsStoreVsPlain

_APPINFO_T MakeApp(int index) {
    _APPINFO_T app;
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        const _APPINFO_FIELD_T& field = TAK_APPINFO_FIELDS[i];
        switch (field.kind) {
            case APPINFO_FIELD_TEXT:
                // Realistic lengths: paths and titles of 20 to 60 characters, some empty reserved texts.
                app.*field.text = (i % 3 == 2) ? ""
                                               : "/opt/usr/apps/org.orvix.app" + std::to_string(index) + "/" +
                                                     TAK_APPINFO_COLUMN_NAMES[i];
                break;
            case APPINFO_FIELD_INT:
                app.*field.number = index * 7 + static_cast<int>(i);
                break;
            case APPINFO_FIELD_FLAG:
                app.*field.flag = (index + i) % 2 == 0;
                break;
        }
    }
    char id[32];
    snprintf(id, sizeof(id), "%s%09d", index % 5 == 0 ? "Ab" : "32", index * 101);
    app.id = id;
    app.pkgname = "org.orvix.app" + std::to_string(index);
    return app;
}

bool BuildDatabase() {
    char pattern[] = "/tmp/bench_db_root_XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        return false;
    }
    orvix::host::SetRoot(pattern);
    orvix::host::MakeDirs(orvix::host::PathVariable(24));
    sqlite3* db = nullptr;
    if (sqlite3_open(CTAKDBConnection::GetDBPath().c_str(), &db) != SQLITE_OK || !TAKDBSchema::Create(db)) {
        return false;
    }
    sqlite3_stmt* stmt = nullptr;
    sqlite3_exec(db, "begin", nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(db, CWidgetInfoDB::InsertSql().c_str(), -1, &stmt, nullptr);
    bool ok = stmt != nullptr;
    for (int i = 0; ok && i < kApps; ++i) {
        _APPINFO_T app = MakeApp(i);
        ok = CWidgetInfoDB::BindRow(stmt, app) && sqlite3_step(stmt) == SQLITE_DONE;
        sqlite3_reset(stmt);
        g_Ids.push_back(app.id);
    }
    sqlite3_finalize(stmt);
    ok = sqlite3_exec(db, "commit", nullptr, nullptr, nullptr) == SQLITE_OK && ok;
    sqlite3_close(db);
    return ok && CTAKDBConnection::GetInstance(false) != nullptr;
}

void RemoveDatabase() {
    CTAKDBConnection::ResetInstanceForTest();
    std::string command = "rm -rf '" + orvix::host::Root() + "'";
    if (system(command.c_str()) != 0) {
        fprintf(stderr, "could not remove %s\n", orvix::host::Root().c_str());
    }
}

// The plain reader: one connection, one prepare per read, columns read straight into named members.
class PlainReader {
public:
    PlainReader() {
        sqlite3_open_v2(CTAKDBConnection::GetDBPath().c_str(), &m_pDb,
                        SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    }
    ~PlainReader() { sqlite3_close(m_pDb); }

    std::list<_APPINFO_T> ReadAll() const {
        std::list<_APPINFO_T> apps;
        sqlite3_stmt* stmt = nullptr;
        std::string sql = CWidgetInfoDB::SelectAllSql() + " order by upper(id) asc";
        if (sqlite3_prepare_v2(m_pDb, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
            return apps;
        }
        while (sqlite3_step(stmt) == SQLITE_ROW) {
            _APPINFO_T& info = apps.emplace_back();
            int column = 0;
#define TAK_BENCH_READ_TEXT(name) Text(stmt, column++, info.name);
#define TAK_BENCH_READ_INT(name) info.name = sqlite3_column_int(stmt, column++);
#define TAK_BENCH_READ_FLAG(name) info.name = sqlite3_column_int(stmt, column++) != 0;
#define TAK_BENCH_READ(name, kind) TAK_BENCH_READ_##kind(name)
            TAK_APPINFO_COLUMNS(TAK_BENCH_READ)
#undef TAK_BENCH_READ
#undef TAK_BENCH_READ_TEXT
#undef TAK_BENCH_READ_INT
#undef TAK_BENCH_READ_FLAG
        }
        sqlite3_finalize(stmt);
        return apps;
    }

private:
    static void Text(sqlite3_stmt* stmt, int column, std::string& value) {
        const unsigned char* text = sqlite3_column_text(stmt, column);
        if (text == nullptr) {
            value.clear();
            return;
        }
        value.assign(reinterpret_cast<const char*>(text),
                     static_cast<size_t>(sqlite3_column_bytes(stmt, column)));
    }

    sqlite3* m_pDb = nullptr;
};

void BM_GetAllAppList(benchmark::State& state) {
    for (auto _ : state) {
        std::list<_APPINFO_T> apps = CAppDBInfo::GetAllAppList();
        if (apps.size() != kApps) {
            state.SkipWithError("wrong number of apps");
            break;
        }
        benchmark::DoNotOptimize(apps);
    }
    state.SetItemsProcessed(state.iterations() * kApps);
}
BENCHMARK(BM_GetAllAppList)->Unit(benchmark::kMillisecond);

void BM_PlainSqliteLoop(benchmark::State& state) {
    PlainReader reader;
    for (auto _ : state) {
        std::list<_APPINFO_T> apps = reader.ReadAll();
        if (apps.size() != kApps) {
            state.SkipWithError("wrong number of apps");
            break;
        }
        benchmark::DoNotOptimize(apps);
    }
    state.SetItemsProcessed(state.iterations() * kApps);
}
BENCHMARK(BM_PlainSqliteLoop)->Unit(benchmark::kMillisecond);

void BM_AllAppsStoreVsPlain(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    PlainReader reader;
    Clock::duration store{};
    Clock::duration plain{};
    for (auto _ : state) {
        auto t0 = Clock::now();
        std::list<_APPINFO_T> a = CAppDBInfo::GetAllAppList();
        auto t1 = Clock::now();
        std::list<_APPINFO_T> b = reader.ReadAll();
        auto t2 = Clock::now();
        store += t1 - t0;
        plain += t2 - t1;
        if (a.size() != kApps || b.size() != kApps || a.front().id != b.front().id) {
            state.SkipWithError("the readers disagree");
            break;
        }
    }
    state.counters["store_ms"] =
        std::chrono::duration<double, std::milli>(store).count() / static_cast<double>(state.iterations());
    state.counters["plain_ms"] =
        std::chrono::duration<double, std::milli>(plain).count() / static_cast<double>(state.iterations());
    state.counters["ratio"] =
        plain.count() > 0 ? static_cast<double>(store.count()) / static_cast<double>(plain.count()) : 0;
    g_StoreToPlain = state.error_occurred() ? NAN : state.counters["ratio"].value;
}
BENCHMARK(BM_AllAppsStoreVsPlain)->Unit(benchmark::kMillisecond)->MinTime(3.0);

void BM_GetAppInfoById(benchmark::State& state) {
    size_t next = 0;
    _APPINFO_T info;
    for (auto _ : state) {
        const std::string& id = g_Ids[next];
        next = (next + 7919) % g_Ids.size();
        if (!CAppDBInfo::GetAppInfoById(id, info, false)) {
            state.SkipWithError("app not found");
            break;
        }
        benchmark::DoNotOptimize(info);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetAppInfoById);

}  // namespace

int main(int argc, char** argv) {
    setenv("ORVIX_LOG_LEVEL", "E", 1);
    ::benchmark::Initialize(&argc, argv);
    if (!BuildDatabase()) {
        fprintf(stderr, "cannot build the benchmark database\n");
        RemoveDatabase();
        return 1;
    }
    ::benchmark::RunSpecifiedBenchmarks();
    ::benchmark::Shutdown();
    RemoveDatabase();
    bench::Targets targets;
    targets.Check("app store: all 10,000 apps, store / plain SQLite loop", g_StoreToPlain,
                  bench::Bound::AtMost, kTargetRatio, "x");
    return targets.AllMet() ? 0 : 1;
}

// The scenario explorer: seeded random sequences of launch requests (every reset kind, restarts, junk,
// "end"), library answers (late, never, twice, failing, for ids never asked, from several threads, during
// the walk), deadlines, odd app ids, a FIFO at the history log path and a daemon restarted midway, each
// against the real tak-reset in a fresh root. After each scenario it checks what must hold whatever the
// order of events: every request is answered as its kind promises and at most once (save the repeated
// end that a lying callback causes), a run whose requests were all answered
// reports, "end" ends the process, results are well formed, no GLib warning, nothing outside the reset's
// directories is touched, the app table loses exactly the apps uninstalled, and the deadline gives up
// only on apps that did not answer in time after their own request.
//
// EXPLORE_SEEDS=1,2,3 runs those seeds; EXPLORE_COUNT=N [EXPLORE_START=S] runs N seeds from S (random
// when unset); otherwise the fixed seeds below. A failing seed prints the command that replays it and its
// steps in words.
#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>

#include <algorithm>
#include <cinttypes>
#include <random>
#include <set>

#include "../faults/FaultFixture.h"
#include "PlatformLog.h"
#include "Scenario.h"
#include "TAKCommonApi.h"
#include "orvix_launch.h"

using namespace explore;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

// The fixed seeds: a run of consecutive seeds that covers every kind of step, and the faults found so far:
// 2033 a restarted reset whose answers were taken for the stopped run's (it never reports); 2012 and 1003
// deadlines that give up on an app that answered in time (counted from the walk, not the app's
// own request); 2024 a second answer in time with a deadline set (allowed to end the run again, as
// without one); 2001 a stopped run's answer naming an app nobody asked for, ending the next run again;
// 2028 and 123 an app id that rewrote the row-removal statement (other apps lost their rows); 105 an id
// with a quote (its row stays: the daemon refuses the id); 2034 a FIFO at the history log path (the process
// blocks for good). The first four also run under the sanitizers.
const uint32_t kFixedSeeds[] = {2000, 2001, 2002, 2003, 2004, 2005, 2006, 2007, 2008, 2009, 2010, 2011, 2012,
                                2013, 2014, 2015, 2016, 2017, 2018, 2019, 2020, 2021, 2022, 2023, 2024, 2025,
                                2026, 2027, 2028, 2029, 2030, 2031, 2032, 2033, 2034, 105,  123,  1003};
#ifdef EXPLORE_SANITIZED
// A sanitizer build is several times slower: a few seeds there, the rest in the plain build.
const size_t kFixedSeedCount = 4;
#else
const size_t kFixedSeedCount = sizeof(kFixedSeeds) / sizeof(kFixedSeeds[0]);
#endif

std::vector<uint32_t> SeedsToRun() {
    std::vector<uint32_t> seeds;
    if (const char* listed = getenv("EXPLORE_SEEDS"); listed != nullptr && *listed != '\0') {
        std::istringstream items(listed);
        for (std::string item; std::getline(items, item, ',');) {
            seeds.push_back(static_cast<uint32_t>(std::stoul(item)));
        }
        return seeds;
    }
    if (const char* count = getenv("EXPLORE_COUNT"); count != nullptr && *count != '\0') {
        const char* start = getenv("EXPLORE_START");
        uint32_t first = start != nullptr && *start != '\0' ? static_cast<uint32_t>(std::stoul(start))
                                                            : std::random_device{}() % 1000000000u;
        for (unsigned long i = 0; i < std::stoul(count); ++i) {
            seeds.push_back(first + static_cast<uint32_t>(i));
        }
        return seeds;
    }
    return std::vector<uint32_t>(kFixedSeeds, kFixedSeeds + kFixedSeedCount);
}

// "N scenarios, K invariant failures" once every scenario has run.
struct Tally : ::testing::Environment {
    static Tally& Get() {
        static Tally* tally = static_cast<Tally*>(::testing::AddGlobalTestEnvironment(new Tally));
        return *tally;
    }
    void TearDown() override {
        if (scenarios > 0) {
            printf("%d scenarios, %d invariant failures\n", scenarios, failures);
        }
    }
    int scenarios = 0;
    int failures = 0;
};
Tally& g_tally = Tally::Get();

using Key = std::pair<std::string, std::string>;  // result name, cookie

// One launch request that starts (or would start) a reset, as the process should treat it.
struct ResetRun {
    size_t step = 0;
    Kind kind = Kind::Junk;
    Key reports;               // the result it reports
    bool ignored = false;      // a Corvane request after one ran in the process: no reply
    bool answersStop = false;  // a stop before its end still reports (its task's destroy)
    bool completes = false;    // every request it makes will be answered (or given up on)
    int lies = 0;           // extra results allowed: lying callbacks of its own and a replaced run's requests
    bool replaced = false;  // a later request of its task's kind came
    bool stopped = false;   // "end" came while it was current
    size_t countAtLaunch = 0;  // results with its key before it was launched
};

double Seconds(const std::string& utc) {
    struct tm parts {};
    int micro = 0;
    if (sscanf(utc.c_str(), "%d-%d-%dT%d:%d:%d.%dZ", &parts.tm_year, &parts.tm_mon, &parts.tm_mday,
               &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &micro) != 7) {
        return 0;
    }
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    return static_cast<double>(timegm(&parts)) + micro / 1e6;
}

std::string Shown(const std::string& text) {
    return text.size() > 60 ? text.substr(0, 20) + "...(" + std::to_string(text.size()) + " bytes)" : text;
}

}  // namespace

class AScenario : public fault_test::FaultFixture, public ::testing::WithParamInterface<uint32_t> {
protected:
    std::vector<std::string> InitArguments() const override {
        return {"--apps", "0", "--builtin", std::to_string(Generate(GetParam()).builtIns)};
    }

    void TearDown() override {
        StopInstance();
        FaultFixture::TearDown();
    }

    // ---- the instance: started by the explorer itself, so that its exit status can be read ----

    bool StartInstance(const std::vector<std::string>& extras) {
        std::string program = TakResetPath();
        std::vector<std::string> argv = {program};
        argv.insert(argv.end(), extras.begin(), extras.end());
        std::vector<char*> args;
        for (auto& arg : argv) {
            args.push_back(arg.data());
        }
        args.push_back(nullptr);
        gchar** env = g_get_environ();
        env = g_environ_setenv(env, "ORVIX_HOST_ROOT", Root().c_str(), TRUE);
        env = g_environ_setenv(env, "DBUS_SYSTEM_BUS_ADDRESS", BusAddress().c_str(), TRUE);
        env = g_environ_setenv(env, "ORVIX_LOG_FILE", LogPath(AppName()).c_str(), TRUE);
        env = g_environ_unsetenv(env, orvix::host::kLaunchReadyFdEnv);
        env = g_environ_unsetenv(env, orvix::host::kLaunchRequestFdEnv);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, LogPath(AppName()).c_str(),
                                         O_WRONLY | O_CREAT | O_APPEND, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        int rc = posix_spawn(&m_instance, program.c_str(), &actions, nullptr, args.data(), env);
        posix_spawn_file_actions_destroy(&actions);
        g_strfreev(env);
        if (rc != 0) {
            m_instance = 0;
            return false;
        }
        return true;
    }

    // Reaps the instance if it has exited; true once it has.
    bool InstanceExited() {
        if (m_instance <= 0) {
            return true;
        }
        int status = 0;
        if (waitpid(m_instance, &status, WNOHANG) != m_instance) {
            return false;
        }
        m_exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        m_instance = 0;
        return true;
    }

    void StopInstance() {
        if (m_instance > 0 && !InstanceExited()) {
            kill(m_instance, SIGKILL);
            waitpid(m_instance, nullptr, 0);
            m_instance = 0;
        }
    }

    // Hands a request to the instance through its launch channel; the first one starts it.
    orvix::host::LaunchDelivery Deliver(const std::vector<std::string>& extras, bool startsIfNone) {
        orvix::host::LaunchExtras pairs;
        for (const auto& extra : extras) {
            size_t at = extra.find('=');
            pairs.emplace_back(extra.substr(0, at), at == std::string::npos ? "" : extra.substr(at + 1));
        }
        orvix::host::LaunchDelivery delivery = orvix::host::LaunchDelivery::NoInstance;
        if (startsIfNone && !m_started) {
            m_started = true;
            return StartInstance(extras) ? orvix::host::LaunchDelivery::Delivered
                                         : orvix::host::LaunchDelivery::Failed;
        }
        // A fresh instance listens only once it runs; until then, and while it is alive, try again.
        orvix::test::WaitUntil(
            [&] {
                delivery = orvix::host::DeliverLaunchRequest(AppName(), pairs, 5000, nullptr);
                return delivery != orvix::host::LaunchDelivery::NoInstance || !startsIfNone ||
                       InstanceExited();
            },
            Bound(20s));
        return delivery;
    }

    // ---- what the process did ----

    std::map<Key, size_t> ResultCounts() const {
        std::map<Key, size_t> counts;
        for (const auto& call : CallsOf("innerserver", "process_result")) {
            ++counts[{call["args"][0].asString(), call["args"][2].asString()}];
        }
        return counts;
    }

    // Results that never reached the daemon (it was down): a report the process sent whose call failed.
    size_t LostResults() const {
        std::map<pid_t, bool> reporting;
        size_t lost = 0;
        for (const auto& line : orvix::test::PlatformLogLines(TakResetLog())) {
            if (line.text.find("MethodName:[process_result]") != std::string::npos) {
                reporting[line.tid] = true;
            } else if (reporting[line.tid] && line.text.find("method call") != std::string::npos) {
                lost += line.text.find("method call false") != std::string::npos;
                reporting[line.tid] = false;
            }
        }
        return lost;
    }

    // Where the main thread logged the request with this cookie (npos before it has).
    size_t HandledAt(const std::vector<orvix::test::LogLine>& lines, const std::string& cookie) const {
        for (size_t i = 0; i < lines.size(); ++i) {
            std::string value;
            if (orvix::test::RequestValue(lines[i], "userdata", value) && value == cookie) {
                return i;
            }
        }
        return std::string::npos;
    }

    // Whether an uninstall walk began after the request with this cookie was handled, and is over.
    bool WalkDoneAfter(const std::string& cookie) const {
        std::vector<orvix::test::LogLine> lines = orvix::test::PlatformLogLines(TakResetLog());
        size_t handled = HandledAt(lines, cookie);
        pid_t walker = 0;
        for (size_t i = handled == std::string::npos ? lines.size() : handled; i < lines.size(); ++i) {
            const std::string& text = lines[i].text;
            if (walker == 0 && text.find("m_AppsList size = ") != std::string::npos) {
                walker = lines[i].tid;
            } else if (walker != 0 && lines[i].tid == walker &&
                       (text.find("m_AppsList size ") != std::string::npos ||
                        text.find("pfUninstallAppAPI is NULL") != std::string::npos)) {
                return true;
            }
        }
        return false;
    }

    std::set<std::string> AppIds() const {
        std::set<std::string> ids;
        sqlite3* db = nullptr;
        if (sqlite3_open_v2(DatabasePath().c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
            sqlite3_busy_timeout(db, 10000);
            sqlite3_stmt* statement = nullptr;
            if (sqlite3_prepare_v2(db, "select id from widgetinfo;", -1, &statement, nullptr) == SQLITE_OK) {
                while (sqlite3_step(statement) == SQLITE_ROW) {
                    const unsigned char* id = sqlite3_column_text(statement, 0);
                    ids.insert(id != nullptr ? reinterpret_cast<const char*>(id) : "");
                }
            }
            sqlite3_finalize(statement);
        }
        sqlite3_close(db);
        return ids;
    }

    // Every file and directory of the root a reset has no business with: name -> size.
    std::map<std::string, std::string> Snapshot() const {
        std::vector<std::string> skipped = {Root() + "/var",
                                            Root() + "/run",
                                            Root() + "/etc/libtak_common.json",
                                            orvix::host::PathVariable(24) + "/.vardell.db",
                                            ServiceDir(2, "log"),
                                            ServiceDir(2, "common"),
                                            ServiceDir(2, "appupdate"),
                                            ServiceDir(27, "preinstallrecovery"),
                                            ServiceDir(27, "clone"),
                                            ServiceDir(27, "RM"),
                                            ServiceDir(27, "appupdate/package"),
                                            ServiceDir(27, "system_app"),
                                            ServiceDir(27, "bnr_backup/bnr_backup.json"),
                                            orvix::host::PathVariable(0) + "/owner/.cache/Apps/WebAppsCache",
                                            orvix::host::PathVariable(0) + "/owner/apps_rw/xwalk-service"};
        for (int variable = 66; variable <= 74; ++variable) {
            skipped.push_back(orvix::host::PathVariable(variable));
        }
        std::map<std::string, std::string> files;
        std::error_code error;
        for (auto it = fs::recursive_directory_iterator(Root(), error);
             it != fs::recursive_directory_iterator(); it.increment(error)) {
            const std::string path = it->path().string();
            bool skip = std::any_of(skipped.begin(), skipped.end(),
                                    [&](const std::string& prefix) { return path.rfind(prefix, 0) == 0; });
            if (skip) {
                if (it->is_directory(error) && !it->is_symlink(error)) {
                    it.disable_recursion_pending();
                }
                continue;
            }
            files[path.substr(Root().size())] =
                it->is_regular_file(error) ? std::to_string(it->file_size(error)) : "dir or other";
        }
        return files;
    }

    std::chrono::milliseconds Bound(std::chrono::milliseconds bound) const {
        return m_failures.empty() ? bound : std::min<std::chrono::milliseconds>(bound, 5s);
    }

    void Fail(const std::string& text) { m_failures.push_back(text); }

    // ---- the scenario ----

    void Prepare() {
        if (m_scenario.android) {
            SetSystemFlag("android_on_orvix.support", true);
        }
        SetLibTakBehaviour(m_scenario.Behaviour({}));
        if (m_scenario.deadlineSec > 0) {
            SetSetting("int", "db/tak/reset_callback_timeout_sec", std::to_string(m_scenario.deadlineSec));
        }
        int index = 1;
        for (const App& app : m_scenario.apps) {
            if (!AddApp({app.id, app.type, app.disableReset, false}, index++)) {
                Fail("[7 app table] the stand-in daemon did not take the app " + Shown(app.id));
            }
        }
        std::set<std::string> wanted;
        for (const App& app : m_scenario.apps) {
            wanted.insert(app.id);
        }
        m_initialIds = AppIds();
        if (m_initialIds != wanted) {
            Fail("[7 app table] after installing the scenario's apps the table holds " +
                 Listed(m_initialIds));
        }
        if (std::any_of(m_scenario.steps.begin(), m_scenario.steps.end(),
                        [](const Step& s) { return s.kind == Kind::BuiltInService; })) {
            ASSERT_EQ(Host({"client", "tv"}).status, 0);
        }
        if (m_scenario.historyFifo) {
            std::string history = ServiceDir(2, "log/tak_reset_history.log");
            fs::remove(history);
            ASSERT_EQ(mkfifo(history.c_str(), 0644), 0);
        }
        m_snapshot = Snapshot();
    }

    static std::string Listed(const std::set<std::string>& ids) {
        std::string text = "{";
        for (const auto& id : ids) {
            text += (text.size() > 1 ? ", " : "") + Shown(id);
        }
        return text + "}";
    }

    // The run a launch request starts, as the process should treat it.
    void Model(size_t index, const Step& step) {
        std::map<Key, size_t> counts = ResultCounts();
        ResetRun run;
        run.step = index;
        run.kind = step.kind;
        int silent = 0;
        int lies = 0;
        for (const App& app : m_scenario.apps) {
            auto answer = m_answers.find(app.id);
            if (Scenario::Kept(app) || answer == m_answers.end()) {
                continue;
            }
            silent += answer->second.mode == Answer::Silent;
            lies += answer->second.Lies();
        }
        const bool deadline = m_scenario.deadlineSec > 0;
        switch (step.kind) {
            case Kind::App:
            case Kind::Service:
            case Kind::Corvane: {
                if (step.kind == Kind::Corvane && m_corvaneRan) {
                    run.ignored = true;
                    ++m_ignoredCorvanes;
                    break;
                }
                const int previous = m_currentReset;
                if (previous >= 0) {
                    m_runs[previous].replaced = true;
                }
                m_currentReset = static_cast<int>(m_runs.size());
                // After a Corvane reset on a board with Android apps, every later apps reset of the
                // process ends the Corvane way, and no stopped apps reset answers any more.
                bool corvaneEnd = step.kind == Kind::Corvane || (m_corvaneRan && m_scenario.android);
                run.reports =
                    corvaneEnd ? Key{"corvane_reset_result", "0"} : Key{ResultName(step.kind), step.cookie};
                run.answersStop = step.kind == Kind::App && !m_corvaneRan;
                bool uninstalls = step.kind != Kind::Corvane || m_scenario.android;
                run.completes = !uninstalls || deadline || silent == 0;
                // A lying callback (a second answer in time, an answer naming an app nobody asked for)
                // ends the run that is current again, whichever run its request came from; answers the
                // deadline gave up on, or that a stopped run still owed, never do.
                int owed = previous >= 0 ? m_runs[previous].lies : 0;
                run.lies = uninstalls ? lies + owed : 0;
                m_corvaneRan = m_corvaneRan || step.kind == Kind::Corvane;
                break;
            }
            case Kind::BuiltInApp:
            case Kind::BuiltInService:
                if (m_currentBuiltIn >= 0) {
                    m_runs[m_currentBuiltIn].replaced = true;
                }
                m_currentBuiltIn = static_cast<int>(m_runs.size());
                run.reports = {ResultName(step.kind), step.cookie};
                run.answersStop = true;
                run.completes = !m_scenario.installSilent || deadline || m_builtInRan;
                m_builtInRan = true;
                break;
            default:
                run.ignored = true;
                break;
        }
        run.countAtLaunch = counts[run.reports];
        m_runOf[index] = m_runs.size();
        m_runs.push_back(run);
    }

    void Execute() {
        for (size_t i = 0; i < m_scenario.steps.size(); ++i) {
            const Step& step = m_scenario.steps[i];
            switch (step.type) {
                case Step::Library:
                    m_answers = step.answers;
                    std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc)
                        << orvix::host::JsonLine(m_scenario.Behaviour(step.answers)) << "\n";
                    break;
                case Step::Launch:
                    Model(i, step);
                    if (Deliver(step.extras, true) != orvix::host::LaunchDelivery::Delivered) {
                        Fail("[launch] step " + std::to_string(i + 1) + " was not taken by tak-reset");
                    }
                    break;
                case Step::WaitRequests:
                    if (!Walks(step.of)) {
                        break;
                    }
                    if (!orvix::test::WaitUntil(
                            [&] { return WalkDoneAfter(m_scenario.steps[step.of].cookie); }, Bound(10s))) {
                        m_notes.push_back("step " + std::to_string(i + 1) + ": the walk did not end in time");
                    }
                    break;
                case Step::WaitResult:
                    WaitForReport(i, step.of);
                    break;
                case Step::RestartDaemon:
                    m_daemonRestarted = true;
                    Kill(InnerServer());
                    if (Host({"up"}).status != 0) {
                        Fail("[kit] orvix-host up failed after the daemon was killed");
                    }
                    break;
                case Step::End:
                    for (int current : {m_currentReset, m_currentBuiltIn}) {
                        if (current >= 0) {
                            m_runs[current].stopped = true;
                        }
                    }
                    if (Deliver(step.extras, true) != orvix::host::LaunchDelivery::Delivered) {
                        Fail("[3 end] 'reset=end' was not taken by tak-reset");
                    }
                    break;
                case Step::AfterEnd:
                    m_afterEnd.push_back(step.cookie);
                    Deliver(step.extras, false);
                    break;
            }
        }
        if (!orvix::test::WaitUntil([&] { return InstanceExited(); }, Bound(30s))) {
            Fail("[3 end] tak-reset did not exit within 30 s of 'reset=end'");
            StopInstance();
        } else if (m_exitStatus != 0) {
            Fail("[3 end] tak-reset exited with status " + std::to_string(m_exitStatus));
        }
    }

    // Whether the launch makes uninstall requests: a Corvane reset does only on a board with Android apps,
    // and a refused one not at all.
    bool Walks(size_t launch) const {
        auto found = m_runOf.find(launch);
        if (found == m_runOf.end() || m_runs[found->second].ignored) {
            return false;
        }
        return m_runs[found->second].kind != Kind::Corvane || m_scenario.android;
    }

    // A run whose requests are all answered reports within the bound, unless a later request replaced it.
    void WaitForReport(size_t index, size_t launch) {
        auto found = m_runOf.find(launch);
        if (found == m_runOf.end()) {
            return;
        }
        const ResetRun& run = m_runs[found->second];
        if (run.ignored || run.replaced || run.stopped || !run.completes) {
            return;
        }
        if (orvix::test::WaitUntil([&] { return ResultCounts()[run.reports] > run.countAtLaunch; },
                                   Bound(30s))) {
            return;
        }
        if (LostResults() > 0) {
            m_notes.push_back("step " + std::to_string(index + 1) + ": no report, but a report was lost");
            return;
        }
        Fail("[2 reports] step " + std::to_string(launch + 1) + " (" + KindName(run.kind) +
             ") did not report " + run.reports.first + " within 30 s although every request it made was " +
             "answered" + (m_scenario.deadlineSec > 0 ? " or given up on" : "") + " and nothing replaced it");
    }

    // ---- the invariants ----

    void CheckResults() {
        const bool mayLose = m_daemonRestarted && LostResults() > 0;
        std::map<Key, std::pair<size_t, size_t>> expected;  // min, max
        for (const ResetRun& run : m_runs) {
            if (run.ignored) {
                continue;
            }
            auto& range = expected[run.reports];
            bool ended = run.replaced || run.stopped;
            range.first += (!mayLose && run.answersStop && ended) ? 1 : 0;
            range.second += 1 + static_cast<size_t>(run.lies);
        }
        const bool threadFailed = CountInLog("thread fail.") > 0;
        std::map<Key, size_t> counts;
        for (const auto& call : CallsOf("innerserver", "process_result")) {
            const Json::Value& args = call["args"];
            std::string line = orvix::host::JsonLine(args);
            if (args.size() != 4 || !args[0].isString() || !args[1].isInt() || !args[2].isString() ||
                args[3].asString() != "") {
                Fail("[4 well formed] malformed result " + line);
                continue;
            }
            if (args[1].asInt() != 1 && !(args[1].asInt() == 0 && threadFailed)) {
                Fail("[4 well formed] result value " + std::to_string(args[1].asInt()) + " in " + line);
            }
            ++counts[{args[0].asString(), args[2].asString()}];
        }
        for (const auto& [key, count] : counts) {
            if (expected.count(key) == 0) {
                Fail("[1 once] " + std::to_string(count) + " result(s) " + key.first + " for userdata " +
                     key.second + ", which no handled reset request carried");
            }
        }
        for (const auto& [key, range] : expected) {
            size_t count = counts.count(key) ? counts[key] : 0;
            if (count > range.second) {
                Fail("[1 once] " + std::to_string(count) + " results " + key.first + " for userdata " +
                     key.second + ", at most " + std::to_string(range.second) + " allowed");
            }
            if (count < range.first) {
                Fail("[2 reports] " + std::to_string(count) + " results " + key.first + " for userdata " +
                     key.second + ", a stopped run of that kind answers all the same");
            }
        }
        for (const auto& cookie : m_afterEnd) {
            for (const auto& [key, count] : counts) {
                if (key.second == cookie) {
                    Fail("[3 end] the request after 'reset=end' (userdata " + cookie + ") got " + key.first);
                }
            }
        }
        for (const auto& call : CallsOf("managerclient.tv", "tak_builtin_app_service_reset_result")) {
            const Json::Value& args = call["args"];
            if (args.size() != 4 || args[1].asInt() < 500 || args[1].asInt() > 502) {
                Fail("[4 well formed] built-in progress " + orvix::host::JsonLine(args));
            }
        }
    }

    void CheckLog() {
        std::vector<orvix::test::LogLine> lines = orvix::test::PlatformLogLines(TakResetLog());
        // Nothing handled after "end".
        bool ended = false;
        for (const auto& line : lines) {
            std::string value;
            if (!orvix::test::RequestValue(line, "reset", value)) {
                continue;
            }
            if (ended) {
                Fail("[3 end] a request (reset=" + value + ") was handled after 'reset=end'");
            }
            ended = ended || value == "end";
        }
        size_t refusals = CountInLog("corvane reset still doing, no need to perform it again");
        if (refusals > m_ignoredCorvanes) {
            Fail("[2 reports] " + std::to_string(refusals) + " Corvane requests refused, " +
                 std::to_string(m_ignoredCorvanes) + " expected at most");
        }
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(Root() + "/var/log", error)) {
            std::istringstream text(orvix::test::ReadWholeFile(entry.path().string()));
            for (std::string line; std::getline(text, line);) {
                if (line.find("WARNING **") != std::string::npos ||
                    line.find("CRITICAL **") != std::string::npos ||
                    line.find("runtime error:") != std::string::npos ||
                    line.find("Sanitizer") != std::string::npos) {
                    Fail("[5 log] " + entry.path().filename().string() + ": " + line);
                }
            }
        }
    }

    void CheckFiles() {
        std::map<std::string, std::string> now = Snapshot();
        for (const auto& [path, size] : m_snapshot) {
            auto found = now.find(path);
            if (found == now.end()) {
                Fail("[6 files] " + path + " is gone");
            } else if (found->second != size) {
                Fail("[6 files] " + path + " changed size from " + size + " to " + found->second);
            }
        }
        for (const auto& [path, size] : now) {
            if (m_snapshot.count(path) == 0) {
                Fail("[6 files] " + path + " appeared");
            }
        }
    }

    // The table loses exactly the apps whose uninstall succeeded: no statement reaches other rows.
    void CheckAppTable() {
        std::set<std::string> removed;
        for (const auto& call : CallsOf("libtak_common", "UninstallAppAPI:callback")) {
            if (call["args"][1].asInt() == TAK_EVENT_STATE_UNINSTALL_SUCCESS) {
                removed.insert(call["args"][0].asString());
            }
        }
        std::set<std::string> now = AppIds();
        for (const auto& id : m_initialIds) {
            if (removed.count(id) == 0 && now.count(id) == 0) {
                Fail("[7 app table] " + Shown(id) + " lost its row though its uninstall never succeeded");
            }
            // A row whose id holds a quote, or is not UTF-8, cannot be named to the daemon safely: it stays.
            bool removable =
                id.find('\'') == std::string::npos && g_utf8_validate(id.data(), id.size(), nullptr);
            if (removed.count(id) != 0 && now.count(id) != 0 && !m_daemonRestarted && removable) {
                Fail("[7 app table] " + Shown(id) + " kept its row though its uninstall succeeded");
            }
        }
        for (const auto& id : now) {
            if (m_initialIds.count(id) == 0) {
                Fail("[7 app table] a row " + Shown(id) + " appeared");
            }
        }
    }

    // The deadline counts from each app's own request: an app that answered every request in time is
    // never given up on.
    void CheckDeadline() {
        if (m_scenario.deadlineSec == 0) {
            return;
        }
        const double limit = m_scenario.deadlineSec - 0.3;
        std::vector<Json::Value> requests = CallsOf("libtak_common", "UninstallAppAPI");
        std::vector<Json::Value> answers = CallsOf("libtak_common", "UninstallAppAPI:callback");
        for (const App& app : m_scenario.apps) {
            size_t givenUp = CountInLog(app.id + ": no final uninstall state within");
            if (givenUp == 0) {
                continue;
            }
            std::vector<double> asked;
            for (const auto& request : requests) {
                if (request["args"][0]["appkey"].asString() == app.id) {
                    asked.push_back(Seconds(request["time"].asString()));
                }
            }
            bool allInTime = !asked.empty();
            double slowest = 0;
            for (size_t r = 0; r < asked.size(); ++r) {
                double next = r + 1 < asked.size() ? asked[r + 1] : 1e18;
                double answered = -1;
                for (const auto& answer : answers) {
                    double at = Seconds(answer["time"].asString());
                    int state = answer["args"][1].asInt();
                    if (answer["args"][0].asString() == app.id && at >= asked[r] && at < next &&
                        (state == TAK_EVENT_STATE_UNINSTALL_SUCCESS ||
                         state == TAK_EVENT_STATE_UNINSTALL_FAIL)) {
                        answered = at - asked[r];
                        break;
                    }
                }
                slowest = std::max(slowest, answered);
                allInTime = allInTime && answered >= 0 && answered <= limit;
            }
            if (allInTime) {
                char text[64];
                snprintf(text, sizeof(text), "%.2f", slowest);
                Fail("[8 deadline] " + Shown(app.id) +
                     " was given up on though each of its requests was answered " + "within " + text +
                     " s (deadline " + std::to_string(m_scenario.deadlineSec) + " s)");
            }
        }
    }

    void Report() {
        ++g_tally.scenarios;
        if (m_failures.empty()) {
            return;
        }
        ++g_tally.failures;
        std::string text = "invariant failures of seed " + std::to_string(m_scenario.seed) + ":\n";
        for (const auto& failure : m_failures) {
            text += "  " + failure + "\n";
        }
        for (const auto& note : m_notes) {
            text += "  (note) " + note + "\n";
        }
        text += "replay: EXPLORE_SEEDS=" + std::to_string(m_scenario.seed) + " " + BinaryDir() +
                "/tests/test_explore  (or: make explore SEED=" + std::to_string(m_scenario.seed) + ")\n";
        text += m_scenario.Describe();
        ADD_FAILURE() << text;
    }

    Scenario m_scenario;
    Answers m_answers;
    std::vector<ResetRun> m_runs;
    std::map<size_t, size_t> m_runOf;  // launch step -> run
    int m_currentReset = -1;
    int m_currentBuiltIn = -1;
    bool m_corvaneRan = false;
    bool m_builtInRan = false;
    size_t m_ignoredCorvanes = 0;
    bool m_daemonRestarted = false;
    std::vector<std::string> m_afterEnd;
    std::set<std::string> m_initialIds;
    std::map<std::string, std::string> m_snapshot;
    std::vector<std::string> m_failures;
    std::vector<std::string> m_notes;
    pid_t m_instance = 0;
    bool m_started = false;
    int m_exitStatus = -1;
};

TEST_P(AScenario, EndsEveryResetAndReportsItOnce) {
    m_scenario = Generate(GetParam());
    Prepare();
    if (HasFatalFailure()) {
        return;
    }
    Execute();
    CheckResults();
    CheckLog();
    CheckFiles();
    CheckAppTable();
    CheckDeadline();
    Report();
}

INSTANTIATE_TEST_SUITE_P(Seeds, AScenario, ::testing::ValuesIn(SeedsToRun()),
                         [](const auto& info) { return "seed_" + std::to_string(info.param); });

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
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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
const size_t kFixedSeedCount = std::size(kFixedSeeds);
#endif

const char* Env(const char* name) {
    const char* value = getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

std::vector<uint32_t> SeedsToRun() {
    std::vector<uint32_t> seeds;
    if (const char* listed = Env("EXPLORE_SEEDS")) {
        std::istringstream items(listed);
        for (std::string item; std::getline(items, item, ',');) {
            seeds.push_back(static_cast<uint32_t>(std::stoul(item)));
        }
    } else if (const char* count = Env("EXPLORE_COUNT")) {
        uint32_t first = Env("EXPLORE_START") ? static_cast<uint32_t>(std::stoul(Env("EXPLORE_START")))
                                              : std::random_device{}() % 1000000000u;
        for (unsigned long i = 0; i < std::stoul(count); ++i) {
            seeds.push_back(first + static_cast<uint32_t>(i));
        }
    } else {
        seeds.assign(kFixedSeeds, kFixedSeeds + kFixedSeedCount);
    }
    return seeds;
}

// "N scenarios, K invariant failures" once every scenario has run.
struct Tally : ::testing::Environment {
    int scenarios = 0, failures = 0;
    void TearDown() override { printf("%d scenarios, %d invariant failures\n", scenarios, failures); }
};
Tally& g_tally = *static_cast<Tally*>(::testing::AddGlobalTestEnvironment(new Tally));

using Key = std::pair<std::string, std::string>;  // result name, cookie

// One launch request that starts (or would start) a reset, as the process should treat it.
struct ResetRun {
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
    g_autoptr(GDateTime) time = g_date_time_new_from_iso8601(utc.c_str(), nullptr);
    return time != nullptr
               ? static_cast<double>(g_date_time_to_unix(time)) + g_date_time_get_microsecond(time) / 1e6
               : 0;
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

    bool StartInstance(std::vector<std::string> argv) {
        argv.insert(argv.begin(), TakResetPath());
        argv = orvix::test::DeviceArgv(argv);
        std::vector<char*> args;
        for (auto& arg : argv) {
            args.push_back(arg.data());
        }
        args.push_back(nullptr);
        g_auto(GStrv) env = g_environ_setenv(g_get_environ(), "ORVIX_HOST_ROOT", Root().c_str(), TRUE);
        env = g_environ_setenv(env, "DBUS_SYSTEM_BUS_ADDRESS", BusAddress().c_str(), TRUE);
        env = g_environ_setenv(env, "ORVIX_LOG_FILE", LogPath(AppName()).c_str(), TRUE);
        env = g_environ_unsetenv(env, orvix::host::kLaunchReadyFdEnv);
        env = g_environ_unsetenv(env, orvix::host::kLaunchRequestFdEnv);
        int log = open(LogPath(AppName()).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        GPid pid = 0;
        bool started = g_spawn_async_with_fds(nullptr, args.data(), env,
                                              GSpawnFlags(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_SEARCH_PATH),
                                              nullptr, nullptr, &pid, -1, log, log, nullptr);
        close(log);
        m_instance = started ? pid : 0;
        return started;
    }

    // Reaps the instance if it has exited; true once it has.
    bool InstanceExited() {
        int status = 0;
        if (m_instance > 0 && waitpid(m_instance, &status, WNOHANG) != m_instance) {
            return false;
        }
        m_exitStatus = m_instance <= 0     ? m_exitStatus
                       : WIFEXITED(status) ? WEXITSTATUS(status)
                                           : 128 + WTERMSIG(status);
        m_instance = 0;
        return true;
    }

    void StopInstance() {
        if (!InstanceExited()) {
            kill(m_instance, SIGKILL);
            waitpid(m_instance, nullptr, 0);
            m_instance = 0;
        }
    }

    // Hands a request to the instance through its launch channel; the first one starts it.
    orvix::host::LaunchDelivery Deliver(const std::vector<std::string>& extras, bool startsIfNone) {
        using orvix::host::LaunchDelivery;
        if (startsIfNone && !m_started) {
            m_started = true;
            return StartInstance(extras) ? LaunchDelivery::Delivered : LaunchDelivery::Failed;
        }
        orvix::host::LaunchExtras pairs;
        for (const auto& extra : extras) {
            size_t at = extra.find('=');
            pairs.emplace_back(extra.substr(0, at), at == std::string::npos ? "" : extra.substr(at + 1));
        }
        // A fresh instance listens only once it runs; until then, and while it is alive, try again.
        LaunchDelivery delivery = LaunchDelivery::NoInstance;
        orvix::test::WaitUntil(
            [&] {
                delivery = orvix::host::DeliverLaunchRequest(AppName(), pairs, 5000, nullptr);
                return delivery != LaunchDelivery::NoInstance || !startsIfNone || InstanceExited();
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

    // Whether an uninstall walk began after the request with this cookie was handled, and is over.
    bool WalkDoneAfter(const std::string& cookie) const {
        pid_t walker = 0;
        bool handled = false;
        for (const auto& line : orvix::test::PlatformLogLines(TakResetLog())) {
            std::string value;
            const std::string& text = line.text;
            if (!handled) {
                handled = orvix::test::RequestValue(line, "userdata", value) && value == cookie;
            } else if (walker == 0 && text.find("m_AppsList size = ") != std::string::npos) {
                walker = line.tid;
            } else if (walker != 0 && line.tid == walker &&
                       (text.find("m_AppsList size ") != std::string::npos ||
                        text.find("pfUninstallAppAPI is NULL") != std::string::npos)) {
                return true;
            }
        }
        return false;
    }

    std::set<std::string> AppIds() const {
        reset_test::Lines ids = Rows("select id from widgetinfo;");
        return {ids.begin(), ids.end()};
    }

    // Every file and directory of the root a reset has no business with.
    std::map<std::string, std::string> Snapshot() const {
        std::vector<std::string> skipped = ResetDirectories(true);
        const std::string home = orvix::host::PathVariable(0) + "/owner/";
        skipped.insert(skipped.end(),
                       {Root() + "/var", Root() + "/run", Root() + "/etc/libtak_common.json", DatabasePath(),
                        ServiceDir(2, "log"), ServiceDir(27, "bnr_backup/bnr_backup.json"),
                        // The data store's backup copy (and its journal while a write is under way).
                        ServiceDir(27, "takdb_backup/.vardell.db"), home + ".cache/Apps/WebAppsCache",
                        home + "apps_rw/xwalk-service"});
        return ResetFixture::Snapshot(skipped);
    }

    std::chrono::milliseconds Bound(std::chrono::milliseconds bound) const {
        return m_failures.empty() ? bound : std::min<std::chrono::milliseconds>(bound, 5s);
    }

    void FailIf(bool broken, const std::string& text) {
        if (broken) {
            m_failures.push_back(text);
        }
    }

    // ---- the scenario ----

    void Prepare() {
        SetSystemFlag("android_on_orvix.support", m_scenario.android);
        SetLibTakBehaviour(m_scenario.Behaviour({}));
        // 0 reads as no deadline, as an absent setting does.
        SetSetting("int", "db/tak/reset_callback_timeout_sec", std::to_string(m_scenario.deadlineSec));
        std::set<std::string> wanted;
        for (const App& app : m_scenario.apps) {
            wanted.insert(app.id);
            FailIf(!AddApp({app.id, app.type, app.disableReset, false}, static_cast<int>(wanted.size())),
                   "[7 app table] the stand-in daemon did not take the app " + Shown(app.id));
        }
        m_initialIds = AppIds();
        FailIf(m_initialIds != wanted, "[7 app table] the table does not hold the scenario's apps");
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

    // The run a launch request starts, as the process should treat it.
    void Model(size_t index, const Step& step) {
        ResetRun run;
        run.kind = step.kind;
        int silent = 0, lies = 0;
        for (const App& app : m_scenario.apps) {
            auto answer = m_answers.find(app.id);
            if (!Scenario::Kept(app) && answer != m_answers.end()) {
                silent += answer->second.mode == Answer::Silent;
                lies += answer->second.Lies();
            }
        }
        const bool deadline = m_scenario.deadlineSec > 0;
        const bool builtIn = step.kind == Kind::BuiltInApp || step.kind == Kind::BuiltInService;
        int& current = builtIn ? m_currentBuiltIn : m_currentReset;
        const int previous = current;
        if (step.kind == Kind::Junk || (step.kind == Kind::Corvane && m_corvaneRan)) {
            run.ignored = true;
            m_ignoredCorvanes += step.kind == Kind::Corvane;
        } else if (builtIn) {
            run.reports = {ResultName(step.kind), step.cookie};
            run.answersStop = true;
            run.completes = !m_scenario.installSilent || deadline || m_builtInRan;
            m_builtInRan = true;
        } else {
            // After a Corvane reset on a board with Android apps, every later apps reset of the process
            // ends the Corvane way, and no stopped apps reset answers any more.
            bool corvaneEnd = step.kind == Kind::Corvane || (m_corvaneRan && m_scenario.android);
            run.reports =
                corvaneEnd ? Key{"corvane_reset_result", "0"} : Key{ResultName(step.kind), step.cookie};
            run.answersStop = step.kind == Kind::App && !m_corvaneRan;
            bool uninstalls = step.kind != Kind::Corvane || m_scenario.android;
            run.completes = !uninstalls || deadline || silent == 0;
            // A lying callback (a second answer in time, an answer naming an app nobody asked for) ends
            // the run that is current again, whichever run its request came from; answers the deadline
            // gave up on, or that a stopped run still owed, never do.
            run.lies = uninstalls ? lies + (previous >= 0 ? m_runs[previous].lies : 0) : 0;
            m_corvaneRan = m_corvaneRan || step.kind == Kind::Corvane;
        }
        if (!run.ignored) {
            if (previous >= 0) {
                m_runs[previous].replaced = true;
            }
            current = static_cast<int>(m_runs.size());
        }
        run.countAtLaunch = ResultCounts()[run.reports];
        m_runOf[index] = m_runs.size();
        m_runs.push_back(run);
    }

    void Execute() {
        for (size_t i = 0; i < m_scenario.steps.size(); ++i) {
            const Step& step = m_scenario.steps[i];
            switch (step.type) {
                case Step::Library:
                    m_answers = step.answers;
                    ChangeLibTakBehaviour(m_scenario.Behaviour(step.answers));
                    break;
                case Step::Launch:
                    Model(i, step);
                    FailIf(Deliver(step.extras, true) != orvix::host::LaunchDelivery::Delivered,
                           "[launch] step " + std::to_string(i + 1) + " was not taken by tak-reset");
                    break;
                case Step::WaitRequests:
                    if (Walks(step.of)) {
                        orvix::test::WaitUntil(
                            [&] { return WalkDoneAfter(m_scenario.steps[step.of].cookie); }, Bound(10s));
                    }
                    break;
                case Step::WaitResult:
                    WaitForReport(step.of);
                    break;
                case Step::RestartDaemon:
                    m_daemonRestarted = true;
                    Kill(InnerServer());
                    FailIf(Host({"up"}).status != 0, "[kit] orvix-host up failed");
                    break;
                case Step::End:
                    for (int current : {m_currentReset, m_currentBuiltIn}) {
                        if (current >= 0) {
                            m_runs[current].stopped = true;
                        }
                    }
                    FailIf(Deliver(step.extras, true) != orvix::host::LaunchDelivery::Delivered,
                           "[3 end] 'reset=end' was not taken by tak-reset");
                    break;
                case Step::AfterEnd:
                    m_afterEnd.push_back(step.cookie);
                    Deliver(step.extras, false);
                    break;
            }
        }
        const bool exited = orvix::test::WaitUntil([&] { return InstanceExited(); }, Bound(30s));
        StopInstance();  // nothing to stop once it has exited
        FailIf(!exited || m_exitStatus != 0,
               "[3 end] no exit 0 after 'reset=end': " + std::to_string(m_exitStatus));
    }

    const ResetRun* RunOf(size_t launch) const {
        auto found = m_runOf.find(launch);
        return found == m_runOf.end() || m_runs[found->second].ignored ? nullptr : &m_runs[found->second];
    }

    // Whether the launch makes uninstall requests: a Corvane reset does only on a board with Android apps,
    // and a refused one not at all.
    bool Walks(size_t launch) const {
        const ResetRun* run = RunOf(launch);
        return run != nullptr && (run->kind != Kind::Corvane || m_scenario.android);
    }

    // A run whose requests are all answered reports within the bound, unless a later request replaced it.
    void WaitForReport(size_t launch) {
        const ResetRun* run = RunOf(launch);
        if (run == nullptr || run->replaced || run->stopped || !run->completes ||
            orvix::test::WaitUntil([&] { return ResultCounts()[run->reports] > run->countAtLaunch; },
                                   Bound(30s))) {
            return;
        }
        // A report lost to a restarted daemon is no failure.
        FailIf(LostResults() == 0, "[2 reports] step " + std::to_string(launch + 1) + " (" +
                                       KindName(run->kind) + ") did not report " + run->reports.first +
                                       " though all was answered");
    }

    // ---- the invariants ----

    void CheckResults() {
        const bool mayLose = m_daemonRestarted && LostResults() > 0;
        std::map<Key, std::pair<size_t, size_t>> expected;  // min, max
        for (const ResetRun& run : m_runs) {
            if (!run.ignored) {
                auto& range = expected[run.reports];
                range.first += !mayLose && run.answersStop && (run.replaced || run.stopped);
                range.second += 1 + static_cast<size_t>(run.lies);
            }
        }
        const bool threadFailed = CountInLog("thread fail.") > 0;
        std::map<Key, size_t> counts;
        for (const auto& call : CallsOf("innerserver", "process_result")) {
            const Json::Value& args = call["args"];
            std::string line = orvix::host::JsonLine(args);
            if (args.size() != 4 || !args[0].isString() || !args[1].isInt() || !args[2].isString() ||
                args[3].asString() != "") {
                FailIf(true, "[4 well formed] malformed result " + line);
                continue;
            }
            FailIf(args[1].asInt() != 1 && !(args[1].asInt() == 0 && threadFailed),
                   "[4 well formed] result value " + std::to_string(args[1].asInt()) + " in " + line);
            ++counts[{args[0].asString(), args[2].asString()}];
        }
        for (const auto& [key, count] : counts) {
            const std::string what = key.first + " for userdata " + key.second;
            FailIf(expected.count(key) == 0, "[1 once] " + what + ", which no handled request carried");
            FailIf(std::count(m_afterEnd.begin(), m_afterEnd.end(), key.second) > 0,
                   "[3 end] after end: " + what);
        }
        for (const auto& [key, range] : expected) {
            const std::string what = std::to_string(counts[key]) + " x " + key.first + " for " + key.second;
            FailIf(counts[key] > range.second,
                   "[1 once] " + what + ", at most " + std::to_string(range.second));
            FailIf(counts[key] < range.first, "[2 reports] " + what + ", a stopped run answers all the same");
        }
        for (const auto& call : CallsOf("managerclient.tv", "tak_builtin_app_service_reset_result")) {
            const Json::Value& args = call["args"];
            FailIf(args.size() != 4 || args[1].asInt() < 500 || args[1].asInt() > 502,
                   "[4 well formed] built-in progress " + orvix::host::JsonLine(args));
        }
    }

    void CheckLog() {
        bool ended = false;
        for (const auto& line : orvix::test::PlatformLogLines(TakResetLog())) {
            std::string value;
            if (orvix::test::RequestValue(line, "reset", value)) {
                FailIf(ended, "[3 end] a request (reset=" + value + ") was handled after 'reset=end'");
                ended = ended || value == "end";
            }
        }
        FailIf(CountInLog("corvane reset still doing, no need to perform it again") > m_ignoredCorvanes,
               "[2 reports] more Corvane requests refused than came after the first");
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(Root() + "/var/log", error)) {
            const std::string text = orvix::test::ReadWholeFile(entry.path().string());
            for (const char* bad : {"WARNING **", "CRITICAL **", "runtime error:", "Sanitizer"}) {
                FailIf(text.find(bad) != std::string::npos,
                       "[5 log] " + entry.path().string() + " holds " + bad);
            }
        }
    }

    void CheckFiles() {
        std::map<std::string, std::string> now = Snapshot(), paths = m_snapshot;
        paths.insert(now.begin(), now.end());
        for (const auto& [path, size] : paths) {
            FailIf(m_snapshot[path] != now[path], "[6 files] " + path + " was touched");
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
            FailIf(removed.count(id) == 0 && now.count(id) == 0,
                   "[7 app table] " + Shown(id) + " lost its row though its uninstall never succeeded");
            // A row whose id holds a quote, or is not UTF-8, cannot be named to the daemon safely: it stays.
            bool removable =
                id.find('\'') == std::string::npos && g_utf8_validate(id.data(), id.size(), nullptr);
            FailIf(removed.count(id) != 0 && now.count(id) != 0 && !m_daemonRestarted && removable,
                   "[7 app table] " + Shown(id) + " kept its row though its uninstall succeeded");
        }
        for (const auto& id : now) {
            FailIf(m_initialIds.count(id) == 0, "[7 app table] a row " + Shown(id) + " appeared");
        }
    }

    // The deadline counts from each app's own request: an app that answered every request in time is
    // never given up on.
    void CheckDeadline() {
        if (m_scenario.deadlineSec == 0) {
            return;
        }
        std::vector<Json::Value> requests = CallsOf("libtak_common", "UninstallAppAPI");
        std::vector<Json::Value> answers = CallsOf("libtak_common", "UninstallAppAPI:callback");
        for (const App& app : m_scenario.apps) {
            if (CountInLog(app.id + ": no final uninstall state within") == 0) {
                continue;
            }
            std::vector<double> asked;
            for (const auto& request : requests) {
                if (request["args"][0]["appkey"].asString() == app.id) {
                    asked.push_back(Seconds(request["time"].asString()));
                }
            }
            // Each request's first final answer, before the next request, came in time.
            bool allInTime = !asked.empty();
            for (size_t r = 0; r < asked.size(); ++r) {
                const double next = r + 1 < asked.size() ? asked[r + 1] : 1e18;
                allInTime =
                    allInTime && std::any_of(answers.begin(), answers.end(), [&](const Json::Value& answer) {
                        double at = Seconds(answer["time"].asString());
                        int state = answer["args"][1].asInt();
                        return answer["args"][0].asString() == app.id && at >= asked[r] && at < next &&
                               at - asked[r] <= m_scenario.deadlineSec - 0.3 &&
                               (state == TAK_EVENT_STATE_UNINSTALL_SUCCESS ||
                                state == TAK_EVENT_STATE_UNINSTALL_FAIL);
                    });
            }
            FailIf(allInTime, "[8 deadline] " + Shown(app.id) + " was given up on though answered in time");
        }
    }

    void Report() {
        ++g_tally.scenarios;
        g_tally.failures += !m_failures.empty();
        std::string text;
        for (const auto& failure : m_failures) {
            text += "  " + failure + "\n";
        }
        EXPECT_TRUE(m_failures.empty()) << text << "replay: make explore SEED=" << m_scenario.seed << "\n"
                                        << m_scenario.Describe();
    }

    Scenario m_scenario;
    Answers m_answers;
    std::vector<ResetRun> m_runs;
    std::map<size_t, size_t> m_runOf;  // launch step -> run
    int m_currentReset = -1, m_currentBuiltIn = -1;
    bool m_corvaneRan = false, m_builtInRan = false, m_daemonRestarted = false, m_started = false;
    size_t m_ignoredCorvanes = 0;
    std::vector<std::string> m_afterEnd;
    std::set<std::string> m_initialIds;
    std::map<std::string, std::string> m_snapshot;
    std::vector<std::string> m_failures;
    pid_t m_instance = 0;
    int m_exitStatus = -1;
};

TEST_P(AScenario, EndsEveryResetAndReportsItOnce) {
    m_scenario = Generate(GetParam());
    Prepare();
    ASSERT_FALSE(HasFatalFailure());
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

// 50 launch requests sent as fast as possible by 8 launchers at once, every kind of reset mixed, "end"
// last in its launcher's turn. Whatever the interleaving, every request is handled once and in the order
// its launcher sent it, or turned away after "end" with a line that says so (a later request then starts
// a new instance); and every reset answers exactly as its kind promises when it ends or is stopped.
//
// The order in which requests were handled is read back from tak-reset's log: each handled request logs
// its "reset" and "userdata" values on the main thread, every instance into the same file.
#include <atomic>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "FaultFixture.h"
#include "PlatformLog.h"

using namespace fault_test;

namespace {

const int kLaunchers = 8;
const int kRequests = 50;  // the last one is "end"

// The result each kind answers with ("" for none).
std::string ResultOf(const std::string& kind) {
    return kind == "no_such_reset" || kind == "end" ? "" : kind + "_result";
}
const char* const kMix[] = {"tak_app_reset", "biu_app_reset",     "tak_service_reset", "corvane_reset",
                            "tak_app_reset", "biu_service_reset", "no_such_reset"};

// Request n (1 to 50) goes to launcher (n - 1) % 8, so each launcher sends rising cookies; "end" is the
// last request of launcher 1, which has the fewest.
int LauncherOf(int n) {
    return n == kRequests ? 1 : (n - 1) % kLaunchers;
}
std::string KindOf(int n) {
    return n == kRequests ? "end" : kMix[n % 7];
}

struct Handled {
    std::string kind;
    int cookie = -1;  // -1: no "userdata" (the test's own closing "end")
};

// What each instance did, from the log.
struct Instance {
    std::vector<size_t> handled;  // its requests in LogReading::handled
    size_t turnedAway = 0;  // refused by the process after "end", or dropped by the framework at its exit
    size_t corvaneRefusals = 0;
    bool served = false;  // a process of the app that handed its request to the running one serves none
    bool terminated = false;
};

struct LogReading {
    std::vector<Handled> handled;  // in the order they were handled
    std::map<pid_t, Instance> instances;
};

LogReading ReadLog(const std::string& log) {
    static const std::regex dropped(R"(exiting with (\d+) launch request\(s\) not handled)");
    LogReading reading;
    for (const orvix::test::LogLine& line : orvix::test::PlatformLogLines(log)) {
        if (line.pid != line.tid) {
            continue;  // only the main thread handles requests
        }
        const std::string& text = line.text;
        Instance& instance = reading.instances[line.pid];
        std::smatch count;
        std::string value;
        if (orvix::test::RequestValue(line, "reset", value)) {
            instance.handled.push_back(reading.handled.size());
            reading.handled.push_back({value});
        } else if (orvix::test::RequestValue(line, "userdata", value)) {
            reading.handled[instance.handled.back()].cookie = std::stoi(value);
        } else if (text.find("process already exited, do not handle the new event") != std::string::npos) {
            ++instance.turnedAway;
        } else if (std::regex_search(text, count, dropped)) {
            instance.turnedAway += std::stoul(count[1]);
        } else if (text.find("corvane reset still doing, no need to perform it again") != std::string::npos) {
            ++instance.corvaneRefusals;
        } else if (text.find("> CONTROL") != std::string::npos) {
            instance.served = true;
        } else if (text.find("**************Reset EXIT***********") != std::string::npos) {
            instance.terminated = true;
        }
    }
    return reading;
}

}  // namespace

class ALaunchStorm : public FaultFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "3", "--builtin", "2"}; }
};

TEST_F(ALaunchStorm, IsHandledInOrderOrTurnedAwayAfterEndAndEveryResetAnswersAsItsKindPromises) {
    Json::Value behaviour(Json::objectValue);
    behaviour["uninstall"]["bench"] = true;
    behaviour["builtin"]["install"]["delay_ms"] = 5;
    SetLibTakBehaviour(behaviour);
    std::atomic<int> failed{0};
    std::vector<std::thread> launchers;
    for (int l = 0; l < kLaunchers; ++l) {
        launchers.emplace_back([this, &failed, l] {
            for (int n = 1; n <= kRequests; ++n) {
                if (LauncherOf(n) == l) {
                    // raw: the mix holds a reset kind that does not exist, on purpose
                    failed +=
                        Launch({"reset=" + KindOf(n), "userdata=" + std::to_string(n)}, true).status != 0;
                }
            }
        });
    }
    for (auto& launcher : launchers) {
        launcher.join();
    }
    EXPECT_EQ(failed, 0) << "a launch request was not taken";
    // A request turned away by the ending instance started another one; it ends too. The instance seen
    // may be one that is on its way out: then this "end" is handled, turned away, or starts one that only
    // ends.
    size_t closing = 0;
    if (AppRunning()) {
        orvix::test::RunResult launched = Launch({"reset=end"});
        ASSERT_EQ(launched.status, 0) << launched.err;
        closing = 1;
    }
    ASSERT_TRUE(WaitForAppExit(std::chrono::seconds(60)));

    LogReading log = ReadLog(TakResetLog());
    // Every request once: handled (cookie seen once, of its kind, after the earlier ones of its launcher), or
    // turned away after its instance's "end".
    std::set<int> seen;
    std::map<int, int> lastOf;  // each launcher's latest cookie handled
    size_t handled = 0, turnedAway = 0;
    for (const Handled& request : log.handled) {
        EXPECT_TRUE(seen.insert(request.cookie).second || request.cookie == -1) << request.cookie << " twice";
        handled += request.cookie == -1;
        if (request.cookie < 1 || request.cookie > kRequests) {
            continue;
        }
        ++handled;
        EXPECT_EQ(request.kind, KindOf(request.cookie)) << request.cookie;
        int launcher = LauncherOf(request.cookie);
        EXPECT_GT(request.cookie, lastOf[launcher]) << "launcher " << launcher << " overtaken";
        lastOf[launcher] = request.cookie;
    }
    for (const auto& [pid, instance] : log.instances) {
        turnedAway += instance.turnedAway;
        EXPECT_TRUE(instance.terminated || !instance.served)
            << "instance " << pid << " did not end through its terminate callback";
        bool ended = !instance.handled.empty() && log.handled[instance.handled.back()].kind == "end";
        EXPECT_TRUE(instance.turnedAway == 0 || ended) << "instance " << pid << " turned requests away";
    }
    EXPECT_EQ(handled + turnedAway, kRequests + closing);

    // Results: what each kind promises. A stopped apps reset of the app kind answers all the same, unless
    // a Corvane reset ran before it in that process; a built-in reset always answers once; a service
    // reset answers when it ends; a Corvane reset answers once at most per process.
    std::map<int, std::vector<std::string>> resultsOf;
    size_t corvaneResults = 0;
    for (const auto& call : CallsOf("innerserver", "process_result")) {
        EXPECT_EQ(call["args"][1].asInt(), 1) << orvix::host::JsonLine(call["args"]);
        if (call["args"][0].asString() == "corvane_reset_result") {
            ++corvaneResults;
            continue;
        }
        resultsOf[std::stoi(call["args"][2].asString())].push_back(call["args"][0].asString());
    }
    size_t corvaneInstances = 0;
    for (const auto& [pid, instance] : log.instances) {
        size_t corvanes = 0;
        for (size_t at : instance.handled) {
            const Handled& request = log.handled[at];
            const std::vector<std::string>& results = resultsOf[request.cookie];
            const std::string expected = ResultOf(request.kind);
            SCOPED_TRACE(request.kind + " " + std::to_string(request.cookie));
            for (const auto& name : results) {
                EXPECT_EQ(name, expected);
            }
            bool always =
                request.kind.rfind("biu_", 0) == 0 || (request.kind == "tak_app_reset" && corvanes == 0);
            EXPECT_LE(results.size(), expected.empty() ? 0u : 1u);
            if (always) {
                EXPECT_EQ(results.size(), 1u);
            }
            corvanes += request.kind == "corvane_reset";
        }
        corvaneInstances += corvanes > 0;
        EXPECT_EQ(instance.corvaneRefusals, corvanes > 0 ? corvanes - 1 : 0) << "instance " << pid;
    }
    EXPECT_LE(corvaneResults, corvaneInstances);
    for (const auto& [cookie, results] : resultsOf) {
        EXPECT_TRUE(seen.count(cookie) == 1)
            << "a result for request " << cookie << ", which was not handled";
    }
    EXPECT_EQ(CountInLog("Sanitizer"), 0u);
}

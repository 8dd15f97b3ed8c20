// The report of a real reset of each kind agrees with what the kit's library recorded of it: the apps
// asked for, those whose answer said done or failed, those never answered (timed out), those kept; and its
// timeline puts the reset after the start marker the reset process traced, on one clock.
#include <glib.h>
#include <json/json.h>

#include <algorithm>
#include <sstream>

#include "../reset/ResetFixture.h"
#include "ResetReport.h"
#include "ResetTimeline.h"
#include "TraceWriter.h"

using namespace reset_test;
using namespace std::chrono_literals;

namespace {

Lines Strings(const Json::Value& array, const char* member = nullptr) {
    Lines strings;
    for (const auto& item : array) {
        strings.push_back(member == nullptr ? item.asString() : item[member].asString());
    }
    return strings;
}

Lines Sorted(Lines lines) {
    std::sort(lines.begin(), lines.end());
    return lines;
}

struct KindCase {
    const char* name;
    std::string reset;
    bool BuiltIn() const { return reset.rfind("biu_", 0) == 0; }
};

void PrintTo(const KindCase& c, std::ostream* out) {
    *out << c.name;
}

// What the library's call log says of the apps: each request, and the first final state it answered.
struct Outcomes {
    Lines requested, done, failed, timedOut;
};

}  // namespace

class TheReportOfEachKind : public ResetFixture, public ::testing::WithParamInterface<KindCase> {
protected:
    // "fine" is answered done, "bad" failed, "mute" never (a deadline of 1 s ends it); "keep" is kept from
    // an uninstall by its record, "fixed" left out of the installs as not removable.
    void Prepare(const KindCase& test) {
        Json::Value behaviour(Json::objectValue);
        Json::Value& calls = test.BuiltIn() ? behaviour["builtin"]["install"] : behaviour["uninstall"];
        calls["delay_ms"] = 10;
        calls["apps"]["mute"]["silent"] = true;
        if (test.BuiltIn()) {
            calls["apps"]["bad"]["terminal"] = 103;
        } else {
            calls["apps"]["bad"]["fail"] = true;
        }
        AddApps({{"fine"}, {"bad"}, {"mute"}, {"keep", 1, true}});
        for (const char* id : {"fine", "bad", "mute", "fixed"}) {
            const std::string pkg = std::string("pkg.") + id;
            orvix::test::RunResult added =
                Host({"pkg", "add", pkg, "--builtin", "--app", id, "--main", id, "--removable",
                      std::string(id) == "fixed" ? "false" : "true", "--meta",
                      "http://orvix.com/tv/metadata/prefer_instant_reset=true"});
            ASSERT_EQ(added.status, 0) << added.err;
            Json::Value entry;
            entry["appId"] = id;
            entry["pkgId"] = pkg;
            behaviour["builtin"]["list"].append(entry);
        }
        SetSystemFlag("android_on_orvix.support", test.reset == "corvane_reset");
        SetLibTakBehaviour(behaviour);
        SetSetting("int", "db/tak/reset_callback_timeout_sec", "1");
    }

    Outcomes Recorded(bool builtIn) const {
        const std::string entry = builtIn ? "InstallAppAPI" : "UninstallAppAPI";
        const int done = builtIn ? 110 : 122;
        const std::vector<int> failed = builtIn ? std::vector<int>{103, 111} : std::vector<int>{123};
        Outcomes outcomes;
        for (const auto& call : CallsOf("libtak_common", entry)) {
            outcomes.requested.push_back(builtIn ? call["args"][0][0][1].asString()
                                                 : call["args"][0]["appkey"].asString());
        }
        const auto callbacks = CallsOf("libtak_common", entry + ":callback");
        for (const std::string& id : outcomes.requested) {
            int state = 0;
            for (const auto& callback : callbacks) {
                int answered = callback["args"][1].asInt();
                bool final = answered == done || std::count(failed.begin(), failed.end(), answered) > 0;
                if (state == 0 && final && callback["args"][0].asString() == id) {
                    state = answered;
                }
            }
            (state == done ? outcomes.done : state == 0 ? outcomes.timedOut : outcomes.failed).push_back(id);
        }
        return outcomes;
    }
};

TEST_P(TheReportOfEachKind, AgreesWithTheRecordedCalls) {
    const KindCase& test = GetParam();
    ASSERT_NO_FATAL_FAILURE(Prepare(test));
    ASSERT_EQ(Host({"client", "tv"}).status, 0);
    RunToEnd({"reset=" + test.reset, "userdata=77", "obj=tv", "method=m"}, test.reset + "_result");

    orvix::test::RunResult run = orvix::test::RunProgram(
        orvix::test::DeviceArgv({BinaryDir() + "/src/tak-reset-report", "--json", Root()}));
    ASSERT_EQ(run.status, 0) << run.err << run.out;
    EXPECT_EQ(run.err, "");
    Json::Value document;
    std::istringstream(run.out) >> document;  // throws, failing the test, when it is not JSON
    const Json::Value resets = document["resets"];
    ASSERT_EQ(resets.size(), 1u) << run.out;
    const Json::Value& reset = resets[0];

    const Json::Value call = CallsOf("innerserver", "process_result").at(0)["args"];
    EXPECT_EQ(reset["kind"].asString(), test.reset);
    EXPECT_EQ(reset["outcome"].asString(), "reported");
    EXPECT_EQ(reset["result"]["name"], call[0]);
    EXPECT_EQ(reset["result"]["value"], call[1]);
    EXPECT_TRUE(reset["result"]["logged"].asBool());
    EXPECT_TRUE(reset["result"]["delivered"].asBool());

    // The span read from the reset's platform log and the marker of its process in the kit's trace file.
    CResetReport report;
    std::string problem;
    ASSERT_TRUE(report.Read(Root(), problem)) << problem;
    g_autoptr(GDateTime) now = g_date_time_new_now_local();
    CTraceWriter writer;
    writer.AddSpans(CResetTimeline::FromResets(report.Resets(), g_date_time_get_year(now)));
    ASSERT_TRUE(writer.AddTraceFile(CTraceWriter::KitTraceIn(Root())));
    const Json::Value* marker = nullptr;
    const Json::Value* span = nullptr;
    for (const Json::Value& event : writer.Document()["traceEvents"]) {
        if (event["name"].asString() == "[BEGIN]CResetCore:OnCreate:Reset process start") {
            marker = &event;
        } else if (event["ph"].asString() == "X") {
            span = &event;
        }
    }
    ASSERT_TRUE(marker != nullptr && span != nullptr) << "no start marker or no reset span";
    EXPECT_EQ((*marker)["ph"].asString(), "B");
    EXPECT_EQ((*marker)["pid"].asInt(), report.Resets()[0].pid);
    // The log's times are cut to the millisecond; the request comes after the process started, within
    // what a loaded machine takes.
    const int64_t after = (*span)["ts"].asInt64() + 1000 - (*marker)["ts"].asInt64();
    EXPECT_TRUE(after >= 0 && after < 60 * G_USEC_PER_SEC) << after << " µs from the marker to the reset";

    const Outcomes recorded = Recorded(test.BuiltIn());
    EXPECT_EQ(recorded.timedOut, Lines{"mute"});  // the behaviour file took effect
    EXPECT_EQ(Strings(reset["requested"]), recorded.requested);
    EXPECT_EQ(Sorted(Strings(reset[test.BuiltIn() ? "installed" : "uninstalled"])), Sorted(recorded.done));
    EXPECT_EQ(Sorted(Strings(reset["failed"])), Sorted(recorded.failed));
    EXPECT_EQ(Strings(reset["timed_out"]), recorded.timedOut);
    if (test.BuiltIn()) {
        EXPECT_EQ(Strings(reset["install_order"]), recorded.requested);
        EXPECT_EQ(Strings(reset["skipped"], "id"), Lines{"fixed"}) << run.out;
        EXPECT_EQ(Strings(reset["skipped"], "reason"), Lines{"not removable"});
        return;
    }
    // Every app record the reset did not ask to uninstall is kept, with the reason its record gives.
    Lines kept;
    for (const char* id : {"fine", "bad", "mute", "keep"}) {
        if (std::count(recorded.requested.begin(), recorded.requested.end(), id) == 0) {
            kept.push_back(id);
        }
    }
    EXPECT_EQ(Strings(reset["kept"], "id"), kept) << run.out;
    EXPECT_EQ(Strings(reset["kept"], "reason"), Lines{"disable reset"}) << run.out;
    EXPECT_GT(reset["emptied"].size(), 0u) << run.out;
    EXPECT_TRUE(reset["waits"]["clean_up_ms"].isIntegral()) << run.out;
}

const KindCase kKinds[] = {{"Apps", "tak_app_reset"},
                           {"Service", "tak_service_reset"},
                           {"CorvaneOnAndroidBoard", "corvane_reset"},
                           {"BuiltInApps", "biu_app_reset"},
                           {"BuiltInService", "biu_service_reset"}};
INSTANTIATE_TEST_SUITE_P(Kinds, TheReportOfEachKind, ::testing::ValuesIn(kKinds),
                         [](const auto& info) { return std::string(info.param.name); });

// The report read from small platform logs written as Dlog and the service's log macros write them.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ReportLog.h"
#include "ReportPrinter.h"

namespace {

const int kPid = 500;
const long kMain = 500, kAppsTask = 501, kBuiltinTask = 502, kCallback = 503;

// One line of process `pid`, as TAKLogPrint and dlog_print write it.
std::string Line(const std::string& time, char level, long tid, const std::string& source,
                 const std::string& message, int pid = kPid) {
    char ids[32];
    snprintf(ids, sizeof(ids), "(%5d:%5ld): ", pid, tid);
    return "11-26 " + time + " " + level + "/TAK" + ids + "\033[33m../../src/" + source + ": f(1) > " +
           message + "\033[0m";
}

std::string Core(const std::string& time, const std::string& message, char level = 'I') {
    return Line(time, level, kMain, "Reset/src/ResetCore", message);
}

std::vector<std::string> Request(const std::string& time, const std::string& kind,
                                 const std::string& cookie) {
    const std::string control = "Commons/Common/src/ProcessCore";
    return {Line(time, 'I', kMain, control, "CONTROL"),
            Line(time, 'I', kMain, control, "has key[reset] value[" + kind + "]"),
            Line(time, 'I', kMain, control, "has key[userdata] value[" + cookie + "]")};
}

std::vector<std::string> Result(const std::string& time, long tid, const std::string& answer) {
    const std::string bus = "Commons/Common/src/ProcessDbus";
    return {Line(time, 'D', tid, bus,
                 "MethodCall : ObjPath:[/org/orvix/tv/vardell/innerserver], MethodName:[process_result]"),
            Line(time, 'D', tid, bus, answer)};
}

// The result line the reset writes beside its bus call: name and value as they were sent.
std::string Named(const std::string& time, long tid, const std::string& name, int value,
                  const std::string& cookie) {
    return Line(
        time, 'I', tid, "Commons/Common/src/ProcessDbus",
        "process_result name[" + name + "] value[" + std::to_string(value) + "] cookie[" + cookie + "]");
}

std::vector<std::string> Join(std::initializer_list<std::vector<std::string>> parts) {
    std::vector<std::string> all;
    for (const auto& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// `label` and the items joined by commas; nothing when there are none, unless `always`.
std::string List(const char* label, const std::vector<std::string>& items, bool always = false) {
    std::string text;
    for (const std::string& item : items) {
        text += (text.empty() ? "" : ",") + item;
    }
    return items.empty() && !always ? "" : label + text;
}

std::vector<std::string> Pairs(const std::vector<std::pair<std::string, std::string>>& pairs) {
    std::vector<std::string> items;
    for (const auto& [id, why] : pairs) {
        items.push_back(id + ":" + why);
    }
    return items;
}

// One reset in a line: what a case expects, with what matters and nothing else.
std::string Summary(const SResetRecord& reset) {
    std::ostringstream out;
    out << reset.kind << " ud=" << reset.userdata << " " << CReportPrinter::EndName(reset.how) << " "
        << reset.durationMs << "ms";
    if (!reset.resultName.empty()) {
        out << " " << reset.resultName << "=" << reset.resultValue << (reset.resultDelivered ? "" : "!");
    }
    out << List(" req=", reset.requested, true) << List(" done=", reset.Done(), true)
        << List(" failed=", reset.failed) << List(" timedout=", reset.timedOut)
        << (reset.resultLogged ? " named" : "") << (reset.refused ? " refused" : "")
        << List(" kept=", Pairs(reset.kept)) << List(" skipped=", Pairs(reset.skipped))
        << List(" late=", reset.stoppedAnswers) << List(" emptied=", reset.emptied)
        << List(" order=", reset.installOrder) << List(" waitedfor=", reset.waitedFor);
    const std::pair<const char*, const SSpan*> spans[] = {
        {" binder=", &reset.binderWait}, {" updates=", &reset.updatesWait}, {" cleanup=", &reset.cleanUp}};
    for (const auto& span : spans) {
        out << (span.second->Started() ? span.first + std::to_string(span.second->Us() / 1000) + "ms" : "");
    }
    // Each answered app's time from request to answer.
    std::vector<std::string> times;
    for (const SAppTiming& app : reset.apps) {
        if (app.span.Us() >= 0) {
            times.push_back(app.id + ":" + std::to_string(app.span.Us() / 1000));
        }
    }
    return out.str() + List(" ms=", times);
}

struct LogCase {
    const char* name;
    std::vector<std::string> lines;
    std::vector<std::string> resets;  // Summary() of each
    size_t unreadable = 0;
    size_t foreign = 0;
    size_t repaired = 0;  // lines with bytes that are not UTF-8, read all the same
};

void PrintTo(const LogCase& c, std::ostream* out) {
    *out << c.name;
}

const std::string kApps = "Reset/src/Reset", kBuiltin = "Reset/src/BuiltInAppReset";

std::vector<LogCase> Cases() {
    std::vector<std::string> start = {Core("10:00:00.000", "----------Reset main() start.---------", 'E')};
    std::vector<std::string> appsReset = Join({start,
                                               Request("10:00:01.000", "tak_app_reset", "42"),
                                               {Core("10:00:01.000", "App Reset Start", 'E')}});
    std::vector<std::string> threeApps = {
        Line("10:00:01.100", 'I', kAppsTask, kApps, "Reset a"),
        Line("10:00:01.100", 'I', kAppsTask, kApps, "Reset b"),
        Line("10:00:01.100", 'I', kAppsTask, kApps, "Reset c"),
        Line("10:00:01.150", 'I', kCallback, kApps, "uninstall callback appid a "),
        Line("10:00:01.200", 'W', kCallback, kApps, "uninstall of b failed"),
        Line("10:00:01.200", 'I', kCallback, kApps, "uninstall callback appid b "),
        Line("10:00:03.100", 'W', kAppsTask, kApps, "uninstall of c timed out after 2 s")};
    std::vector<std::string> success = Result("10:00:03.500", kAppsTask, "method call success");
    std::string full = Line("10:00:01.100", 'I', kAppsTask, kApps, "Reset z");
    const std::string rules = "Reset/src/AppsResetRules", list = "Reset/src/BuiltInAppList";
    std::vector<std::string> serviceStages = {
        Line("10:00:02.000", 'I', kAppsTask, kApps, "binder is not created yet, waiting..."),
        Line("10:00:02.400", 'I', kCallback, kApps, "SetCommunicatorBinderCreated"),
        Line("10:00:02.400", 'E', kCallback, kApps,
             "q answered a request of a stopped reset, callback ignored"),
        Line("10:00:02.500", 'I', kAppsTask, rules,
             "d is default/native[1], continue to uninstall next apps"),
        Line("10:00:02.500", 'I', kAppsTask, rules,
             "e is configured as disable reset, continue to uninstall next apps"),
        Line("10:00:02.500", 'I', kAppsTask, rules, "hard-coded for DF200715-00947, do not uninstall f"),
        Line("10:00:02.500", 'I', kAppsTask, kApps, "Reset a"),
        Line("10:00:02.800", 'I', kCallback, kApps, "uninstall callback appid a "),
        Line("10:00:03.000", 'I', kAppsTask, kApps, "clean-up of 7 steps starts"),
        Line("10:00:03.100", 'I', kAppsTask, kApps, "clean-up emptied /d/common/"),
        Named("10:00:03.600", kAppsTask, "tak_service_reset_result", 0, "5")};
    std::vector<std::string> builtinStages = {
        Line("10:00:01.100", 'I', kBuiltinTask, list, "s[ps] not installed, skip it"),
        Line("10:00:01.100", 'I', kBuiltinTask, list, "remove Home base/test pkg hp from general biu list"),
        Line("10:00:01.100", 'I', kBuiltinTask, "Reset/src/BuiltInResetRules", "add m to instant reset list"),
        Line("10:00:01.100", 'I', kBuiltinTask, "Reset/src/BuiltInResetRules", "add n to instant reset list"),
        Line("10:00:01.200", 'I', kBuiltinTask, kBuiltin, "waiting for background updates of pm,pn"),
        Line("10:00:01.700", 'I', kBuiltinTask, kBuiltin, "Reset m"),
        Line("10:00:01.900", 'I', kCallback, kBuiltin, "install of m answered with state 110"),
        Line("10:00:02.000", 'I', kBuiltinTask, kBuiltin, "Reset n"),
        Line("10:00:03.000", 'W', kBuiltinTask, kBuiltin, "install of n timed out after 1 s"),
        Named("10:00:03.100", kBuiltinTask, "biu_app_reset_result", 1, "3")};
    return {
        {"StagesOfAServiceResetAndTheResultAsLogged",
         Join({appsReset,
               {Line("10:00:01.100", 'I', kAppsTask, kApps, "Reset p")},
               Request("10:00:02.000", "tak_service_reset", "5"),
               {Core("10:00:02.000", "App Reset Start", 'E'),
                Core("10:00:02.000", "Send CTAKTaskBase::EVENT_EXIT to m_Reset!")},
               serviceStages,
               Result("10:00:03.600", kAppsTask, "method call success")}),
         {"tak_app_reset ud=42 replaced 1000ms req=p done= late=q",
          "tak_service_reset ud=5 reported 1600ms tak_service_reset_result=0 req=a done=a named "
          "kept=d:default/native,e:disable reset,f:fixed id emptied=/d/common/ binder=400ms cleanup=600ms "
          "ms=a:300"}},
        {"BuiltinOrderSkipsWaitAndARefusal",
         Join({start,
               Request("10:00:01.000", "biu_app_reset", "3"),
               {Core("10:00:01.000", "BuiltIn Reset Start")},
               builtinStages,
               Request("10:00:04.000", "biu_service_reset", "4"),
               {Core("10:00:04.000", "BuiltIn Reset Start"),
                Line("10:00:04.100", 'I', kBuiltinTask, kBuiltin,
                     "Server upgrade not support or Reset is already in process. this time reset will be "
                     "skipped"),
                Named("10:00:04.200", kBuiltinTask, "biu_service_reset_result", 1, "4")}}),
         {"biu_app_reset ud=3 reported 2100ms biu_app_reset_result=1! req=m,n done=m timedout=n named "
          "skipped=s:not installed,hp:Home base or test package order=m,n waitedfor=pm,pn updates=500ms "
          "ms=m:200,n:1000",
          "biu_service_reset ud=4 reported 200ms biu_service_reset_result=1! req= done= named refused"}},
        {"ResultCallThatFails",
         Join({appsReset,
               Result("10:00:02.000", kAppsTask, "method call false.x, detail[message:y, code:1] ")}),
         {"tak_app_reset ud=42 reported 1000ms tak_app_reset_result=1! req= done="}},
        {"EndedByEnd",
         Join({appsReset,
               Request("10:00:04.000", "end", "0"),
               {Core("10:00:04.000", "Send CTAKTaskBase::EVENT_EXIT to m_Reset!")}}),
         {"tak_app_reset ud=42 ended 3000ms req= done="}},
        {"NoEndInTheLog", appsReset, {"tak_app_reset ud=42 open -1ms req= done="}},
        {"TaskNotCreated",
         Join({appsReset,
               {Core("10:00:01.000", "Create apps reset thread fail.", 'E')},
               Result("10:00:01.000", kMain, "method call success")}),
         {"tak_app_reset ud=42 failed 0ms tak_app_reset_result=0 req= done="}},
        {"CorvaneRequestWhileOneRuns",
         Join({start,
               Request("10:00:01.000", "corvane_reset", "0"),
               {Core("10:00:01.000", "Corvane Start")},
               Request("10:00:02.000", "corvane_reset", "0"),
               {Core("10:00:02.000", "Corvane Start"),
                Core("10:00:02.000", "corvane reset still doing, no need to perform it again")},
               Result("10:00:05.000", kAppsTask, "method call success")}),
         {"corvane_reset ud=0 reported 4000ms corvane_reset_result=1 req= done="}},
        {"BuiltinResetBesideAnAppsReset",
         Join({appsReset,
               Request("10:00:01.500", "biu_service_reset", "9"),
               {Core("10:00:01.500", "BuiltIn Reset Start"),
                Line("10:00:01.600", 'I', kBuiltinTask, kBuiltin, "Reset x"),
                Line("10:00:01.600", 'I', kBuiltinTask, kBuiltin, "Reset y"),
                Line("10:00:01.600", 'I', kBuiltinTask, kBuiltin, "Reset w"),
                Line("10:00:01.700", 'I', kCallback, kBuiltin, "install of x answered with state 3"),
                Line("10:00:01.700", 'W', kCallback, kBuiltin, "install of x failed (state 3)"),
                Line("10:00:02.750", 'I', kCallback, kBuiltin, "install of w answered with state 110"),
                Line("10:00:02.700", 'W', kBuiltinTask, kBuiltin, "install of y timed out after 1 s")},
               threeApps,
               Result("10:00:02.800", kBuiltinTask, "method call success"),
               success}),
         {"tak_app_reset ud=42 reported 2500ms tak_app_reset_result=1 req=a,b,c done=a "
          "failed=b timedout=c ms=a:50,b:100,c:2000",
          "biu_service_reset ud=9 reported 1300ms biu_service_reset_result=1 req=x,y,w done=w "
          "failed=x timedout=y ms=x:100,y:1100,w:1150"}},
        // A line cut short, one not UTF-8 before its header, another process's, a message going on past a
        // newline, one with a byte that is not UTF-8.
        {"DamagedForeignAndSplitLines",
         Join({appsReset,
               {full.substr(0, 12), "\xff\xfe" + full, Line("10:00:01.100", 'I', 9, kApps, "Reset q", 900),
                full.substr(0, full.size() - 4) + "\n", "\033[0m"},
               threeApps,
               {Line("10:00:03.200", 'I', kAppsTask, kApps, "Reset r\xff")},
               success}),
         {"tak_app_reset ud=42 reported 2500ms tak_app_reset_result=1 req=z,a,b,c,r\xef\xbf\xbd done=a "
          "failed=b timedout=c ms=a:50,b:100,c:2000"},
         2,
         1,
         1},
    };
}

class TheReportLog : public ::testing::TestWithParam<LogCase> {};

TEST_P(TheReportLog, ReadsEachResetOfTheLog) {
    CReportLog log;
    for (const std::string& text : GetParam().lines) {
        std::istringstream lines(text);  // a case's line may hold a newline, as a file's would
        for (std::string line; std::getline(lines, line);) {
            log.AddLine(line);
        }
    }
    std::vector<std::string> resets;
    for (const SResetRecord& reset : log.Resets()) {
        resets.push_back(Summary(reset));
    }
    EXPECT_EQ(resets, GetParam().resets);
    EXPECT_EQ(log.Unreadable(), GetParam().unreadable);
    EXPECT_EQ(log.Foreign(), GetParam().foreign);
    EXPECT_EQ(log.Repaired(), GetParam().repaired);
}

INSTANTIATE_TEST_SUITE_P(Logs, TheReportLog, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<LogCase>& info) { return info.param.name; });

}  // namespace

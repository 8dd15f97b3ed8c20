// The timeline of a real apps reset: the span read from its platform log and the start marker the reset
// process traced lie on one clock in the trace file.
#include <glib.h>

#include "../reset/ResetFixture.h"
#include "ResetReport.h"
#include "ResetTimeline.h"
#include "TraceWriter.h"

using namespace reset_test;

class TheTimeline : public ResetFixture {};

TEST_F(TheTimeline, PutsTheResetAfterTheProcessStartMarkerOnOneClock) {
    AddApps({{"one"}, {"two"}});
    RunToEnd({"reset=tak_app_reset", "userdata=5"}, "tak_app_reset_result");

    CResetReport report;
    std::string problem;
    ASSERT_TRUE(report.Read(Root(), problem)) << problem;
    g_autoptr(GDateTime) now = g_date_time_new_now_local();
    std::vector<STimelineSpan> spans = CResetTimeline::FromResets(report.Resets(), g_date_time_get_year(now));
    ASSERT_EQ(spans.size(), 1u);
    CTraceWriter writer;
    writer.AddSpans(spans);
    ASSERT_TRUE(writer.AddTraceFile(CTraceWriter::KitTraceIn(Root())));

    const Json::Value* marker = nullptr;
    const Json::Value* reset = nullptr;
    for (const Json::Value& event : writer.Document()["traceEvents"]) {
        if (event["name"].asString() == "[BEGIN]CResetCore:OnCreate:Reset process start") {
            marker = &event;
        } else if (event["ph"].asString() == "X") {
            reset = &event;
        }
    }
    ASSERT_TRUE(marker != nullptr && reset != nullptr) << "no start marker or no reset span";
    EXPECT_EQ((*marker)["ph"].asString(), "B");
    EXPECT_EQ((*marker)["pid"].asInt(), report.Resets()[0].pid);
    // The log's times are cut to the millisecond; the request comes after the process started, within
    // what a loaded machine takes.
    const int64_t after = (*reset)["ts"].asInt64() + 1000 - (*marker)["ts"].asInt64();
    EXPECT_TRUE(after >= 0 && after < 60 * G_USEC_PER_SEC) << after << " µs from the marker to the reset";
}

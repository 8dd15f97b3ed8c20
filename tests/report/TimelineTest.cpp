// The reset timeline: spans from the report's records, the Chrome trace file (spans merged with the kit's
// own trace events) and the picture as PNG and SVG.
#include <cairo.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "HostFixture.h"
#include "ResetTimeline.h"
#include "TimelinePicture.h"
#include "TraceWriter.h"

namespace {

using EKind = STimelineSpan::EKind;

const int64_t kSecond = 1000000;

class TimelineTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/tak_timeline_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::string dir_;
};

int64_t Micros(const std::string& time, int year = 2026) {
    int64_t micros = 0;
    EXPECT_TRUE(CResetTimeline::LogTimeToMicros(time, year, micros)) << time;
    return micros;
}

SResetRecord Reset(const std::string& kind, const std::string& start, const std::string& end, EResetEnd how) {
    SResetRecord reset;
    reset.kind = kind;
    reset.pid = 500;
    reset.start = start;
    reset.end = end;
    reset.how = how;
    return reset;
}

std::string Describe(const STimelineSpan& span, int64_t origin) {
    const char* kinds[] = {"app", "stage", "wait"};
    return span.row + " | " + kinds[static_cast<int>(span.kind)] + " " +
           std::to_string((span.startUs - origin) / 1000) + "+" +
           std::to_string((span.endUs - span.startUs) / 1000) + "ms";
}

uint32_t Packed(const CTimelinePicture::SColour& colour) {
    return static_cast<uint32_t>(colour.red << 16 | colour.green << 8 | colour.blue);
}

}  // namespace

// A reset's row holds its run; its apps follow it on rows of their own, the waits marked; an open reset
// waits up to the log's last time; a run across New Year ends in the next year; bad times are refused.
TEST_F(TimelineTest, SpansOfResetsAndTheirApps) {
    std::vector<SResetRecord> resets = {
        Reset("tak_app_reset", "11-26 10:00:01.000", "11-26 10:00:03.500", EResetEnd::Reported),
        Reset("corvane_reset", "11-26 10:00:04.000", "", EResetEnd::Open),
        Reset("biu_app_reset", "12-31 23:59:59.500", "01-01 00:00:00.250", EResetEnd::Replaced),
        Reset("tak_app_reset", "no time", "", EResetEnd::Open),
    };
    // The records' own times: microseconds on the log's clock, which only each reset's start ties to the
    // epoch; the apps' waits of an open reset run to its row's end; a reset without a row gets nothing.
    auto at = [](double seconds) { return std::llround(seconds * kSecond); };
    resets[0].span = {at(1), at(3.5)};
    resets[0].binderWait = {at(1), at(1.1)};
    resets[0].cleanUp = {at(3.2), at(3.5)};
    resets[0].apps = {{"a", {at(1.1), at(1.3)}, SAppTiming::Done},
                      {"c", {at(1.1), at(3.1)}, SAppTiming::TimedOut},
                      {"b", {at(1.4), at(1.5)}, SAppTiming::Failed},
                      {"never asked", {}, SAppTiming::Waiting}};
    resets[1].span = {at(4), -1};
    resets[1].apps = {{"x", {at(4.1), -1}, SAppTiming::Waiting}};
    resets[3].span = {at(7), -1};
    resets[3].apps = {{"y", {at(7.1), -1}, SAppTiming::Waiting}};
    std::vector<STimelineSpan> spans = CResetTimeline::FromResets(resets, 2026, "11-26 10:00:06.000");
    CResetTimeline::AddDetails(spans, resets);

    const int64_t origin = Micros("11-26 10:00:00.000");
    std::vector<std::string> described;
    for (const STimelineSpan& span : spans) {
        described.push_back(Describe(span, origin));
    }
    const int64_t newYear = (Micros("01-01 00:00:00.000", 2027) - origin) / 1000;
    EXPECT_EQ(described, (std::vector<std::string>{
                             "#1 tak_app_reset (pid 500) | stage 1000+2500ms",
                             "#1 wait for the binder | wait 1000+100ms",
                             "#1 clean-up | stage 3200+300ms",
                             "#1 app a | app 1100+200ms",
                             "#1 app c | wait 1100+2000ms",
                             "#1 app b | app 1400+100ms",
                             "#2 corvane_reset (pid 500) | wait 4000+2000ms",
                             "#2 app x | wait 4100+1900ms",
                             "#3 biu_app_reset (pid 500) | stage " + std::to_string(newYear - 500) + "+750ms",
                         }));
    int64_t micros = 0;
    for (const char* bad :
         {"13-01 10:00:00.000", "02-30 10:00:00.000", "11-26 25:00:00.000", "11-26 10:00:00.0000"}) {
        EXPECT_FALSE(CResetTimeline::LogTimeToMicros(bad, 2026, micros)) << bad;
    }
}

// One complete event per span on the thread of its row (named after it), with its start and length; the
// kit's events, from a file whose writer died (no closing bracket, a line cut short), come along as they
// were, and pair up per thread into stages; a file without events is refused.
TEST_F(TimelineTest, TraceHoldsEverySpanAndTheKitsEvents) {
    const int64_t t0 = 1764150000 * kSecond;
    std::vector<STimelineSpan> spans = {
        {"#1 tak_app_reset", "apps", t0, t0 + 2 * kSecond, EKind::Stage},
        {"#1 app a", "a", t0 + 1000, t0 + 301000, EKind::App},
        {"#1 app b", "b timed out", t0 + 2000, t0 + 2000, EKind::Wait},
        {"#1 tak_app_reset", "again", t0 + 3 * kSecond, t0 + 4 * kSecond, EKind::Stage},
    };
    // Thread 8 nests one stage in another; thread 9 begins one that never ends, then the writer died.
    const std::string kit = dir_ + "/tak-reset.trace.json";
    std::ofstream(kit) << R"([
{"name":"start","ph":"B","pid":7,"tid":8,"ts":1764150000000000},
{"name":"never ended","ph":"B","pid":7,"tid":9,"ts":1764150000000001},
{"name":"inner","ph":"B","pid":7,"tid":8,"ts":1764150000000002},
{"ph":"E","pid":7,"tid":8,"ts":1764150000000003},
{"ph":"E","pid":7,"tid":8,"ts":1764150000000005},
{"ph":"E","p)";
    EXPECT_EQ(CTraceWriter::KitTraceIn(dir_), kit);  // one right in the directory is taken over var/log
    CTraceWriter writer;
    writer.AddSpans(spans);
    ASSERT_TRUE(writer.AddTraceFile(kit));
    std::ofstream(dir_ + "/empty.json") << "[\n";
    EXPECT_FALSE(writer.AddTraceFile(dir_ + "/empty.json"));
    EXPECT_FALSE(writer.AddTraceFile(dir_ + "/missing.json"));
    ASSERT_TRUE(writer.Write(dir_ + "/out.json"));
    EXPECT_FALSE(writer.Write(dir_ + "/no/such/dir/out.json"));

    Json::Value document;
    std::ifstream(dir_ + "/out.json") >> document;  // throws, failing the test, when it is not JSON
    const Json::Value& events = document["traceEvents"];
    ASSERT_TRUE(events.isArray());
    std::map<int, std::string> threadNames;
    std::vector<Json::Value> complete, kitEvents;
    for (const Json::Value& event : events) {
        std::string phase = event["ph"].asString();
        if (phase == "M" && event["name"] == "thread_name") {
            threadNames[event["tid"].asInt()] = event["args"]["name"].asString();
        } else if (phase == "X") {
            complete.push_back(event);
        } else if (phase != "M") {
            kitEvents.push_back(event);
        }
    }
    ASSERT_EQ(complete.size(), spans.size());
    for (size_t i = 0; i < spans.size(); ++i) {
        SCOPED_TRACE(spans[i].label);
        EXPECT_EQ(complete[i]["name"].asString(), spans[i].label);
        EXPECT_EQ(complete[i]["ts"].asInt64(), spans[i].startUs);
        EXPECT_EQ(complete[i]["dur"].asInt64(), spans[i].endUs - spans[i].startUs);
        EXPECT_EQ(threadNames[complete[i]["tid"].asInt()], spans[i].row);
    }
    EXPECT_EQ(threadNames.size(), 3u);
    ASSERT_EQ(kitEvents.size(), 5u);
    EXPECT_EQ(kitEvents[0]["name"].asString(), "start");
    EXPECT_EQ(kitEvents[4]["ts"].asInt64(), t0 + 5);

    std::vector<std::string> traced;
    for (const STimelineSpan& span : writer.TracedSpans()) {
        traced.push_back(span.row + " " + std::to_string(span.startUs - t0) + "-" +
                         std::to_string(span.endUs - t0));
    }
    EXPECT_EQ(traced, (std::vector<std::string>{"start 0-5", "never ended 1-5", "inner 2-3"}));
}

// The PNG reads back at the picture's size, each bar in its kind's colour where it was placed, the wait
// hatched; a bad extension or a place that cannot be written is refused and leaves no file.
TEST_F(TimelineTest, PngBarsAreWhereAndHowTheirKindsSay) {
    const int64_t t0 = 1764150000 * kSecond;
    std::vector<STimelineSpan> spans = {
        {"#1 app a", "", t0 + kSecond, t0 + 2 * kSecond, EKind::App},
        {"#1 tak_app_reset", "", t0, t0 + 4 * kSecond, EKind::Stage},
        {"#1 app b", "", t0 + kSecond, t0 + 4 * kSecond, EKind::Wait},
    };
    CTimelinePicture picture(spans);
    for (size_t i = 0; i < spans.size(); ++i) {
        CTimelinePicture::SBox box = picture.BarOf(i);
        EXPECT_TRUE(box.x > 0 && box.x + box.width < picture.Width() && box.y > 0 &&
                    box.y + box.height < picture.Height())
            << i << " is drawn outside the picture";
    }
    const std::string png = dir_ + "/timeline.PNG";
    ASSERT_TRUE(picture.Write(png));

    cairo_surface_t* surface = cairo_image_surface_create_from_png(png.c_str());
    ASSERT_EQ(cairo_surface_status(surface), CAIRO_STATUS_SUCCESS);
    EXPECT_EQ(cairo_image_surface_get_width(surface), picture.Width());
    EXPECT_EQ(cairo_image_surface_get_height(surface), picture.Height());
    // The colour of one pixel, as 0xRRGGBB (the surface is ARGB32 in native order).
    auto pixel = [data = cairo_image_surface_get_data(surface),
                  stride = cairo_image_surface_get_stride(surface)](double x, double y) {
        return *reinterpret_cast<const uint32_t*>(data + static_cast<int>(y) * stride +
                                                  static_cast<int>(x) * 4) &
               0xffffffu;
    };
    for (size_t i = 0; i < 2; ++i) {
        CTimelinePicture::SBox box = picture.BarOf(i);
        EXPECT_EQ(pixel(box.x + box.width / 2, box.y + box.height / 2),
                  Packed(CTimelinePicture::ColourOf(spans[i].kind)))
            << i;
    }
    CTimelinePicture::SBox wait = picture.BarOf(2);
    EXPECT_EQ(picture.BarOf(0).x, wait.x);
    EXPECT_GT(wait.y, picture.BarOf(1).y);
    std::set<uint32_t> waitColours;
    for (double x = wait.x + 2; x < wait.x + wait.width - 2; x += 1) {
        waitColours.insert(pixel(x, wait.y + wait.height / 2));
    }
    EXPECT_TRUE(waitColours.count(Packed(CTimelinePicture::ColourOf(EKind::Wait))) == 1 &&
                waitColours.size() > 1)
        << "a wait is drawn in its colour and hatched";
    cairo_surface_destroy(surface);

    for (const std::string& bad : {dir_ + "/timeline.jpg", dir_ + "/timeline", dir_ + "/no/such/dir/t.png"}) {
        EXPECT_FALSE(picture.Write(bad)) << bad;
        EXPECT_EQ(CTimelinePicture::IsPictureName(bad), bad.find("/no/such/") != std::string::npos) << bad;
        EXPECT_FALSE(std::filesystem::exists(bad)) << bad;
    }
}

// Three hundred rows with long labels: one SVG whose filled rectangles in each kind's colour are one per
// span and one in the legend, on a picture taller than a small one yet within what an image may be.
TEST_F(TimelineTest, SvgOfManyRowsHasOneBarPerSpan) {
    const int64_t t0 = 1764150000 * kSecond;
    std::vector<STimelineSpan> spans;
    std::map<EKind, size_t> perKind;
    for (int i = 0; i < 300; ++i) {
        EKind kind = i % 3 == 0 ? EKind::Stage : (i % 3 == 1 ? EKind::App : EKind::Wait);
        spans.push_back({"#" + std::to_string(i) + " app " + std::string(80, 'x'), std::string(60, 'y'),
                         t0 + i * 1000, t0 + i * 1000 + 500000, kind});
        ++perKind[kind];
    }
    CTimelinePicture picture(spans);
    EXPECT_EQ(picture.Rows(), 300u);
    EXPECT_GT(picture.Height(), CTimelinePicture({spans[0], spans[1], spans[2]}).Height());
    EXPECT_LE(picture.Height(), 32767);
    const std::string svg = dir_ + "/timeline.svg";
    ASSERT_TRUE(picture.Write(svg));

    std::string text = orvix::test::ReadWholeFile(svg);
    EXPECT_NE(text.find("height=\"" + std::to_string(picture.Height()) + "pt\""), std::string::npos);
    EXPECT_EQ(text.substr(text.find_last_not_of("\n") - 5, 6), "</svg>");
    std::map<uint32_t, size_t> filled;
    const std::regex fill(R"(<path[^>]*fill:rgb\(([0-9.]+)%,([0-9.]+)%,([0-9.]+)%\))");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), fill); it != std::sregex_iterator(); ++it) {
        auto channel = [&it](int n) {
            return static_cast<uint32_t>(std::lround(std::stod((*it)[n]) * 2.55));
        };
        ++filled[channel(1) << 16 | channel(2) << 8 | channel(3)];
    }
    for (const auto& [kind, count] : perKind) {
        EXPECT_EQ(filled[Packed(CTimelinePicture::ColourOf(kind))], count + 1) << static_cast<int>(kind);
    }
}

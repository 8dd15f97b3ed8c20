// The manager client's view as the lines of a background client's log: the count each report carries,
// failures, the quiet spells and the resets that report nothing, on a clock the test moves.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "ProgressView.h"

namespace {

// The view writing to a string, on a clock that moves only when told to.
class ViewOnAClock {
public:
    explicit ViewOnAClock(bool terminal)
        : m_pOut(open_memstream(&m_pText, &m_nSize)), m_View(m_pOut, terminal, [this] { return m_nNowUs; }) {}
    ~ViewOnAClock() {
        fclose(m_pOut);
        free(m_pText);
    }
    CProgressView& View() { return m_View; }
    // `seconds` pass without a report, then the view's timer fires.
    void Quiet(int seconds) {
        m_nNowUs += seconds * G_USEC_PER_SEC;
        m_View.Tick();
    }
    std::string Text() {
        fflush(m_pOut);
        return std::string(m_pText, m_nSize);
    }

private:
    char* m_pText = nullptr;
    size_t m_nSize = 0;
    gint64 m_nNowUs = G_USEC_PER_SEC;
    FILE* m_pOut;
    CProgressView m_View;
};

// One thing that happens to the view: a report, a tick after `seconds` of quiet, an announcement.
using Step = std::function<void(ViewOnAClock&)>;
const auto Started = [](int total) -> Step { return [=](ViewOnAClock& v) { v.View().Start(total); }; };
const auto Advanced = [](int ended, int failed = 0) -> Step {
    return [=](ViewOnAClock& v) { v.View().Advance(ended, failed); };
};
const auto Finished = [](int failed = 0) -> Step {
    return [=](ViewOnAClock& v) { v.View().Finish(failed); };
};
const auto Quiet = [](int seconds) -> Step { return [=](ViewOnAClock& v) { v.Quiet(seconds); }; };
const auto Announced = [](std::string what) -> Step {
    return [=](ViewOnAClock& v) { v.View().Announce(what); };
};

struct ViewCase {
    const char* name;
    std::vector<Step> steps;
    std::string shown;  // every line of the log
};

class AProgressView : public ::testing::TestWithParam<ViewCase> {};

TEST_P(AProgressView, ShowsWhatTheReportsSay) {
    ViewOnAClock view(false);
    for (const Step& step : GetParam().steps) {
        step(view);
    }
    EXPECT_EQ(view.Text(), GetParam().shown);
}

const char kLate[] = "(it started before this client, which does not know the total)";

INSTANTIATE_TEST_SUITE_P(
    Cases, AProgressView,
    ::testing::Values(
        ViewCase{"TheCountIsTheReportsNotItsOwn",
                 {Started(4), Advanced(2), Advanced(4), Finished()},
                 "built-in reset: 4 apps to reset\nbuilt-in reset: 2/4\nbuilt-in reset: 4/4\n"
                 "built-in reset: finished, 4/4 done in 0.0 s\n"},
        ViewCase{"AFailedInstallIsNotDone",
                 {Started(3), Advanced(1), Advanced(2, 1), Advanced(3, 1), Finished(1)},
                 "built-in reset: 3 apps to reset\nbuilt-in reset: 1/3\nbuilt-in reset: 2/3, 1 failed\n"
                 "built-in reset: 3/3, 1 failed\nbuilt-in reset: finished, 2/3 done, 1 failed in 0.0 s\n"},
        ViewCase{"ALateStartShowsTheRealCount",
                 {Advanced(5, 1), Finished(2)},
                 (std::string("built-in reset: 5 ended so far, 1 failed ") + kLate +
                  "\nbuilt-in reset: finished, 3 done, 2 failed " + kLate + "\n")},
        ViewCase{
            "QuietSpellsSayWhatIsAwaitedOnce",
            {Quiet(2), Quiet(1), Quiet(5), Started(2), Quiet(4), Quiet(4), Advanced(1), Quiet(3)},
            "waiting for a reset to start\nbuilt-in reset: 2 apps to reset\n"
            "built-in reset: no report for 4 s, waiting for the next from tak-reset\nbuilt-in reset: 1/2\n"
            "built-in reset: no report for 3 s, waiting for the next from tak-reset\n"},
        ViewCase{
            "ResetsThatReportNothingAreAnnounced",
            {Announced("apps reset (reset=tak_app_reset)"), Quiet(3)},
            "apps reset (reset=tak_app_reset) started: tak-reset sends a manager client no progress of it "
            "(its result: orvix-host log)\nwaiting for a reset to start\n"}),
    [](const ::testing::TestParamInfo<ViewCase>& info) { return std::string(info.param.name); });

// On a terminal the bar stays open while a reset runs and says how long it has been quiet; Close ends the
// open line and nothing else.
TEST(AProgressViewOnATerminal, RedrawsTheQuietBarAndCloseEndsOnlyAnOpenLine) {
    ViewOnAClock view(true);
    for (const Step& step : {Started(2), Advanced(1), Quiet(3), Quiet(2)}) {
        step(view);
    }
    std::string text = view.Text();
    EXPECT_EQ(text.substr(text.rfind('\r')),
              "\r\x1b[Kbuilt-in reset           [###############---------------] 1/2, no report for 5 s, "
              "waiting for the next from tak-reset");
    view.View().Close();
    EXPECT_EQ(view.Text(), text + "\n");
    view.View().Finish(0);
    text = view.Text();
    view.View().Close();
    EXPECT_EQ(view.Text(), text);
    EXPECT_EQ(text.back(), '\n');
}

}  // namespace

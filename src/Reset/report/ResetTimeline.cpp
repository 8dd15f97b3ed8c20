#include "ResetTimeline.h"

#include <glib.h>

#include <algorithm>
#include <cstdio>

#include "ReportPrinter.h"

namespace {

const int64_t kMicrosPerMilli = 1000;

// The prefix every row of reset `number` starts with.
std::string RowPrefix(int number) {
    return "#" + std::to_string(number) + " ";
}

// End of the time range `start`..`end` read in `year`: the next year's when it would come first.
bool EndAfter(const std::string& end, int year, int64_t startUs, int64_t& endUs) {
    if (!CResetTimeline::LogTimeToMicros(end, year, endUs)) {
        return false;
    }
    return endUs >= startUs || CResetTimeline::LogTimeToMicros(end, year + 1, endUs);
}

std::string ResetLabel(const SResetRecord& reset) {
    std::string label = reset.kind + ": " + CReportPrinter::EndName(reset.how);
    if (!reset.requested.empty()) {
        label += ", " + std::to_string(reset.requested.size()) + " apps";
    }
    return label;
}

}  // namespace

bool CResetTimeline::LogTimeToMicros(const std::string& time, int year, int64_t& micros) {
    int month = 0, day = 0, hour = 0, minute = 0, second = 0, milli = 0, used = 0;
    if (sscanf(time.c_str(), "%2d-%2d %2d:%2d:%2d.%3d%n", &month, &day, &hour, &minute, &second, &milli,
               &used) != 6 ||
        static_cast<size_t>(used) != time.size()) {
        return false;
    }
    g_autoptr(GDateTime) local = g_date_time_new_local(year, month, day, hour, minute, second);
    if (local == nullptr) {
        return false;  // no such day (02-30), or a month or hour out of range
    }
    micros = g_date_time_to_unix(local) * G_USEC_PER_SEC + milli * kMicrosPerMilli;
    return true;
}

std::string CResetTimeline::ResetRow(int number, const SResetRecord& reset) {
    return RowPrefix(number) + reset.kind + " (pid " + std::to_string(reset.pid) + ")";
}

std::string CResetTimeline::AppRow(int number, const std::string& appId) {
    return RowPrefix(number) + "app " + appId;
}

std::vector<STimelineSpan> CResetTimeline::FromResets(const std::vector<SResetRecord>& resets, int year,
                                                      const std::string& lastLogTime) {
    std::vector<STimelineSpan> spans;
    for (size_t i = 0; i < resets.size(); ++i) {
        const SResetRecord& reset = resets[i];
        STimelineSpan span;
        span.row = ResetRow(static_cast<int>(i + 1), reset);
        span.label = ResetLabel(reset);
        if (!LogTimeToMicros(reset.start, year, span.startUs)) {
            continue;
        }
        span.endUs = span.startUs;
        if (reset.how == EResetEnd::Open) {
            span.kind = STimelineSpan::EKind::Wait;
            span.label = reset.kind + ": open, no end in the log";
            if (!lastLogTime.empty() && !EndAfter(lastLogTime, year, span.startUs, span.endUs)) {
                span.endUs = span.startUs;
            }
        } else if (!EndAfter(reset.end, year, span.startUs, span.endUs)) {
            span.endUs = span.startUs;
        }
        spans.push_back(span);
    }
    return spans;
}

namespace {

// A stretch of the reset's own clock placed on the timeline by the reset's row: the records' times are
// on the log's clock, which only the reset's start ties to the epoch. An open end runs to the row's end.
STimelineSpan Place(const STimelineSpan& resetSpan, const SSpan& logStart, const SSpan& span) {
    STimelineSpan placed;
    placed.startUs = resetSpan.startUs + (span.startUs - logStart.startUs);
    placed.endUs = span.endUs >= span.startUs ? resetSpan.startUs + (span.endUs - logStart.startUs)
                                              : std::max(placed.startUs, resetSpan.endUs);
    return placed;
}

STimelineSpan AppSpan(const STimelineSpan& resetSpan, const SResetRecord& reset, const SAppTiming& app,
                      int number) {
    STimelineSpan span = Place(resetSpan, reset.span, app.span);
    span.row = CResetTimeline::AppRow(number, app.id);
    span.label = app.id;
    span.kind = STimelineSpan::EKind::App;
    switch (app.outcome) {
        case SAppTiming::Done:
            break;
        case SAppTiming::Failed:
            span.label += " failed";
            break;
        case SAppTiming::TimedOut:
            span.kind = STimelineSpan::EKind::Wait;
            span.label += " timed out";
            break;
        case SAppTiming::Waiting:
            span.kind = STimelineSpan::EKind::Wait;
            span.label += " no answer";
            break;
    }
    return span;
}

}  // namespace

void CResetTimeline::AddDetails(std::vector<STimelineSpan>& spans, const std::vector<SResetRecord>& resets) {
    for (size_t i = 0; i < resets.size(); ++i) {
        const SResetRecord& reset = resets[i];
        const int number = static_cast<int>(i + 1);
        const std::string row = ResetRow(number, reset);
        auto resetSpan = std::find_if(spans.begin(), spans.end(),
                                      [&row](const STimelineSpan& span) { return span.row == row; });
        if (resetSpan == spans.end() || !reset.span.Started()) {
            continue;  // no start on the log's clock to place anything by
        }
        const STimelineSpan anchor = *resetSpan;
        std::vector<STimelineSpan> details;
        const struct {
            const SSpan& span;
            const char* name;
            STimelineSpan::EKind kind;
        } stages[] = {
            {reset.binderWait, "wait for the binder", STimelineSpan::EKind::Wait},
            {reset.updatesWait, "wait for background updates", STimelineSpan::EKind::Wait},
            {reset.cleanUp, "clean-up", STimelineSpan::EKind::Stage},
        };
        for (const auto& stage : stages) {
            if (stage.span.Started()) {
                STimelineSpan span = Place(anchor, reset.span, stage.span);
                span.row = RowPrefix(number) + stage.name;
                span.label = stage.name;
                span.kind = stage.kind;
                details.push_back(span);
            }
        }
        for (const SAppTiming& app : reset.apps) {
            if (app.span.Started()) {
                details.push_back(AppSpan(anchor, reset, app, number));
            }
        }
        spans.insert(resetSpan + 1, details.begin(), details.end());
    }
}

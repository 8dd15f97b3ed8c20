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

bool CResetTimeline::AddApp(std::vector<STimelineSpan>& spans, int number, const std::string& appId,
                            const std::string& requested, const std::string& answered, EAppOutcome outcome,
                            int year) {
    const std::string prefix = RowPrefix(number);
    auto ofReset = [&prefix](const STimelineSpan& span) { return span.row.rfind(prefix, 0) == 0; };
    auto resetSpan = std::find_if(spans.begin(), spans.end(), ofReset);
    if (resetSpan == spans.end()) {
        return false;
    }
    STimelineSpan span;
    span.row = AppRow(number, appId);
    span.label = appId;
    if (!LogTimeToMicros(requested, year, span.startUs)) {
        return false;
    }
    span.endUs = std::max(span.startUs, resetSpan->endUs);
    if (!answered.empty() && !EndAfter(answered, year, span.startUs, span.endUs)) {
        return false;
    }
    switch (outcome) {
        case EAppOutcome::Answered:
            span.kind = STimelineSpan::EKind::App;
            break;
        case EAppOutcome::Failed:
            span.kind = STimelineSpan::EKind::App;
            span.label += " failed";
            break;
        case EAppOutcome::TimedOut:
            span.kind = STimelineSpan::EKind::Wait;
            span.label += " timed out";
            break;
        case EAppOutcome::Unanswered:
            span.kind = STimelineSpan::EKind::Wait;
            span.label += " no answer";
            break;
    }
    auto last = std::find_if(spans.rbegin(), spans.rend(), ofReset);
    spans.insert(last.base(), span);
    return true;
}

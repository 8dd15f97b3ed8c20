// The resets of the report as timeline spans: a row per reset with its whole run, and a row per app of
// it from its request to its answer, placed right below its reset's rows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ResetRecord.h"
#include "TimelineSpan.h"

class CResetTimeline {
public:
    // Reset number i (from 1, in the order of `resets`) gets the row "#i KIND (pid P)". The platform log
    // has no year: its times are read in `year`, local time, and an end earlier than its start is taken
    // to be in the year after. An open reset is a wait up to `lastLogTime` (the log's last time), or a
    // moment at its start when that is empty. Resets whose start cannot be read are left out.
    static std::vector<STimelineSpan> FromResets(const std::vector<SResetRecord>& resets, int year,
                                                 const std::string& lastLogTime = "");

    // Adds what the records know inside each reset that has a row: a row per app "#N app ID" from its
    // request to its answer (an app bar when answered or failed, a wait when it timed out or never got an
    // answer, up to the reset's end), and rows for the waits for the binder and for background updates and
    // for the clean-up, each placed right below its reset's rows. `resets` are those given to FromResets.
    static void AddDetails(std::vector<STimelineSpan>& spans, const std::vector<SResetRecord>& resets);

    // "MM-DD HH:MM:SS.mmm" in `year`, local time, as microseconds since the epoch.
    static bool LogTimeToMicros(const std::string& time, int year, int64_t& micros);

    static std::string ResetRow(int number, const SResetRecord& reset);
    static std::string AppRow(int number, const std::string& appId);
};

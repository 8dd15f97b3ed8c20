// One bar of the reset timeline: a stretch of time on one row (a reset, one of its stages, or an app from
// its request to its answer). Times are microseconds since the epoch, as the kit's trace events carry them.
#pragma once

#include <cstdint>
#include <string>

struct STimelineSpan {
    enum class EKind {
        App,    // an app from its request to its answer
        Stage,  // a reset or a step of one
        Wait,   // time spent waiting: for an answer that never came, for a peer, for a deadline
    };

    std::string row;    // the row it is drawn on; spans of one row share it
    std::string label;  // drawn on the bar when it fits
    int64_t startUs = 0;
    int64_t endUs = 0;
    EKind kind = EKind::Stage;
};

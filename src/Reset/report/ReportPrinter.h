// The resets as a short table each, or as one JSON document (docs/report.md describes it).
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "ResetRecord.h"

class CReportPrinter {
public:
    // `first` numbers the first reset shown: --last shows the newest under its own number.
    static std::string Text(const std::vector<SResetRecord>& resets, size_t first = 1);
    static std::string Json(const std::vector<SResetRecord>& resets);
    static void WriteJson(const std::vector<SResetRecord>& resets, std::ostream& out);
    // "reported", "replaced", "ended", "failed" or "open".
    static const char* EndName(EResetEnd how);
};

// A benchmark's verdict on one of its targets. Each verdict is printed and, when TAK_BENCH_RESULTS names a
// file, appended to it as one line "name|measured|target|met" (or "missed"): scripts/run-bench prints
// those lines of every benchmark as one table at the end of `make bench`, and fails when one is missed.
#pragma once

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace bench {

enum class Bound { Below, AtMost, AtLeast };

// Collects the verdicts of one program, so that it can exit 1 when one of them is missed.
class Targets {
public:
    // `unit` follows the figures as written ("x" for a ratio, " ms"); a value that is not a number
    // (nothing was measured) misses its target.
    bool Check(const std::string& name, double value, Bound bound, double limit, const char* unit) {
        bool met = !std::isnan(value) && Holds(value, bound, limit);
        char measured[64];
        char target[64];
        if (std::isnan(value)) {
            snprintf(measured, sizeof(measured), "not measured");
        } else {
            snprintf(measured, sizeof(measured), "%.2f%s", value, unit);
        }
        snprintf(target, sizeof(target), "%s %g%s", Symbol(bound), limit, unit);
        printf("target: %s: %s (%s: %s)\n", name.c_str(), measured, target, met ? "met" : "MISSED");
        // A verdict that cannot reach the table counts as missed, so that the run still fails.
        bool recorded = Append(name + "|" + measured + "|" + target + "|" + (met ? "met" : "missed"));
        m_AllMet = m_AllMet && met && recorded;
        return met;
    }

    bool AllMet() const { return m_AllMet; }

private:
    static bool Holds(double value, Bound bound, double limit) {
        switch (bound) {
            case Bound::Below:
                return value < limit;
            case Bound::AtMost:
                return value <= limit;
            case Bound::AtLeast:
                return value >= limit;
        }
        return false;
    }

    static const char* Symbol(Bound bound) {
        switch (bound) {
            case Bound::Below:
                return "<";
            case Bound::AtMost:
                return "<=";
            case Bound::AtLeast:
                return ">=";
        }
        return "?";
    }

    static bool Append(const std::string& line) {
        const char* path = getenv("TAK_BENCH_RESULTS");
        if (path == nullptr || *path == '\0') {
            return true;
        }
        FILE* file = fopen(path, "a");
        bool written = file != nullptr && fprintf(file, "%s\n", line.c_str()) > 0;
        if (file != nullptr && fclose(file) != 0) {
            written = false;
        }
        if (!written) {
            fprintf(stderr, "cannot append to TAK_BENCH_RESULTS %s\n", path);
        }
        return written;
    }

    bool m_AllMet = true;
};

}  // namespace bench

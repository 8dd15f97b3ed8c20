// Time helpers of the service: clocks and time texts, and a stopwatch for measuring how long a step took.
#pragma once

#include <ctime>
#include <string>

class CTAKTime {
public:
    // The stopwatch starts at construction.
    CTAKTime();

    void Restart();
    // Milliseconds since construction or the last Restart, on the monotonic clock.
    unsigned long long ElapsedMs() const;

    // Milliseconds on the monotonic clock (never jumps with wall-clock changes).
    static unsigned long long MonotonicMs();
    // Wall-clock time since the epoch.
    static long long EpochSeconds();
    static long long EpochMs();

    // "YYYY-MM-DD HH:MM:SS" of `when`, in local time or in UTC.
    static std::string LocalText(time_t when);
    static std::string UtcText(time_t when);
    // LocalText of the current time.
    static std::string Now();

private:
    unsigned long long m_StartMs;
};

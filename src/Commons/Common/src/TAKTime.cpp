#include "TAKTime.h"

#include <time.h>

namespace {

long long ClockMs(clockid_t clock) {
    struct timespec ts {};
    clock_gettime(clock, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

std::string Format(const struct tm& tmv) {
    char text[32];
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &tmv);
    return text;
}

}  // namespace

CTAKTime::CTAKTime() : m_StartMs(MonotonicMs()) {}

void CTAKTime::Restart() {
    m_StartMs = MonotonicMs();
}

unsigned long long CTAKTime::ElapsedMs() const {
    return MonotonicMs() - m_StartMs;
}

unsigned long long CTAKTime::MonotonicMs() {
    return static_cast<unsigned long long>(ClockMs(CLOCK_MONOTONIC));
}

long long CTAKTime::EpochSeconds() {
    return static_cast<long long>(time(nullptr));
}

long long CTAKTime::EpochMs() {
    return ClockMs(CLOCK_REALTIME);
}

std::string CTAKTime::LocalText(time_t when) {
    struct tm tmv {};
    localtime_r(&when, &tmv);
    return Format(tmv);
}

std::string CTAKTime::UtcText(time_t when) {
    struct tm tmv {};
    gmtime_r(&when, &tmv);
    return Format(tmv);
}

std::string CTAKTime::Now() {
    return LocalText(time(nullptr));
}

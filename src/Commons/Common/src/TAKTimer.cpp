#include "TAKTimer.h"

#include "TAKLog.h"

CTAKTimer::CTAKTimer(const std::string& threadName) : CTAKThreadBase(threadName) {}

CTAKTimer::~CTAKTimer() = default;

bool CTAKTimer::Create(unsigned long long intervalMs, unsigned long long count, void (*cb)(void*),
                       void* data) {
    if (IsCreated()) {
        TAK_LOGE("FlagCreate() return true");
        return false;
    }
    repeatCount = count;
    userData = data;
    callback = cb;
    firedCount = 0;
    timeoutSource = nullptr;
    if (!mainLoop.Create(false)) {
        return false;
    }
    if (intervalMs != INTERVAL_NEVER && count != 0) {
        m_Attach(intervalMs);
    }
    if (!CTAKThreadBase::Create(TIMER_STACK_SIZE)) {
        mainLoop.Destory();
        return false;
    }
    return true;
}

void CTAKTimer::Reset(unsigned long long intervalMs, unsigned long long count) {
    firedCount = 0;
    repeatCount = count;
    if (timeoutSource != nullptr) {
        mainLoop.DeleteSource(timeoutSource);
        timeoutSource = nullptr;
    }
    if (intervalMs != INTERVAL_NEVER && count != 0) {
        m_Attach(intervalMs);
    }
}

void CTAKTimer::Destroy() {
    if (!IsCreated()) {
        TAK_LOGE("FlagCreate() return false");
        return;
    }
    mainLoop.Destory();
    CTAKThreadBase::Destroy();
}

void CTAKTimer::t_Main() {
    mainLoop.MainLoopRun();
}

gboolean CTAKTimer::OnTime(gpointer data) {
    CTAKTimer* timer = static_cast<CTAKTimer*>(data);
    if (timer == nullptr) {
        TAK_LOGE("data is NULL!!");
        return FALSE;
    }
    timer->callback(timer->userData);
    if (timer->repeatCount == REPEAT_FOREVER) {
        return TRUE;
    }
    return ++timer->firedCount < timer->repeatCount ? TRUE : FALSE;
}

void CTAKTimer::m_Attach(unsigned long long intervalMs) {
    timeoutSource = mainLoop.AddTimeoutSource(intervalMs, OnTime, this);
}

// A periodic timer on a thread of its own: calls a plain callback every intervalMs milliseconds, either
// repeatCount times or, with repeatCount all bits set, without end. The callback runs on the timer's
// thread, never on the owner's.
//
// Life cycle:
// - constructed: not created.
// - Create(): the thread runs its loop; the first call comes one interval later. With repeatCount 0 or
//   intervalMs all bits set nothing is attached and the thread only idles.
// - fired repeatCount times: the callback is not called again; the thread keeps idling.
// - Destroy(): quits the loop and waits for the thread to end; the timer may be created again.
// - destructor: a still-created timer only logs; the owner must Destroy() first.
#pragma once

#include <glib.h>

#include <atomic>
#include <string>

#include "TAKMainLoop.h"
#include "TAKThreadBase.h"

class CTAKTimer : public CTAKThreadBase {
public:
    // repeatCount with all bits set: fire without end.
    static constexpr unsigned long long REPEAT_FOREVER = ~0ULL;
    // intervalMs with all bits set (-1): never fire.
    static constexpr unsigned long long INTERVAL_NEVER = ~0ULL;
    static constexpr unsigned long TIMER_STACK_SIZE = 131072;

    explicit CTAKTimer(const std::string& threadName);
    ~CTAKTimer() override;
    void Destroy() override;

    bool Create(unsigned long long intervalMs, unsigned long long repeatCount, void (*callback)(void*),
                void* userData);
    // Starts counting again with a new interval and count. The old source is only released, not
    // detached, so it goes on until its own count ends.
    void Reset(unsigned long long intervalMs, unsigned long long repeatCount);

protected:
    void t_Main() override;

private:
    static gboolean OnTime(gpointer timer);
    void m_Attach(unsigned long long intervalMs);

    // Atomic because Reset() may rewrite them from the owner's thread while the timer thread reads them.
    std::atomic<unsigned long long> repeatCount{0};
    GSource* timeoutSource = nullptr;
    CTAKMainLoop mainLoop;
    void* userData = nullptr;
    std::atomic<unsigned long long> firedCount{0};
    void (*callback)(void*) = nullptr;
};

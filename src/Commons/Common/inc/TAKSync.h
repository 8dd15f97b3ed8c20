// Counting semaphore of the task framework.
//
// Life cycle:
// - constructed: not created. Take() and SyncTry() return at once, Give() is ignored.
// - Create(): gives are counted; Take() waits for one, SyncTry() waits for one up to a time limit.
// - Destroy(): pending gives are dropped and the sync is not created again; it may be created anew.
// - destructor: only logs when the sync is still created; whoever created it must destroy it.
// Every sync of the process waits on its own condition variable under one shared mutex, g_Lock.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

class CTAKSync {
public:
    // SyncTry() with this value waits without a time limit.
    static constexpr unsigned long long WAIT_FOREVER = ~0ULL;

    CTAKSync() = default;
    CTAKSync(const CTAKSync&) = delete;
    CTAKSync& operator=(const CTAKSync&) = delete;
    virtual ~CTAKSync();

    bool Create();
    void Destroy();
    void Take();
    void Give();
    // Takes one give if there is one within timeoutMs milliseconds. 0 never waits.
    bool SyncTry(unsigned long long timeoutMs);

    bool IsCreated() const { return created.load(std::memory_order_acquire); }

private:
    pthread_cond_t cond{};
    // Written under g_Lock; atomic so that IsCreated() may be asked from any thread without it.
    std::atomic<bool> created{false};
    int32_t count = 0;
};

// A detached thread that runs the derived class's t_Main() once.
//
// Life cycle:
// - constructed: not created.
// - Create(stackSize): the thread starts; it runs t_Main() only after Create() has returned, so the
//   creator's writes before Create() are visible to it. The object counts as created from here on.
// - t_Main() returns: the thread gives endSync and ends; the object is still created.
// - Destroy(): waits until the thread has left t_Main(), then the object is no longer created and may be
//   created again. Destroy() on a thread that never leaves t_Main() blocks for as long.
// - destructor: a still-created object only logs; the owner must Destroy() first.
#pragma once

#include <pthread.h>

#include <string>

#include "TAKSync.h"

class CTAKThreadBase {
public:
    explicit CTAKThreadBase(const std::string& threadName = std::string());
    CTAKThreadBase(const CTAKThreadBase&) = delete;
    CTAKThreadBase& operator=(const CTAKThreadBase&) = delete;
    virtual ~CTAKThreadBase();
    virtual void Destroy();

    bool Create(unsigned long stackSize);
    bool IsCreated() const { return startSync.IsCreated(); }

protected:
    virtual void t_Main() = 0;

    // Whether the caller runs on this object's thread.
    bool m_IsOwnThread() const;

    pthread_t thread{};
    // The thread's system name (at most 15 characters are kept).
    std::string name;
    CTAKSync startSync;
    CTAKSync endSync;

private:
    static void* Main(void* self);
};

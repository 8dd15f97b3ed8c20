// A GLib main loop on a context of its own (or the process default context), with the sources it
// attached. Every operation takes the loop's mutex; MainLoopRun() holds that mutex until the loop
// really dispatches, so that sources added from other threads in between wait for it.
//
// Life cycle:
// - constructed: not created. Adding a source returns none, MainLoopRun() returns at once.
// - Create(): context and loop exist, the loop does not run yet. Sources may be added; they are
//   dispatched once a thread calls MainLoopRun().
// - MainLoopRun(): the calling thread runs the loop until Destory() quits it.
// - Destory() (spelled so): quits the loop, drops the sources it holds and releases the loop and its
//   own context; may be called from a source callback on the loop's thread or from any other thread.
//   Afterwards the object is not created and may be created again.
#pragma once

#include <glib.h>

#include <mutex>
#include <vector>

class CTAKMainLoop {
public:
    // Priority of the source that releases the mutex once the loop dispatches: before anything else.
    static constexpr int UNLOCK_PRIORITY = -100;

    CTAKMainLoop() = default;
    CTAKMainLoop(const CTAKMainLoop&) = delete;
    CTAKMainLoop& operator=(const CTAKMainLoop&) = delete;
    virtual ~CTAKMainLoop();
    virtual void Destory();

    bool Create(bool useDefaultContext);
    void MainLoopRun();
    GSource* AddIdleSource(GSourceFunc callback, gpointer data);
    GSource* AddTimeoutSource(unsigned long long intervalMs, GSourceFunc callback, gpointer data);
    // Drops the reference kept for a source; the source stays attached until its callback returns false.
    void DeleteSource(GSource* source);
    // Detaches a source the loop still holds and drops it: its callback is not called again. A source
    // the loop no longer holds (released by Destory()) is left alone, so a late cancel is harmless.
    void RemoveSource(GSource* source);
    void MainContextInvoke(GSourceFunc callback, gpointer data);

private:
    static gboolean UnLock(gpointer self);
    void m_QueueUnLock(GMainContext* target);
    GSource* m_Attach(GSource* source, GSourceFunc callback, gpointer data);
    void m_Release();

    bool created = false;
    std::mutex mutex;
    GMainContext* context = nullptr;
    GMainLoop* loop = nullptr;
    std::vector<GSource*> sources;
    // The mutex is held by MainLoopRun() until UnLock() runs inside the loop.
    bool locked = false;
};

// A task: one detached thread that runs its own GLib main loop and handles PTEvents one at a time, in
// the order in which they were posted. Other threads talk to a task only through Send().
//
// Life cycle and what Send() does in each state:
// - constructed / destroyed: not created. Send() drops the event and logs "receiver is not created".
// - Create(): the thread starts, the loop exists. Until the thread has run t_Create(), events from other
//   threads wait in `pending`; events the task sends itself from t_Create() go straight to `events`.
// - ready (t_Create() returned true): pending events are moved behind the task's own ones and all are
//   handled in order, many per idle dispatch. A synchronous Send() blocks the sender until the task has
//   handled the event; from the task's own thread it behaves as an asynchronous one.
// - stopping: EVENT_EXIT quits the loop. Events queued behind it are never handled (a synchronous
//   sender of one stays blocked); t_Destroy() runs on the task thread and the thread ends. If
//   t_Create() returns false the thread ends at once, without a loop and without t_Destroy().
// - Destroy() (by the owner, after EVENT_EXIT): waits for the thread to end and empties the queues;
//   the task may be created again.
#pragma once

#include <glib.h>

#include <deque>
#include <mutex>
#include <string>

#include "TAKLog.h"
#include "TAKMainLoop.h"
#include "TAKSync.h"
#include "TAKThreadBase.h"

class CTAKTaskBase;

// An event posted to a task; copied by value into its queue.
struct PTEvent {
    unsigned long event;
    CTAKTaskBase* receiver;
    CTAKSync* sync;  // set by Send(): the synchronous sender's sync, or none
    long data;
    long extra;
};
static_assert(sizeof(PTEvent) == 5 * sizeof(void*), "an event is five words, copied by value");

class CTAKTaskBase : public CTAKThreadBase {
public:
    static constexpr unsigned long EVENT_EXIT = 0;
    // data: a `new CTAKSync[2]`. The task gives the first, waits up to 1000 ms for a give on the second,
    // then destroys and frees the array (it is left to the sender when the wait times out).
    static constexpr unsigned long EVENT_RENDEZVOUS = 1;
    static constexpr unsigned long TASK_STACK_SIZE = 131072;

    explicit CTAKTaskBase(const std::string& threadName = std::string());
    ~CTAKTaskBase() override;
    void Destroy() override;

    bool Create();
    // The only way to post an event; ev->receiver names the task.
    static void Send(PTEvent* ev, bool synchronous);

protected:
    void t_Main() override;
    // Handles EVENT_EXIT and EVENT_RENDEZVOUS (true); false for every other number. A derived task calls
    // it first and handles its own numbers when it returns false.
    virtual bool t_OnEvent(PTEvent* ev);
    // Run on the task thread before and after its loop.
    virtual bool t_Create() {
        if (!IsCreated()) {
            TAK_LOGE("FlagCreate() return false");
            return false;
        }
        return true;
    }
    // A one-shot timer on the task's own loop: `callback(data)` runs on the task thread after `ms`
    // unless removed first; the callback removes its own source and returns G_SOURCE_REMOVE. Removing
    // a source after the loop has ended (in t_Destroy()) is harmless.
    GSource* t_AddTimeout(unsigned long long ms, GSourceFunc callback, gpointer data) {
        return mainLoop.AddTimeoutSource(ms, callback, data);
    }
    void t_RemoveTimeout(GSource* source) { mainLoop.RemoveSource(source); }
    virtual bool t_Destroy() {
        if (!IsCreated()) {
            TAK_LOGE("FlagCreate() return false");
            return false;
        }
        return true;
    }

private:
    void m_PutEvent(const PTEvent& ev);
    void m_CheckEvent();
    bool m_PopFrontEvent(PTEvent& out);
    bool m_TakeQueuedEvents();
    void m_ScheduleIdle();
    static gboolean m_HandleEvent(gpointer self);

    // Everything from here to `ready`, except mainLoop and exitRequested, is guarded by queueMutex.
    // queueMutex is always taken before the loop's own mutex.
    bool idleNeeded = true;
    CTAKMainLoop mainLoop;
    std::mutex queueMutex;
    std::deque<PTEvent> events;
    std::deque<PTEvent> pending;
    // Touched only by the task thread while it runs, and by the owner while it does not.
    bool exitRequested = true;
    GSource* idleSource = nullptr;
    bool ready = false;
    // Events taken off `events` in one go and not handled yet. Only the task thread touches it while the
    // task runs (the owner clears it in Destroy once the thread has ended), so the handler takes the queue
    // lock once per burst of posts rather than once per event.
    std::deque<PTEvent> handling;
};

#include "TAKTaskBase.h"

CTAKTaskBase::CTAKTaskBase(const std::string& threadName) : CTAKThreadBase(threadName) {}

CTAKTaskBase::~CTAKTaskBase() = default;

bool CTAKTaskBase::Create() {
    if (IsCreated()) {
        TAK_LOGE("FlagCreate() return true");
        return false;
    }
    if (!mainLoop.Create(false)) {
        return false;
    }
    // Cleared before the thread exists: its first dispatch reads the flag, and may come before
    // CTAKThreadBase::Create() has even returned here.
    exitRequested = false;
    if (!CTAKThreadBase::Create(TASK_STACK_SIZE)) {
        exitRequested = true;
        mainLoop.Destory();
        return false;
    }
    return true;
}

void CTAKTaskBase::Destroy() {
    if (!IsCreated()) {
        TAK_LOGE("FlagCreate() return false");
        return;
    }
    CTAKThreadBase::Destroy();
    std::lock_guard<std::mutex> guard(queueMutex);
    events.clear();
    pending.clear();
    handling.clear();
    idleNeeded = true;
    // A new thread has not run t_Create() yet: events from others wait again until it has.
    ready = false;
    if (idleSource != nullptr) {
        mainLoop.DeleteSource(idleSource);
        idleSource = nullptr;
    }
}

void CTAKTaskBase::Send(PTEvent* ev, bool synchronous) {
    if (ev == nullptr || ev->receiver == nullptr) {
        TAK_LOGE("receiver is NULL");
        return;
    }
    CTAKTaskBase* receiver = ev->receiver;
    if (!receiver->IsCreated()) {
        TAK_LOGE("receiver is not created");
        return;
    }
    // Waiting for oneself would never end: such a send is posted like an asynchronous one.
    if (synchronous && !receiver->m_IsOwnThread()) {
        CTAKSync* sync = new CTAKSync;
        sync->Create();
        ev->sync = sync;
        receiver->m_PutEvent(*ev);
        sync->Take();
        sync->Destroy();
        delete sync;
        return;
    }
    ev->sync = nullptr;
    receiver->m_PutEvent(*ev);
}

void CTAKTaskBase::t_Main() {
    if (!t_Create()) {
        mainLoop.Destory();
        return;
    }
    m_CheckEvent();
    mainLoop.MainLoopRun();
    t_Destroy();
}

bool CTAKTaskBase::t_OnEvent(PTEvent* ev) {
    if (!IsCreated()) {
        TAK_LOGE("FlagCreate() return false");
        return false;
    }
    switch (ev->event) {
        case EVENT_EXIT:
            mainLoop.Destory();
            exitRequested = true;
            return true;
        case EVENT_RENDEZVOUS: {
            CTAKSync* syncs = reinterpret_cast<CTAKSync*>(ev->data);
            syncs[0].Give();
            if (!syncs[1].SyncTry(1000)) {
                TAK_LOGE("ret return false");
                return false;
            }
            syncs[0].Destroy();
            syncs[1].Destroy();
            delete[] syncs;
            return true;
        }
        default:
            return false;
    }
}

void CTAKTaskBase::m_PutEvent(const PTEvent& ev) {
    std::lock_guard<std::mutex> guard(queueMutex);
    if (ready) {
        events.push_back(ev);
        // An idle that is already scheduled drains this event too; no need to wake the loop again.
        if (idleNeeded) {
            m_ScheduleIdle();
        }
        return;
    }
    // Sent to itself from t_Create(): ahead of everything other threads posted so far.
    if (m_IsOwnThread()) {
        events.push_back(ev);
        return;
    }
    pending.push_back(ev);
}

void CTAKTaskBase::m_CheckEvent() {
    std::lock_guard<std::mutex> guard(queueMutex);
    ready = true;
    events.insert(events.end(), pending.begin(), pending.end());
    pending.clear();
    if (idleNeeded && !events.empty()) {
        m_ScheduleIdle();
    }
}

bool CTAKTaskBase::m_PopFrontEvent(PTEvent& out) {
    if (handling.empty() && !m_TakeQueuedEvents()) {
        return false;
    }
    out = handling.front();
    handling.pop_front();
    return true;
}

bool CTAKTaskBase::m_TakeQueuedEvents() {
    std::lock_guard<std::mutex> guard(queueMutex);
    if (!events.empty()) {
        handling.swap(events);
        return true;
    }
    // The running idle returns false and is removed by GLib; the next post schedules a new one.
    if (idleSource != nullptr) {
        mainLoop.DeleteSource(idleSource);
        idleSource = nullptr;
    }
    idleNeeded = true;
    return false;
}

void CTAKTaskBase::m_ScheduleIdle() {
    idleSource = mainLoop.AddIdleSource(m_HandleEvent, this);
    idleNeeded = false;
}

gboolean CTAKTaskBase::m_HandleEvent(gpointer self) {
    CTAKTaskBase* task = static_cast<CTAKTaskBase*>(self);
    if (!task->IsCreated()) {
        TAK_LOGE("FlagCreate() return false");
        return FALSE;
    }
    PTEvent ev{};
    do {
        if (!task->m_PopFrontEvent(ev)) {
            break;
        }
        task->t_OnEvent(&ev);
        if (ev.sync != nullptr) {
            ev.sync->Give();
        }
    } while (!task->exitRequested);
    return FALSE;
}

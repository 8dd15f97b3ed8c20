#include "TAKMainLoop.h"

#include "TAKLog.h"

// The framework's classes log under the task base's name (see TAKSync.cpp).
#define TAK_TASK_LOGE(fmt, ...)                                                                          \
    TAKLogPrint(DLOG_ERROR, TAK_COLOR_RED, "src/Commons/Common/src/TAKTaskBase.cpp", __func__, __LINE__, \
                fmt, ##__VA_ARGS__)

CTAKMainLoop::~CTAKMainLoop() {
    // An owner that never destroyed the loop would otherwise leak the context and the loop.
    std::lock_guard<std::mutex> guard(mutex);
    if (created) {
        m_Release();
    }
}

bool CTAKMainLoop::Create(bool useDefaultContext) {
    std::lock_guard<std::mutex> guard(mutex);
    if (created) {
        TAK_TASK_LOGE("FlagCreate() return true");
        return false;
    }
    sources.clear();
    if (useDefaultContext) {
        context = g_main_context_default();
    } else {
        context = g_main_context_new();
        if (context == nullptr) {
            return false;
        }
        // Runs first once a thread dispatches this context, releasing the mutex MainLoopRun() holds.
        m_QueueUnLock(context);
    }
    loop = g_main_loop_new(context, FALSE);
    if (loop == nullptr) {
        if (context != g_main_context_default()) {
            g_main_context_unref(context);
        }
        context = nullptr;
        return false;
    }
    created = true;
    return true;
}

void CTAKMainLoop::MainLoopRun() {
    mutex.lock();
    if (!created) {
        mutex.unlock();
        return;
    }
    locked = true;
    if (context == g_main_context_default()) {
        m_QueueUnLock(context);
    }
    g_main_loop_run(loop);
    // Only a loop quit from outside this class can end before UnLock() ran; do not keep the mutex then.
    if (locked) {
        locked = false;
        mutex.unlock();
    }
}

gboolean CTAKMainLoop::UnLock(gpointer self) {
    CTAKMainLoop* mainLoop = static_cast<CTAKMainLoop*>(self);
    if (mainLoop->locked) {
        mainLoop->locked = false;
        mainLoop->mutex.unlock();
    }
    return FALSE;
}

void CTAKMainLoop::Destory() {
    std::lock_guard<std::mutex> guard(mutex);
    if (created) {
        m_Release();
    }
}

GSource* CTAKMainLoop::AddIdleSource(GSourceFunc callback, gpointer data) {
    std::lock_guard<std::mutex> guard(mutex);
    if (!created) {
        return nullptr;
    }
    return m_Attach(g_idle_source_new(), callback, data);
}

GSource* CTAKMainLoop::AddTimeoutSource(unsigned long long intervalMs, GSourceFunc callback, gpointer data) {
    std::lock_guard<std::mutex> guard(mutex);
    if (!created) {
        return nullptr;
    }
    guint interval = intervalMs > G_MAXUINT ? G_MAXUINT : static_cast<guint>(intervalMs);
    return m_Attach(g_timeout_source_new(interval), callback, data);
}

void CTAKMainLoop::DeleteSource(GSource* source) {
    std::lock_guard<std::mutex> guard(mutex);
    for (auto it = sources.begin(); it != sources.end(); ++it) {
        if (*it == source) {
            g_source_unref(source);
            sources.erase(it);
            return;
        }
    }
}

void CTAKMainLoop::RemoveSource(GSource* source) {
    std::lock_guard<std::mutex> guard(mutex);
    for (auto it = sources.begin(); it != sources.end(); ++it) {
        if (*it == source) {
            g_source_destroy(source);
            g_source_unref(source);
            sources.erase(it);
            return;
        }
    }
}

void CTAKMainLoop::MainContextInvoke(GSourceFunc callback, gpointer data) {
    std::lock_guard<std::mutex> guard(mutex);
    if (created) {
        g_main_context_invoke(context, callback, data);
    }
}

void CTAKMainLoop::m_QueueUnLock(GMainContext* target) {
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, UNLOCK_PRIORITY);
    g_source_set_callback(source, UnLock, this, nullptr);
    g_source_attach(source, target);
    g_source_unref(source);
}

GSource* CTAKMainLoop::m_Attach(GSource* source, GSourceFunc callback, gpointer data) {
    g_source_set_callback(source, callback, data, nullptr);
    g_source_attach(source, context);
    sources.push_back(source);
    return source;
}

// Caller holds the mutex. A running loop keeps its own references to itself and its context, so this is
// safe from a callback that the loop is dispatching.
void CTAKMainLoop::m_Release() {
    g_main_loop_quit(loop);
    for (GSource* source : sources) {
        g_source_unref(source);
    }
    sources.clear();
    if (context != g_main_context_default()) {
        g_main_context_unref(context);
    }
    g_main_loop_unref(loop);
    context = nullptr;
    loop = nullptr;
    created = false;
}

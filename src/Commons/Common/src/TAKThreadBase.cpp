#include "TAKThreadBase.h"

#include "TAKLog.h"

// The framework's classes log under the task base's name (see TAKSync.cpp).
#define TAK_TASK_LOGE(fmt, ...)                                                                          \
    TAKLogPrint(DLOG_ERROR, TAK_COLOR_RED, "src/Commons/Common/src/TAKTaskBase.cpp", __func__, __LINE__, \
                fmt, ##__VA_ARGS__)

namespace {

// Serialises thread creation across the process.
pthread_mutex_t g_ThreadLock = PTHREAD_MUTEX_INITIALIZER;

// Longest name the kernel keeps for a thread, without the terminating zero.
constexpr size_t kThreadNameMax = 15;

}  // namespace

CTAKThreadBase::CTAKThreadBase(const std::string& threadName) : name(threadName) {}

CTAKThreadBase::~CTAKThreadBase() = default;

bool CTAKThreadBase::Create(unsigned long stackSize) {
    if (IsCreated()) {
        TAK_TASK_LOGE("FlagCreate() return true");
        return false;
    }
    pthread_mutex_lock(&g_ThreadLock);
    startSync.Create();
    endSync.Create();
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attr, stackSize);
    int ret = pthread_create(&thread, &attr, Main, this);
    pthread_attr_destroy(&attr);
    if (ret != 0) {
        startSync.Destroy();
        endSync.Destroy();
        pthread_mutex_unlock(&g_ThreadLock);
        return false;
    }
    startSync.Give();
    pthread_mutex_unlock(&g_ThreadLock);
    return true;
}

void CTAKThreadBase::Destroy() {
    if (!IsCreated()) {
        TAK_TASK_LOGE("FlagCreate() return false");
        return;
    }
    endSync.Take();
    startSync.Destroy();
    endSync.Destroy();
}

bool CTAKThreadBase::m_IsOwnThread() const {
    return pthread_equal(pthread_self(), thread) != 0;
}

void* CTAKThreadBase::Main(void* self) {
    CTAKThreadBase* base = static_cast<CTAKThreadBase*>(self);
    pthread_setname_np(pthread_self(), base->name.substr(0, kThreadNameMax).c_str());
    // Holds the body back until Create() has finished with the object.
    base->startSync.Take();
    base->t_Main();
    // The owner may free the object as soon as this give lands: nothing of it is touched afterwards.
    base->endSync.Give();
    return nullptr;
}

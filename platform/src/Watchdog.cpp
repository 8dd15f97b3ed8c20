// Host deadlock watchdog: under systemd (NOTIFY_SOCKET set) every notification is a "WATCHDOG=1" message
// to the service manager; anywhere else there is nobody to notify and the calls succeed doing nothing.
#include <dlfcn.h>
#include <systemd/sd-daemon.h>

#include <cstdlib>

#include "dlog.h"
#include "smart_deadlock.h"

namespace {

// libsystemd (and the compression and crypto libraries it pulls in) is loaded only once there is a
// service manager to notify, so that a process started outside systemd does not pay for it at start.
decltype(&sd_notify) SdNotify() {
    static decltype(&sd_notify) notify = []() -> decltype(&sd_notify) {
        void* library = dlopen("libsystemd.so.0", RTLD_LAZY | RTLD_LOCAL);
        if (library == nullptr) {
            dlog_print(DLOG_ERROR, "ORVIX", "cannot load libsystemd: %s", dlerror());
            return nullptr;
        }
        return reinterpret_cast<decltype(&sd_notify)>(dlsym(library, "sd_notify"));
    }();
    return notify;
}

}  // namespace

extern "C" int smart_deadlock_register_watchdog_service(int type) {
    dlog_print(DLOG_DEBUG, "ORVIX", "watchdog service registered (type %d)", type);
    return 0;
}

extern "C" int smart_deadlock_watchdog_notify(void) {
    if (getenv("NOTIFY_SOCKET") == nullptr) {
        return 0;
    }
    auto notify = SdNotify();
    if (notify == nullptr) {
        return -1;
    }
    int result = notify(0, "WATCHDOG=1");
    if (result < 0) {
        dlog_print(DLOG_ERROR, "ORVIX", "sd_notify(WATCHDOG=1) failed: %d", result);
        return result;
    }
    return 0;
}

// Host deadlock watchdog: under systemd (NOTIFY_SOCKET set) every notification is a "WATCHDOG=1" message
// to the service manager; anywhere else there is nobody to notify and the calls succeed doing nothing.
#include <systemd/sd-daemon.h>

#include <cstdlib>

#include "dlog.h"
#include "smart_deadlock.h"

extern "C" int smart_deadlock_register_watchdog_service(int type) {
    dlog_print(DLOG_DEBUG, "ORVIX", "watchdog service registered (type %d)", type);
    return 0;
}

extern "C" int smart_deadlock_watchdog_notify(void) {
    if (getenv("NOTIFY_SOCKET") == nullptr) {
        return 0;
    }
    int result = sd_notify(0, "WATCHDOG=1");
    if (result < 0) {
        dlog_print(DLOG_ERROR, "ORVIX", "sd_notify(WATCHDOG=1) failed: %d", result);
        return result;
    }
    return 0;
}

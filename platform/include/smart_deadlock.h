// Deadlock watchdog. On the host it notifies systemd (WATCHDOG=1) when NOTIFY_SOCKET is set.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

int smart_deadlock_register_watchdog_service(int type);
int smart_deadlock_watchdog_notify(void);

#ifdef __cplusplus
}
#endif

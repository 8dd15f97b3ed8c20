// Platform log. On the host each call writes one line "time level/TAG(pid:tid): message" to standard
// error, or to the file named by ORVIX_LOG_FILE. ORVIX_LOG_LEVEL (V, D, I, W, E, F) drops lower levels.
#pragma once

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    DLOG_UNKNOWN = 0,
    DLOG_DEFAULT,
    DLOG_VERBOSE,
    DLOG_DEBUG,
    DLOG_INFO,
    DLOG_WARN,
    DLOG_ERROR,
    DLOG_FATAL,
    DLOG_SILENT,
} log_priority;

int dlog_print(log_priority prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
int dlog_vprint(log_priority prio, const char* tag, const char* fmt, va_list ap)
    __attribute__((format(printf, 3, 0)));

#ifdef __cplusplus
}
#endif

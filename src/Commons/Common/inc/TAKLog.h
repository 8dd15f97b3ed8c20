// Log macros of the service. Every line goes to the platform log with the tag "TAK", the prefix
// "file: function(line) > " and a colour escape that marks its level.
#pragma once

#include <dlog.h>

#define TAK_LOG_TAG "TAK"

#define TAK_COLOR_RED "\033[31m"
#define TAK_COLOR_YELLOW "\033[33m"
#define TAK_COLOR_BLUE "\033[34m"
#define TAK_COLOR_MAGENTA "\033[35m"
#define TAK_COLOR_RESET "\033[0m"

// Formats one line and hands it to dlog_print. `file` is __FILE__; the line names it relative to the
// source tree and without its extension.
void TAKLogPrint(log_priority prio, const char* color, const char* file, const char* func, int line,
                 const char* fmt, ...) __attribute__((format(printf, 6, 7)));

// The name that TAKLogPrint shows for a __FILE__ value.
const char* TAKLogSourceName(const char* file, char* buf, unsigned long size);

#define TAK_LOG_AT(prio, color, fmt, ...) \
    TAKLogPrint(prio, color, __FILE__, __func__, __LINE__, fmt, ##__VA_ARGS__)

#define TAK_LOGE(fmt, ...) TAK_LOG_AT(DLOG_ERROR, TAK_COLOR_RED, fmt, ##__VA_ARGS__)
// An outcome a support engineer looks for in a device's log (an app that failed or timed out): warning
// priority, so that a W filter keeps it while it drops the info lines of the same step.
#define TAK_LOGW(fmt, ...) TAK_LOG_AT(DLOG_WARN, TAK_COLOR_YELLOW, fmt, ##__VA_ARGS__)
#define TAK_LOGI(fmt, ...) TAK_LOG_AT(DLOG_INFO, TAK_COLOR_YELLOW, fmt, ##__VA_ARGS__)
#define TAK_LOGD(fmt, ...) TAK_LOG_AT(DLOG_DEBUG, TAK_COLOR_BLUE, fmt, ##__VA_ARGS__)
#define TAK_LOGN(fmt, ...) TAK_LOG_AT(DLOG_INFO, TAK_COLOR_MAGENTA, fmt, ##__VA_ARGS__)
// A milestone: error priority so that it survives every level filter, information colour.
#define TAK_LOGM(fmt, ...) TAK_LOG_AT(DLOG_ERROR, TAK_COLOR_YELLOW, fmt, ##__VA_ARGS__)

#include "TAKLog.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#ifndef TAK_SOURCE_ROOT
#define TAK_SOURCE_ROOT ""
#endif

const char* TAKLogSourceName(const char* file, char* buf, unsigned long size) {
    static const char kRoot[] = TAK_SOURCE_ROOT;
    if (file == nullptr || size == 0) {
        return "";
    }
    if (strncmp(file, kRoot, sizeof(kRoot) - 1) == 0) {
        file += sizeof(kRoot) - 1;
    }
    const char* dot = strrchr(file, '.');
    const char* slash = strrchr(file, '/');
    size_t len = (dot != nullptr && (slash == nullptr || dot > slash)) ? static_cast<size_t>(dot - file) : strlen(file);
    if (len >= size) {
        len = size - 1;
    }
    memcpy(buf, file, len);
    buf[len] = '\0';
    return buf;
}

void TAKLogPrint(log_priority prio, const char* color, const char* file, const char* func, int line,
                 const char* fmt, ...) {
    char name[256];
    char message[2048];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(message, sizeof(message), fmt, ap);
    va_end(ap);
    dlog_print(prio, TAK_LOG_TAG, "%s%s: %s(%d) > %s%s", color, TAKLogSourceName(file, name, sizeof(name)), func,
               line, message, TAK_COLOR_RESET);
}

// Host platform log: one line per call, written with a single write(2) so that lines of different
// threads and processes never interleave.
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include "dlog.h"
#include "orvix_regular_file.h"

namespace {

std::once_flag g_initOnce;
int g_fd = STDERR_FILENO;
int g_minLevel = DLOG_DEBUG;

int LevelFromText(const char* text) {
    switch (text[0]) {
        case 'V':
        case 'v':
            return DLOG_VERBOSE;
        case 'D':
        case 'd':
            return DLOG_DEBUG;
        case 'I':
        case 'i':
            return DLOG_INFO;
        case 'W':
        case 'w':
            return DLOG_WARN;
        case 'E':
        case 'e':
            return DLOG_ERROR;
        case 'F':
        case 'f':
            return DLOG_FATAL;
        case 'S':
        case 's':
            return DLOG_SILENT;
        default:
            return DLOG_DEBUG;
    }
}

void Init() {
    if (const char* level = getenv("ORVIX_LOG_LEVEL"); level != nullptr && *level != '\0') {
        g_minLevel = LevelFromText(level);
    }
    if (const char* file = getenv("ORVIX_LOG_FILE"); file != nullptr && *file != '\0') {
        // The open must not wait: a FIFO nobody reads fails at once. A device or a pipe with a reader is
        // taken, as that is what was asked for (/dev/null, /dev/stdout). On failure the lines go to
        // standard error, after one that says why.
        int fd = orvix::host::OpenNoWait(file, O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (fd < 0) {
            fprintf(stderr, "cannot open the platform log %s: %s; logging to standard error\n", file,
                    strerror(errno));
            return;
        }
        g_fd = fd;
    }
}

char LevelLetter(log_priority prio) {
    static const char kLetters[] = "??VDIWEFS";
    return (prio >= DLOG_UNKNOWN && prio <= DLOG_SILENT) ? kLetters[prio] : '?';
}

}  // namespace

extern "C" int dlog_vprint(log_priority prio, const char* tag, const char* fmt, va_list ap) {
    std::call_once(g_initOnce, Init);
    if (prio < g_minLevel || fmt == nullptr) {
        return 0;
    }
    char line[4096];
    struct timeval tv {};
    gettimeofday(&tv, nullptr);
    struct tm tmv {};
    localtime_r(&tv.tv_sec, &tmv);
    int n = snprintf(line, sizeof(line), "%02d-%02d %02d:%02d:%02d.%03ld %c/%s(%5d:%5ld): ", tmv.tm_mon + 1,
                     tmv.tm_mday, tmv.tm_hour, tmv.tm_min, tmv.tm_sec, static_cast<long>(tv.tv_usec / 1000),
                     LevelLetter(prio), tag != nullptr ? tag : "", getpid(),
                     static_cast<long>(syscall(SYS_gettid)));
    if (n < 0) {
        return -1;
    }
    // The text before the newline, which may need one byte more; the tag is the caller's, and a long one
    // leaves the prefix cut, so the message's room counts from what was written, not what was wanted.
    const size_t limit = sizeof(line) - 2;
    size_t len = std::min(static_cast<size_t>(n), limit);
    int m = vsnprintf(line + len, sizeof(line) - len - 1, fmt, ap);
    len += m < 0 ? 0 : std::min(static_cast<size_t>(m), limit - len);
    if (len == 0 || line[len - 1] != '\n') {
        line[len++] = '\n';
    }
    ssize_t written = write(g_fd, line, len);
    return written < 0 ? -1 : static_cast<int>(written);
}

extern "C" int dlog_print(log_priority prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int ret = dlog_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return ret;
}

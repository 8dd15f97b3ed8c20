#include "TAKHistoryLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include <platform_path.h>

#include "TAKFile.h"
#include "TAKLog.h"

namespace {

const long long kRotateAboveBytes = 262144;
const int kBackups = 3;
const size_t kLineBufferSize = 2048;

// Everything below is guarded by g_LogLock: the name, the rotation, every write, and the two things a
// line needs that change rarely, so that a line does not pay for building them again: the file's path
// (rebuilt when the name or the data directory changes) and the time prefix (formatted once a second).
std::mutex g_LogLock;
std::string g_HistoryName;
std::string g_HistoryPath;
std::string g_PathDataDir;
bool g_bPathBuilt = false;
time_t g_StampSecond = -1;
char g_Stamp[64];
size_t g_StampLength = 0;

std::string PathIn(const std::string& dataDir, const std::string& name) {
    return dataDir + "/vardell/log/" + name + ".log";
}

const char* DataDir() {
    const char* dataDir = platform_path_get(PLATFORM_PATH_SYSTEM_DATA);
    return dataDir != nullptr ? dataDir : "";
}

// Caller holds g_LogLock.
const std::string& HistoryPathLocked() {
    const char* dataDir = DataDir();
    if (!g_bPathBuilt || g_PathDataDir != dataDir) {
        g_PathDataDir = dataDir;
        g_HistoryPath = PathIn(g_PathDataDir, g_HistoryName);
        g_bPathBuilt = true;
    }
    return g_HistoryPath;
}

void RenameLogged(const std::string& from, const std::string& to) {
    if (rename(from.c_str(), to.c_str()) != 0) {
        TAK_LOGE("Failed to rename %s to %s: %s", from.c_str(), to.c_str(), strerror(errno));
    }
}

// Caller holds g_LogLock.
void RotateLocked(const std::string& path) {
    for (int n = kBackups; n >= 1; --n) {
        std::string backup = path + "." + std::to_string(n);
        if (!TAKFile::Exists(backup)) {
            continue;
        }
        if (n == kBackups) {
            if (unlink(backup.c_str()) != 0) {
                TAK_LOGE("Failed to remove %s: %s", backup.c_str(), strerror(errno));
            }
        } else {
            RenameLogged(backup, path + "." + std::to_string(n + 1));
        }
    }
    RenameLogged(path, path + ".1");
}

// "YYYY-MM-DDTHH:MM:SS:>" (UTC) of this second. Caller holds g_LogLock.
size_t StampLocked(char* line) {
    time_t now = time(nullptr);
    if (now != g_StampSecond) {
        struct tm utc {};
        gmtime_r(&now, &utc);
        int length = snprintf(g_Stamp, sizeof(g_Stamp), "%d-%.2d-%.2dT%.2d:%.2d:%.2d:>", utc.tm_year + 1900,
                              utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
        g_StampLength = length > 0 ? std::min(static_cast<size_t>(length), sizeof(g_Stamp) - 1) : 0;
        g_StampSecond = now;
    }
    memcpy(line, g_Stamp, g_StampLength);
    return g_StampLength;
}

// The time prefix + message, cut at kLineBufferSize - 1 characters, then a newline (the buffer holds one
// more byte for it). The prefix is copied first and the caller's format printed straight after it, so the
// caller's format itself is never cut (which could split a conversion). Caller holds g_LogLock.
__attribute__((format(printf, 2, 0))) size_t FormatLineLocked(char (&line)[kLineBufferSize + 1],
                                                              const char* format, va_list args) {
    size_t prefix = StampLocked(line);
    int message = vsnprintf(line + prefix, kLineBufferSize - prefix, format, args);
    size_t length = prefix + (message > 0 ? static_cast<size_t>(message) : 0);
    length = std::min(length, kLineBufferSize - 1);
    line[length] = '\n';
    return length + 1;
}

// Opens the current file for appending, through the real-path check; -1 (logged) when that fails. Only a
// regular file is written to, and the open cannot wait: a FIFO in its place (with or without a reader)
// must not hold the thread that writes the line.
int OpenCurrent(const std::string& path) {
    bool isRealPath = false;
    int fd = TAKFile::OpenRegularRealPath(path, O_WRONLY | O_APPEND | O_CREAT, 0644, isRealPath);
    if (!isRealPath) {
        TAK_LOGE("%s is not realpath, so can not open it!!!", path.c_str());
    } else if (fd < 0) {
        TAK_LOGE("ptLog is NULL");
    }
    return fd;
}

// The size of the open file: its end offset (cheaper than fstat, which matters once per line).
bool NeedsRotation(int fd) {
    return lseek(fd, 0, SEEK_END) > kRotateAboveBytes;
}

// One write per line: line and newline land together even beside writers in other processes.
void AppendLine(int fd, const std::string& path, const char* record, size_t size) {
    if (write(fd, record, size) != static_cast<ssize_t>(size)) {
        TAK_LOGE("Failed to write %s: %s", path.c_str(), strerror(errno));
    }
}

}  // namespace

std::string HistoryLogFilePath(const std::string& name) {
    return PathIn(DataDir(), name);
}

void HistoryLogFileName(const char* name) {
    if (name == nullptr) {
        TAK_LOGE("history log name is NULL");
        return;
    }
    std::lock_guard<std::mutex> lock(g_LogLock);
    g_HistoryName = name;
    g_bPathBuilt = false;
}

// The real-path check and the open are one step (no window in which the path could become a link),
// and the size that decides the rotation is read from the open file; only a file that passed the check
// is ever rotated. The file is opened and closed for every line; no handle is kept.
void WriteHistoryLogFile(const char* format, ...) {
    std::lock_guard<std::mutex> lock(g_LogLock);
    const std::string& path = HistoryPathLocked();
    if (format == nullptr) {
        return;
    }
    char line[kLineBufferSize + 1];
    va_list args;
    va_start(args, format);
    size_t size = FormatLineLocked(line, format, args);
    va_end(args);
    int fd = OpenCurrent(path);
    if (fd < 0) {
        return;
    }
    if (NeedsRotation(fd)) {
        close(fd);
        RotateLocked(path);
        fd = OpenCurrent(path);
        if (fd < 0) {
            return;
        }
    }
    AppendLine(fd, path, line, size);
    close(fd);
}

void RotateHistoryLogFile() {
    std::lock_guard<std::mutex> lock(g_LogLock);
    RotateLocked(HistoryPathLocked());
}

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

std::mutex g_LogLock;  // guards g_HistoryName, the rotation and every write
std::string g_HistoryName;

std::string HistoryPath() {
    const char* dataDir = platform_path_get(PLATFORM_PATH_SYSTEM_DATA);
    return std::string(dataDir != nullptr ? dataDir : "") + "/vardell/" + "log/" + g_HistoryName + ".log";
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

// "YYYY-MM-DDTHH:MM:SS:>" + message, cut to fit the buffer. The prefix is printed first and the caller's
// format straight after it, so the caller's format itself is never cut (which could split a conversion).
size_t FormatLine(char (&line)[kLineBufferSize], const char* format, va_list args) {
    time_t now = time(nullptr);
    struct tm utc {};
    gmtime_r(&now, &utc);
    int prefix = snprintf(line, sizeof(line), "%d-%.2d-%.2dT%.2d:%.2d:%.2d:>", utc.tm_year + 1900,
                          utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    if (prefix < 0 || static_cast<size_t>(prefix) >= sizeof(line)) {
        return 0;
    }
    int message = vsnprintf(line + prefix, sizeof(line) - prefix, format, args);
    if (message < 0) {
        return static_cast<size_t>(prefix);
    }
    return std::min(static_cast<size_t>(prefix) + static_cast<size_t>(message), sizeof(line) - 1);
}

// Opens the current file for appending, through the real-path check; -1 (logged) when that fails.
int OpenCurrent(const std::string& path) {
    bool isRealPath = false;
    int fd = TAKFile::OpenRealPath(path, O_WRONLY | O_APPEND | O_CREAT, 0644, isRealPath);
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

void AppendLine(int fd, const std::string& path, const char* line, size_t length) {
    // One write per line: line and newline land together even beside writers in other processes.
    char record[kLineBufferSize + 1];
    memcpy(record, line, length);
    record[length] = '\n';
    if (write(fd, record, length + 1) != static_cast<ssize_t>(length + 1)) {
        TAK_LOGE("Failed to write %s: %s", path.c_str(), strerror(errno));
    }
}

}  // namespace

void HistoryLogFileName(const char* name) {
    if (name == nullptr) {
        TAK_LOGE("history log name is NULL");
        return;
    }
    std::lock_guard<std::mutex> lock(g_LogLock);
    g_HistoryName = name;
}

// The real-path check and the open are one step (no window in which the path could become a link),
// and the size that decides the rotation is read from the open file; only a file that passed the check
// is ever rotated. The file is opened and closed for every line; no handle is kept.
void WriteHistoryLogFile(const char* format, ...) {
    std::lock_guard<std::mutex> lock(g_LogLock);
    std::string path = HistoryPath();
    if (format == nullptr) {
        return;
    }
    char line[kLineBufferSize];
    va_list args;
    va_start(args, format);
    size_t length = FormatLine(line, format, args);
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
    AppendLine(fd, path, line, length);
    close(fd);
}

void RotateHistoryLogFile() {
    std::lock_guard<std::mutex> lock(g_LogLock);
    RotateLocked(HistoryPath());
}

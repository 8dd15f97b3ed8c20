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

// "YYYY-MM-DDTHH:MM:SS:>" + message, cut to fit the buffer. The message is formatted on its own first,
// so a very long caller format can never be cut in the middle of a conversion.
size_t FormatLine(char (&line)[kLineBufferSize], const char* format, va_list args) {
    char message[kLineBufferSize];
    vsnprintf(message, sizeof(message), format, args);
    time_t now = time(nullptr);
    struct tm utc {};
    gmtime_r(&now, &utc);
    int n = snprintf(line, sizeof(line), "%d-%.2d-%.2dT%.2d:%.2d:%.2d:>%s", utc.tm_year + 1900,
                     utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, message);
    if (n < 0) {
        return 0;
    }
    return std::min(static_cast<size_t>(n), sizeof(line) - 1);
}

void AppendLine(const std::string& path, const char* line, size_t length) {
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) {
        TAK_LOGE("ptLog is NULL");
        return;
    }
    // One write per line: line and newline land together even beside writers in other processes.
    char record[kLineBufferSize + 1];
    memcpy(record, line, length);
    record[length] = '\n';
    if (write(fd, record, length + 1) != static_cast<ssize_t>(length + 1)) {
        TAK_LOGE("Failed to write %s: %s", path.c_str(), strerror(errno));
    }
    close(fd);
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

void WriteHistoryLogFile(const char* format, ...) {
    std::lock_guard<std::mutex> lock(g_LogLock);
    std::string path = HistoryPath();
    if (format == nullptr) {
        return;
    }
    if (TAKFile::Size(path) > kRotateAboveBytes) {
        RotateLocked(path);
    }
    char line[kLineBufferSize];
    va_list args;
    va_start(args, format);
    size_t length = FormatLine(line, format, args);
    va_end(args);
    if (!TAKFile::IsRealPath(path)) {
        TAK_LOGE("%s is not realpath, so can not open it!!!", path.c_str());
        return;
    }
    AppendLine(path, line, length);
}

void RotateHistoryLogFile() {
    std::lock_guard<std::mutex> lock(g_LogLock);
    RotateLocked(HistoryPath());
}

// Process identities for the kit's pid files.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "orvix_process.h"

namespace orvix::host {

namespace {

// Field 3 (state) and field 22 (start time) of /proc/PID/stat. The command name (field 2) may hold blanks
// and parentheses, so parsing starts after its last ')'.
bool ReadStat(pid_t pid, char& state, unsigned long long& startTime) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t close = text.rfind(')');
    if (close == std::string::npos) {
        return false;
    }
    std::istringstream fields(text.substr(close + 1));
    std::string field;
    fields >> state;
    for (int index = 4; index <= 22 && fields >> field; ++index) {
        if (index == 22) {
            startTime = strtoull(field.c_str(), nullptr, 10);
            return true;
        }
    }
    return false;
}

std::string Format(const ProcessId& process) {
    return std::to_string(process.pid) + " " + std::to_string(process.startTime) + "\n";
}

}  // namespace

unsigned long long ProcessStartTime(pid_t pid) {
    char state = 0;
    unsigned long long startTime = 0;
    if (pid <= 0 || !ReadStat(pid, state, startTime) || state == 'Z' || state == 'X') {
        return 0;
    }
    return startTime;
}

ProcessId Identify(pid_t pid) {
    return ProcessId{pid, ProcessStartTime(pid)};
}

bool IsRunning(const ProcessId& process) {
    return process.pid > 0 && process.startTime != 0 && ProcessStartTime(process.pid) == process.startTime;
}

bool WritePidFileTo(int fd, const ProcessId& process) {
    std::string text = Format(process);
    if (ftruncate(fd, 0) != 0) {
        return false;
    }
    return pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

bool WritePidFile(const std::string& path, const ProcessId& process) {
    std::string temporary = path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << Format(process);
        if (!out.flush()) {
            return false;
        }
    }
    return rename(temporary.c_str(), path.c_str()) == 0;
}

bool ReadPidFile(const std::string& path, ProcessId& process) {
    std::ifstream in(path);
    long long pid = 0;
    unsigned long long startTime = 0;
    if (!(in >> pid >> startTime) || pid <= 0) {
        return false;
    }
    process = ProcessId{static_cast<pid_t>(pid), startTime};
    return true;
}

}  // namespace orvix::host

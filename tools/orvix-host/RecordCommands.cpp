// orvix-host calls [--follow] | log [--follow] [PROGRAM]: what the kit recorded.
//
// calls   prints <root>/var/log/calls.jsonl, one JSON object a line: every call the stand-in inner server,
//         the manager clients, the substitute common library and the app launcher received.
// log     prints <root>/var/log/PROGRAM.log, the platform log and output of a program the kit started:
//         tak-reset (the default), innerserver, managerclient.OBJ, dbus-daemon.
// --follow keeps printing what is appended, until interrupted.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "Commands.h"
#include "HostDaemons.h"
#include "KitCommand.h"
#include "orvix_calls.h"
#include "orvix_host.h"

namespace {

using namespace orvix::host;

constexpr gulong kFollowPollUs = 100 * 1000;

bool WriteOut(const char* data, size_t size) {
    while (size > 0) {
        ssize_t n = write(STDOUT_FILENO, data, size);
        if (n <= 0) {
            return false;  // the reader went away
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Copies what is in the file from `offset` on; false when standard output is closed.
bool CopyFrom(const std::string& path, off_t& offset) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return true;
    }
    struct stat st {};
    if (fstat(fd, &st) == 0 && st.st_size < offset) {
        offset = 0;  // truncated or replaced: start again
    }
    char buffer[65536];
    ssize_t n;
    bool ok = true;
    while (ok && (n = pread(fd, buffer, sizeof(buffer), offset)) > 0) {
        ok = WriteOut(buffer, static_cast<size_t>(n));
        offset += n;
    }
    close(fd);
    return ok;
}

int PrintFile(const std::string& path, bool follow) {
    off_t offset = 0;
    bool ok = CopyFrom(path, offset);
    while (ok && follow) {
        g_usleep(kFollowPollUs);
        ok = CopyFrom(path, offset);
    }
    return 0;
}

}  // namespace

int RunCalls(int argc, char** argv) {
    gboolean follow = FALSE;
    const GOptionEntry entries[] = {
        {"follow", 'f', 0, G_OPTION_ARG_NONE, &follow, "keep printing new calls", nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    if (!ParseOptions("calls", entries, argc, argv)) {
        return kUsageError;
    }
    if (argc > 1) {
        return UsageError("calls", std::string("unexpected argument '") + argv[1] + "'");
    }
    return PrintFile(CallsFile(), follow);
}

int RunLog(int argc, char** argv) {
    gboolean follow = FALSE;
    const GOptionEntry entries[] = {
        {"follow", 'f', 0, G_OPTION_ARG_NONE, &follow, "keep printing new lines", nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    if (!ParseOptions("log", entries, argc, argv)) {
        return kUsageError;
    }
    if (argc > 2) {
        return UsageError("log", "expected at most one program name");
    }
    std::string program = argc == 2 ? argv[1] : "tak-reset";
    if (program.empty() || program.find('/') != std::string::npos || program[0] == '.') {
        return UsageError("log", "'" + program + "' is not a program name");
    }
    return PrintFile(LogFile(program), follow);
}

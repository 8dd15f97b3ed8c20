// orvix-host calls [--follow] | log [--follow] [--level L] [PROGRAM]: what the kit recorded.
//
// calls   prints <root>/var/log/calls.jsonl, one JSON object a line: every call the stand-in inner server,
//         the manager clients, the substitute common library and the app launcher received.
// log     prints <root>/var/log/PROGRAM.log, the platform log and output of a program the kit started:
//         tak-reset (the default), innerserver, managerclient.OBJ, dbus-daemon, or any other program with
//         a log there. --level drops platform log lines below a level (CLogFilter); the colour escapes of
//         the levels are taken out unless standard output is a terminal.
// --follow keeps printing what is appended, until interrupted.
// Both need an initialised root; log refuses a program it knows no log of (exit status 2). A record that
// does not exist yet prints nothing but a line on standard error that says so (exit status 0).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "Commands.h"
#include "HostDaemons.h"
#include "KitCommand.h"
#include "LogFilter.h"
#include "orvix_calls.h"
#include "orvix_host.h"

namespace {

using namespace orvix::host;

constexpr gulong kFollowPollUs = 100 * 1000;
const char* const kKnownPrograms[] = {"tak-reset", "innerserver", "dbus-daemon"};

bool WriteOut(const std::string& text) {
    const char* data = text.data();
    size_t size = text.size();
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

using Sink = std::function<bool(const char* data, size_t size)>;

// Hands what is in the file from `offset` on to `sink`; false when the sink is closed.
bool CopyFrom(const std::string& path, off_t& offset, const Sink& sink) {
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
        ok = sink(buffer, static_cast<size_t>(n));
        offset += n;
    }
    close(fd);
    return ok;
}

bool PrintFile(const std::string& path, bool follow, const Sink& sink) {
    off_t offset = 0;
    bool ok = CopyFrom(path, offset, sink);
    while (ok && follow) {
        g_usleep(kFollowPollUs);
        ok = CopyFrom(path, offset, sink);
    }
    return ok;
}

// An empty answer would look like an empty record; say why there is none (on standard error, so that
// the output stays the file's content). --follow waits for the file instead.
void NoteWhenMissing(const char* command, const std::string& path, bool follow, const std::string& note) {
    if (!follow && access(path.c_str(), F_OK) != 0) {
        fprintf(stderr, "orvix-host %s: %s (no %s)\n", command, note.c_str(), path.c_str());
    }
}

bool IsKnownProgram(const std::string& program) {
    for (const char* known : kKnownPrograms) {
        if (program == known) {
            return true;
        }
    }
    const std::string kClient = "managerclient.";
    return (program.rfind(kClient, 0) == 0 && program.size() > kClient.size()) ||
           access(LogFile(program).c_str(), F_OK) == 0;
}

// The programs that have a log in the root, for the error line.
std::string LoggedPrograms() {
    std::string names;
    g_autoptr(GDir) dir = g_dir_open(UnderRoot("var/log").c_str(), 0, nullptr);
    while (const gchar* name = dir != nullptr ? g_dir_read_name(dir) : nullptr) {
        if (g_str_has_suffix(name, ".log")) {
            names += (names.empty() ? "" : ", ") + std::string(name, strlen(name) - 4);
        }
    }
    return names.empty() ? "none yet" : names;
}

int PrintLog(const std::string& program, bool follow, char level) {
    CLogFilter filter(level, !isatty(STDOUT_FILENO));
    bool ok = PrintFile(LogFile(program), follow, [&filter](const char* data, size_t size) {
        return WriteOut(filter.Feed(data, size));
    });
    if (ok) {
        WriteOut(filter.Finish());
    }
    return 0;
}

}  // namespace

int RunCalls(int argc, char** argv) {
    const char kCommand[] = "calls";
    gboolean follow = FALSE;
    const GOptionEntry entries[] = {
        {"follow", 'f', 0, G_OPTION_ARG_NONE, &follow, "keep printing new calls until interrupted", nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    int status = 0;
    if (!ParseOptions(kCommand, entries, argc, argv, status)) {
        return status;
    }
    if (argc > 1) {
        return UsageError(kCommand, std::string("unexpected argument '") + argv[1] + "'");
    }
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    NoteWhenMissing(kCommand, CallsFile(), follow, "no calls recorded yet");
    PrintFile(CallsFile(), follow,
              [](const char* data, size_t size) { return WriteOut(std::string(data, size)); });
    return 0;
}

int RunLog(int argc, char** argv) {
    const char kCommand[] = "log";
    gboolean follow = FALSE;
    g_autofree gchar* level = nullptr;
    const GOptionEntry entries[] = {
        {"follow", 'f', 0, G_OPTION_ARG_NONE, &follow, "keep printing new lines until interrupted", nullptr},
        {"level", 'l', 0, G_OPTION_ARG_STRING, &level,
         "only platform log lines of this level or above (V, D, I, W, E, F); other lines always show",
         "E|W|I|D"},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    int status = 0;
    if (!ParseOptions(kCommand, entries, argc, argv, status)) {
        return status;
    }
    if (argc > 2) {
        return UsageError(kCommand, "expected at most one program name");
    }
    if (level != nullptr && (strlen(level) != 1 || !CLogFilter::IsLevel(level[0]))) {
        return UsageError(kCommand, std::string("unknown level '") + level + "' (V, D, I, W, E or F)");
    }
    std::string program = argc == 2 ? argv[1] : "tak-reset";
    if (program.empty() || program.find('/') != std::string::npos || program[0] == '.') {
        return UsageError(kCommand, "'" + program + "' is not a program name");
    }
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    if (!IsKnownProgram(program)) {
        return UsageError(kCommand,
                          "no log of '" + program + "' in " + Root() + " (logs: " + LoggedPrograms() + ")");
    }
    NoteWhenMissing(kCommand, LogFile(program), follow, program + " has not logged anything yet");
    return PrintLog(program, follow, level != nullptr ? level[0] : 'V');
}

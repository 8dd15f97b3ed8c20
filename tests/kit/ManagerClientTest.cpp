// The manager client's progress view, as a person sees it: `orvix-host client OBJ --foreground` runs on
// a pseudo-terminal, the test makes the progress calls the reset process makes, and reads back what the
// terminal shows.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>

#include <regex>
#include <tuple>

#include "HostFixture.h"

namespace {

using orvix::test::ReadWholeFile;
using orvix::test::WaitUntil;
using namespace std::chrono_literals;

const char kClientName[] = "org.orvix.tv.vardell.managerclient.tv";

// A program run on a pseudo-terminal, the way a person at a terminal runs it, with this process's
// environment; ended with SIGTERM, then SIGKILL, by Stop() or the destructor. What it writes is read only
// while a test waits for it or for its end.
class OnATerminal {
public:
    explicit OnATerminal(std::vector<std::string> argv) {
        // Everything the child needs is made before the fork: only exec and _exit run after it.
        std::vector<char*> argp;
        for (auto& arg : argv) {
            argp.push_back(arg.data());
        }
        argp.push_back(nullptr);
        struct winsize size = {40, 160, 0, 0};
        m_pid = forkpty(&m_master, nullptr, nullptr, &size);
        if (m_pid == 0) {
            execv(argp[0], argp.data());
            _exit(127);
        }
    }
    ~OnATerminal() {
        Stop();
        close(m_master);
    }
    OnATerminal(const OnATerminal&) = delete;
    OnATerminal& operator=(const OnATerminal&) = delete;

    pid_t Pid() const { return m_pid; }
    const std::string& Output() const { return m_output; }

    bool WaitForOutput(const std::function<bool()>& condition) {
        return WaitUntil([&] {
            Read(20);
            return condition();
        });
    }
    bool Shows(const std::string& line) {
        return WaitForOutput([&] { return CurrentLine() == line; });
    }

    // The exit status after `signal` (SIGKILL when it has not exited 30 s later), or -1 when it did not
    // exit by itself. One signal only: a second one could come while the client has put back the default
    // action on its way out, and kill it.
    int Stop(int signal = SIGTERM) {
        int status = 0;
        if (m_pid <= 0) {
            return m_status;
        }
        kill(m_pid, signal);
        if (!WaitUntil([&] { return !Read(10) && waitpid(m_pid, &status, WNOHANG) == m_pid; }, 30s)) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
        }
        while (Read(0)) {
        }
        m_pid = 0;
        return m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // The text as the terminal shows it: a carriage return goes back to the start of the line, "ESC [ K"
    // clears the rest of it, a line feed starts a new one; other escapes are dropped. The cursor is on the
    // last line.
    std::string Screen() const {
        std::string text;
        size_t start = 0, column = 0;  // where the cursor's line starts, and the cursor on it
        for (size_t i = 0; i < m_output.size(); ++i) {
            char c = m_output[i];
            if (c == '\n') {
                text += c;
                start = text.size();
            }
            if (c == '\r' || c == '\n') {
                column = 0;
            } else if (c == '\x1b') {
                for (i += 2; i < m_output.size() && !g_ascii_isalpha(m_output[i]); ++i) {
                }
                if (i < m_output.size() && m_output[i] == 'K') {
                    text.resize(std::min(text.size(), start + column));
                }
            } else {
                text.resize(std::max(text.size(), start + column + 1));
                text[start + column++] = c;
            }
        }
        return text;
    }
    std::string CurrentLine() const { return Screen().substr(Screen().rfind('\n') + 1); }

private:
    // Reads what is there, waiting up to `ms` for something; whether anything came (nothing does once
    // every process holding the terminal is gone).
    bool Read(int ms) {
        struct pollfd pfd = {m_master, POLLIN, 0};
        char buffer[4096];
        ssize_t n = poll(&pfd, 1, ms) > 0 ? read(m_master, buffer, sizeof(buffer)) : 0;
        m_output.append(buffer, n > 0 ? n : 0);
        return n > 0;
    }

    pid_t m_pid = -1;
    int m_master = -1;
    int m_status = -1;
    std::string m_output;
};

// The built-in reset's bar with `filled` of its 30 marks, up to the count after it.
std::string Bar(int filled) {
    return "built-in reset           [" + std::string(filled, '#') + std::string(30 - filled, '-') + "] ";
}

class AManagerClient : public orvix::test::HostFixture {
protected:
    // On a terminal; the fixture has set this process's ORVIX_HOST_ROOT.
    static std::vector<std::string> Client() { return {OrvixHostPath(), "client", "tv", "--foreground"}; }
    // Once the client owns its name it has also taken its place in the launch record, so what is
    // launched from then on is news to it.
    bool OwnsItsName() const {
        g_autoptr(GDBusConnection) bus = ConnectToBus();
        return WaitUntil([&] {
            g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
                bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
                g_variant_new("(s)", kClientName), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, 20000,
                nullptr, nullptr);
            gboolean owned = FALSE;
            if (reply != nullptr) {
                g_variant_get(reply, "(b)", &owned);
            }
            return owned == TRUE;
        });
    }
    // One progress report, as the built-in reset sends it, once a client owns the name (a client just
    // started may not yet); it returns once the client has handled it.
    void Report(int state, int result) const {
        g_autoptr(GDBusConnection) bus = ConnectToBus();
        EXPECT_TRUE(WaitUntil([&] {
            g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
                bus, kClientName, "/org/orvix/tv/vardell/managerclient/tv",
                "org.orvix.tv.vardell.managerclient.interface.tv", "tak_builtin_app_service_reset_result",
                g_variant_new("(iiii)", 7, state, result, 0), nullptr, G_DBUS_CALL_FLAGS_NONE, 20000, nullptr,
                nullptr);
            return reply != nullptr;
        })) << state;
    }
};

// One reset after another on one terminal: the bar at the total and a step per app, the count and the time
// at the end; a reset with nothing to do draws no bar at all (neither empty at 500 nor full at 502); the
// next reset starts from its own total.
TEST_F(AManagerClient, DrawsTheBarAtTheTotalAdvancesPerAppAndEndsWithTheCountAndTime) {
    // Each report, and the line under the cursor after it ("": nothing to wait for).
    const std::tuple<int, int, std::string> steps[] = {{500, 3, Bar(0) + "0/3"},
                                                       {501, 1, Bar(10) + "1/3"},
                                                       {501, 2, Bar(20) + "2/3"},
                                                       {501, 3, Bar(30) + "3/3"},
                                                       {502, 0, ""},
                                                       {500, 0, ""},
                                                       {502, 0, ""},
                                                       {500, 2, Bar(0) + "0/2"},
                                                       {502, 0, ""}};
    OnATerminal client(Client());
    for (const auto& [state, result, line] : steps) {
        Report(state, result);
        EXPECT_TRUE(line.empty() || client.Shows(line)) << state << ": [" << client.CurrentLine() << "]";
    }
    // What stays on the terminal: one line per reset, the cursor below them.
    std::regex finished(R"(built-in reset +\[#{30}\] 3/3 done in \d+\.\d s\n)"
                        R"(built-in reset: nothing to reset \(in \d+\.\d s\)\n)"
                        R"(built-in reset +\[-{30}\] 0/2 done in \d+\.\d s\n$)");
    EXPECT_TRUE(client.WaitForOutput([&] { return std::regex_search(client.Screen(), finished); }))
        << client.Screen();
    EXPECT_EQ(client.Stop(), 0) << client.Output();
}

// In the foreground it takes over from a background client of the same name (the one the built-in reset
// tests start).
TEST_F(AManagerClient, InTheForegroundTakesOverFromABackgroundClient) {
    ASSERT_EQ(Host({"client", "tv"}).status, 0);
    orvix::host::ProcessId first, second;
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/managerclient.tv.pid", first));
    orvix::test::RunResult again = Host({"client", "tv"});
    EXPECT_EQ(again.out, "managerclient.tv already runs (pid " + std::to_string(first.pid) +
                             "; its progress: orvix-host log managerclient.tv); orvix-host client tv "
                             "--foreground takes it over on this terminal\n");
    OnATerminal client(Client());
    EXPECT_TRUE(client.WaitForOutput([&] {
        return client.Output().find("stopped; this terminal shows its progress") != std::string::npos;
    })) << client.Output();
    EXPECT_FALSE(orvix::host::IsRunning(first));
    Report(500, 1);
    EXPECT_TRUE(client.Shows(Bar(0) + "0/1")) << client.Output();
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/managerclient.tv.pid", second));
    EXPECT_EQ(second.pid, client.Pid());
}

// Ctrl-C while a bar is drawn ends its line, so that the shell's prompt starts on a line of its own; a
// quiet spell says what the bar waits for; the client's own log lines go to its log, not the terminal.
TEST_F(AManagerClient, EndsTheBarLineAtCtrlCAndKeepsItsLogOffTheTerminal) {
    OnATerminal client(Client());
    Report(500, 3);
    Report(501, 1);
    EXPECT_TRUE(client.WaitForOutput([&] {
        return client.CurrentLine().find(Bar(10) + "1/3, no report for ") == 0;
    })) << client.Screen();
    EXPECT_EQ(client.Stop(SIGINT), 0) << client.Output();
    EXPECT_EQ(client.Output().back(), '\n') << client.Output();
    EXPECT_EQ(client.Screen().find("owns"), std::string::npos) << client.Screen();
    EXPECT_NE(ReadWholeFile(LogPath("managerclient.tv")).find("managerclient.tv: owns"), std::string::npos);
}

// A reset that reports nothing is announced when it starts.
TEST_F(AManagerClient, AnnouncesResetsThatReportNothing) {
    OnATerminal client(Client());
    ASSERT_TRUE(OwnsItsName());
    ASSERT_EQ(Host({"launch", "reset=tak_app_reset", "userdata=3"}).status, 0);
    EXPECT_TRUE(client.WaitForOutput([&] {
        return ("\n" + client.Screen())
                   .find(
                       "\napps reset (reset=tak_app_reset) started: tak-reset sends a manager "
                       "client no progress of it (its result: orvix-host log)\n") != std::string::npos;
    })) << client.Screen();
}

}  // namespace

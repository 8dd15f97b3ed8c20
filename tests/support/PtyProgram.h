// PtyProgram: a program run on a pseudo-terminal, the way a person at a terminal runs it, so that a test
// sees what the program draws there (bars redrawn in place, colours kept for a terminal).
//
// The program starts in the constructor (forkpty: a session of its own with the terminal as standard
// input, output and error) and is ended with SIGTERM, then SIGKILL, by Stop() or the destructor. What it
// writes is read only while a test waits for it (WaitForOutput); waiting is bounded.
//
// Screen() renders the raw output as the terminal shows it: a carriage return goes back to the start of
// the line, "ESC [ K" clears the rest of the line, a line feed starts a new one; other escapes are
// dropped.
#pragma once

#include <fcntl.h>
#include <glib.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace orvix::test {

class PtyProgram {
public:
    PtyProgram(const std::vector<std::string>& argv,
               const std::vector<std::pair<std::string, std::string>>& environment = {}) {
        // Everything the child needs is made before the fork: only exec and _exit run after it.
        std::vector<char*> argp;
        for (const auto& arg : argv) {
            argp.push_back(const_cast<char*>(arg.c_str()));
        }
        argp.push_back(nullptr);
        g_auto(GStrv) envp = g_get_environ();
        for (const auto& [key, value] : environment) {
            envp = g_environ_setenv(envp, key.c_str(), value.c_str(), TRUE);
        }
        struct winsize size = {40, 160, 0, 0};
        m_pid = forkpty(&m_master, nullptr, nullptr, &size);
        if (m_pid == 0) {
            execve(argp[0], argp.data(), envp);
            _exit(127);
        }
        if (m_master >= 0) {
            fcntl(m_master, F_SETFL, fcntl(m_master, F_GETFL) | O_NONBLOCK);
        }
    }

    ~PtyProgram() {
        Stop();
        if (m_master >= 0) {
            close(m_master);
        }
    }
    PtyProgram(const PtyProgram&) = delete;
    PtyProgram& operator=(const PtyProgram&) = delete;

    pid_t Pid() const { return m_pid; }
    const std::string& Output() const { return m_output; }

    // Reads what the program writes until `condition(Output())` holds, the terminal closes or `timeout`
    // passes; the condition's last answer.
    bool WaitForOutput(const std::function<bool(const std::string&)>& condition,
                       std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!condition(m_output) && std::chrono::steady_clock::now() < deadline && Read(20)) {
        }
        return condition(m_output);
    }
    bool WaitForText(const std::string& text) {
        return WaitForOutput([&text](const std::string& out) { return out.find(text) != std::string::npos; });
    }

    // Waits for the program to end by itself; its exit status, or -1 (it was then killed).
    int Wait(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!Reaped() && std::chrono::steady_clock::now() < deadline) {
            Pump();
        }
        return Stop();
    }

    // SIGTERM, and SIGKILL when it is still there after five seconds; the exit status, or -1 when it
    // did not exit by itself.
    int Stop() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
        }
        for (auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5); !Reaped(); Pump()) {
            if (std::chrono::steady_clock::now() >= deadline) {
                kill(m_pid, SIGKILL);
                deadline = std::chrono::steady_clock::time_point::max();
            }
        }
        return m_status;
    }

    // The lines as the terminal shows them; the last one is where the cursor is.
    std::vector<std::string> Screen() const {
        std::vector<std::string> lines(1);
        size_t column = 0;
        for (size_t i = 0; i < m_output.size(); ++i) {
            char c = m_output[i];
            std::string& line = lines.back();
            if (c == '\r' || c == '\n') {
                column = 0;
                if (c == '\n') {
                    lines.emplace_back();
                }
            } else if (c == '\x1b') {
                if (i + 1 < m_output.size() && m_output[i + 1] == '[') {
                    for (i += 2; i < m_output.size() && !g_ascii_isalpha(m_output[i]); ++i) {
                    }
                    if (i < m_output.size() && m_output[i] == 'K' && column < line.size()) {
                        line.resize(column);
                    }
                }
            } else if (column < line.size()) {
                line[column++] = c;
            } else {
                line.push_back(c);
                ++column;
            }
        }
        return lines;
    }

    // The line the cursor is on.
    std::string CurrentLine() const { return Screen().back(); }

private:
    // Reads what is there, waiting up to `ms` for something; false once the terminal is closed (EIO: every
    // process holding it is gone).
    bool Read(int ms) {
        struct pollfd pfd = {m_master, POLLIN, 0};
        if (m_master < 0 || poll(&pfd, 1, ms) <= 0) {
            return m_master >= 0;
        }
        char buffer[4096];
        ssize_t n = read(m_master, buffer, sizeof(buffer));
        if (n > 0) {
            m_output.append(buffer, static_cast<size_t>(n));
        }
        return n > 0 || (n < 0 && (errno == EAGAIN || errno == EINTR));
    }
    // Reads for a few milliseconds; once the terminal is closed, only lets them pass.
    void Pump() {
        if (!Read(10)) {
            g_usleep(10000);
        }
    }

    bool Reaped() {
        int status = 0;
        if (m_pid <= 0 || waitpid(m_pid, &status, WNOHANG) != m_pid) {
            return m_pid <= 0;
        }
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        m_pid = 0;
        // What the program wrote before it ended is still in the terminal.
        for (size_t before = std::string::npos; before != m_output.size();) {
            before = m_output.size();
            Read(0);
        }
        return true;
    }

    pid_t m_pid = -1;
    int m_master = -1;
    int m_status = -1;
    std::string m_output;
};

}  // namespace orvix::test

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
        std::vector<std::string> args = argv;
        std::vector<char*> argp;
        for (auto& arg : args) {
            argp.push_back(arg.data());
        }
        argp.push_back(nullptr);
        gchar** envp = g_get_environ();
        for (const auto& [key, value] : environment) {
            envp = g_environ_setenv(envp, key.c_str(), value.c_str(), TRUE);
        }
        struct winsize size {};
        size.ws_row = 40;
        size.ws_col = 160;
        m_pid = forkpty(&m_master, nullptr, nullptr, &size);
        if (m_pid == 0) {
            execve(argp[0], argp.data(), envp);
            _exit(127);
        }
        g_strfreev(envp);
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

    bool Started() const { return m_pid > 0 && m_master >= 0; }
    pid_t Pid() const { return m_pid; }
    const std::string& Output() const { return m_output; }

    // Reads what the program writes until `condition(Output())` holds, the terminal closes or `timeout`
    // passes; the condition's last answer.
    bool WaitForOutput(const std::function<bool(const std::string&)>& condition,
                       std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!condition(m_output) && std::chrono::steady_clock::now() < deadline) {
            if (!ReadSome(20)) {
                break;
            }
        }
        return condition(m_output);
    }

    bool WaitForText(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        return WaitForOutput([&text](const std::string& out) { return out.find(text) != std::string::npos; },
                             timeout);
    }

    // Waits for the program to end by itself; its exit status, or -1 (it was then killed).
    int Wait(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (m_pid > 0 && std::chrono::steady_clock::now() < deadline) {
            Pump(10);
            if (Reaped()) {
                return m_status;
            }
        }
        return Stop();
    }

    // SIGTERM, and SIGKILL when it is still there after five seconds; the exit status, or -1 when it
    // did not exit by itself.
    int Stop() {
        if (m_pid <= 0) {
            return m_status;
        }
        kill(m_pid, SIGTERM);
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!Reaped()) {
            if (std::chrono::steady_clock::now() >= deadline) {
                kill(m_pid, SIGKILL);
                deadline = std::chrono::steady_clock::now() + std::chrono::hours(1);
            }
            Pump(10);
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
            if (c == '\r') {
                column = 0;
            } else if (c == '\n') {
                lines.emplace_back();
                column = 0;
            } else if (c == '\x1b') {
                i = SkipEscape(i, line, column);
            } else {
                if (column < line.size()) {
                    line[column] = c;
                } else {
                    line.push_back(c);
                }
                ++column;
            }
        }
        return lines;
    }

    // The line the cursor is on.
    std::string CurrentLine() const { return Screen().back(); }

private:
    // Handles the escape at `i` ("ESC [ K" clears the rest of the line); returns its last index.
    size_t SkipEscape(size_t i, std::string& line, size_t column) const {
        if (i + 1 >= m_output.size() || m_output[i + 1] != '[') {
            return i;
        }
        size_t end = i + 2;
        while (end < m_output.size() && !g_ascii_isalpha(m_output[end])) {
            ++end;
        }
        if (end < m_output.size() && m_output[end] == 'K' && column < line.size()) {
            line.resize(column);
        }
        return end;
    }

    // Reads what is there, waiting up to `ms` for something; false once the terminal is closed.
    bool ReadSome(int ms) {
        if (m_master < 0) {
            return false;
        }
        struct pollfd pfd = {m_master, POLLIN, 0};
        if (poll(&pfd, 1, ms) <= 0) {
            return true;
        }
        char buffer[4096];
        ssize_t n = read(m_master, buffer, sizeof(buffer));
        if (n > 0) {
            m_output.append(buffer, static_cast<size_t>(n));
            return true;
        }
        // EIO: every process holding the terminal is gone.
        return n < 0 && (errno == EAGAIN || errno == EINTR);
    }

    // What the program wrote before it ended is still in the terminal.
    void Drain() {
        char buffer[4096];
        struct pollfd pfd = {m_master, POLLIN, 0};
        while (m_master >= 0 && poll(&pfd, 1, 0) > 0) {
            ssize_t n = read(m_master, buffer, sizeof(buffer));
            if (n <= 0) {
                return;
            }
            m_output.append(buffer, static_cast<size_t>(n));
        }
    }

    // Reads for up to `ms`; once the terminal is closed, only lets `ms` pass.
    void Pump(int ms) {
        if (!ReadSome(ms)) {
            g_usleep(static_cast<gulong>(ms) * 1000);
        }
    }

    bool Reaped() {
        int status = 0;
        if (m_pid <= 0 || waitpid(m_pid, &status, WNOHANG) != m_pid) {
            return m_pid <= 0;
        }
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        m_pid = 0;
        Drain();
        return true;
    }

    pid_t m_pid = -1;
    int m_master = -1;
    int m_status = -1;
    std::string m_output;
};

}  // namespace orvix::test

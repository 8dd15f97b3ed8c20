// PtyProgram: a program run on a pseudo-terminal, the way a person at a terminal runs it, so that a test
// sees what the program draws there (bars redrawn in place, colours kept for a terminal).
//
// The program starts in the constructor (forkpty) and is ended with SIGTERM, then SIGKILL, by Stop() or
// the destructor. What it writes is read only while a test waits for it or for the end; waiting is bounded.
// Screen() renders the output as the terminal shows it: a carriage return goes back to the start of the
// line, "ESC [ K" clears the rest of the line, a line feed starts a new one; other escapes are dropped.
#pragma once

#include <glib.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace orvix::test {

class PtyProgram {
public:
    // Runs with this process's environment.
    explicit PtyProgram(const std::vector<std::string>& argv) {
        // Everything the child needs is made before the fork: only exec and _exit run after it.
        std::vector<char*> argp;
        for (const auto& arg : argv) {
            argp.push_back(const_cast<char*>(arg.c_str()));
        }
        argp.push_back(nullptr);
        struct winsize size = {40, 160, 0, 0};
        m_pid = forkpty(&m_master, nullptr, nullptr, &size);
        if (m_pid == 0) {
            execv(argp[0], argp.data());
            _exit(127);
        }
    }
    ~PtyProgram() {
        Stop();
        close(m_master);
    }
    PtyProgram(const PtyProgram&) = delete;
    PtyProgram& operator=(const PtyProgram&) = delete;

    pid_t Pid() const { return m_pid; }
    const std::string& Output() const { return m_output; }

    // Reads until `condition(Output())` holds, the terminal closes or 20 s pass; the condition's last answer.
    bool WaitForOutput(const std::function<bool(const std::string&)>& condition) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition(m_output) && std::chrono::steady_clock::now() < deadline && Read(20) >= 0) {
        }
        return condition(m_output);
    }

    // Sends SIGTERM, and SIGKILL five seconds later; the exit status, or -1 when it did not exit by itself.
    int Stop() {
        auto term = std::chrono::steady_clock::now();
        for (int sent = 0; !Reaped();) {
            if (sent < 2 && std::chrono::steady_clock::now() >= term + std::chrono::seconds(5 * sent)) {
                kill(m_pid, sent++ == 0 ? SIGTERM : SIGKILL);
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
                lines.resize(lines.size() + (c == '\n'));
            } else if (c == '\x1b') {
                for (i += 2; i < m_output.size() && !g_ascii_isalpha(m_output[i]); ++i) {
                }
                if (i < m_output.size() && m_output[i] == 'K' && column < line.size()) {
                    line.resize(column);
                }
            } else {
                line.resize(std::max(line.size(), column + 1));
                line[column++] = c;
            }
        }
        return lines;
    }
    std::string CurrentLine() const { return Screen().back(); }

private:
    // Reads what is there, waiting up to `ms` for something: how much, or -1 once the terminal is closed
    // (every process holding it is gone; then it only lets the time pass).
    ssize_t Read(int ms) {
        struct pollfd pfd = {m_master, POLLIN, 0};
        if (poll(&pfd, 1, ms) <= 0) {
            return 0;
        }
        char buffer[4096];
        ssize_t n = read(m_master, buffer, sizeof(buffer));
        m_output.append(buffer, n > 0 ? n : 0);
        if (n <= 0) {
            g_usleep(ms * 1000);
        }
        return n > 0 ? n : -1;
    }

    // Whether the program has ended (then what it wrote last is read too); else reads for a moment.
    bool Reaped() {
        int status = 0;
        if (m_pid > 0 && waitpid(m_pid, &status, WNOHANG) != m_pid) {
            Read(10);
            return false;
        }
        if (m_pid > 0) {
            m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            m_pid = 0;
            while (Read(0) > 0) {
            }
        }
        return true;
    }

    pid_t m_pid = -1;
    int m_master = -1;
    int m_status = -1;
    std::string m_output;
};

}  // namespace orvix::test

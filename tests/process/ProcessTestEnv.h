// What the unit tests of the process frame share: a temporary host root, the log of this test
// program, launch requests built from key/value pairs.
#pragma once

#include <app_control.h>
#include <orvix_host.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

namespace process_test {

// The log file of this test program; set by main() before anything logs.
std::string& LogPath();

inline std::string ReadLog() {
    std::ifstream in(LogPath(), std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The part of the log written since `mark` (a size of the log taken earlier).
inline std::string LogSince(size_t mark) {
    std::string log = ReadLog();
    return mark < log.size() ? log.substr(mark) : std::string();
}

// Polls the log until `text` appears after `mark`, or the time-out passes.
inline bool WaitForLogSince(size_t mark, const std::string& text,
                            std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (LogSince(mark).find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// A fresh temporary host root, removed again when the object goes.
class TempRoot {
public:
    TempRoot();
    ~TempRoot();
    const std::string& Path() const { return m_path; }
    // Puts a library in place of the common library.
    bool InstallLibrary(const std::string& from) const;

private:
    std::string m_path;
};

// A launch request that frees itself.
class Request {
public:
    Request(std::initializer_list<std::pair<const char*, const char*>> extras);
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
    app_control_h Get() const { return m_handle; }

private:
    app_control_h m_handle = nullptr;
};

}  // namespace process_test

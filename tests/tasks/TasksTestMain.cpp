// Test program of the task framework. The platform log is sent to a private file before anything logs,
// so that tests can check the lines the framework writes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "TasksTestSupport.h"

namespace taskstest {

namespace {
std::string g_LogFile;
}

const std::string& LogFilePath() {
    return g_LogFile;
}

static std::string ReadLog() {
    std::ifstream in(g_LogFile, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

LogMark::LogMark() : m_Offset(static_cast<long>(ReadLog().size())) {}

std::string LogMark::Text() const {
    std::string all = ReadLog();
    return m_Offset <= static_cast<long>(all.size()) ? all.substr(m_Offset) : std::string();
}

bool LogMark::HasError(const std::string& source, const std::string& func, const std::string& text) const {
    std::istringstream lines(Text());
    std::string line;
    const std::string head = "\033[31m" + source + ": " + func + "(";
    const std::string tail = ") > " + text + "\033[0m";
    while (std::getline(lines, line)) {
        size_t at = line.find(head);
        if (at != std::string::npos && line.find(tail, at) != std::string::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace taskstest

int main(int argc, char** argv) {
    char path[] = "/tmp/test_tasks_log_XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) {
        perror("mkstemp");
        return 2;
    }
    close(fd);
    taskstest::g_LogFile = path;
    setenv("ORVIX_LOG_FILE", path, 1);
    setenv("ORVIX_LOG_LEVEL", "D", 1);
    ::testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    if (result != 0) {
        fprintf(stderr, "platform log of this run: %s\n", path);
    } else {
        unlink(path);
    }
    return result;
}

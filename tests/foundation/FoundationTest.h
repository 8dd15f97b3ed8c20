// What the foundation tests share: a fresh host root per test, the process's log, children and a
// bounded pump of the default main context.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace foundation {

void SetLogFile(const std::string& path);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);

struct RunResult {
    int exitCode;  // -1 when the child did not exit normally
    std::string out;
    std::string err;
};
// Runs a program with the test's environment (no shell) and waits for it.
RunResult RunProgram(const std::vector<std::string>& argv);

// Iterates the default main context until `done` holds or `timeoutMs` has passed; true when done.
bool PumpUntil(const std::function<bool()>& done, int timeoutMs = 20000);

class FoundationTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // <root>/relative
    std::string Under(const std::string& relative) const { return root_ + "/" + relative; }
    // What this process logged since the test began.
    std::string Log() const;

    std::string root_;

private:
    long long logStart_ = 0;
};

}  // namespace foundation

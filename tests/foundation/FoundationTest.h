// What the foundation tests share: a fresh host root per test, the process's log, children and a
// bounded pump of the default main context.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <list>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "HostFixture.h"
#include "TAKDir.h"
#include "TAKFile.h"
#include "TAKString.h"
#include "TestLog.h"

// The whole content of a file, or "" when it cannot be read.
inline std::string (&ReadFile)(const std::string&) = orvix::test::ReadWholeFile;
void WriteFile(const std::string& path, const std::string& content);

using orvix::test::RunResult;
// orvix::test::RunProgram with the arguments after the program given as one text, split at '|'.
RunResult RunProgram(const std::string& program, const std::string& args);

// Iterates the default main context until `done` holds or 20 s have passed; true when done.
bool PumpUntil(const std::function<bool()>& done);

class FoundationTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // <root>/relative
    std::string Under(const std::string& relative) const { return root_ + "/" + relative; }
    // Whether this process logged `text` since the test began.
    bool LogHas(const std::string& text) const { return mark_.Contains(text); }

    std::string root_;
    orvix::test::LogMark mark_;
};

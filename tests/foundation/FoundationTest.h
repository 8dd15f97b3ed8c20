// What the foundation tests share: a fresh host root per test, the process's log and its children.
#pragma once

#include <gtest/gtest.h>

#include <list>
#include <map>

#include "HostFixture.h"
#include "TAKDir.h"
#include "TAKFile.h"
#include "TAKString.h"

// The whole content of a file, or "" when it cannot be read.
inline std::string (&ReadFile)(const std::string&) = orvix::test::ReadWholeFile;
inline void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

using orvix::test::RunResult;
// orvix::test::RunProgram with the arguments after the program given as one text, split at '|'.
inline RunResult RunProgram(const std::string& program, const std::string& args) {
    std::list<std::string> parts = TAKString::SplitStringToList(args, "|");
    parts.push_front(program);
    return orvix::test::RunProgram(std::vector<std::string>(parts.begin(), parts.end()));
}

class FoundationTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/foundation-root.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        orvix::host::SetRoot(root_ = pattern);
    }
    void TearDown() override { TAKDir::RemoveAllFiles(root_, true, false); }

    // <root>/relative
    std::string Under(const std::string& relative) const { return root_ + "/" + relative; }
    // Whether this process logged `text` since the test began.
    bool LogHas(const std::string& text) const { return mark_.Contains(text); }

    std::string root_;
    orvix::test::LogMark mark_;
};

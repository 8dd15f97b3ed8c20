// Every test program sends the platform log to a private file before anything logs, so that tests can
// check the lines the code writes. The file is kept, and named, when a test fails.
#pragma once

#include <string>

namespace orvix::test {

// The whole content of a file, or "" when it cannot be read.
std::string ReadWholeFile(const std::string& path);

// How often `what` occurs in `text`, counting occurrences that do not overlap.
size_t Count(const std::string& text, const std::string& what);

// A position in the platform log: Text() is what was logged after it.
class LogMark {
public:
    LogMark();
    std::string Text() const;
    bool Contains(const std::string& text) const { return Text().find(text) != std::string::npos; }

private:
    size_t m_Offset;
};

}  // namespace orvix::test

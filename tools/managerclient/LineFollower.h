// CLineFollower: the lines a file gained since the last look, as a client follows a log another process
// appends to. Only complete lines are handed over; the rest waits for the next look. A file that shrank
// (made anew) is read again from its start; a missing one has no lines yet.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

class CLineFollower {
public:
    explicit CLineFollower(std::string path) : m_strPath(std::move(path)) {}

    // Hands each new complete line (without its line feed) to `line`, in order.
    void ReadNew(const std::function<void(const std::string& line)>& line);
    // From now on only what is appended after this moment counts.
    void SkipToEnd();

private:
    std::string m_strPath;
    off_t m_nOffset = 0;  // just after the last complete line handed over
};

// One line of the platform log as Dlog writes it:
//   "MM-DD HH:MM:SS.mmm L/TAG( pid:  tid): " then, for the service's own lines,
//   ESC "[3Xm" "file: function(line) > " message ESC "[0m".
#pragma once

#include <string>

class CLogLine {
public:
    // False (and the fields left as they were) when `text` does not start with a complete header.
    bool Parse(const std::string& text);

    // Milliseconds since the start of the year; the log carries no year, so a reset across New Year's
    // Eve gets no duration.
    long long Millis() const { return m_millis; }
    // The same clock for a time of day given in parts; `month` from 1 to 12.
    static long long ClockMillis(int month, int day, int hour, int minute, int second, int milli);

    std::string time;  // "MM-DD HH:MM:SS.mmm"
    char level = '?';
    std::string tag;
    int pid = 0;
    long tid = 0;
    std::string source;   // "../../src/Reset/src/Reset", without the colour escape
    std::string message;  // without prefix and colour escapes; the whole text when there is no prefix
    bool closed = true;   // the colour escape was closed: a message cut by a newline is not

private:
    bool ParseTime(const std::string& text);
    void SplitMessage(const std::string& text, size_t from);

    long long m_millis = 0;
};

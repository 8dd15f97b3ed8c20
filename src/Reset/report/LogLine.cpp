#include "LogLine.h"

#include <climits>
#include <cstdio>
#include <cstring>

namespace {

const char kEscape = '\033';
const char kColourReset[] = "\033[0m";
const char kPrefixEnd[] = " > ";
const size_t kTimeLength = 18;  // "MM-DD HH:MM:SS.mmm"

// Days before each month of a year without 29 February.
const int kDaysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};

bool Digits(const std::string& text, size_t from, size_t count) {
    for (size_t i = from; i < from + count; ++i) {
        if (i >= text.size() || text[i] < '0' || text[i] > '9') {
            return false;
        }
    }
    return true;
}

// The digits were checked; a line of a 100 MB log is read without making a string of each field.
int Number(const std::string& text, size_t from, size_t count) {
    int value = 0;
    for (size_t i = from; i < from + count; ++i) {
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

// Spaces, then digits up to `end`: the pid or the thread of "( pid:  tid)". False for anything else.
bool Id(const std::string& text, size_t& at, size_t end, long long& value) {
    while (at < end && text[at] == ' ') {
        ++at;
    }
    size_t first = at;
    value = 0;
    while (at < end && text[at] >= '0' && text[at] <= '9' && at - first < 18) {
        value = value * 10 + (text[at++] - '0');
    }
    return at > first;
}

}  // namespace

long long CLogLine::ClockMillis(int month, int day, int hour, int minute, int second, int milli) {
    long long days = kDaysBefore[month - 1] + day - 1;
    long long seconds = ((days * 24 + hour) * 60 + minute) * 60 + second;
    return seconds * 1000 + milli;
}

bool CLogLine::ParseTime(const std::string& text) {
    static const size_t kFields[][2] = {{0, 2}, {3, 2}, {6, 2}, {9, 2}, {12, 2}, {15, 3}};
    for (const auto& field : kFields) {
        if (!Digits(text, field[0], field[1])) {
            return false;
        }
    }
    int month = Number(text, 0, 2);
    if (month < 1 || month > 12 || text.compare(2, 1, "-") != 0 || text[5] != ' ') {
        return false;
    }
    m_millis = ClockMillis(month, Number(text, 3, 2), Number(text, 6, 2), Number(text, 9, 2),
                           Number(text, 12, 2), Number(text, 15, 3));
    time.assign(text, 0, kTimeLength);
    return true;
}

bool CLogLine::Parse(const std::string& text) {
    if (text.size() < kTimeLength + 4 || !ParseTime(text) || text[kTimeLength] != ' ' ||
        text[kTimeLength + 2] != '/') {
        return false;
    }
    size_t open = text.find('(', kTimeLength + 3);
    size_t close = open == std::string::npos ? open : text.find("): ", open);
    if (close == std::string::npos) {
        return false;
    }
    size_t at = open + 1;
    long long parsedPid = 0, parsedTid = 0;
    if (!Id(text, at, close, parsedPid) || at >= close || text[at++] != ':' ||
        !Id(text, at, close, parsedTid) || at != close || parsedPid > INT_MAX || parsedTid > LONG_MAX) {
        return false;
    }
    level = text[kTimeLength + 1];
    tag.assign(text, kTimeLength + 3, open - kTimeLength - 3);
    pid = static_cast<int>(parsedPid);
    tid = static_cast<long>(parsedTid);
    SplitMessage(text, close + 3);
    return true;
}

// "ESC[33mfile: function(line) > message ESC[0m" -> source "file", message "message".
void CLogLine::SplitMessage(const std::string& text, size_t from) {
    const bool coloured = from < text.size() && text[from] == kEscape;
    size_t begin = from;
    if (coloured) {
        size_t m = text.find('m', from);
        begin = m == std::string::npos ? text.size() : m + 1;
    }
    size_t end = text.size();
    const size_t resetLength = strlen(kColourReset);
    closed = end - begin >= resetLength && text.compare(end - resetLength, resetLength, kColourReset) == 0;
    if (closed) {
        end -= resetLength;
    }
    closed = closed || !coloured;
    size_t prefixEnd = text.find(kPrefixEnd, begin);
    size_t colon = text.find(": ", begin);
    if (prefixEnd == std::string::npos || prefixEnd + strlen(kPrefixEnd) > end ||
        colon == std::string::npos || colon > prefixEnd) {
        source.clear();
        message.assign(text, begin, end - begin);
        return;
    }
    source.assign(text, begin, colon - begin);
    begin = prefixEnd + strlen(kPrefixEnd);
    message.assign(text, begin, end - begin);
}

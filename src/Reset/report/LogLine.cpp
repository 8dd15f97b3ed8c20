#include "LogLine.h"

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

int Number(const std::string& text, size_t from, size_t count) {
    return std::stoi(text.substr(from, count));
}

}  // namespace

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
    long long days = kDaysBefore[month - 1] + Number(text, 3, 2) - 1;
    long long seconds =
        ((days * 24 + Number(text, 6, 2)) * 60 + Number(text, 9, 2)) * 60 + Number(text, 12, 2);
    m_millis = seconds * 1000 + Number(text, 15, 3);
    time = text.substr(0, kTimeLength);
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
    int parsedPid = 0;
    long parsedTid = 0;
    char tail = 0;
    std::string ids = text.substr(open + 1, close - open - 1);
    if (sscanf(ids.c_str(), "%d:%ld%c", &parsedPid, &parsedTid, &tail) != 2) {
        return false;
    }
    level = text[kTimeLength + 1];
    tag = text.substr(kTimeLength + 3, open - kTimeLength - 3);
    pid = parsedPid;
    tid = parsedTid;
    SplitMessage(text.substr(close + 3));
    return true;
}

// "ESC[33mfile: function(line) > message ESC[0m" -> source "file", message "message".
void CLogLine::SplitMessage(const std::string& rest) {
    std::string body = rest;
    if (!body.empty() && body[0] == kEscape) {
        size_t m = body.find('m');
        body = m == std::string::npos ? std::string() : body.substr(m + 1);
    }
    closed = body.size() >= strlen(kColourReset) &&
             body.compare(body.size() - strlen(kColourReset), std::string::npos, kColourReset) == 0;
    if (closed) {
        body.resize(body.size() - strlen(kColourReset));
    }
    closed = closed || rest.empty() || rest[0] != kEscape;
    size_t prefixEnd = body.find(kPrefixEnd);
    size_t colon = body.find(": ");
    if (prefixEnd == std::string::npos || colon == std::string::npos || colon > prefixEnd) {
        source.clear();
        message = body;
        return;
    }
    source = body.substr(0, colon);
    message = body.substr(prefixEnd + strlen(kPrefixEnd));
}

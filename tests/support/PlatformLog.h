// Reading a process's platform log ("time level/TAG(pid:tid): message" lines) back in tests: which process
// and thread wrote each line, and the launch requests the main thread logged as it read them.
#pragma once

#include <sys/types.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace orvix::test {

struct LogLine {
    pid_t pid = 0;
    pid_t tid = 0;
    std::string text;  // the whole line
};

// Every platform log line of `log`, in order; lines of other kinds (a GLib message, a crash report) are
// left out.
inline std::vector<LogLine> PlatformLogLines(const std::string& log) {
    static const std::regex ids(R"(\((\s*\d+):\s*(\d+)\): )");
    std::vector<LogLine> lines;
    std::istringstream input(log);
    for (std::string text; std::getline(input, text);) {
        std::smatch match;
        if (std::regex_search(text, match, ids)) {
            lines.push_back({std::stoi(match[1]), std::stoi(match[2]), text});
        }
    }
    return lines;
}

// The value the main thread logged for one key of a launch request ("has key[KEY] value[VALUE]"), or
// false when the line is not that.
inline bool RequestValue(const LogLine& line, const std::string& key, std::string& value) {
    const std::string marker = "has key[" + key + "] value[";
    size_t at = line.text.find(marker);
    if (line.pid != line.tid || at == std::string::npos) {
        return false;  // only the main thread reads requests
    }
    at += marker.size();
    value = line.text.substr(at, line.text.rfind(']') - at);
    return true;
}

}  // namespace orvix::test

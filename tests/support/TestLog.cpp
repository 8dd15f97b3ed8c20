#include "TestLog.h"

#include <fstream>
#include <iterator>

namespace orvix::test {

static std::string g_LogPath;

void SetPlatformLogPath(const std::string& path) {
    g_LogPath = path;
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

size_t Count(const std::string& text, const std::string& what) {
    size_t count = 0, at = 0;
    for (; (at = text.find(what, at)) != std::string::npos; at += what.size()) {
        ++count;
    }
    return count;
}

LogMark::LogMark() : m_Offset(ReadWholeFile(g_LogPath).size()) {}

std::string LogMark::Text() const {
    std::string all = ReadWholeFile(g_LogPath);
    return m_Offset <= all.size() ? all.substr(m_Offset) : std::string();
}

}  // namespace orvix::test

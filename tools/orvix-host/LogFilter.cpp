#include "LogFilter.h"

#include <cstring>

namespace {

const char kLevels[] = "VDIWEF";

}  // namespace

CLogFilter::CLogFilter(char minimum, bool stripColours)
    : m_nMinimum(m_Rank(minimum)),
      m_bStripColours(stripColours),
      m_pLevel(g_regex_new("^\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} ([A-Z?])/",
                           static_cast<GRegexCompileFlags>(G_REGEX_OPTIMIZE | G_REGEX_RAW),
                           G_REGEX_MATCH_DEFAULT, nullptr)),
      m_pColour(g_regex_new("\x1b\\[[0-9;]*m",
                            static_cast<GRegexCompileFlags>(G_REGEX_OPTIMIZE | G_REGEX_RAW),
                            G_REGEX_MATCH_DEFAULT, nullptr)) {}

CLogFilter::~CLogFilter() {
    g_regex_unref(m_pLevel);
    g_regex_unref(m_pColour);
}

bool CLogFilter::IsLevel(char letter) {
    return letter != '\0' && m_Rank(letter) >= 0;
}

int CLogFilter::m_Rank(char letter) {
    const char* found = strchr(kLevels, g_ascii_toupper(letter));
    return letter != '\0' && found != nullptr ? static_cast<int>(found - kLevels) : -1;
}

bool CLogFilter::m_Passes(const std::string& line) const {
    g_autoptr(GMatchInfo) match = nullptr;
    if (!g_regex_match(m_pLevel, line.c_str(), G_REGEX_MATCH_DEFAULT, &match)) {
        return true;
    }
    g_autofree gchar* letter = g_match_info_fetch(match, 1);
    // A level the filter does not know ('?', 'S') is not below any level.
    int rank = m_Rank(letter[0]);
    return rank < 0 || rank >= m_nMinimum;
}

std::string CLogFilter::m_Shown(const std::string& line) const {
    // The regex works on C strings; a line with a NUL byte in it is left as it is.
    if (!m_bStripColours || line.find('\0') != std::string::npos) {
        return line;
    }
    g_autofree gchar* plain =
        g_regex_replace_literal(m_pColour, line.c_str(), -1, 0, "", G_REGEX_MATCH_DEFAULT, nullptr);
    return plain != nullptr ? std::string(plain) : line;
}

std::string CLogFilter::Feed(const char* data, size_t size) {
    m_strPending.append(data, size);
    std::string shown;
    size_t start = 0;
    size_t end;
    while ((end = m_strPending.find('\n', start)) != std::string::npos) {
        std::string line = m_strPending.substr(start, end - start);
        if (m_Passes(line)) {
            shown += m_Shown(line) + "\n";
        }
        start = end + 1;
    }
    m_strPending.erase(0, start);
    return shown;
}

std::string CLogFilter::Finish() {
    std::string line;
    line.swap(m_strPending);
    return !line.empty() && m_Passes(line) ? m_Shown(line) : std::string();
}

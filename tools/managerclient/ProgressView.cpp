#include "ProgressView.h"

#include <algorithm>

namespace {

constexpr int kBarWidth = 30;
const char kLabel[] = "built-in reset";

}  // namespace

CProgressView::CProgressView(FILE* out, bool terminal) : m_pOut(out), m_bTerminal(terminal) {}

void CProgressView::Start(int total) {
    m_nTotal = std::max(total, 0);
    m_nDone = 0;
    m_nStartUs = g_get_monotonic_time();
    if (m_nTotal == 0) {
        return;  // Finish says "nothing to reset"; a bar of nothing would only flash
    }
    if (m_bTerminal) {
        m_Bar(kLabel, 0, m_nTotal, "0/" + std::to_string(m_nTotal), false);
    } else {
        m_Line(std::string(kLabel) + ": " + std::to_string(m_nTotal) + " apps to reset");
    }
}

void CProgressView::Advance() {
    ++m_nDone;
    std::string count = std::to_string(m_nDone) + "/" + (m_nTotal >= 0 ? std::to_string(m_nTotal) : "?");
    if (m_bTerminal) {
        m_Bar(kLabel, m_nDone, m_nTotal, count, false);
    } else {
        m_Line(std::string(kLabel) + ": " + count + " done");
    }
}

void CProgressView::Finish() {
    std::string elapsed = m_Elapsed();
    if (m_nTotal == 0 && m_nDone == 0) {
        m_Line(std::string(kLabel) + ": nothing to reset" + (elapsed.empty() ? "" : " (" + elapsed + ")"));
    } else {
        std::string total = m_nTotal >= 0 ? std::to_string(m_nTotal) : "?";
        std::string done =
            std::to_string(m_nDone) + "/" + total + " done" + (elapsed.empty() ? "" : " " + elapsed);
        if (m_bTerminal) {
            m_Bar(kLabel, m_nDone, m_nTotal, done, true);
        } else {
            m_Line(std::string(kLabel) + ": finished, " + done);
        }
    }
    m_nTotal = -1;
    m_nDone = 0;
    m_nStartUs = 0;
}

void CProgressView::Install(const std::string& appKey, int percent) {
    percent = std::clamp(percent, 0, 100);
    if (m_bTerminal) {
        m_Bar(appKey, percent, 100, std::to_string(percent) + "%", percent == 100);
    } else {
        m_Line("install " + appKey + ": " + std::to_string(percent) + "%");
    }
}

std::string CProgressView::m_Elapsed() const {
    if (m_nStartUs == 0) {
        return "";
    }
    char text[32];
    snprintf(text, sizeof(text), "in %.1f s", static_cast<double>(g_get_monotonic_time() - m_nStartUs) / 1e6);
    return text;
}

void CProgressView::m_Bar(const std::string& label, int done, int total, const std::string& text, bool last) {
    if (m_pOut == nullptr) {
        return;
    }
    int filled = total > 0 ? kBarWidth * std::clamp(done, 0, total) / total : 0;
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kBarWidth - filled), '-');
    // Back to the start of the line and clear it, since the new text may be shorter than the old.
    fprintf(m_pOut, "\r\x1b[K%-24.24s [%s] %s%s", label.c_str(), bar.c_str(), text.c_str(), last ? "\n" : "");
    fflush(m_pOut);
}

void CProgressView::m_Line(const std::string& text) {
    if (m_pOut == nullptr) {
        return;
    }
    fprintf(m_pOut, m_bTerminal ? "\r\x1b[K%s\n" : "%s\n", text.c_str());
    fflush(m_pOut);
}

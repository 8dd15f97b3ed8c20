#include "ProgressView.h"

#include <algorithm>

namespace {

constexpr int kBarWidth = 30;
const char kLabel[] = "built-in reset";

std::string FailedText(int failed) {
    return failed > 0 ? ", " + std::to_string(failed) + " failed" : "";
}

}  // namespace

CProgressView::CProgressView(FILE* out, bool terminal, Clock clock)
    : m_pOut(out), m_bTerminal(terminal), m_Clock(std::move(clock)), m_nLastHeardUs(m_Clock()) {}

void CProgressView::Start(int total) {
    m_Heard();
    m_nTotal = std::max(total, 0);
    m_bLate = false;
    m_nEnded = 0;
    m_nFailed = 0;
    m_nStartUs = m_Clock();
    if (m_nTotal == 0) {
        if (m_bLineOpen) {
            m_Show("", false);  // the waiting text; Finish says "nothing to reset"
        }
        return;  // a bar of nothing would only flash
    }
    if (m_bTerminal) {
        m_DrawCurrent("");
    } else {
        m_Line(std::string(kLabel) + ": " + std::to_string(m_nTotal) + " apps to reset");
    }
}

void CProgressView::Advance(int ended, int failed) {
    m_Heard();
    m_bLate = m_bLate || m_nTotal < 0;
    m_nEnded = std::max(ended, 0);
    m_nFailed = std::clamp(failed, 0, m_nEnded);
    if (m_bTerminal) {
        m_DrawCurrent("");
    } else {
        m_Line(std::string(kLabel) + ": " + m_CountText());
    }
}

void CProgressView::Finish(int failed) {
    m_Heard();
    m_nFailed = std::clamp(failed, 0, m_nEnded);
    std::string elapsed = m_Elapsed();
    std::string done = std::to_string(m_nEnded - m_nFailed);
    if (m_bLate) {
        m_Line(std::string(kLabel) + ": finished, " + done + " done" + FailedText(m_nFailed) +
               " (it started before this client, which does not know the total)");
    } else if (m_nTotal < 0) {
        m_Line(std::string(kLabel) + ": finished (it started before this client)");
    } else if (m_nTotal == 0 && m_nEnded == 0) {
        m_Line(std::string(kLabel) + ": nothing to reset" + (elapsed.empty() ? "" : " (" + elapsed + ")"));
    } else {
        std::string text = done + "/" + std::to_string(m_nTotal) + " done" + FailedText(m_nFailed) +
                           (elapsed.empty() ? "" : " " + elapsed);
        if (m_bTerminal) {
            m_Bar(kLabel, m_nEnded, m_nTotal, text, true);
        } else {
            m_Line(std::string(kLabel) + ": finished, " + text);
        }
    }
    m_nTotal = -1;
    m_bLate = false;
    m_nEnded = 0;
    m_nFailed = 0;
    m_nStartUs = 0;
}

void CProgressView::Install(const std::string& appKey, int percent) {
    m_Heard();
    percent = std::clamp(percent, 0, 100);
    if (m_bTerminal) {
        m_Bar(appKey, percent, 100, std::to_string(percent) + "%", percent == 100);
    } else {
        m_Line("install " + appKey + ": " + std::to_string(percent) + "%");
    }
}

void CProgressView::Announce(const std::string& what) {
    m_Heard();
    m_Line(what +
           " started: tak-reset sends a manager client no progress of it (its result: orvix-host log)");
    if (m_bTerminal && m_Active()) {
        m_DrawCurrent("");
    }
}

void CProgressView::Tick() {
    gint64 quietUs = m_Clock() - m_nLastHeardUs;
    if (quietUs < kQuietUs || (m_bQuietSaid && !(m_bTerminal && m_Active()))) {
        return;
    }
    m_bQuietSaid = true;
    if (!m_Active()) {
        m_Show("waiting for a reset to start", !m_bTerminal);
        return;
    }
    std::string waiting = "no report for " + std::to_string(quietUs / G_USEC_PER_SEC) +
                          " s, waiting for the next from tak-reset";
    if (m_bTerminal) {
        m_DrawCurrent(", " + waiting);
    } else {
        m_Line(std::string(kLabel) + ": " + waiting);
    }
}

void CProgressView::Close() {
    if (m_pOut != nullptr && m_bLineOpen) {
        fputs("\n", m_pOut);
        fflush(m_pOut);
    }
    m_bLineOpen = false;
}

std::string CProgressView::m_CountText() const {
    if (m_bLate) {
        return std::to_string(m_nEnded) + " ended so far" + FailedText(m_nFailed) +
               " (it started before this client, which does not know the total)";
    }
    return std::to_string(m_nEnded) + "/" + std::to_string(m_nTotal) + FailedText(m_nFailed);
}

void CProgressView::m_DrawCurrent(const std::string& extra) {
    if (m_bLate) {
        m_Show(std::string(kLabel) + ": " + m_CountText() + extra, false);
    } else {
        m_Bar(kLabel, m_nEnded, m_nTotal, m_CountText() + extra, false);
    }
}

std::string CProgressView::m_Elapsed() const {
    if (m_nStartUs == 0) {
        return "";
    }
    char text[32];
    snprintf(text, sizeof(text), "in %.1f s", static_cast<double>(m_Clock() - m_nStartUs) / 1e6);
    return text;
}

void CProgressView::m_Bar(const std::string& label, int done, int total, const std::string& text, bool last) {
    int filled = total > 0 ? kBarWidth * std::clamp(done, 0, total) / total : 0;
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kBarWidth - filled), '-');
    char head[64];
    snprintf(head, sizeof(head), "%-24.24s [", label.c_str());
    m_Show(head + bar + "] " + text, last);
}

void CProgressView::m_Show(const std::string& text, bool last) {
    if (m_pOut == nullptr) {
        return;
    }
    // On a terminal: back to the start of the line and clear it, since the new text may be shorter.
    fprintf(m_pOut, m_bTerminal ? "\r\x1b[K%s%s" : "%s%s", text.c_str(), last ? "\n" : "");
    fflush(m_pOut);
    m_bLineOpen = m_bTerminal && !last && !text.empty();
}

void CProgressView::m_Heard() {
    m_nLastHeardUs = m_Clock();
    m_bQuietSaid = false;
}

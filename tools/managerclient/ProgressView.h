// CProgressView: what a manager client shows of the progress it is told about.
//
// The built-in reset: Start (state 500) gives the number of apps, Advance (501) one more app done,
// Finish (502) the end, shown with the count done and the time since Start. A reset that had nothing to
// do (500 said 0) says "nothing to reset" rather than showing a full bar. Install progress
// ("tak_install_result") shows one bar per app key in percent.
//
// On a terminal a bar is drawn and redrawn in place on one line, ended by a line break once finished.
// Anywhere else (the log file of a background client) every step is one plain line, so that the log
// reads as a history.
#pragma once

#include <glib.h>

#include <cstdio>
#include <string>

class CProgressView {
public:
    // `out` may be nullptr (nothing shown); `terminal` chooses bars over plain lines.
    CProgressView(FILE* out, bool terminal);

    void Start(int total);
    void Advance();
    void Finish();
    void Install(const std::string& appKey, int percent);

private:
    // "in 1.2 s" since Start, or "" when no Start was seen.
    std::string m_Elapsed() const;
    // A bar filled done/total, then `text`; `last` ends the line.
    void m_Bar(const std::string& label, int done, int total, const std::string& text, bool last);
    void m_Line(const std::string& text);

    FILE* m_pOut;
    bool m_bTerminal;
    int m_nTotal = -1;  // -1 until a Start
    int m_nDone = 0;
    gint64 m_nStartUs = 0;
};

// CLogFilter: what `orvix-host log` prints of a program's log. Platform log lines ("MM-DD hh:mm:ss.mmm
// L/TAG(pid:tid): message") below the chosen level are dropped; every other line (GLib's own warnings,
// a crash report) is always kept, since the level filter cannot rate it. The colour escapes that mark the
// reset process's levels are taken out when asked (output that is not a terminal).
//
// The log may be read while a program appends to it, so the input comes in pieces: a line is judged once
// its newline has arrived, and Finish() hands over a last line without one.
#pragma once

#include <glib.h>

#include <string>

class CLogFilter {
public:
    // `minimum`: the lowest level letter shown (V, D, I, W, E or F).
    CLogFilter(char minimum, bool stripColours);
    ~CLogFilter();
    CLogFilter(const CLogFilter&) = delete;
    CLogFilter& operator=(const CLogFilter&) = delete;

    // True for a level letter the filter knows (either case).
    static bool IsLevel(char letter);

    // The lines completed by `data` that pass, each with its newline.
    std::string Feed(const char* data, size_t size);
    // The incomplete last line, if any, when it passes.
    std::string Finish();

private:
    static int m_Rank(char letter);
    bool m_Passes(const std::string& line) const;
    std::string m_Shown(const std::string& line) const;

    int m_nMinimum;
    bool m_bStripColours;
    std::string m_strPending;
    GRegex* m_pLevel;   // the level letter of a platform log line
    GRegex* m_pColour;  // a colour escape
};

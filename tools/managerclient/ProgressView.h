// CProgressView: what a manager client shows of the progress it is told about.
//
// The built-in reset: Start (state 500) gives the number of apps, Advance (501) the count of installs
// ended that the report carries, Finish (502) the end, shown with the count done and the time since
// Start. The view never counts by itself: a client started in the middle of a reset shows the count the
// reset reports. The reports do not tell a failed install from a done one, so the caller passes how many
// of the ended installs failed. A reset that had nothing to do (500 said 0) says "nothing to reset"
// rather than showing a full bar. Install progress ("tak_install_result") shows one bar per app key in
// percent. The resets that report a manager client nothing (apps, service, Corvane, built-in app) are
// announced by Announce when they start, so that nobody waits for a bar that never comes.
//
// Tick, called every fraction of a second, says what the view waits for once no report came for
// kQuietUs: the next report of a reset under way, or a reset to start.
//
// On a terminal a bar is drawn and redrawn in place on one line, ended by a line break once finished or
// by Close. Anywhere else (the log file of a background client) every step is one plain line, so that the
// log reads as a history.
#pragma once

#include <glib.h>

#include <cstdio>
#include <functional>
#include <string>

class CProgressView {
public:
    using Clock = std::function<gint64()>;  // microseconds, monotonic

    static constexpr gint64 kQuietUs = 3 * G_USEC_PER_SEC;

    // `out` may be nullptr (nothing shown); `terminal` chooses bars over plain lines.
    CProgressView(FILE* out, bool terminal, Clock clock = g_get_monotonic_time);

    void Start(int total);
    // `ended`: the count of the 501 report; `failed`: how many of them failed or timed out.
    void Advance(int ended, int failed);
    void Finish(int failed);
    void Install(const std::string& appKey, int percent);
    // A reset that sends this client nothing started; `what` names it.
    void Announce(const std::string& what);
    void Tick();
    // Ends a line left open (a bar under way, a waiting text), as when the client is interrupted.
    void Close();

private:
    bool m_Active() const { return m_nTotal > 0 || m_bLate; }
    // The count text of the reset under way ("2/3", "2/3, 1 failed").
    std::string m_CountText() const;
    // The reset under way as the terminal shows it, `extra` after its count.
    void m_DrawCurrent(const std::string& extra);
    // "in 1.2 s" since Start, or "" when no Start was seen.
    std::string m_Elapsed() const;
    // A bar filled done/total, then `text`; `last` ends the line.
    void m_Bar(const std::string& label, int done, int total, const std::string& text, bool last);
    // `text` on a line of its own (on a terminal: in place of the open line), or left open.
    void m_Show(const std::string& text, bool last);
    void m_Line(const std::string& text) { m_Show(text, true); }
    void m_Heard();

    FILE* m_pOut;
    bool m_bTerminal;
    Clock m_Clock;
    int m_nTotal = -1;     // -1 until a Start
    bool m_bLate = false;  // a 501 came for a reset whose Start this client did not see
    int m_nEnded = 0;
    int m_nFailed = 0;
    gint64 m_nStartUs = 0;
    gint64 m_nLastHeardUs;
    bool m_bQuietSaid = false;  // the waiting text of this quiet spell is out (plain lines: once)
    bool m_bLineOpen = false;   // a terminal line not ended yet
};

// CManagerClient: one manager client object ("org.orvix.tv.vardell.managerclient." + obj). It records
// every call (through CBusStandIn), answers with an empty reply, and shows the built-in reset progress
// ("tak_builtin_app_service_reset_result" "(iiii)": state 500 carries the number of apps, 501 one more
// app done, 502 the end) and install progress ("tak_install_result") through a CProgressView.
//
// The 501 report carries the count of installs ended, not whether the one that ended failed. That the
// client learns from the warnings tak-reset writes to its log before the report ("install of ID failed
// (state N)", "install of ID timed out after N s"), counted since the reset's 500 report, whose log line
// ("app  state 500 result N") marks where a reset starts; so a client started late counts the failures
// it did not see too. The resets that report nothing start at a request the kit launched, which
// `orvix-host launch` records (LaunchesFile()): Poll announces those.
#pragma once

#include <gio/gio.h>

#include <cstdio>
#include <string>

#include "BusStandIn.h"
#include "LineFollower.h"
#include "ProgressView.h"

class CManagerClient {
public:
    // Progress goes to `out` (nullptr: nowhere), as bars when `terminal`, else as plain lines.
    // `resetLog`: tak-reset's log; `launches`: the kit's record of the requests it launched.
    CManagerClient(const std::string& obj, FILE* out, bool terminal, const std::string& resetLog,
                   const std::string& launches);

    // True for an object name usable in a bus name, an object path and an interface name.
    static bool IsValidObjectName(const std::string& obj);

    std::string BusName() const;
    std::string ObjectPath() const;
    std::string InterfaceName() const;
    std::string Who() const;

    CBusStandIn::Reply Handle(const std::string& method, GVariant* parameters);
    // Called every fraction of a second: announces new launches and says what the view waits for.
    void Poll();
    // Ends the line the view left open.
    void Close() { m_View.Close(); }

    static constexpr int STATE_BIU_TOTAL = 500;
    static constexpr int STATE_BIU_ONE_DONE = 501;
    static constexpr int STATE_BIU_FINISHED = 502;

private:
    void m_OnBuiltInProgress(int state, int result);
    // Reads tak-reset's log up to now: the failed installs since the last 500 report.
    void m_CountFailures();

    std::string m_strObj;
    CProgressView m_View;
    CLineFollower m_ResetLog;
    CLineFollower m_Launches;
    int m_nFailed = 0;
};

// CManagerClient: one manager client object ("org.orvix.tv.vardell.managerclient." + obj). It records
// every call (through CBusStandIn), answers with an empty reply, and shows the built-in reset progress
// ("tak_builtin_app_service_reset_result" "(iiii)": state 500 carries the number of apps, 501 one more
// app done, 502 the end) and install progress ("tak_install_result") through a CProgressView.
#pragma once

#include <gio/gio.h>

#include <cstdio>
#include <string>

#include "BusStandIn.h"
#include "ProgressView.h"

class CManagerClient {
public:
    // Progress goes to `out` (nullptr: nowhere), as bars when `terminal`, else as plain lines.
    CManagerClient(const std::string& obj, FILE* out, bool terminal);

    // True for an object name usable in a bus name, an object path and an interface name.
    static bool IsValidObjectName(const std::string& obj);

    std::string BusName() const;
    std::string ObjectPath() const;
    std::string InterfaceName() const;
    std::string Who() const;

    CBusStandIn::Reply Handle(const std::string& method, GVariant* parameters);

    static constexpr int STATE_BIU_TOTAL = 500;
    static constexpr int STATE_BIU_ONE_DONE = 501;
    static constexpr int STATE_BIU_FINISHED = 502;

private:
    void m_OnBuiltInProgress(int state, int result);

    std::string m_strObj;
    CProgressView m_View;
};

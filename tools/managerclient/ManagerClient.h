// CManagerClient: one manager client object ("org.orvix.tv.vardell.managerclient." + obj). It records
// every call (through CBusStandIn), answers with an empty reply, and on a terminal shows the built-in
// reset progress (state 500 carries the number of apps, 501 one more app done, 502 the end) and install
// progress ("tak_install_result") as progress bars on standard error.
#pragma once

#include <gio/gio.h>

#include <cstdio>
#include <string>

#include "BusStandIn.h"

class CManagerClient {
public:
    // `out` is where bars are drawn, NULL for none.
    CManagerClient(const std::string& obj, FILE* out);

    // True for an object name usable in a bus name, an object path and an interface name.
    static bool IsValidObjectName(const std::string& obj);

    std::string BusName() const;
    std::string ObjectPath() const;
    std::string InterfaceName() const;
    std::string Who() const;

    CBusStandIn::Reply Handle(const std::string& method, GVariant* parameters);

    // What the built-in reset bar shows now (for tests).
    int Total() const { return m_nTotal; }
    int Done() const { return m_nDone; }
    bool Finished() const { return m_bFinished; }

    static constexpr int STATE_BIU_TOTAL = 500;
    static constexpr int STATE_BIU_ONE_DONE = 501;
    static constexpr int STATE_BIU_FINISHED = 502;

private:
    void m_OnBuiltInProgress(int state, int result);
    void m_OnInstallProgress(const char* appKey, int state, int progress);
    void m_Draw(const std::string& label, int done, int total, bool last);

    std::string m_strObj;
    FILE* m_pOut;
    int m_nTotal = 0;
    int m_nDone = 0;
    bool m_bFinished = false;
};

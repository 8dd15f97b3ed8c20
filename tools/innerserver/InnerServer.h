// CInnerServer: what the stand-in inner server answers. The app-data methods that the reset process reads
// a result from get "(i)" (1 = success, or the data store's own result when it handles the method);
// "sub_process_copy_server_icons" gets "(i)" 0 (no error); "process_result" gets "(i)" 1; any other
// method an empty reply. <root>/etc/innerserver.json may change that per method:
//   {"results": {"remove_app": 0}, "errors": ["update_app_item"]}
// ("errors": answer with org.freedesktop.DBus.Error.Failed). The file is read for every call.
#pragma once

#include <gio/gio.h>

#include <string>

#include "BusStandIn.h"

class CInnerServer {
public:
    // The data store, when this build has one; false (and one log line) when its database cannot be opened.
    bool OpenStore();
    CBusStandIn::Reply Handle(const std::string& method, GVariant* parameters);

    static const char* const BUS_NAME;
    static const char* const OBJECT_PATH;
    static const char* const INTERFACE_NAME;

private:
    int m_DefaultResult(const std::string& method, GVariant* parameters, bool& hasResult);
    bool m_bStoreOpen = false;
};

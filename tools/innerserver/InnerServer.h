// CInnerServer: what the stand-in inner server answers. The app-data methods that the reset process reads
// a result from get "(i)" (1 = success, or the data store's own result when it handles the method);
// "process_result" gets "(i)" 1; any other method an empty reply.
//
// "sub_process_copy_server_icons" "(ss)" = (mounted icon image's directory, icon save path) copies every
// regular file found below the directory, at any depth, to the same relative place below the save path
// (made when missing); links, device nodes and directories that hold no file are left out. Both paths
// must resolve below the host root. It answers "(i)": ICON_COPY_DONE (0), ICON_COPY_BAD_REQUEST (other
// arguments, a directory that is not one below the root, a save path outside it) or ICON_COPY_FAILED (a
// file could not be read or written; what was copied before stays), each failure with one log line.
//
// <root>/etc/innerserver.json may change the answers per method:
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

    enum IconCopyResult { ICON_COPY_DONE = 0, ICON_COPY_BAD_REQUEST = 1, ICON_COPY_FAILED = 2 };

private:
    static int m_CopyServerIcons(GVariant* parameters);
    int m_DefaultResult(const std::string& method, GVariant* parameters, bool& hasResult);
    bool m_bStoreOpen = false;
};

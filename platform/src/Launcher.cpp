// Host app launcher: there are no apps to terminate on the host, so the request is logged and recorded
// (who "launcher") in the kit's call record, where tests and `orvix-host calls` see it.
#include <unistd.h>

#include <string>

#include "app_launcher.h"
#include "dlog.h"
#include "orvix_calls.h"

extern "C" int tak_terminate_allApps_internal(const char* caller, const char* reason) {
    std::string callerText = caller != nullptr ? caller : "";
    std::string reasonText = reason != nullptr ? reason : "";
    dlog_print(DLOG_INFO, "ORVIX", "terminate all apps: caller [%s] reason [%s]", callerText.c_str(),
               reasonText.c_str());
    Json::Value args(Json::arrayValue);
    args.append(callerText);
    args.append(reasonText);
    Json::Value extra(Json::objectValue);
    extra["caller"] = callerText;
    extra["reason"] = reasonText;
    orvix::host::RecordCall("launcher", "tak_terminate_allApps_internal", args, std::to_string(getpid()),
                            extra);
    return 0;
}

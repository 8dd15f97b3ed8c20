// The stand-in inner server's answers.
#include "InnerServer.h"

#include <fstream>
#include <set>

#include "dlog.h"
#include "orvix_host.h"

#ifdef ORVIX_HAVE_INNERSERVER_STORE
#include "InnerServerStore.h"
#endif

const char* const CInnerServer::BUS_NAME = "org.orvix.tv.vardell.innerserver";
const char* const CInnerServer::OBJECT_PATH = "/org/orvix/tv/vardell/innerserver";
const char* const CInnerServer::INTERFACE_NAME = "org.orvix.tv.vardell.innerserver.interface";

namespace {

// The methods whose "(i)" reply the reset process reads as 0 = failure, 1 = success.
const std::set<std::string> kAppDataMethods = {
    "set_app_info",
    "remove_app",
    "update_config_table",
    "truncate_widgetinfo_table",
    "reset_for_corvane_reset",
    "update_app_item",
    "reset_config_table",
    "reset_app_user_data",
};

Json::Value ReadBehaviour() {
    std::ifstream in(orvix::host::UnderRoot("etc/innerserver.json"));
    Json::Value behaviour;
    if (in) {
        Json::CharReaderBuilder builder;
        std::string errors;
        if (!Json::parseFromStream(builder, in, &behaviour, &errors)) {
            dlog_print(DLOG_ERROR, "ORVIX", "innerserver: etc/innerserver.json is not JSON: %s",
                       errors.c_str());
            behaviour = Json::Value();
        }
    }
    return behaviour;
}

bool Listed(const Json::Value& list, const std::string& method) {
    if (!list.isArray()) {
        return false;
    }
    for (const auto& item : list) {
        if (item.isString() && item.asString() == method) {
            return true;
        }
    }
    return false;
}

#ifdef ORVIX_HAVE_INNERSERVER_STORE
CInnerServerStore& Store() {
    static CInnerServerStore store;
    return store;
}
#endif

}  // namespace

bool CInnerServer::OpenStore() {
#ifdef ORVIX_HAVE_INNERSERVER_STORE
    m_bStoreOpen = Store().Open();
    if (!m_bStoreOpen) {
        dlog_print(DLOG_ERROR, "ORVIX",
                   "innerserver: the app database cannot be opened; app-data calls answer 0");
    }
#endif
    return m_bStoreOpen;
}

int CInnerServer::m_DefaultResult(const std::string& method, GVariant* parameters, bool& hasResult) {
    hasResult = true;
#ifdef ORVIX_HAVE_INNERSERVER_STORE
    if (Store().Handles(method.c_str())) {
        return m_bStoreOpen ? Store().Apply(method.c_str(), parameters) : 0;
    }
#else
    (void)parameters;
#endif
    if (kAppDataMethods.count(method) != 0 || method == "process_result") {
        return 1;
    }
    if (method == "sub_process_copy_server_icons") {
        return 0;  // 0 = no error
    }
    hasResult = false;
    return 0;
}

CBusStandIn::Reply CInnerServer::Handle(const std::string& method, GVariant* parameters) {
    Json::Value behaviour = ReadBehaviour();
    CBusStandIn::Reply reply;
    if (Listed(behaviour["errors"], method)) {
        reply.errorName = "org.freedesktop.DBus.Error.Failed";
        reply.errorMessage = "configured to fail in etc/innerserver.json";
        return reply;
    }
    bool hasResult = false;
    int result = m_DefaultResult(method, parameters, hasResult);
    const Json::Value& configured = behaviour["results"][method];
    if (configured.isInt()) {
        result = configured.asInt();
        hasResult = true;
    }
    if (hasResult) {
        reply.body = g_variant_new("(i)", result);
    }
    return reply;
}

// The stand-in inner server's answers.
#include "InnerServer.h"

#include <fstream>

#include "InnerServerStore.h"
#include "dlog.h"
#include "orvix_host.h"

const char* const CInnerServer::BUS_NAME = "org.orvix.tv.vardell.innerserver";
const char* const CInnerServer::OBJECT_PATH = "/org/orvix/tv/vardell/innerserver";
const char* const CInnerServer::INTERFACE_NAME = "org.orvix.tv.vardell.innerserver.interface";

namespace {

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

CInnerServerStore& Store() {
    static CInnerServerStore store;
    return store;
}

}  // namespace

bool CInnerServer::OpenStore() {
    m_bStoreOpen = Store().Open();
    if (!m_bStoreOpen) {
        dlog_print(DLOG_ERROR, "ORVIX",
                   "innerserver: the app database cannot be opened; app-data calls answer 0");
    }
    return m_bStoreOpen;
}

int CInnerServer::m_DefaultResult(const std::string& method, GVariant* parameters, bool& hasResult) {
    hasResult = true;
    // The app-data methods answer 1 on success and 0 on failure, as the store applied them.
    if (Store().Handles(method.c_str())) {
        return m_bStoreOpen ? Store().Apply(method.c_str(), parameters) : 0;
    }
    if (method == "process_result") {
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

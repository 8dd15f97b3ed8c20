// A manager client: its names on the bus and the calls whose progress it shows.
#include "ManagerClient.h"

#include <json/json.h>

#include <algorithm>
#include <regex>

#include "orvix_calls.h"

namespace {

// The warnings tak-reset logs for an install that failed or ran out of time ("uninstall of ..." excluded);
// the level's colour escape may end the line.
bool IsFailedInstall(const std::string& line) {
    if (line.find("install of ") == std::string::npos) {
        return false;
    }
    static const std::regex kFailed(
        R"((^|[^a-z])install of .+ (failed \(state -?\d+\)|timed out after \d+ s)(\x1b\[0m)?$)");
    return std::regex_search(line, kFailed);
}

bool IsTotalReport(const std::string& line) {
    return line.find(" state 500 result ") != std::string::npos;
}

// What a launched request starts that reports a manager client nothing, or "".
std::string SilentReset(const Json::Value& request) {
    static const std::pair<const char*, const char*> kSilent[] = {{"tak_app_reset", "apps reset"},
                                                                  {"tak_service_reset", "service reset"},
                                                                  {"corvane_reset", "Corvane reset"},
                                                                  {"biu_app_reset", "built-in app reset"}};
    const Json::Value& reset = request["reset"];
    for (const auto& [value, name] : kSilent) {
        if (reset.isString() && reset.asString() == value) {
            return std::string(name) + " (reset=" + value + ")";
        }
    }
    return "";
}

}  // namespace

CManagerClient::CManagerClient(const std::string& obj, FILE* out, bool terminal, const std::string& resetLog,
                               const std::string& launches)
    : m_strObj(obj), m_View(out, terminal), m_ResetLog(resetLog), m_Launches(launches) {
    m_Launches.SkipToEnd();
}

bool CManagerClient::IsValidObjectName(const std::string& obj) {
    if (obj.empty() || g_ascii_isdigit(obj[0])) {
        return false;
    }
    return std::all_of(obj.begin(), obj.end(), [](char c) { return g_ascii_isalnum(c) || c == '_'; });
}

std::string CManagerClient::BusName() const {
    return "org.orvix.tv.vardell.managerclient." + m_strObj;
}

std::string CManagerClient::ObjectPath() const {
    return "/org/orvix/tv/vardell/managerclient/" + m_strObj;
}

std::string CManagerClient::InterfaceName() const {
    return "org.orvix.tv.vardell.managerclient.interface." + m_strObj;
}

std::string CManagerClient::Who() const {
    return "managerclient." + m_strObj;
}

CBusStandIn::Reply CManagerClient::Handle(const std::string& method, GVariant* parameters) {
    if (method == "tak_builtin_app_service_reset_result" && parameters != nullptr &&
        g_variant_is_of_type(parameters, G_VARIANT_TYPE("(iiii)"))) {
        gint32 threadId = 0, state = 0, result = 0, eventIndex = 0;
        g_variant_get(parameters, "(iiii)", &threadId, &state, &result, &eventIndex);
        m_OnBuiltInProgress(state, result);
    } else if (method == "tak_install_result" && parameters != nullptr &&
               g_variant_is_of_type(parameters, G_VARIANT_TYPE("(isiiiisis)"))) {
        const char* appKey = nullptr;
        gint32 progress = 0;
        g_variant_get(parameters, "(i&siiiisis)", nullptr, &appKey, nullptr, &progress, nullptr, nullptr,
                      nullptr, nullptr, nullptr);
        m_View.Install(appKey, progress);
    }
    return CBusStandIn::Reply();
}

void CManagerClient::Poll() {
    m_Launches.ReadNew([this](const std::string& line) {
        Json::Value record;
        if (!orvix::host::ParseJson(line, record) || !record.isObject()) {
            return;
        }
        std::string what = SilentReset(record["request"]);
        if (!what.empty()) {
            m_View.Announce(what);
        }
    });
    m_View.Tick();
}

void CManagerClient::m_CountFailures() {
    m_ResetLog.ReadNew([this](const std::string& line) {
        if (IsTotalReport(line)) {
            m_nFailed = 0;
        } else if (IsFailedInstall(line)) {
            ++m_nFailed;
        }
    });
}

void CManagerClient::m_OnBuiltInProgress(int state, int result) {
    m_CountFailures();
    switch (state) {
        case STATE_BIU_TOTAL:
            m_nFailed = 0;
            m_View.Start(result);
            break;
        case STATE_BIU_ONE_DONE:
            m_View.Advance(result, m_nFailed);
            break;
        case STATE_BIU_FINISHED:
            m_View.Finish(m_nFailed);
            break;
        default:
            break;
    }
}

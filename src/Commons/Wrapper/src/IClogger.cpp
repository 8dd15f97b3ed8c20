#include "IClogger.h"

#include <KPILogFramework.h>

#include <initializer_list>
#include <utility>

#include "TAKLog.h"

namespace {

const char kServiceName[] = "23_appdown";

// "{" + prefix1value1 + ";" + prefix2value2 ... + "}"
std::string Description(std::initializer_list<std::pair<const char*, std::string>> pairs) {
    std::string text = "{";
    for (const auto& [prefix, value] : pairs) {
        if (text.size() > 1) {
            text += ";";
        }
        text += prefix + value;
    }
    return text + "}";
}

}  // namespace

bool IClogger::SendFullLog(const std::string& serviceName, const std::string& category,
                           const std::string& description, const std::string& event) {
    TAK_LOGI("SendFullLog start, event = %s", event.c_str());
    KPILogFramework::CLogger* logger = KPILogFramework::CLogger::GetInstance();
    if (logger == nullptr) {
        TAK_LOGE("Create instance of CLogger failed");
        return false;
    }
    logger->AddEventLogAsync(serviceName, event, category, description, m_CloggerCallback, nullptr);
    TAK_LOGD("AddEventLogAsync ServiceName [%s] Event [%s] Category[%s] Description[%s])",
             serviceName.c_str(), event.c_str(), category.c_str(), description.c_str());
    return true;
}

void IClogger::SendIconKPI(const std::string& appId, const std::string& serverUpdateDate,
                           TAK_CLOGGER_ICON_REASON_E reason, int error) {
    std::string event;
    std::string category;
    std::string description;
    std::string reasonText = std::to_string(static_cast<int>(reason));
    if (error == 0) {
        event = "EV017";
        category = "ICON_DOWNLOAD_PASS";
        description = Description(
            {{"appid=", appId}, {"reason=", reasonText}, {"server_update_date=", serverUpdateDate}});
    } else {
        event = "EV018";
        category = "ICON_DOWNLOAD_FAIL";
        description = Description({{"appid=", appId},
                                   {"reason=", reasonText},
                                   {"server_update_date=", serverUpdateDate},
                                   {"error=", std::to_string(error)}});
    }
    if (SendFullLog(kServiceName, category, description, event)) {
        TAK_LOGN("Send KPI log successfully. AppID[%s], event[%s], description[%s].", appId.c_str(),
                 event.c_str(), description.c_str());
    } else {
        TAK_LOGE("Fail to send KPI log!");
    }
}

void IClogger::SendTAKEventKPI(KPI_TAK_EVENT_TYPE_e type, const std::string& info) {
    const char event[] = "EV019";
    const char category[] = "TAK_EVENT";
    std::string description =
        Description({{"type=", std::to_string(static_cast<int>(type))}, {"info=", info}});
    if (SendFullLog(kServiceName, category, description, event)) {
        TAK_LOGN("Send KPI log successfully. category[%s], event[%s], description[%s].", category, event,
                 description.c_str());
    } else {
        TAK_LOGE("Fail to send KPI log!");
    }
}

void IClogger::m_CloggerCallback(int result, void* /*userData*/) {
    if (result == 1) {
        TAK_LOGD("Send log by asynchronous method success!");
    } else {
        TAK_LOGI("Send log by asynchronous method failed, error = [%d]!", result);
    }
}

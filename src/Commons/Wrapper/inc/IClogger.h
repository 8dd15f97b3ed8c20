// Key-performance events of the service, handed to the platform's KPI log framework. Each event is one
// record of four texts (service name, event code, category, description); delivery is asynchronous and
// its outcome is only logged. Stateless; any thread may send.
#pragma once

#include <string>

// Why an app icon was downloaded.
enum TAK_CLOGGER_ICON_REASON_E {
    TAK_CLOGGER_ICON_REASON_INSTALL = 0,
    TAK_CLOGGER_ICON_REASON_UPDATE = 1,
    TAK_CLOGGER_ICON_REASON_SERVER_CHANGE = 2,
    TAK_CLOGGER_ICON_REASON_RECOVERY = 3,
};

// Service events; the number is what the record carries.
enum KPI_TAK_EVENT_TYPE_e {
    KPI_TAK_EVENT_DB_INVALID = 6,  // the database failed its validation and was restored
};

class IClogger {
public:
    // False only when the framework cannot be had.
    static bool SendFullLog(const std::string& serviceName, const std::string& category,
                            const std::string& description, const std::string& event);
    // Error 0: "ICON_DOWNLOAD_PASS"; otherwise "ICON_DOWNLOAD_FAIL" with the error as the last pair.
    static void SendIconKPI(const std::string& appId, const std::string& serverUpdateDate,
                            TAK_CLOGGER_ICON_REASON_E reason, int error);
    static void SendTAKEventKPI(KPI_TAK_EVENT_TYPE_e type, const std::string& info);

    // Completion handed to the framework; runs on its thread and only logs.
    static void m_CloggerCallback(int result, void* userData);
};

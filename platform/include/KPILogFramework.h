// KPI log framework. On the host every event is appended as one JSON line to <root>/var/log/kpi.log
// on a worker thread, then the completion is called with 1.
#pragma once

#include <string>

namespace KPILogFramework {

typedef void (*KPI_LOG_CB)(int result, void* userData);

class CLogger {
public:
    static CLogger* GetInstance();
    // 0 when the event is accepted (its completion follows on the worker thread), -1 when refused.
    int AddEventLogAsync(const std::string& serviceName, const std::string& event, const std::string& category,
                         const std::string& description, KPI_LOG_CB callback, void* userData);

    // Waits until every accepted event is written (used by tests and at process exit).
    void Flush();

private:
    CLogger() = default;
};

}  // namespace KPILogFramework

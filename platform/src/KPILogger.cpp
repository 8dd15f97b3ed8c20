// Host KPI framework: every accepted event becomes one JSON object on one line of
// <root>/var/log/kpi.log, written by a worker thread in submission order; then the completion is
// called on that thread with 1 (or 0 when the line could not be written). The worker is joined when
// the process exits, after it has written what was queued.
#include <fcntl.h>
#include <json/json.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "KPILogFramework.h"
#include "dlog.h"
#include "orvix_calls.h"
#include "orvix_host.h"
#include "orvix_regular_file.h"

namespace {

const char kLogTag[] = "KPI";

struct KpiEvent {
    std::string serviceName;
    std::string event;
    std::string category;
    std::string description;
    KPILogFramework::KPI_LOG_CB callback;
    void* userData;
};

std::string ToJsonLine(const KpiEvent& kpi) {
    Json::Value record(Json::objectValue);
    record["service"] = kpi.serviceName;
    record["event"] = kpi.event;
    record["category"] = kpi.category;
    record["description"] = kpi.description;
    record["time"] = static_cast<Json::Int64>(time(nullptr));
    return orvix::host::JsonLine(record) + "\n";
}

bool AppendToLog(const std::string& line) {
    std::string dir = orvix::host::UnderRoot("var/log");
    if (!orvix::host::MakeDirs(dir)) {
        return false;
    }
    int fd = orvix::host::OpenRegular(dir + "/kpi.log", O_WRONLY | O_APPEND | O_CREAT, 0644);
    if (fd < 0) {
        return false;
    }
    bool ok = write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    return close(fd) == 0 && ok;
}

class EventWriter {
public:
    bool Submit(KpiEvent kpi) {
        std::lock_guard<std::mutex> lock(m_QueueLock);
        if (m_bStopping) {
            return false;
        }
        if (!m_Thread.joinable()) {
            m_Thread = std::thread(&EventWriter::Run, this);
        }
        m_Events.push_back(std::move(kpi));
        ++m_Pending;
        m_Wake.notify_all();
        return true;
    }

    void Flush() {
        std::unique_lock<std::mutex> lock(m_QueueLock);
        if (m_Thread.get_id() == std::this_thread::get_id()) {
            return;  // a completion waiting for itself would never return
        }
        m_Idle.wait(lock, [this] { return m_Pending == 0; });
    }

    void Stop() {
        {
            std::lock_guard<std::mutex> lock(m_QueueLock);
            m_bStopping = true;
            m_Wake.notify_all();
        }
        if (m_Thread.joinable() && m_Thread.get_id() != std::this_thread::get_id()) {
            m_Thread.join();
        }
    }

private:
    void Run() {
        while (true) {
            KpiEvent kpi;
            {
                std::unique_lock<std::mutex> lock(m_QueueLock);
                m_Wake.wait(lock, [this] { return m_bStopping || !m_Events.empty(); });
                if (m_Events.empty()) {
                    return;
                }
                kpi = std::move(m_Events.front());
                m_Events.pop_front();
            }
            bool written = AppendToLog(ToJsonLine(kpi));
            if (!written) {
                dlog_print(DLOG_ERROR, kLogTag, "cannot write the KPI log: %s", strerror(errno));
            }
            if (kpi.callback != nullptr) {
                kpi.callback(written ? 1 : 0, kpi.userData);
            }
            std::lock_guard<std::mutex> lock(m_QueueLock);
            --m_Pending;  // only now: Flush promises that the completion has run too
            m_Idle.notify_all();
        }
    }

    std::mutex m_QueueLock;  // guards m_Events, m_Pending, m_bStopping and the start of m_Thread
    std::condition_variable m_Wake;
    std::condition_variable m_Idle;
    std::deque<KpiEvent> m_Events;
    size_t m_Pending = 0;
    bool m_bStopping = false;
    std::thread m_Thread;
};

EventWriter* const g_EventWriter = new EventWriter;  // never destroyed: completions may outlive exit

struct WriterJoinedAtExit {
    ~WriterJoinedAtExit() { g_EventWriter->Stop(); }
} g_WriterJoinedAtExit;

}  // namespace

namespace KPILogFramework {

CLogger* CLogger::GetInstance() {
    static CLogger instance;
    return &instance;
}

int CLogger::AddEventLogAsync(const std::string& serviceName, const std::string& event,
                              const std::string& category, const std::string& description,
                              KPI_LOG_CB callback, void* userData) {
    KpiEvent kpi{serviceName, event, category, description, callback, userData};
    return g_EventWriter->Submit(std::move(kpi)) ? 0 : -1;
}

void CLogger::Flush() {
    g_EventWriter->Flush();
}

}  // namespace KPILogFramework

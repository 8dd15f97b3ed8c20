#include <json/json.h>

#include <sstream>
#include <thread>
#include <vector>

#include <KPILogFramework.h>

#include "FoundationTest.h"
#include "IClogger.h"
#include "TAKDir.h"

namespace foundation {
namespace {

class KpiTest : public FoundationTest {
protected:
    std::vector<Json::Value> Records() {
        KPILogFramework::CLogger::GetInstance()->Flush();
        std::vector<Json::Value> records;
        std::istringstream in(ReadFile(Under("var/log/kpi.log")));
        Json::CharReaderBuilder builder;
        for (std::string line; std::getline(in, line);) {
            Json::Value record;
            std::string errors;
            std::istringstream lineIn(line);
            EXPECT_TRUE(Json::parseFromStream(builder, lineIn, &record, &errors)) << line;
            records.push_back(record);
        }
        return records;
    }
    bool LogHas(const std::string& text) const { return Log().find(text) != std::string::npos; }
};

TEST_F(KpiTest, ServiceEventCarriesTypeAndInfo) {
    IClogger::SendTAKEventKPI(KPI_TAK_EVENT_DB_INVALID, "DB file size is zero");
    IClogger::SendTAKEventKPI(KPI_TAK_EVENT_DB_INVALID, "");
    std::vector<Json::Value> records = Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0]["service"].asString(), "23_appdown");
    EXPECT_EQ(records[0]["event"].asString(), "EV019");
    EXPECT_EQ(records[0]["category"].asString(), "TAK_EVENT");
    EXPECT_EQ(records[0]["description"].asString(), "{type=6;info=DB file size is zero}");
    EXPECT_EQ(records[1]["description"].asString(), "{type=6;info=}");
    EXPECT_TRUE(
        LogHas("Send KPI log successfully. category[TAK_EVENT], event[EV019], description[{type=6;info=}]."));
    EXPECT_TRUE(LogHas("Send log by asynchronous method success!"));
}

TEST_F(KpiTest, IconEventsAddTheErrorOnlyOnFailure) {
    IClogger::SendIconKPI("org.app", "2024-03-05", TAK_CLOGGER_ICON_REASON_UPDATE, 0);
    IClogger::SendIconKPI("org.app", "2024-03-05", TAK_CLOGGER_ICON_REASON_UPDATE, -7);
    std::vector<Json::Value> records = Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0]["event"].asString(), "EV017");
    EXPECT_EQ(records[0]["category"].asString(), "ICON_DOWNLOAD_PASS");
    EXPECT_EQ(records[0]["description"].asString(), "{appid=org.app;reason=1;server_update_date=2024-03-05}");
    EXPECT_EQ(records[1]["event"].asString(), "EV018");
    EXPECT_EQ(records[1]["category"].asString(), "ICON_DOWNLOAD_FAIL");
    EXPECT_EQ(records[1]["description"].asString(),
              "{appid=org.app;reason=1;server_update_date=2024-03-05;error=-7}");
}

struct Outcome {
    int result = -99;
    std::thread::id thread;
    static void Callback(int result, void* data) {
        auto* self = static_cast<Outcome*>(data);
        self->result = result;
        self->thread = std::this_thread::get_id();
    }
};

TEST_F(KpiTest, CompletionRunsOnTheWorkerWithTheOutcome) {
    Outcome written;
    KPILogFramework::CLogger* logger = KPILogFramework::CLogger::GetInstance();
    ASSERT_EQ(logger->AddEventLogAsync("s", "e", "c", "d", Outcome::Callback, &written), 0);
    logger->Flush();
    EXPECT_EQ(written.result, 1);
    EXPECT_NE(written.thread, std::this_thread::get_id());

    // A log file that cannot be written: the completion says so, and the adapter logs it.
    ASSERT_TRUE(TAKDir::RemoveAllFiles(Under("var/log"), true, false));
    WriteFile(Under("var/log"), "a file where the log directory should be");
    Outcome failed;
    ASSERT_EQ(logger->AddEventLogAsync("s", "e", "c", "d", Outcome::Callback, &failed), 0);
    IClogger::SendTAKEventKPI(KPI_TAK_EVENT_DB_INVALID, "lost");
    logger->Flush();
    EXPECT_EQ(failed.result, 0);
    EXPECT_TRUE(LogHas("Send log by asynchronous method failed, error = [0]!"));
}

}  // namespace
}  // namespace foundation

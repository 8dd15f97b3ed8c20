// The report of a real apps reset with one failing app agrees with what the kit recorded of it.
#include <json/json.h>

#include <memory>

#include "../reset/ResetFixture.h"

using namespace reset_test;

namespace {

Json::Value Parsed(const std::string& text) {
    Json::Value value;
    std::string errors;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << errors << text;
    return value;
}

Lines Strings(const Json::Value& array) {
    Lines strings;
    for (const auto& item : array) {
        strings.push_back(item.asString());
    }
    return strings;
}

}  // namespace

class TheReport : public ResetFixture {};

TEST_F(TheReport, OfAnAppsResetWithAFailingAppAgreesWithTheRecordedCalls) {
    Json::Value behaviour(Json::objectValue);
    behaviour["uninstall"]["delay_ms"] = 20;
    behaviour["uninstall"]["apps"]["broken"]["fail"] = true;
    SetLibTakBehaviour(behaviour);
    AddApps({{"broken"}, {"fine"}});
    RunToEnd({"reset=tak_app_reset", "userdata=77"}, "tak_app_reset_result");

    orvix::test::RunResult run =
        orvix::test::RunProgram({BinaryDir() + "/src/tak-reset-report", "--json", Root()});
    ASSERT_EQ(run.status, 0) << run.err << run.out;
    EXPECT_EQ(run.err, "");
    const Json::Value resets = Parsed(run.out)["resets"];
    ASSERT_EQ(resets.size(), 1u) << run.out;
    const Json::Value& reset = resets[0];

    const Json::Value call = CallsOf("innerserver", "process_result").at(0)["args"];
    EXPECT_EQ(reset["kind"].asString(), "tak_app_reset");
    EXPECT_EQ(reset["outcome"].asString(), "reported");
    EXPECT_EQ(reset["result"]["name"], call[0]);
    EXPECT_EQ(reset["result"]["value"], call[1]);
    EXPECT_EQ(reset["userdata"], call[2]);
    EXPECT_TRUE(reset["result"]["delivered"].asBool());
    EXPECT_EQ(Strings(reset["requested"]), Requested());
    EXPECT_EQ(Strings(reset["failed"]), Lines{"broken"});
    EXPECT_EQ(Strings(reset["uninstalled"]), Lines{"fine"});
    EXPECT_EQ(Strings(reset["timed_out"]), Lines{});
    EXPECT_GE(reset["duration_ms"].asInt64(), 0);
    EXPECT_EQ(reset["history"].size(), 4u) << run.out;  // start, the two apps, end
}

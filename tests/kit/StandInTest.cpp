// The private bus and the stand-ins on it: what they answer, what they record, and that `down` leaves
// nothing behind.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>

#include <fstream>

#include "HostFixture.h"
#include "KitAppFixture.h"
#include "ManagerClient.h"

namespace {

using orvix::test::HostFixture;
using orvix::test::RunResult;
using orvix::test::WaitUntil;

const char kInnerName[] = "org.orvix.tv.vardell.innerserver";
const char kInnerPath[] = "/org/orvix/tv/vardell/innerserver";
const char kInnerInterface[] = "org.orvix.tv.vardell.innerserver.interface";

class StandIns : public HostFixture {
protected:
    void SetUp() override {
        HostFixture::SetUp();
        m_connection = ConnectToBus();
        ASSERT_NE(m_connection, nullptr);
    }
    void TearDown() override {
        if (m_connection != nullptr) {
            g_dbus_connection_close_sync(m_connection, nullptr, nullptr);
            g_object_unref(m_connection);
        }
        HostFixture::TearDown();
    }

    // Calls and returns the reply (NULL on error, with the error's name in `errorName`).
    GVariant* Call(const std::string& name, const std::string& path, const std::string& interfaceName,
                   const char* method, GVariant* parameters, std::string* errorName = nullptr) {
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_sync(m_connection, name.c_str(), path.c_str(),
                                                      interfaceName.c_str(), method, parameters, nullptr,
                                                      G_DBUS_CALL_FLAGS_NONE, 20000, nullptr, &error);
        if (error != nullptr) {
            if (errorName != nullptr) {
                gchar* remote = g_dbus_error_get_remote_error(error);
                *errorName = remote != nullptr ? remote : error->message;
                g_free(remote);
            }
            g_error_free(error);
        }
        return reply;
    }

    GVariant* CallInner(const char* method, GVariant* parameters, std::string* errorName = nullptr) {
        return Call(kInnerName, kInnerPath, kInnerInterface, method, parameters, errorName);
    }

    GDBusConnection* m_connection = nullptr;
};

std::string TypeOf(GVariant* reply) {
    return reply != nullptr ? g_variant_get_type_string(reply) : "<none>";
}

TEST_F(StandIns, InnerServerAnswersTheProcessResultAndRecordsIt) {
    GVariant* reply =
        CallInner("process_result", g_variant_new("(siss)", "tak_app_reset_result", 1, "-42", ""));
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(TypeOf(reply), "(i)");
    g_variant_unref(reply);

    auto calls = CallsOf("innerserver", "process_result");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0]["args"][0], "tak_app_reset_result");
    EXPECT_EQ(calls[0]["args"][1], 1);
    EXPECT_EQ(calls[0]["args"][2], "-42");
    EXPECT_EQ(calls[0]["signature"], "siss");
    EXPECT_EQ(calls[0]["sender"].asString().front(), ':');
    EXPECT_FALSE(calls[0]["time"].asString().empty());
}

TEST_F(StandIns, InnerServerAnswersEveryMethodTheProcessReadsAResultOf) {
    struct Case {
        const char* method;
        GVariant* parameters;
        int expected;
    };
    const Case cases[] = {
        {"reset_config_table", nullptr, 1},
        {"reset_app_user_data", nullptr, 1},
        {"reset_for_corvane_reset", nullptr, 1},
        {"truncate_widgetinfo_table", g_variant_new("(i)", 1), 1},
        {"update_config_table", g_variant_new("(ss)", "RESET_TYPE", "1"), 1},
        {"sub_process_copy_server_icons", g_variant_new("(ss)", "/tmp/mount/", "/tmp/icons"), 0},
    };
    for (const auto& c : cases) {
        GVariant* reply = CallInner(c.method, c.parameters);
        ASSERT_EQ(TypeOf(reply), "(i)") << c.method;
        gint32 result = -1;
        g_variant_get(reply, "(i)", &result);
        EXPECT_EQ(result, c.expected) << c.method;
        g_variant_unref(reply);
    }
    EXPECT_EQ(MethodsOf("innerserver"),
              (std::vector<std::string>{"reset_config_table", "reset_app_user_data",
                                        "reset_for_corvane_reset", "truncate_widgetinfo_table",
                                        "update_config_table", "sub_process_copy_server_icons"}));
}

TEST_F(StandIns, InnerServerTakesAnyMethodAndAnyArguments) {
    GVariant* reply = CallInner("no_such_method", g_variant_new("(sai)", "x", nullptr));
    EXPECT_EQ(TypeOf(reply), "()");
    if (reply != nullptr) {
        g_variant_unref(reply);
    }
    auto calls = CallsOf("innerserver", "no_such_method");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0]["args"][0], "x");
    EXPECT_TRUE(calls[0]["args"][1].isArray());
}

TEST_F(StandIns, InnerServerResultsAndFailuresCanBeConfigured) {
    std::ofstream(Root() + "/etc/innerserver.json")
        << R"({"results": {"reset_config_table": 0}, "errors": ["reset_app_user_data"]})";
    GVariant* reply = CallInner("reset_config_table", nullptr);
    ASSERT_EQ(TypeOf(reply), "(i)");
    gint32 result = -1;
    g_variant_get(reply, "(i)", &result);
    EXPECT_EQ(result, 0);
    g_variant_unref(reply);

    std::string errorName;
    EXPECT_EQ(CallInner("reset_app_user_data", nullptr, &errorName), nullptr);
    EXPECT_EQ(errorName, "org.freedesktop.DBus.Error.Failed");
    EXPECT_EQ(CallsOf("innerserver", "reset_app_user_data").at(0)["error"],
              "org.freedesktop.DBus.Error.Failed");
}

TEST_F(StandIns, ManagerClientRecordsUnderItsOwnNameAndUpIsIdempotent) {
    RunResult client = Host({"client", "tv_1"});
    ASSERT_EQ(client.status, 0) << client.err;
    GVariant* reply =
        Call("org.orvix.tv.vardell.managerclient.tv_1", "/org/orvix/tv/vardell/managerclient/tv_1",
             "org.orvix.tv.vardell.managerclient.interface.tv_1", "tak_builtin_app_service_reset_result",
             g_variant_new("(iiii)", 7, 500, 3, 2));
    ASSERT_NE(reply, nullptr);
    g_variant_unref(reply);
    auto calls = CallsOf("managerclient.tv_1", "tak_builtin_app_service_reset_result");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(orvix::host::JsonLine(calls[0]["args"]), "[7,500,3,2]");
    EXPECT_EQ(calls[0]["signature"], "iiii");

    std::string before = orvix::test::ReadWholeFile(Root() + "/run/pids/innerserver.pid");
    RunResult again = Host({"up"});
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "export DBUS_SYSTEM_BUS_ADDRESS=" + BusAddress() + "\n");
    EXPECT_EQ(orvix::test::ReadWholeFile(Root() + "/run/env"), again.out);
    EXPECT_EQ(orvix::test::ReadWholeFile(Root() + "/run/pids/innerserver.pid"), before);
    EXPECT_EQ(Host({"client", "9bad"}).status, 2);
}

TEST_F(StandIns, UpRestartsWhatDied) {
    orvix::host::ProcessId inner;
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/innerserver.pid", inner));
    kill(inner.pid, SIGKILL);
    ASSERT_TRUE(WaitUntil([&] { return !orvix::host::IsRunning(inner); }));
    RunResult up = Host({"up"});
    ASSERT_EQ(up.status, 0) << up.err;
    GVariant* reply = CallInner("reset_config_table", nullptr);
    EXPECT_EQ(TypeOf(reply), "(i)");
    if (reply != nullptr) {
        g_variant_unref(reply);
    }
}

class DownFixture : public kit_test::KitAppFixture {};

TEST_F(DownFixture, DownStopsTheBusTheStandInsAndTheAppAndLeavesNoProcess) {
    ASSERT_EQ(Host({"client", "a"}).status, 0);
    ASSERT_EQ(Launch({"n=1"}).status, 0);
    ASSERT_TRUE(WaitForControls(1));  // queued is not yet handled: down would cut it short
    ASSERT_TRUE(AppRunning());
    std::vector<orvix::host::ProcessId> running;
    for (const char* name : {"dbus-daemon", "innerserver", "managerclient.a"}) {
        orvix::host::ProcessId id;
        ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/" + name + ".pid", id)) << name;
        running.push_back(id);
    }
    orvix::host::ProcessId app;
    ASSERT_TRUE(orvix::host::ReadPidFile(orvix::host::LaunchPidPath(AppName()), app));
    running.push_back(app);

    RunResult down = Host({"down"});
    ASSERT_EQ(down.status, 0) << down.err;
    for (const auto& id : running) {
        EXPECT_FALSE(orvix::host::IsRunning(id)) << id.pid;
    }
    EXPECT_NE(access((Root() + "/run/env").c_str(), F_OK), 0);
    EXPECT_NE(access(orvix::host::LaunchSocketPath(AppName()).c_str(), F_OK), 0);
    EXPECT_EQ(Host({"down"}).status, 0) << "a second down has nothing to do";
    // With the bus down, a launch still works; the app just has no bus to report on.
    ASSERT_EQ(Launch({"n=2"}).status, 0);
    EXPECT_TRUE(WaitForControls(2));
}

// Hands `parameters` (floating) to the client the way the bus code does: owned by the caller.
void Deliver(CManagerClient& client, const char* method, GVariant* parameters) {
    if (parameters != nullptr) {
        g_variant_ref_sink(parameters);
    }
    client.Handle(method, parameters);
    if (parameters != nullptr) {
        g_variant_unref(parameters);
    }
}

TEST(ManagerClientProgress, DrawsTheBuiltInResetFromTotalToFinished) {
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    CManagerClient client("tv", out);
    auto progress = [&](int state, int result) {
        Deliver(client, "tak_builtin_app_service_reset_result", g_variant_new("(iiii)", 1, state, result, 0));
    };
    progress(500, 4);
    EXPECT_EQ(client.Total(), 4);
    progress(501, 1);
    progress(501, 2);
    EXPECT_EQ(client.Done(), 2);
    progress(502, 0);
    EXPECT_TRUE(client.Finished());
    fclose(out);
    std::string drawn(text, size);
    free(text);
    EXPECT_NE(drawn.find("0/4"), std::string::npos);
    EXPECT_NE(drawn.find("2/4"), std::string::npos);
    EXPECT_EQ(drawn.back(), '\n');
    EXPECT_EQ(std::count(drawn.begin(), drawn.end(), '\n'), 1);
}

TEST(ManagerClientProgress, IgnoresWhatItCannotReadAndDrawsNothingWithoutATerminal) {
    CManagerClient client("tv", nullptr);
    Deliver(client, "tak_builtin_app_service_reset_result", g_variant_new("(ii)", 500, 3));
    Deliver(client, "tak_builtin_app_service_reset_result", nullptr);
    EXPECT_EQ(client.Total(), 0);
    Deliver(client, "tak_builtin_app_service_reset_result", g_variant_new("(iiii)", 1, 500, 3, 0));
    EXPECT_EQ(client.Total(), 3);
    EXPECT_TRUE(CManagerClient::IsValidObjectName("client_1"));
    EXPECT_FALSE(CManagerClient::IsValidObjectName("1client"));
    EXPECT_FALSE(CManagerClient::IsValidObjectName("a.b"));
    EXPECT_FALSE(CManagerClient::IsValidObjectName(""));
}

}  // namespace

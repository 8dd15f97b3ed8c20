// The manager client's progress view, as a person sees it: `orvix-host client OBJ --foreground` runs on
// a pseudo-terminal, the test makes the progress calls the reset process makes, and reads back what the
// terminal shows.
#include <gtest/gtest.h>

#include <regex>
#include <tuple>

#include "HostFixture.h"
#include "PtyProgram.h"

namespace {

using orvix::test::PtyProgram;

const char kClientName[] = "org.orvix.tv.vardell.managerclient.tv";

// The built-in reset's bar with `filled` of its 30 marks, up to the count after it.
std::string Bar(int filled) {
    return "built-in reset           [" + std::string(filled, '#') + std::string(30 - filled, '-') + "] ";
}

class AManagerClient : public orvix::test::HostFixture {
protected:
    // The fixture has set this process's ORVIX_HOST_ROOT.
    static std::unique_ptr<PtyProgram> OnATerminal() {
        return std::make_unique<PtyProgram>(
            std::vector<std::string>{OrvixHostPath(), "client", "tv", "--foreground"});
    }
    // One progress report, as the built-in reset sends it, once a client owns the name (a client just
    // started may not yet); it returns once the client has handled it.
    void Report(int state, int result) const {
        g_autoptr(GDBusConnection) bus = ConnectToBus();
        EXPECT_TRUE(orvix::test::WaitUntil([&] {
            g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
                bus, kClientName, "/org/orvix/tv/vardell/managerclient/tv",
                "org.orvix.tv.vardell.managerclient.interface.tv", "tak_builtin_app_service_reset_result",
                g_variant_new("(iiii)", 7, state, result, 0), nullptr, G_DBUS_CALL_FLAGS_NONE, 20000, nullptr,
                nullptr);
            return reply != nullptr;
        })) << state;
    }
    static bool ShowsLine(PtyProgram& client, const std::string& line) {
        return client.WaitForOutput([&](const std::string&) { return client.CurrentLine() == line; });
    }
};

// One reset after another on one terminal: the bar at the total and a step per app, the count and the time
// at the end; a reset with nothing to do draws no bar at all (neither empty at 500 nor full at 502); the
// next reset starts from its own total.
TEST_F(AManagerClient, DrawsTheBarAtTheTotalAdvancesPerAppAndEndsWithTheCountAndTime) {
    // Each report, and the line under the cursor after it ("": nothing to wait for).
    const std::tuple<int, int, std::string> steps[] = {{500, 3, Bar(0) + "0/3"},
                                                       {501, 1, Bar(10) + "1/3"},
                                                       {501, 2, Bar(20) + "2/3"},
                                                       {501, 3, Bar(30) + "3/3"},
                                                       {502, 0, ""},
                                                       {500, 0, ""},
                                                       {502, 0, ""},
                                                       {500, 2, Bar(0) + "0/2"},
                                                       {502, 0, ""}};
    auto client = OnATerminal();
    for (const auto& [state, result, line] : steps) {
        Report(state, result);
        EXPECT_TRUE(line.empty() || ShowsLine(*client, line))
            << state << ": [" << client->CurrentLine() << "]";
    }
    // What stays on the terminal: one line per reset, the cursor below them.
    std::regex finished(R"(built-in reset +\[#{30}\] 3/3 done in \d+\.\d s\n)"
                        R"(built-in reset: nothing to reset \(in \d+\.\d s\)\n)"
                        R"(built-in reset +\[-{30}\] 0/2 done in \d+\.\d s\n\n$)");
    std::string screen;
    EXPECT_TRUE(client->WaitForOutput([&](const std::string&) {
        screen.clear();
        for (const auto& line : client->Screen()) {
            screen += line + "\n";
        }
        return std::regex_search(screen, finished);
    })) << screen;
    EXPECT_EQ(client->Stop(), 0) << client->Output();
}

// In the foreground it takes over from a background client of the same name (the one the built-in reset
// tests start).
TEST_F(AManagerClient, InTheForegroundTakesOverFromABackgroundClient) {
    ASSERT_EQ(Host({"client", "tv"}).status, 0);
    orvix::host::ProcessId first, second;
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/managerclient.tv.pid", first));
    orvix::test::RunResult again = Host({"client", "tv"});
    EXPECT_EQ(again.out, "managerclient.tv already runs (pid " + std::to_string(first.pid) +
                             "; its progress: orvix-host log managerclient.tv); orvix-host client tv "
                             "--foreground takes it over on this terminal\n");
    auto client = OnATerminal();
    EXPECT_TRUE(client->WaitForOutput([](const std::string& out) {
        return out.find("stopped; this terminal shows its progress") != std::string::npos;
    })) << client->Output();
    EXPECT_FALSE(orvix::host::IsRunning(first));
    Report(500, 1);
    EXPECT_TRUE(ShowsLine(*client, Bar(0) + "0/1")) << client->Output();
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/managerclient.tv.pid", second));
    EXPECT_EQ(second.pid, client->Pid());
}

}  // namespace

// The settings store: the platform interface over the host store, the ICVConf adapter and the tool.
#include <vconf.h>

#include <algorithm>
#include <future>

#include "FoundationTest.h"
#include "ICVConf.h"

namespace {

// Records the completion of an asynchronous set: result, name, type and value of its node.
struct Completion {
    std::promise<std::string> arrived;
    std::thread::id thread;

    static void Callback(int result, keynode_t* node, void* data) {
        auto* self = static_cast<Completion*>(data);
        self->thread = std::this_thread::get_id();
        self->arrived.set_value(std::to_string(result) + " " + vconf_keynode_get_name(node) + " " +
                                std::to_string(vconf_keynode_get_type(node)) + " " +
                                std::to_string(vconf_keynode_get_int(node)));
    }
};

// Records change notifications; they arrive on the thread that pumps the default main context.
struct Changes {
    std::vector<std::string> seen;  // type and text of each
    std::thread::id thread;

    static void Callback(keynode_t* node, void* data) {
        auto* self = static_cast<Changes*>(data);
        const char* text = vconf_keynode_get_str(node);
        self->seen.push_back(std::to_string(vconf_keynode_get_type(node)) + " " +
                             (text != nullptr ? text : ""));
        self->thread = std::this_thread::get_id();
    }
};

RunResult Tool(const std::string& args) {
    return RunProgram(ORVIX_HOST_TOOL, args);
}

using SettingsTest = FoundationTest;

TEST_F(SettingsTest, KeysOutsideTheStoreAndBrokenKeyFilesFail) {
    for (const char* key :
         {"", "other/x", "db", "db/", "db/../escape", "db//x", "db/.hidden", "memory/a b", "/db/x"}) {
        EXPECT_NE(vconf_set_int(key, 1), VCONF_OK) << key;
        EXPECT_NE(vconf_set_int_async(key, 1, nullptr, nullptr), VCONF_OK) << key;
    }
    EXPECT_TRUE(vconf_set_int(nullptr, 1) != VCONF_OK && vconf_get_str(nullptr) == nullptr);
    EXPECT_EQ(TAKDir::FolderSize(root_), 0);

    using namespace std::string_literals;
    for (const std::string& content :
         {""s, "int"s, "int 2\n7"s, "int 1\nx"s, "zzz 1\n1"s, "bool 1\n7"s, "double 3\ninf"s,
          "string 10\nabc"s, "\x01\x02\xff junk"s, "int 11\n99999999999"s, "x"s, "int 1\n"s, "int -1\n"s,
          "string 4\na\0bc"s}) {
        SCOPED_TRACE(testing::Message() << "content [" << content << "]");
        WriteFile(Under("var/lib/vconf/db/foundation/bad"), content);
        int number = 0;
        EXPECT_NE(vconf_get_int("db/foundation/bad", &number), VCONF_OK);
        EXPECT_NE(vconf_get_bool("db/foundation/bad", &number), VCONF_OK);
        EXPECT_EQ(vconf_get_str("db/foundation/bad"), nullptr);
    }
    EXPECT_EQ(Tool("settings|get|db/foundation/bad").status, 1);
}

// The adapter reads and writes each type; a failed get clears a text but leaves a number or a flag as it
// was. An asynchronous set completes on a worker thread with its node; the adapter logs its outcome on
// completion (a write that will fail is still accepted), but never the access token.
TEST_F(SettingsTest, AdapterReadsWritesAndLogsAllButTheAccessToken) {
    std::string text;
    int number = 0;
    bool flag = false;
    EXPECT_TRUE(ICVConf::Set("db/home/homeversion_pkg_id", "org.home", true));
    EXPECT_TRUE(ICVConf::Set("memory/tak/app_change", 1, true));
    EXPECT_TRUE(ICVConf::Set("db/built-in-app-upgrader/server_upgrade", true, true));
    EXPECT_TRUE(ICVConf::Get("db/home/homeversion_pkg_id", text) && text == "org.home");
    EXPECT_TRUE(ICVConf::Get("memory/tak/app_change", number) && number == 1);
    EXPECT_TRUE(ICVConf::Get("db/built-in-app-upgrader/server_upgrade", flag) && flag);

    EXPECT_FALSE(ICVConf::Get("db/appstore/ratingvalue", text));
    EXPECT_EQ(text, "");
    EXPECT_TRUE(LogHas("Failed to get vconf value key=(db/appstore/ratingvalue)"));
    EXPECT_FALSE(ICVConf::Get("db/home/homeversion_pkg_id", number) ||
                 ICVConf::Get("db/home/homeversion_pkg_id", flag));
    EXPECT_TRUE(number == 1 && flag);

    const std::string secret = "tok-3f9a1c77-secret";
    EXPECT_TRUE(ICVConf::Set("db/comss/atoken", secret, true));
    EXPECT_TRUE(ICVConf::Get("db/comss/atoken", text) && text == secret);
    EXPECT_TRUE(ICVConf::Set("db/comss/atoken", secret + "-later", false));
    EXPECT_TRUE(ICVConf::Set("memory/tak/app_group_list_ready", 0, false));
    ASSERT_TRUE(TAKDir::Create(Under("run/vconf/memory")));
    WriteFile(Under("run/vconf/memory/blocked"), "a file where a directory should be");
    EXPECT_TRUE(ICVConf::Set("memory/blocked/key", 5, false));
    // Asynchronous sets are written in submission order: once this one completes, so have all before it.
    Completion barrier;
    ASSERT_EQ(vconf_set_int_async("memory/tak/boot_status", 42, Completion::Callback, &barrier), VCONF_OK);
    std::future<std::string> arrived = barrier.arrived.get_future();
    ASSERT_EQ(arrived.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(arrived.get(), "0 memory/tak/boot_status " + std::to_string(VCONF_TYPE_INT) + " 42");
    EXPECT_NE(barrier.thread, std::this_thread::get_id());
    EXPECT_TRUE(vconf_get_int("memory/tak/boot_status", &number) == VCONF_OK && number == 42);

    EXPECT_TRUE(ICVConf::Get("db/comss/atoken", text) && text == secret + "-later");
    EXPECT_TRUE(LogHas("succeeded to set key = memory/tak/app_group_list_ready, value = 0(int)\n"));
    EXPECT_TRUE(LogHas("failed to set (memory/blocked/key:5)"));
    EXPECT_FALSE(ICVConf::Set("memory/blocked/key", 5, true));
    EXPECT_TRUE(LogHas("Failed to set vconf value key=(memory/blocked/key)"));
    EXPECT_FALSE(LogHas("tok-3f9a1c77"));
}

// A change made by another process (the tool) reaches a callback on the main context, also when it was
// registered on a worker thread; an ignored key's callback is not called. Changes arrive in the order
// they happened: once the second key's change is seen, one of the first key would have been seen.
TEST_F(SettingsTest, ChangesByAnotherProcessReachTheCallbacksOnTheMainContext) {
    Changes ignored;
    Changes watched;
    std::thread([&] {
        EXPECT_EQ(vconf_notify_key_changed("memory/tak/biu_updating_app", Changes::Callback, &watched),
                  VCONF_OK);
    }).join();
    // The same callback on another key: ignoring that one must leave the first watch alone.
    ASSERT_EQ(vconf_notify_key_changed("memory/foundation/first", Changes::Callback, &ignored), VCONF_OK);
    ASSERT_EQ(vconf_ignore_key_changed("memory/foundation/first", Changes::Callback), VCONF_OK);

    ASSERT_EQ(Tool("settings|set|memory/foundation/first|a").status, 0);
    ASSERT_EQ(Tool("settings|set|memory/tak/biu_updating_app|org.pkg.one").status, 0);
    // The notifications are dispatched by the default main context, which nothing else iterates here.
    ASSERT_TRUE(orvix::test::WaitUntil(
        [&] { return g_main_context_iteration(nullptr, FALSE), !watched.seen.empty(); }));
    EXPECT_EQ(watched.seen, std::vector<std::string>{std::to_string(VCONF_TYPE_STRING) + " org.pkg.one"});
    EXPECT_EQ(watched.thread, std::this_thread::get_id());
    EXPECT_TRUE(ignored.seen.empty());
    EXPECT_EQ(vconf_ignore_key_changed("memory/tak/biu_updating_app", Changes::Callback), VCONF_OK);
}

TEST_F(SettingsTest, ToolSetsAndGetsButRefusesBadInputWithOneLineAndChangesNothing) {
    ASSERT_EQ(Tool("settings|set|-t|int|db/f/x|7").status, 0);
    EXPECT_EQ(Tool("settings|get|db/f/x").out, "7\n");
    std::string before = ReadFile(Under("var/lib/vconf/db/f/x"));
    for (const char* args :
         {"settings|set|-t|float|db/f/x|1", "settings|set|-t|int|db/f/x|12x",
          "settings|set|-t|int|db/f/x|2147483648", "settings|set|-t|int|db/f/x|",
          "settings|set|-t|bool|db/f/x|yes", "settings|set|-t|double|db/f/x|nan",
          "settings|set|-t|double|db/f/x|1e999", "settings|set|db/f/x|not a number", "settings|set|db/f/x",
          "settings|set|-t", "settings|set|-t|int|db/f/x|1|extra", "settings|get", "settings",
          "settings|frob|db/f/x", "bogus", "", "settings|set|other/key|1", "settings|get|db/f/missing"}) {
        RunResult result = Tool(args);
        SCOPED_TRACE(std::string(args) + ": " + result.err);
        EXPECT_NE(result.status, 0);
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
        EXPECT_EQ(ReadFile(Under("var/lib/vconf/db/f/x")), before);
    }
    EXPECT_FALSE(TAKFile::Exists(Under("var/lib/vconf/db/f/missing")));
}

}  // namespace

#include <sys/stat.h>
#include <vconf.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "FoundationTest.h"
#include "ICVConf.h"
#include "TAKDir.h"
#include "TAKFile.h"

namespace foundation {
namespace {

// Records the completion of an asynchronous set; Wait() blocks (bounded) until it came.
struct Completion {
    std::mutex lock;
    std::condition_variable arrived;
    bool done = false;
    int result = -99;
    std::string name;
    int type = 0;
    int intValue = 0;
    std::thread::id thread;

    static void Callback(int result, keynode_t* node, void* data) {
        auto* self = static_cast<Completion*>(data);
        std::lock_guard<std::mutex> guard(self->lock);
        self->result = result;
        self->name = vconf_keynode_get_name(node);
        self->type = vconf_keynode_get_type(node);
        self->intValue = vconf_keynode_get_int(node);
        self->thread = std::this_thread::get_id();
        self->done = true;
        self->arrived.notify_all();
    }

    bool Wait() {
        std::unique_lock<std::mutex> guard(lock);
        return arrived.wait_for(guard, std::chrono::seconds(20), [this] { return done; });
    }
};

// Records change notifications; they arrive on the thread that pumps the default main context.
struct Changes {
    std::vector<std::string> strings;
    std::vector<int> ints;
    std::vector<int> types;
    std::thread::id thread;

    static void Callback(keynode_t* node, void* data) {
        auto* self = static_cast<Changes*>(data);
        self->types.push_back(vconf_keynode_get_type(node));
        const char* text = vconf_keynode_get_str(node);
        self->strings.push_back(text != nullptr ? text : "");
        self->ints.push_back(vconf_keynode_get_int(node));
        self->thread = std::this_thread::get_id();
    }
    static void Other(keynode_t* node, void* data) { Callback(node, data); }
};

class SettingsTest : public FoundationTest {
protected:
    // Every asynchronous set is written in submission order, so once this one completes, every set
    // submitted before it has completed too.
    void WaitForEarlierAsyncSets() {
        Completion barrier;
        ASSERT_EQ(vconf_set_int_async("memory/foundation/barrier", 1, Completion::Callback, &barrier),
                  VCONF_OK);
        ASSERT_TRUE(barrier.Wait());
    }

    RunResult Settings(const std::vector<std::string>& args) {
        std::vector<std::string> argv = {ORVIX_HOST_TOOL};
        argv.insert(argv.end(), args.begin(), args.end());
        return RunProgram(argv);
    }

    bool LogHas(const std::string& text) const { return Log().find(text) != std::string::npos; }
};

TEST_F(SettingsTest, EachTypeRoundTripsThroughTheStore) {
    const int ints[] = {0, 1, -1, INT_MAX, INT_MIN};
    for (int value : ints) {
        ASSERT_EQ(vconf_set_int("db/tak/factory_reset", value), VCONF_OK);
        int read = 12345;
        ASSERT_EQ(vconf_get_int("db/tak/factory_reset", &read), VCONF_OK);
        EXPECT_EQ(read, value);
    }
    ASSERT_EQ(vconf_set_bool("db/setting/accessibility/tts", 7), VCONF_OK);
    int flag = 0;
    ASSERT_EQ(vconf_get_bool("db/setting/accessibility/tts", &flag), VCONF_OK);
    EXPECT_EQ(flag, 1);
    const double reals[] = {0.1, -2.5e-300, 1e300, 0.0};
    for (double value : reals) {
        ASSERT_EQ(vconf_set_dbl("memory/foundation/real", value), VCONF_OK);
        double read = 99;
        ASSERT_EQ(vconf_get_dbl("memory/foundation/real", &read), VCONF_OK);
        EXPECT_EQ(read, value);
    }
    const std::string texts[] = {"", "plain", "two\nlines and \"quotes\"", "\xe2\x82\xac uni",
                                 std::string(70000, 'z')};
    for (const std::string& value : texts) {
        ASSERT_EQ(vconf_set_str("db/tak/btgid", value.c_str()), VCONF_OK);
        char* read = vconf_get_str("db/tak/btgid");
        ASSERT_NE(read, nullptr);
        EXPECT_EQ(read, value);
        free(read);
    }
    EXPECT_TRUE(TAKFile::IsFile(Under("var/lib/vconf/db/tak/factory_reset")));
    EXPECT_TRUE(TAKFile::IsFile(Under("run/vconf/memory/foundation/real")));
}

TEST_F(SettingsTest, AdapterReadsAndWritesEachType) {
    EXPECT_TRUE(ICVConf::Set("db/home/homeversion_pkg_id", "org.home", true));
    EXPECT_TRUE(ICVConf::Set("memory/tak/app_change", 1, true));
    EXPECT_TRUE(ICVConf::Set("db/built-in-app-upgrader/server_upgrade", true, true));
    char mutableText[] = "mutable";
    EXPECT_TRUE(ICVConf::Set("db/dotnet-tv/orvix_api_version", mutableText, true));

    std::string text = "stale";
    int number = 0;
    bool flag = false;
    EXPECT_TRUE(ICVConf::Get("db/home/homeversion_pkg_id", text));
    EXPECT_EQ(text, "org.home");
    EXPECT_TRUE(ICVConf::Get("memory/tak/app_change", number));
    EXPECT_EQ(number, 1);
    EXPECT_TRUE(ICVConf::Get("db/built-in-app-upgrader/server_upgrade", flag));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(ICVConf::Get("db/dotnet-tv/orvix_api_version", text));
    EXPECT_EQ(text, "mutable");
    EXPECT_TRUE(LogHas("vconf key=(memory/tak/app_change) value=(1)."));
    EXPECT_TRUE(LogHas("vconf key=(db/home/homeversion_pkg_id) value=(org.home)."));

    const char* nullText = nullptr;
    EXPECT_FALSE(ICVConf::Set("db/tak/btgid", nullText, true));
    EXPECT_FALSE(TAKFile::Exists(Under("var/lib/vconf/db/tak/btgid")));
}

TEST_F(SettingsTest, FailedGetsClearOrKeepTheOutputAndLog) {
    std::string text = "stale";
    EXPECT_FALSE(ICVConf::Get("db/appstore/ratingvalue", text));
    EXPECT_EQ(text, "");
    EXPECT_TRUE(LogHas("Failed to get vconf value key=(db/appstore/ratingvalue)"));

    ASSERT_EQ(vconf_set_str("db/menu/time-to-take-action", "text"), VCONF_OK);
    int number = 77;
    EXPECT_FALSE(ICVConf::Get("db/menu/time-to-take-action", number));
    EXPECT_EQ(number, 77);
    bool flag = true;
    EXPECT_FALSE(ICVConf::Get("db/menu/time-to-take-action", flag));
    EXPECT_TRUE(flag);
}

TEST_F(SettingsTest, BrokenKeyFilesReadAsFailedGets) {
    const std::string contents[] = {
        "",
        "int",
        "int 1\n",
        "int 2\n7",
        "string 10\nabc",
        "bool 1\n7",
        "int 1\nx",
        "zzz 1\n1",
        "int -1\n",
        "int 11\n99999999999",
        std::string("string 4\na\0bc", 13),
        "\x01\x02\xff garbage",
        "double 3\ninf",
    };
    std::string file = Under("var/lib/vconf/db/foundation/bad");
    ASSERT_TRUE(TAKDir::Create(Under("var/lib/vconf/db/foundation")));
    for (const std::string& content : contents) {
        SCOPED_TRACE(testing::Message() << "content [" << content << "]");
        WriteFile(file, content);
        int number = 0;
        double real = 0;
        EXPECT_NE(vconf_get_int("db/foundation/bad", &number), VCONF_OK);
        EXPECT_NE(vconf_get_bool("db/foundation/bad", &number), VCONF_OK);
        EXPECT_NE(vconf_get_dbl("db/foundation/bad", &real), VCONF_OK);
        EXPECT_EQ(vconf_get_str("db/foundation/bad"), nullptr);
        std::string text = "stale";
        EXPECT_FALSE(ICVConf::Get("db/foundation/bad", text));
        EXPECT_EQ(text, "");
    }
    RunResult result = Settings({"settings", "get", "db/foundation/bad"});
    EXPECT_EQ(result.exitCode, 1);

    ASSERT_TRUE(TAKDir::Create(Under("var/lib/vconf/db/foundation/adir")));
    EXPECT_EQ(vconf_get_str("db/foundation/adir"), nullptr);
}

TEST_F(SettingsTest, KeysOutsideTheStoreAreRefused) {
    const char* keys[] = {"",      "other/x",    "db",         "db/",  "db/../escape",
                          "db//x", "db/.hidden", "memory/a b", "/db/x"};
    for (const char* key : keys) {
        EXPECT_NE(vconf_set_int(key, 1), VCONF_OK) << key;
        EXPECT_NE(vconf_set_int_async(key, 1, nullptr, nullptr), VCONF_OK) << key;
    }
    EXPECT_NE(vconf_set_int(nullptr, 1), VCONF_OK);
    EXPECT_EQ(vconf_get_str(nullptr), nullptr);
    EXPECT_EQ(TAKDir::FolderSize(root_), 0);
}

TEST_F(SettingsTest, AsyncSetCompletesOnAWorkerThreadWithTheNode) {
    Completion completion;
    ASSERT_EQ(vconf_set_int_async("memory/tak/boot_status", 42, Completion::Callback, &completion), VCONF_OK);
    ASSERT_TRUE(completion.Wait());
    EXPECT_EQ(completion.result, 0);
    EXPECT_NE(completion.thread, std::this_thread::get_id());
    EXPECT_EQ(completion.name, "memory/tak/boot_status");
    EXPECT_EQ(completion.type, VCONF_TYPE_INT);
    EXPECT_EQ(completion.intValue, 42);
    int read = 0;
    ASSERT_EQ(vconf_get_int("memory/tak/boot_status", &read), VCONF_OK);
    EXPECT_EQ(read, 42);
}

TEST_F(SettingsTest, AdapterLogsTheOutcomeOfAsyncSets) {
    EXPECT_TRUE(ICVConf::Set("memory/tak/app_group_list_ready", 0, false));
    EXPECT_TRUE(ICVConf::Set("db/tak/app_canary_id_list", "", false));
    EXPECT_TRUE(ICVConf::Set("memory/foundation/flag", true, false));
    // A write that will fail is still accepted: the failure shows only in the completion's log.
    ASSERT_TRUE(TAKDir::Create(Under("run/vconf/memory")));
    WriteFile(Under("run/vconf/memory/blocked"), "a file where a directory should be");
    EXPECT_TRUE(ICVConf::Set("memory/blocked/key", 5, false));
    WaitForEarlierAsyncSets();

    EXPECT_TRUE(LogHas("succeeded to set key = memory/tak/app_group_list_ready, value = 0(int)\n"));
    EXPECT_TRUE(LogHas("succeeded to set key = db/tak/app_canary_id_list, value = (string)\n"));
    EXPECT_TRUE(LogHas("succeeded to set key = memory/foundation/flag, value = 1(bool)\n"));
    EXPECT_TRUE(LogHas("failed to set (memory/blocked/key:5)"));

    EXPECT_FALSE(ICVConf::Set("memory/blocked/key", 5, true));
    EXPECT_TRUE(LogHas("Failed to set vconf value key=(memory/blocked/key)"));
}

TEST_F(SettingsTest, AccessTokenNeverReachesTheLog) {
    const std::string secret = "tok-3f9a1c77-secret";
    EXPECT_TRUE(ICVConf::Set("db/comss/atoken", secret, true));
    std::string read;
    EXPECT_TRUE(ICVConf::Get("db/comss/atoken", read));
    EXPECT_EQ(read, secret);
    EXPECT_TRUE(ICVConf::Set("db/comss/atoken", secret + "-later", false));
    WaitForEarlierAsyncSets();
    EXPECT_TRUE(ICVConf::Get("db/comss/atoken", read));
    EXPECT_EQ(read, secret + "-later");

    // The log is written all along: a neighbouring key shows up with its value.
    EXPECT_TRUE(ICVConf::Set("db/comss/other", "visible-value", true));
    EXPECT_TRUE(LogHas("visible-value"));
    EXPECT_FALSE(LogHas("tok-3f9a1c77"));
}

TEST_F(SettingsTest, ChangeByAnotherProcessReachesTheCallbackOnTheMainContext) {
    Changes changes;
    ASSERT_EQ(vconf_notify_key_changed("memory/tak/biu_updating_app", Changes::Callback, &changes), VCONF_OK);

    RunResult set = Settings({"settings", "set", "memory/tak/biu_updating_app", "org.pkg.one"});
    ASSERT_EQ(set.exitCode, 0) << set.err;
    ASSERT_TRUE(PumpUntil([&] { return !changes.strings.empty(); }));
    EXPECT_EQ(changes.strings[0], "org.pkg.one");
    EXPECT_EQ(changes.types[0], VCONF_TYPE_STRING);
    EXPECT_EQ(changes.thread, std::this_thread::get_id());

    EXPECT_EQ(vconf_ignore_key_changed("memory/tak/biu_updating_app", Changes::Callback), VCONF_OK);
    EXPECT_NE(vconf_ignore_key_changed("memory/tak/biu_updating_app", Changes::Callback), VCONF_OK);
}

TEST_F(SettingsTest, WatchRegisteredOnAWorkerThreadIsStillServedOnTheMainContext) {
    Changes changes;
    int registered = VCONF_ERROR;
    std::thread worker([&] {
        registered =
            vconf_notify_key_changed("memory/setting-sync/aot_svc_ready", Changes::Callback, &changes);
    });
    worker.join();
    ASSERT_EQ(registered, VCONF_OK);

    RunResult set = Settings({"settings", "set", "-t", "int", "memory/setting-sync/aot_svc_ready", "1"});
    ASSERT_EQ(set.exitCode, 0) << set.err;
    ASSERT_TRUE(PumpUntil([&] { return !changes.ints.empty(); }));
    EXPECT_EQ(changes.ints[0], 1);
    EXPECT_EQ(changes.types[0], VCONF_TYPE_INT);
    EXPECT_EQ(changes.thread, std::this_thread::get_id());
    vconf_ignore_key_changed("memory/setting-sync/aot_svc_ready", Changes::Callback);
}

TEST_F(SettingsTest, IgnoredKeyIsNoLongerCalled) {
    Changes ignored;
    Changes watched;
    ASSERT_EQ(vconf_notify_key_changed("memory/foundation/first", Changes::Callback, &ignored), VCONF_OK);
    ASSERT_EQ(vconf_notify_key_changed("memory/foundation/second", Changes::Other, &watched), VCONF_OK);
    ASSERT_EQ(vconf_ignore_key_changed("memory/foundation/first", Changes::Callback), VCONF_OK);

    // Changes reach the main context in the order they happened: once the second key's change is
    // seen, a change of the first key would have been seen before it.
    ASSERT_EQ(Settings({"settings", "set", "memory/foundation/first", "a"}).exitCode, 0);
    ASSERT_EQ(Settings({"settings", "set", "memory/foundation/second", "b"}).exitCode, 0);
    ASSERT_TRUE(PumpUntil([&] { return !watched.strings.empty(); }));
    EXPECT_TRUE(ignored.strings.empty());
    vconf_ignore_key_changed("memory/foundation/second", Changes::Other);
}

TEST_F(SettingsTest, ToolWritesAndReadsEveryType) {
    EXPECT_EQ(Settings({"settings", "set", "-t", "int", "db/tak/factory_reset", "1"}).exitCode, 0);
    EXPECT_EQ(Settings({"settings", "get", "db/tak/factory_reset"}).out, "1\n");
    EXPECT_EQ(Settings({"settings", "set", "-t", "bool", "db/f/b", "true"}).exitCode, 0);
    EXPECT_EQ(Settings({"settings", "get", "db/f/b"}).out, "true\n");
    EXPECT_EQ(Settings({"settings", "set", "-t", "double", "db/f/d", "0.25"}).exitCode, 0);
    EXPECT_EQ(Settings({"settings", "get", "db/f/d"}).out, "0.25\n");
    EXPECT_EQ(Settings({"settings", "set", "db/f/s", "two words; $(no shell)"}).exitCode, 0);
    EXPECT_EQ(Settings({"settings", "get", "db/f/s"}).out, "two words; $(no shell)\n");

    // Without -t an existing key keeps its type.
    EXPECT_EQ(Settings({"settings", "set", "db/tak/factory_reset", "-3"}).exitCode, 0);
    int number = 0;
    ASSERT_EQ(vconf_get_int("db/tak/factory_reset", &number), VCONF_OK);
    EXPECT_EQ(number, -3);
}

TEST_F(SettingsTest, ToolRefusesBadInputWithOneLineAndChangesNothing) {
    ASSERT_EQ(vconf_set_int("db/f/x", 7), VCONF_OK);
    std::string before = ReadFile(Under("var/lib/vconf/db/f/x"));
    const std::vector<std::vector<std::string>> bad = {
        {"settings", "set", "-t", "float", "db/f/x", "1"},
        {"settings", "set", "-t", "int", "db/f/x", "12x"},
        {"settings", "set", "-t", "int", "db/f/x", "2147483648"},
        {"settings", "set", "-t", "int", "db/f/x", ""},
        {"settings", "set", "-t", "bool", "db/f/x", "yes"},
        {"settings", "set", "-t", "double", "db/f/x", "nan"},
        {"settings", "set", "-t", "double", "db/f/x", "1e999"},
        {"settings", "set", "db/f/x", "not a number"},
        {"settings", "set", "db/f/x"},
        {"settings", "set", "-t"},
        {"settings", "set", "-t", "int", "db/f/x", "1", "extra"},
        {"settings", "get"},
        {"settings"},
        {"settings", "frob", "db/f/x"},
        {"bogus"},
        {},
    };
    for (const auto& args : bad) {
        RunResult result = Settings(args);
        std::string shown;
        for (const std::string& arg : args) {
            shown += arg + " ";
        }
        EXPECT_NE(result.exitCode, 0) << shown;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << shown << ": " << result.err;
        EXPECT_EQ(ReadFile(Under("var/lib/vconf/db/f/x")), before) << shown;
    }
    EXPECT_NE(Settings({"settings", "set", "other/key", "1"}).exitCode, 0);
    EXPECT_NE(Settings({"settings", "get", "db/f/missing"}).exitCode, 0);
    EXPECT_FALSE(TAKFile::Exists(Under("var/lib/vconf/db/f/missing")));
}

}  // namespace
}  // namespace foundation

// The configuration table: single keys and the reset of exactly its 26 keys.
#include <gtest/gtest.h>

#include "AppDBInfo.h"
#include "DbTestSupport.h"
#include "TAKConfig.h"
#include "TAKDBConnection.h"

using namespace dbtest;

namespace {

const std::vector<std::string> kResetKeys = {
    "SYNC_STATE",
    "RESERVED_2",
    "RESERVED_8",
    "RESERVED_14",
    "RESERVED_24",
    "RESERVED_18",
    "RESERVED_31",
    "RESERVED_15",
    "RESERVED_25",
    "RESERVED_10",
    "RESERVED_20",
    "UNINSTALLED_APPS_INFO",
    "RESERVED_4",
    "RESERVED_34",
    "RESERVED_35",
    "API_APPS_DURING_INIT",
    "PRIORITY_LIST_ETAG",
    "PRIORITY_LIST_INFO",
    "HOME_PRIORITY_LIST_ETAG",
    "HOME_PRIORITY_LIST_INFO",
    "RESERVED_26",
    "RESERVED_27",
    "RESERVED_36",
    "RESERVED_37",
    "TOKEN_DISCARDED_APPS",
    "GOOGLECAST_STATUS",
};

// Every key a device may hold: the reset keys, the keys added at start and every numbered slot.
std::map<std::string, std::string> FullConfiguration() {
    std::map<std::string, std::string> rows;
    for (int i = 1; i <= 40; ++i) {
        rows["RESERVED_" + std::to_string(i)] = "slot " + std::to_string(i);
    }
    for (const char* key :
         {"SYNC_STATE", "RESET_TYPE", "API_APPS_DURING_INIT", "PRIORITY_LIST_ETAG", "PRIORITY_LIST_INFO",
          "HOME_PRIORITY_LIST_ETAG", "HOME_PRIORITY_LIST_INFO", "KORBIT_SYNC_STATE", "UNINSTALLED_APPS_INFO",
          "TOKEN_DISCARDED_APPS", "GOOGLECAST_STATUS", "HOME_TEST_LIST"}) {
        rows[key] = std::string("value of ") + key;
    }
    return rows;
}

class ConfigTest : public DbTest {
protected:
    void SetUp() override {
        DbTest::SetUp();
        ASSERT_TRUE(InsertConfigRows(DBPath(), FullConfiguration()));
        ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    }
};

}  // namespace

TEST(ConfigKeys, ResetListIsTheTwentySixKeysInOrder) {
    ASSERT_EQ(CTAKConfig::RESET_KEY_COUNT, kResetKeys.size());
    for (unsigned i = 0; i < CTAKConfig::RESET_KEY_COUNT; ++i) {
        EXPECT_EQ(CTAKConfig::RESET_KEYS[i], kResetKeys[i]) << i;
    }
}

TEST_F(ConfigTest, ResetTouchesExactlyItsKeys) {
    CTAKConfig config;
    ASSERT_TRUE(config.Reset());
    std::map<std::string, std::string> expected = FullConfiguration();
    for (const auto& key : kResetKeys) {
        expected[key] = "";
    }
    expected["SYNC_STATE"] = "0";
    EXPECT_EQ(ReadConfigRows(DBPath()), expected);
    EXPECT_EQ(ReadConfigRows(DBPath())["RESET_TYPE"], "value of RESET_TYPE");
    EXPECT_EQ(ReadConfigRows(DBPath())["KORBIT_SYNC_STATE"], "value of KORBIT_SYNC_STATE");
    EXPECT_EQ(ReadConfigRows(DBPath())["HOME_TEST_LIST"], "value of HOME_TEST_LIST");
    // One backup, after the whole reset.
    EXPECT_EQ(ReadConfigRows(BackupDBPath()), expected);
}

TEST_F(ConfigTest, ResetOfKeysWithoutRowsAddsNothing) {
    ASSERT_TRUE(ExecSql(DBPath(), "delete from TAKConfigTable where name like 'RESERVED_%'"));
    CTAKConfig config;
    EXPECT_TRUE(config.Reset());
    std::map<std::string, std::string> rows = ReadConfigRows(DBPath());
    EXPECT_EQ(rows.count("RESERVED_2"), 0u);
    EXPECT_EQ(rows["SYNC_STATE"], "0");
}

TEST_F(ConfigTest, FailedResetGoesOnButMakesNoBackup) {
    // A trigger that refuses one key in the middle of the list.
    ASSERT_TRUE(ExecSql(DBPath(),
                        "create trigger refuse before update on TAKConfigTable when old.name = 'RESERVED_34' "
                        "begin select raise(abort, 'refused'); end"));
    CTAKConfig config;
    ASSERT_TRUE(config.UpdateConfig("RESET_TYPE", "backed up"));
    ASSERT_EQ(ReadConfigRows(BackupDBPath())["RESERVED_35"], "slot 35");

    LogMark mark;
    EXPECT_FALSE(config.Reset());
    EXPECT_EQ(mark.CountMessages("reset config [RESERVED_34] failed"), 1);
    std::map<std::string, std::string> rows = ReadConfigRows(DBPath());
    EXPECT_EQ(rows["RESERVED_34"], "slot 34");
    EXPECT_EQ(rows["RESERVED_35"], "");  // the keys after the failed one were still cleared
    EXPECT_EQ(rows["GOOGLECAST_STATUS"], "");
    // The backup still holds the state before the reset.
    std::map<std::string, std::string> backup = ReadConfigRows(BackupDBPath());
    EXPECT_EQ(backup["RESERVED_35"], "slot 35");
    EXPECT_EQ(backup["RESET_TYPE"], "backed up");
}

TEST_F(ConfigTest, SingleKeys) {
    CTAKConfig config;
    std::string value;
    ASSERT_TRUE(config.GetConfig("RESET_TYPE", value));
    EXPECT_EQ(value, "value of RESET_TYPE");
    EXPECT_FALSE(config.GetConfig("NO_SUCH_KEY", value));

    const std::string odd = "it's \"odd\" – ünï 日本 ";
    ASSERT_TRUE(config.UpdateConfig("HOME_TEST_LIST", odd));
    ASSERT_TRUE(config.GetConfig("HOME_TEST_LIST", value));
    EXPECT_EQ(value, odd);
    EXPECT_EQ(ReadConfigRows(BackupDBPath())["HOME_TEST_LIST"], odd);

    // An update of a key without a row changes nothing and still counts as done.
    EXPECT_TRUE(config.UpdateConfig("NO_SUCH_KEY", "x"));
    EXPECT_EQ(ReadConfigRows(DBPath()).count("NO_SUCH_KEY"), 0u);

    ASSERT_TRUE(config.UpdateAppSyncConfig("2"));
    ASSERT_TRUE(config.GetAppSyncConfig(value));
    EXPECT_EQ(value, "2");
    ASSERT_TRUE(CAppDBInfo::GetAppSyncConfig(value));
    EXPECT_EQ(value, "2");
}

TEST_F(ConfigTest, InsertPastesItsValues) {
    CTAKConfig config;
    ASSERT_TRUE(config.InsertConfig("NEW_KEY", "new value"));
    std::string value;
    ASSERT_TRUE(config.GetConfig("NEW_KEY", value));
    EXPECT_EQ(value, "new value");
    // A quote breaks the pasted statement: the insert fails and adds nothing.
    EXPECT_FALSE(config.InsertConfig("QUOTED", "it's"));
    EXPECT_FALSE(config.GetConfig("QUOTED", value));
    // A second row for a key is refused.
    EXPECT_FALSE(config.InsertConfig("NEW_KEY", "again"));
}

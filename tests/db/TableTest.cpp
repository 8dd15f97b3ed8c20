// Table access and the configuration table: the generated SQL texts, Select's one-row rule, truncation,
// the busy handler, single keys, the reset of exactly its 26 keys and what is read from the table.
#include <algorithm>
#include <chrono>
#include <functional>

#include "AppDatabaseSeed.h"
#include "DbTestSupport.h"
#include "TAKConfig.h"
#include "TAKDBTable.h"
#include "TAKUtil.h"
#include "WidgetInfoDB.h"

using namespace dbtest;

namespace {

// Opens the deletion to the tests; it holds the table lock as a real operation would.
class CTestTable : public CTAKDBTable {
public:
    explicit CTestTable(const std::string& name = "widgetinfo") : CTAKDBTable(name) {}
    bool DeleteByPrimaryKey(const std::string& key, const std::string& value) {
        CStatementLock lock;
        return m_DeleteByPrimaryKey(key, value);
    }
    using CTAKDBTable::m_GenerateInsertCmd;
    using CTAKDBTable::m_GenerateSelectCmd;
    using CTAKDBTable::m_GenerateTruncateCmd;
    using CTAKDBTable::m_GenerateUpdateCmd;
};

// A value that, pasted between quotes, would turn a statement about one row into one about every row.
const std::string kRewriting = "x' or '1'='1";

// Two apps "a" and "b" (in that order) and one configuration row, over an open connection.
class TableTest : public DbTest {
protected:
    void SetUp() override {
        DbTest::SetUp();
        ASSERT_TRUE(InsertApps(DBPath(), {DistinctRecord("a", 1), DistinctRecord("b", 2)}) &&
                    InsertConfigRows(DBPath(), {{"RESET_TYPE", "1"}}));
        ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    }
    CTestTable m_Table;
};

class ConfigTest : public DbTest {
protected:
    // A seeded file: every reset key and numbered slot holds a value of its own; so do the keys a reset
    // keeps.
    void SetUp() override {
        DbTest::SetUp();
        ASSERT_TRUE(SeedAppDatabase(24));  // enough apps for both preinstalled lists
        // The seed leaves the Home test list and the built-in reset's two lists empty, as on a TV never
        // reset; here they hold something, so that clearing one by mistake shows.
        ASSERT_TRUE(InsertConfigRows(DBPath(), {{"RESET_TYPE", "2"},
                                                {"KORBIT_SYNC_STATE", "1"},
                                                {"HOME_TEST_LIST", "x"},
                                                {"RESERVED_16", "t,pkg.t"},
                                                {"RESERVED_17", "done"}}));
        ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
        m_Before = ReadConfigRows(DBPath());
    }

    std::map<std::string, std::string> m_Before;

    static std::string Config(const std::string& key) {
        std::string value;
        return CTAKConfig().GetConfig(key, value) ? value : "<none>";
    }
};

}  // namespace

TEST_F(TableTest, TruncateAndDeleteWhatTheirTextsSay) {
    ASSERT_TRUE(InsertApps(DBPath(), {DistinctRecord("3201903017943", 3), DistinctRecord("c", 4)}));
    LogMark mark;
    EXPECT_FALSE(m_Table.Truncate({{"a", ""}}, true) || m_Table.Truncate({}, true));
    EXPECT_TRUE(mark.Contains("unknow type 1"));
    // Deletion pastes the value without blanks; a quote in it breaks the statement and deletes nothing.
    EXPECT_TRUE(m_Table.DeleteByPrimaryKey("id", "b"));
    EXPECT_TRUE(mark.Contains("sql delete from widgetinfo where id='b'"));
    EXPECT_FALSE(m_Table.DeleteByPrimaryKey("id", "it's"));
    EXPECT_EQ(ReadAppIds(DBPath()), (std::vector<std::string>{"3201903017943", "a", "c"}));
    EXPECT_TRUE(m_Table.Truncate({{"a", ""}, {"c", ""}}, false));
    EXPECT_EQ(ReadAppIds(DBPath()), (std::vector<std::string>{"a", "c"}));
    EXPECT_TRUE(m_Table.Truncate({}, false));  // deletes every row with an id
    EXPECT_TRUE(ReadAppIds(DBPath()).empty());
}

TEST(TableTexts, GeneratedByteForByte) {
    CTestTable table("T");
    const std::pair<std::string, std::string> texts[] = {
        {table.m_GenerateUpdateCmd("", "c", "v; x,\n\xff"), "update T set c = 'v; x,\n\xff'"},
        {table.m_GenerateUpdateCmd("a b", "c", "v"), "update T set c = 'v' where ID = 'a b'"},
        {table.m_GenerateUpdateCmd("", "c", -7), "update T set c = -7"},
        {table.m_GenerateUpdateCmd("i\"d", "c", 42), "update T set c = 42 where ID = 'i\"d'"},
        {table.m_GenerateInsertCmd("c", "v"), "insert into T ( c ) values ('v')"},
        {table.m_GenerateInsertCmd("c", 3), "insert into T ( c ) values (3)"},
        {table.m_GenerateSelectCmd("i;d", "c"), "select c from T where  ID='i;d'"},
        {table.m_GenerateSelectCmd("", "c"), "select c from T"},
        {table.m_GenerateTruncateCmd({{"a", ""}, {"b", ""}}, false),
         "delete from T  where id not in ('a','b')"},
        {table.m_GenerateTruncateCmd({}, false), "delete from T  where id not in ('')"},
        {table.m_GenerateTruncateCmd({{"a", ""}}, true),
         "delete from T  where id not in ('a, '3201903017943', '3201904018125', '3202001019917'')"},
    };
    for (const auto& [made, expected] : texts) {
        EXPECT_EQ(made, expected);
    }
}

// Every operation that pastes a value refuses one holding a quote, with one line, and touches nothing:
// "x' or '1'='1" would otherwise match every row.
TEST_F(TableTest, AValueWithAQuoteIsRefusedAndTouchesNothing) {
    const std::vector<std::string> apps = ReadAppIds(DBPath());
    const std::map<std::string, std::string> config = ReadConfigRows(DBPath());
    std::string text = "untouched";
    int number = -1;
    const std::pair<const char*, std::function<bool()>> operations[] = {
        {"delete", [&] { return m_Table.DeleteByPrimaryKey("id", kRewriting); }},
        {"update id", [&] { return m_Table.Update(kRewriting, "title", "t"); }},
        {"update value", [&] { return m_Table.Update("", "title", kRewriting); }},
        {"update number", [&] { return m_Table.Update(kRewriting, "app_index", 9); }},
        {"select text", [&] { return m_Table.Select(kRewriting, "title", text); }},
        {"select number", [&] { return m_Table.Select(kRewriting, "app_index", number); }},
        {"exists", [&] { return m_Table.IsPrimaryKeyExists("id", kRewriting); }},
        {"truncate",
         [&] {
             return m_Table.Truncate({{"a", ""}, {kRewriting, ""}}, false);
         }},
        {"insert config", [&] { return CTAKConfig().InsertConfig("K", kRewriting); }},
    };
    for (const auto& [name, operation] : operations) {
        LogMark mark;
        EXPECT_FALSE(operation()) << name;
        std::string logged = mark.Text();
        size_t first = logged.find("holds a single quote");
        EXPECT_TRUE(first != std::string::npos &&
                    logged.find("holds a single quote", first + 1) == std::string::npos)
            << name << ": " << logged;
    }
    EXPECT_EQ(ReadAppIds(DBPath()), apps);
    EXPECT_EQ(ReadConfigRows(DBPath()), config);
    EXPECT_TRUE(text == "untouched" && number == -1);
    EXPECT_TRUE(SameRecord(DistinctRecord("a", 1), ReadApp("a")));
}

TEST_F(TableTest, SelectStoresTheFirstRowAndSucceedsOnlyForOne) {
    const _APPINFO_T first = DistinctRecord("a", 1), second = DistinctRecord("b", 2);
    std::string title;
    int index = -1;
    EXPECT_TRUE(m_Table.Select("b", "title", title) && m_Table.Select("b", "app_index", index));
    EXPECT_EQ(title + "|" + std::to_string(index), second.title + "|" + std::to_string(second.app_index));
    // An empty id selects from the whole table, without a condition.
    EXPECT_FALSE(m_Table.Select("", "app_index", index));
    EXPECT_FALSE(m_Table.Select("", "title", title));
    EXPECT_EQ(title + "|" + std::to_string(index), first.title + "|" + std::to_string(first.app_index));
    // That left the statement on a row; a writer of its own must still get in at once.
    EXPECT_TRUE(ExecSql(DBPath(), "begin exclusive; update widgetinfo set use_count = 5; commit;"));
    title = "untouched";
    EXPECT_TRUE(!m_Table.Select("nobody", "title", title) && title == "untouched");
    EXPECT_TRUE(m_Table.IsPrimaryKeyExists("id", "a") && !m_Table.IsPrimaryKeyExists("id", "third"));
}

TEST_F(TableTest, LockedDatabaseIsRetriedFiftyTimes) {
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(DBPath().c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
    std::string value;
    LogMark mark;
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(CTAKConfig().GetConfig("RESET_TYPE", value));
    // Calls with the counts 0 to 49 retry after 10 ms each; the call with 50 gives up.
    const std::string log = mark.Text(), line = "> busy...\033[0m";  // the colour escape ends a line
    int count = 0;
    for (size_t at = log.find(line); at != std::string::npos; at = log.find(line, at + 1)) {
        ++count;
    }
    EXPECT_EQ(count, 51);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
    sqlite3_close(writer);
    EXPECT_TRUE(CTAKConfig().GetConfig("RESET_TYPE", value));
}

TEST_F(ConfigTest, ResetClearsExactlyItsKeys) {
    std::map<std::string, std::string> expected = m_Before;
    ASSERT_TRUE(CTAKConfig().Reset());
    for (const auto& [key, value] : expected) {
        ASSERT_FALSE(value.empty()) << key;  // so that a key cleared by mistake shows
    }
    for (unsigned i = 0; i < CTAKConfig::RESET_KEY_COUNT; ++i) {
        expected[CTAKConfig::RESET_KEYS[i]] =
            std::string(CTAKConfig::RESET_KEYS[i]) == "SYNC_STATE" ? "0" : "";
    }
    // The keys a reset keeps: what the reset was, the Korbit state, the Home test list, the built-in lists.
    for (const char* kept :
         {"RESET_TYPE", "KORBIT_SYNC_STATE", "HOME_TEST_LIST", "RESERVED_16", "RESERVED_17"}) {
        EXPECT_EQ(expected[kept], m_Before[kept]) << kept;
    }
    EXPECT_EQ(expected.size(), m_Before.size()) << "a reset key the file does not hold";
    EXPECT_EQ(ReadConfigRows(DBPath()), expected);
    EXPECT_EQ(ReadConfigRows(BackupDBPath()), expected);  // one backup, after the whole reset
}

TEST_F(ConfigTest, FailedResetGoesOnButMakesNoBackup) {
    ASSERT_TRUE(ExecSql(DBPath(),
                        "create trigger refuse before update on TAKConfigTable when old.name = "
                        "'RESERVED_34' begin select raise(abort, 'refused'); end"));
    ASSERT_TRUE(CTAKConfig().UpdateConfig("RESET_TYPE", "backed up"));
    LogMark mark;
    EXPECT_FALSE(CTAKConfig().Reset());
    EXPECT_TRUE(mark.Contains("reset config [RESERVED_34] failed"));
    EXPECT_EQ(Config("RESERVED_34"), m_Before["RESERVED_34"]);
    EXPECT_EQ(Config("RESERVED_35"), "");  // the keys after it were still cleared
    std::map<std::string, std::string> backup = ReadConfigRows(BackupDBPath());  // the state before
    EXPECT_EQ(backup["RESERVED_35"] + "|" + backup["RESET_TYPE"], m_Before["RESERVED_35"] + "|backed up");
}

TEST_F(ConfigTest, PreinstalledListsAndUninstallReason) {
    ASSERT_TRUE(InsertConfigRows(
        DBPath(), {{"RESERVED_11", "appA:1,appB:2,,appC,appD:x:y"}, {"RESERVED_3", "g1,g2:3,,g1"}}));
    std::map<std::string, std::string> apps = {{"stale", "1"}};
    ASSERT_TRUE(CTAKUtil::GetPreinstallApps(0, apps));  // only default apps carry values
    EXPECT_EQ(apps, (std::map<std::string, std::string>{
                        {"appA", "1"}, {"appB", "2"}, {"appC", ""}, {"appD", "x:y"}}));
    ASSERT_TRUE(CTAKUtil::GetPreinstallApps(1, apps));
    EXPECT_EQ(apps, (std::map<std::string, std::string>{{"g1", ""}, {"g2:3", ""}}));
    EXPECT_FALSE(CTAKUtil::GetPreinstallApps(2, apps));
    EXPECT_TRUE(apps.empty());
    // An empty list gives an empty map; a missing one fails.
    ASSERT_TRUE(ExecSql(DBPath(),
                        "update TAKConfigTable set value = '' where name = 'RESERVED_11'; "
                        "delete from TAKConfigTable where name = 'RESERVED_3'"));
    apps = {{"stale", "1"}};
    EXPECT_TRUE(CTAKUtil::GetPreinstallApps(0, apps) && apps.empty());
    apps = {{"stale", "1"}};
    EXPECT_TRUE(!CTAKUtil::GetPreinstallApps(1, apps) && apps.empty());

    for (const auto& [type, reason] : std::vector<std::pair<std::string, int>>{
             {"1", 9}, {"2", 10}, {"0", 2}, {"3", 2}, {"", 2}, {" 1", 2}, {"1 ", 2}}) {
        ASSERT_TRUE(InsertConfigRows(DBPath(), {{"RESET_TYPE", type}}));
        EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(2), reason) << "'" << type << "'";
    }
    ASSERT_TRUE(ExecSql(DBPath(), "delete from TAKConfigTable"));
    EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(7), 7);
}

TEST(CompareVersion, OrdersDottedNumericVersions) {
    // clang-format off
    const std::vector<std::tuple<const char*, const char*, int>> cases = {
        {"1.0.0", "1.0.0", 0}, {"1.10", "1.9", 1}, {"1.2", "1.2.0", 0}, {"1.2.0.0", "1.2", 0}, {"1.2.1", "1.2", 1},
        {"1", "1.0.1", -1}, {"2.0", "10.0", -1}, {"", "", 0}, {"", "0.0", 0}, {"", "0.1", -1}, {"01.002", "1.2", 0},
        {"1.2b", "1.2", 0}, {"1.3b", "1.2c", 1}, {"x.1", "0.1", 0}, {"1..2", "1.0.2", 0}, {"3.0.0", "2.99.99", 1},
        {"1.0.0.10", "1.0.0.9", 1}, {"4294967296.1", "4294967295.9", 1}};
    // clang-format on
    auto sign = [](int value) { return (value > 0) - (value < 0); };
    for (const auto& [a, b, expected] : cases) {
        EXPECT_EQ(sign(CTAKUtil::CompareVersion(a, b)), expected) << a << " vs " << b;
        EXPECT_EQ(sign(CTAKUtil::CompareVersion(b, a)), -expected) << b << " vs " << a;
    }
}

// The SQL texts the store builds, compared as strings, and what SQLite makes of them.
#include <gtest/gtest.h>

#include "DbTestSupport.h"
#include "TAKDBConnection.h"
#include "TAKDBTable.h"
#include "WidgetInfoDB.h"

using namespace dbtest;

namespace {

// Opens the generators to the tests.
class CTestTable : public CTAKDBTable {
public:
    explicit CTestTable(const std::string& name) : CTAKDBTable(name) {}
    using CTAKDBTable::m_GenerateInsertCmd;
    using CTAKDBTable::m_GenerateSelectCmd;
    using CTAKDBTable::m_GenerateTruncateCmd;
    using CTAKDBTable::m_GenerateUpdateCmd;

    bool DeleteByPrimaryKey(const std::string& key, const std::string& value) {
        CStatementLock lock;
        return m_DeleteByPrimaryKey(key, value);
    }
};

std::string Columns() {
    std::string columns;
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        columns += (i == 0 ? "" : ",") + std::string(TAK_APPINFO_COLUMN_NAMES[i]);
    }
    return columns;
}

}  // namespace

TEST(GeneratedSql, UpdateTextsPasteTheValue) {
    CTestTable table("T");
    EXPECT_EQ(table.m_GenerateUpdateCmd("", "col", "v'x"), "update T set col = 'v'x'");
    EXPECT_EQ(table.m_GenerateUpdateCmd("app 1", "col", "v"), "update T set col = 'v' where ID = 'app 1'");
    EXPECT_EQ(table.m_GenerateUpdateCmd("", "col", -12), "update T set col = -12");
    EXPECT_EQ(table.m_GenerateUpdateCmd("a", "col", 7), "update T set col = 7 where ID = 'a'");
}

TEST(GeneratedSql, InsertAndSelectTexts) {
    CTestTable table("T");
    EXPECT_EQ(table.m_GenerateInsertCmd("col", "v"), "insert into T ( col ) values ('v')");
    EXPECT_EQ(table.m_GenerateInsertCmd("col", 42), "insert into T ( col ) values (42)");
    EXPECT_EQ(table.m_GenerateSelectCmd("a", "col"), "select col from T where  ID='a'");
    EXPECT_EQ(table.m_GenerateSelectCmd("", "col"), "select col from T");
}

TEST(GeneratedSql, TruncateTextsAsTheyHaveAlwaysBeen) {
    CTestTable table("widgetinfo");
    const std::string head = "delete from widgetinfo  where id not in ";
    EXPECT_EQ(table.m_GenerateTruncateCmd({}, false), head + "('')");
    EXPECT_EQ(table.m_GenerateTruncateCmd({{"a", "x"}, {"b", "y"}}, false), head + "('a','b')");
    EXPECT_EQ(table.m_GenerateTruncateCmd({{"a", ""}}, true),
              head + "('a, '3201903017943', '3201904018125', '3202001019917'')");
    EXPECT_EQ(table.m_GenerateTruncateCmd({}, true),
              head + "(', '3201903017943', '3201904018125', '3202001019917'')");
}

TEST(GeneratedSql, AppTableTexts) {
    const std::string columns = Columns();
    EXPECT_EQ(CWidgetInfoDB::ColumnList(), columns);
    EXPECT_EQ(CWidgetInfoDB::SelectAllSql(), "select " + columns + " from widgetinfo");

    std::string insert = "insert into widgetinfo(" + columns + ") values(";
    for (int i = 0; i < 104; ++i) {
        insert += "?,";
    }
    EXPECT_EQ(CWidgetInfoDB::InsertSql(), insert + "?)");

    std::string update = "update widgetinfo set ";
    for (unsigned i = 0; i + 1 < TAK_APPINFO_COLUMN_COUNT; ++i) {
        update += std::string(TAK_APPINFO_COLUMN_NAMES[i]) + "= ?,";
    }
    EXPECT_EQ(CWidgetInfoDB::UpdateSql(), update + "reserved_tinyint_21=? where id = ?");
}

TEST(GeneratedSql, ColumnTableKeepsTheOrderAndTheOddSpellings) {
    EXPECT_STREQ(TAK_APPINFO_COLUMN_NAMES[0], "id");
    EXPECT_STREQ(TAK_APPINFO_COLUMN_NAMES[26], "pannel_icon_path");
    EXPECT_STREQ(TAK_APPINFO_COLUMN_NAMES[45], "chanel_name");
    EXPECT_STREQ(TAK_APPINFO_COLUMN_NAMES[55], "use_gamepad");
    EXPECT_STREQ(TAK_APPINFO_COLUMN_NAMES[56], "reserved_string_1");
    EXPECT_STREQ(TAK_APPINFO_COLUMN_NAMES[73], "reserved_int_1");
    EXPECT_STREQ(TAK_APPINFO_COLUMN_NAMES[104], "reserved_tinyint_21");
    EXPECT_EQ(sizeof(TAK_APPINFO_COLUMN_NAMES[0]), 30u);
}

class TruncateTest : public DbTest {
protected:
    void SetUp() override {
        DbTest::SetUp();
        ASSERT_TRUE(InsertApps(DBPath(), {DistinctRecord("a", 1), DistinctRecord("b", 2),
                                          DistinctRecord("3201903017943", 3), DistinctRecord("c", 4)}));
        ASSERT_TRUE(CreateDatabase(BackupDBPath()));
    }
};

TEST_F(TruncateTest, KeepsTheListedIds) {
    CTAKDBConnection::GetInstance(true);
    CTestTable table("widgetinfo");
    EXPECT_TRUE(table.Truncate({{"a", ""}, {"c", ""}}, false));
    EXPECT_EQ(ReadAppIds(DBPath()), (std::vector<std::string>{"a", "c"}));
}

TEST_F(TruncateTest, EmptyListDeletesEveryRowWithAnId) {
    CTAKDBConnection::GetInstance(true);
    CTestTable table("widgetinfo");
    EXPECT_TRUE(table.Truncate({}, false));
    EXPECT_TRUE(ReadAppIds(DBPath()).empty());
}

TEST_F(TruncateTest, FixedAppsTextsAreRejectedAndDeleteNothing) {
    CTAKDBConnection::GetInstance(true);
    CTestTable table("widgetinfo");
    LogMark mark;
    EXPECT_FALSE(table.Truncate({{"a", ""}}, true));
    EXPECT_FALSE(table.Truncate({}, true));
    EXPECT_EQ(ReadAppIds(DBPath()).size(), 4u);
    EXPECT_EQ(mark.CountMessages("unknow type 1"), 2);
}

TEST_F(TruncateTest, DeleteByKeyPastesTheValueWithoutBlanks) {
    CTAKDBConnection::GetInstance(true);
    CTestTable table("widgetinfo");
    LogMark mark;
    EXPECT_TRUE(table.DeleteByPrimaryKey("id", "b"));
    EXPECT_EQ(mark.CountMessages("sql delete from widgetinfo where id='b'"), 1);
    EXPECT_EQ(ReadAppIds(DBPath()), (std::vector<std::string>{"3201903017943", "a", "c"}));
    // A quote in a pasted value breaks the statement: accepted, and nothing is deleted.
    EXPECT_FALSE(table.DeleteByPrimaryKey("id", "it's"));
    EXPECT_EQ(ReadAppIds(DBPath()).size(), 3u);
}

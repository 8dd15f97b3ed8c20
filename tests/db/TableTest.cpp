// Table access: the shared statement, the bind family, Select's one-row rule and the busy handler.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "DbTestSupport.h"
#include "TAKConfig.h"
#include "TAKDBConnection.h"
#include "TAKDBTable.h"

using namespace dbtest;

namespace {

// Opens the statement primitives to the tests; each call holds the table lock as a real operation would.
class CTestTable : public CTAKDBTable {
public:
    CTestTable() : CTAKDBTable("widgetinfo") {}

    int StepWithoutStatement() {
        CStatementLock lock;
        return Step();
    }

    // Binds the values into "select ?, ?, ..." and reads them back as text and integer.
    bool RoundTrip(const std::vector<_TAKDB_BIND_T>& values, std::vector<std::string>& texts,
                   std::vector<int>& numbers) {
        CStatementLock lock;
        std::string sql = "select ";
        for (size_t i = 0; i < values.size(); ++i) {
            sql += (i == 0 ? "?" : ", ?");
        }
        if (!Prepare(sql) || !Bind(values) || Step() != SQLITE_ROW) {
            return false;
        }
        for (size_t i = 0; i < values.size(); ++i) {
            texts.push_back(sqlite3_column_type(m_pStmt, i) == SQLITE_NULL ? "<null>"
                                                                           : GetStringFromResult(i));
            numbers.push_back(GetIntegerFromResult(i));
        }
        return true;
    }

    bool BindOne(const std::string& text, int number, bool flag, std::string& textOut, int& numberOut,
                 bool& flagOut) {
        CStatementLock lock;
        if (!Prepare("select ?, ?, ?") || !Bind(1, text) || !Bind(2, number) || !Bind(3, flag)) {
            return false;
        }
        if (Step() != SQLITE_ROW) {
            return false;
        }
        GetValueByPosition(0, textOut);
        GetValueByPosition(1, numberOut);
        GetValueByPosition(2, flagOut);
        return true;
    }

    bool BindOutOfRange() {
        CStatementLock lock;
        return Prepare("select ?") && Bind(5, 1);
    }
};

class TableTest : public DbTest {
protected:
    void SetUp() override {
        DbTest::SetUp();
        _APPINFO_T first = DistinctRecord("first", 1);
        _APPINFO_T second = DistinctRecord("second", 2);
        first.app_index = 1;
        second.app_index = 2;
        ASSERT_TRUE(InsertApps(DBPath(), {first, second}));
        ASSERT_NE(CTAKDBConnection::GetInstance(false), nullptr);
    }
};

}  // namespace

TEST_F(TableTest, SelectOfOneRowStoresItsValue) {
    CTestTable table;
    std::string title;
    EXPECT_TRUE(table.Select("second", "title", title));
    EXPECT_EQ(title, DistinctRecord("second", 2).title);
    int index = 0;
    EXPECT_TRUE(table.Select("first", "app_index", index));
    EXPECT_EQ(index, 1);
}

TEST_F(TableTest, SelectOfTwoRowsStoresTheFirstAndFails) {
    CTestTable table;
    int index = -1;
    // An empty id selects from the whole table, without a condition.
    EXPECT_FALSE(table.Select("", "app_index", index));
    EXPECT_EQ(index, 1);
    std::string title;
    EXPECT_FALSE(table.Select("", "title", title));
    EXPECT_EQ(title, DistinctRecord("first", 1).title);
}

TEST_F(TableTest, SelectWithoutRowLeavesTheValue) {
    CTestTable table;
    std::string title = "untouched";
    EXPECT_FALSE(table.Select("nobody", "title", title));
    EXPECT_EQ(title, "untouched");
}

TEST_F(TableTest, LeftoverRowDoesNotHoldTheFileLocked) {
    CTestTable table;
    int index = 0;
    EXPECT_FALSE(table.Select("", "app_index", index));
    // The operation above ended on a row; a writer of its own must still get in at once.
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(DBPath().c_str(), &writer), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(writer, "begin exclusive; update widgetinfo set use_count = 5; commit;", nullptr,
                           nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(writer);
}

TEST_F(TableTest, StepWithoutStatementFails) {
    CTestTable table;
    LogMark mark;
    EXPECT_EQ(table.StepWithoutStatement(), SQLITE_ERROR);
    EXPECT_EQ(mark.CountMessages("g_pStmt is NULL"), 1);
}

TEST_F(TableTest, ReadOnlyConnectionRefusesWrites) {
    CTestTable table;
    LogMark mark;
    EXPECT_FALSE(table.Update("first", "title", "changed"));
    EXPECT_TRUE(mark.Has("unknown type 8"));  // SQLITE_READONLY
    std::string title;
    EXPECT_TRUE(table.Select("first", "title", title));
    EXPECT_EQ(title, DistinctRecord("first", 1).title);
}

TEST_F(TableTest, IsPrimaryKeyExists) {
    CTestTable table;
    EXPECT_TRUE(table.IsPrimaryKeyExists("id", "first"));
    EXPECT_FALSE(table.IsPrimaryKeyExists("id", "third"));
}

TEST_F(TableTest, BoundValuesRoundTripExactly) {
    CTestTable table;
    const std::vector<std::string> samples = {"it's \"quoted\"",       "  blanks  inside  ",
                                              "Ünïcødé – 日本語 ✓",    "",
                                              "semi;colon -- comment", "back\\slash"};
    for (const auto& sample : samples) {
        std::string text;
        int number = 0;
        bool flag = false;
        ASSERT_TRUE(table.BindOne(sample, -123456, true, text, number, flag)) << sample;
        EXPECT_EQ(text, sample);
        EXPECT_EQ(number, -123456);
        EXPECT_TRUE(flag);
    }
}

TEST_F(TableTest, BindListBindsByPositionAndSkipsOtherTypes) {
    CTestTable table;
    std::vector<_TAKDB_BIND_T> values;
    CTAKDBTable::SaveBind(values, std::string("text ' value"));
    CTAKDBTable::SaveBind(values, 77);
    values.push_back({9, "ignored", 5});
    CTAKDBTable::SaveBind(values, -3);
    EXPECT_EQ(values[0].type, TAKDB_BIND_TEXT);
    EXPECT_EQ(values[1].type, TAKDB_BIND_INTEGER);
    EXPECT_EQ(values[1].strValue, "");
    std::vector<std::string> texts;
    std::vector<int> numbers;
    ASSERT_TRUE(table.RoundTrip(values, texts, numbers));
    EXPECT_EQ(texts, (std::vector<std::string>{"text ' value", "77", "<null>", "-3"}));
    EXPECT_EQ(numbers[1], 77);
    EXPECT_EQ(numbers[3], -3);
}

TEST_F(TableTest, FailedBindIsLogged) {
    CTestTable table;
    LogMark mark;
    EXPECT_FALSE(table.BindOutOfRange());
    EXPECT_EQ(mark.CountMessages("failed to bind 1 at position 5"), 1);
}

TEST(BusyHandler, RetriesFiftyTimesThenGivesUp) {
    for (int count = 0; count < 50; ++count) {
        EXPECT_NE(CTAKDBTable::BusyHandler(nullptr, count), 0) << count;
    }
    EXPECT_EQ(CTAKDBTable::BusyHandler(nullptr, 50), 0);
    EXPECT_EQ(CTAKDBTable::BusyHandler(nullptr, 51), 0);
}

TEST_F(TableTest, LockedDatabaseIsRetriedFiftyTimes) {
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(DBPath().c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);

    CTAKConfig config;
    std::string value;
    LogMark mark;
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(config.GetConfig("RESET_TYPE", value));
    auto elapsed = std::chrono::steady_clock::now() - start;
    // Calls with the counts 0 to 49 retry after 10 ms each; the call with 50 gives up.
    EXPECT_EQ(mark.CountMessages("busy..."), 51);
    EXPECT_GE(elapsed, std::chrono::milliseconds(450));

    sqlite3_exec(writer, "commit", nullptr, nullptr, nullptr);
    sqlite3_close(writer);
    EXPECT_FALSE(config.GetConfig("RESET_TYPE", value));  // no row, but no longer busy
    EXPECT_TRUE(InsertConfigRows(DBPath(), {{"RESET_TYPE", "1"}}));
    EXPECT_TRUE(config.GetConfig("RESET_TYPE", value));
    EXPECT_EQ(value, "1");
}

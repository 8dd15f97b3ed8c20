// The app database as the reset process may find it on a TV: locked by a writer for longer than the busy
// handler waits (the stand-in daemon's own writes wait too, which makes that case the slow one), missing,
// empty, truncated, or not a database at all. The reset goes on without app records (nothing is uninstalled),
// logs what went wrong, reports its result, and serves the next request. The stand-in daemon keeps the file
// it opened at start-up: the faulty file takes the database's name only.
#include <cstdio>

#include "FaultFixture.h"

using namespace fault_test;

namespace {

enum class Fault { Locked, Missing, Empty, Truncated, NotADatabase };

struct DatabaseCase {
    const char* name;
    Fault fault;
    const char* line;      // what the process logs about it
    bool recoversInPlace;  // once repaired, the same process reads the database again
};

}  // namespace

class ADatabaseFault : public FaultFixture, public ::testing::WithParamInterface<DatabaseCase> {
protected:
    void TearDown() override {
        Repair();
        FaultFixture::TearDown();
    }

    void Break() {
        const std::string path = DatabasePath();
        if (GetParam().fault == Fault::Locked) {
            ASSERT_EQ(sqlite3_open(path.c_str(), &m_writer), SQLITE_OK);
            ASSERT_EQ(sqlite3_exec(m_writer, "BEGIN EXCLUSIVE;", nullptr, nullptr, nullptr), SQLITE_OK);
            return;
        }
        std::string good = orvix::test::ReadWholeFile(path);
        ASSERT_FALSE(good.empty());
        ASSERT_EQ(rename(path.c_str(), (path + ".good").c_str()), 0);
        m_moved = true;
        const Fault fault = GetParam().fault;
        std::string content = fault == Fault::Truncated      ? good.substr(0, good.size() / 2)
                              : fault == Fault::NotADatabase ? "a settings dump, not a database\n"
                                                             : "";
        // Missing: nothing in its place.
        ASSERT_TRUE(fault == Fault::Missing || orvix::host::WriteFileAtomically(path, content));
    }

    void Repair() {
        if (m_writer != nullptr) {
            sqlite3_exec(m_writer, "ROLLBACK;", nullptr, nullptr, nullptr);
            sqlite3_close(m_writer);
            m_writer = nullptr;
        }
        if (m_moved) {
            EXPECT_EQ(rename((DatabasePath() + ".good").c_str(), DatabasePath().c_str()), 0);
            m_moved = false;
        }
    }

    sqlite3* m_writer = nullptr;
    bool m_moved = false;
};

TEST_P(ADatabaseFault, IsLoggedTheResetReportsWithoutAppsAndTheNextRequestIsServed) {
    AddApps({{"app.one"}, {"app.two"}});
    ASSERT_NO_FATAL_FAILURE(Break());
    Start({"reset=tak_app_reset", "userdata=71"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EXPECT_EQ(Results("tak_app_reset_result"), One("tak_app_reset_result", "71"));
    EXPECT_GE(CountInLog(GetParam().line), 1u) << GetParam().line;
    if (GetParam().fault == Fault::Locked) {
        // Each read waits out the busy handler's 50 tries before it gives up.
        EXPECT_GE(CountInLog("busy..."), 50u);
    }
    EXPECT_TRUE(Requested().empty());

    Repair();
    Start({"reset=tak_app_reset", "userdata=72"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result", 2));
    EXPECT_EQ(Requested(), (GetParam().recoversInPlace ? Lines{"app.one", "app.two"} : Lines{}));
    EndProcess();
    // A file that opened is the process's database until it restarts; a new process reads the repaired one.
    if (!GetParam().recoversInPlace) {
        RunToEnd({"reset=tak_app_reset", "userdata=73"}, "tak_app_reset_result", 3);
        EXPECT_EQ(Requested(), (Lines{"app.one", "app.two"}));
    }
    EXPECT_EQ(Results("tak_app_reset_result").size(), GetParam().recoversInPlace ? 2u : 3u);
    // The run that read the repaired file uninstalled both apps.
    EXPECT_EQ(DatabaseState(), "ok, 0 apps");
}

INSTANTIATE_TEST_SUITE_P(
    LockedMissingEmptyTruncatedOrForeign, ADatabaseFault,
    ::testing::Values(DatabaseCase{"Locked", Fault::Locked, "unknow type 5", true},
                      DatabaseCase{"Missing", Fault::Missing,
                                   "Failed to connect to DB : unable to open database file", true},
                      DatabaseCase{"Empty", Fault::Empty, "unknow type 1", false},
                      DatabaseCase{"Truncated", Fault::Truncated, "unknow type 11", false},
                      DatabaseCase{"NotADatabase", Fault::NotADatabase, "unknow type 26", false}),
    [](const auto& info) { return std::string(info.param.name); });

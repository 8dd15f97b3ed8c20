// The history log (time prefix, cut, rotation, backups, link refusal, concurrent writers) and the KPI
// log over the host framework.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include <KPILogFramework.h>

#include "FoundationTest.h"
#include "IClogger.h"
#include "TAKHistoryLog.h"

namespace {

const long long kLimit = 262144;
// The message after the UTC time prefix "YYYY-MM-DDTHH:MM:SS:>" of a history line; false when the
// prefix is malformed.
bool StripStamp(const std::string& line, std::string& message) {
    int y, mo, d, h, mi, s, n = 0;
    if (sscanf(line.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d:>%n", &y, &mo, &d, &h, &mi, &s, &n) != 6 || n != 21) {
        return false;
    }
    message = line.substr(n);
    return true;
}

std::vector<std::string> Lines(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream in(ReadFile(path));
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

class HistoryLogTest : public FoundationTest {
protected:
    void SetUp() override {
        FoundationTest::SetUp();
        ASSERT_TRUE(TAKDir::Create(dir_ = Under("opt/usr/data/vardell/log")));
        HistoryLogFileName("tak_reset_history");
        path_ = dir_ + "/tak_reset_history.log";
    }
    std::string dir_;
    std::string path_;
};

// A line carries the UTC time and the message, cut at 2047 characters; a path through a link is refused.
TEST_F(HistoryLogTest, LineCarriesTheUtcTimeAndTheMessageCutAt2047Characters) {
    time_t before = time(nullptr);
    WriteHistoryLogFile("[%s][%d]End", "m_ClearDB", 637);
    time_t after = time(nullptr);
    std::string line = ReadFile(path_);
    std::string message;
    ASSERT_TRUE(StripStamp(line, message)) << line;
    EXPECT_EQ(message, "[m_ClearDB][637]End\n");
    struct tm utc {};
    strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    EXPECT_TRUE(timegm(&utc) >= before && timegm(&utc) <= after) << line;

    WriteFile(path_, "");
    WriteHistoryLogFile("%s", std::string(5000, 'y').c_str());
    EXPECT_EQ(ReadFile(path_).size(), 2048u);
    EXPECT_EQ(ReadFile(path_).find('\n'), 2047u);

    ASSERT_TRUE(TAKDir::Create(Under("elsewhere")) && TAKDir::RemoveAllFiles(dir_, true, false));
    ASSERT_EQ(symlink(Under("elsewhere").c_str(), dir_.c_str()), 0);
    WriteHistoryLogFile("must not land");
    EXPECT_EQ(TAKDir::FolderSize(Under("elsewhere")), 0);
    EXPECT_TRUE(LogHas(path_ + " is not realpath, so can not open it!!!"));
}

// What may stand where a regular file is expected: no open may wait on it, and only a regular file (a
// link to one included) is taken by OpenRegular and ReadRegular. The history log takes only a regular
// file that is no link: for anything else the line is lost with one failure line and the writer goes on at
// once. A plain open of a FIFO without a reader would wait for good, one with a reader would write the
// history into a pipe.
TEST_F(HistoryLogTest, OnlyARegularFileIsOpenedAndNothingWaits) {
    const std::string target = Under("target.log"),
                      notReal = path_ + " is not realpath, so can not open it!!!";
    WriteFile(target, "plain");
    int reader = -1;
    struct Case {
        const char* name;
        std::function<bool()> make;
        bool regular;
        std::string historySays;  // "" when the history log takes it
    };
    const Case cases[] = {
        {"regular file", [&] { return WriteFile(path_, "plain"), true; }, true, ""},
        {"link to a file", [&] { return symlink(target.c_str(), path_.c_str()) == 0; }, true, notReal},
        {"fifo without reader", [&] { return mkfifo(path_.c_str(), 0600) == 0; }, false, "ptLog is NULL"},
        {"fifo with reader",
         [&] {
             return mkfifo(path_.c_str(), 0600) == 0 &&
                    (reader = open(path_.c_str(), O_RDONLY | O_NONBLOCK)) >= 0;
         },
         false, "ptLog is NULL"},
        {"directory", [&] { return mkdir(path_.c_str(), 0700) == 0; }, false, "ptLog is NULL"},
        {"link to a device", [&] { return symlink("/dev/null", path_.c_str()) == 0; }, false, notReal},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(c.make()) << strerror(errno);
        orvix::test::LogMark mark;
        for (int flags : {O_RDONLY, O_WRONLY | O_APPEND}) {
            int fd = TAKFile::OpenRegular(path_, flags);
            EXPECT_EQ(fd >= 0, c.regular) << flags << ": " << strerror(errno);
            if (fd >= 0) {
                EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0) << "left non-blocking";
                EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
                close(fd);
            }
        }
        std::string text = "old";
        EXPECT_EQ(TAKFile::ReadRegular(path_, text), c.regular);
        EXPECT_EQ(text, c.regular ? "plain" : "");
        EXPECT_EQ(TAKFile::IsRegularOrAbsent(path_), c.regular);
        EXPECT_EQ(mark.Contains(path_ + " is not a regular file, refused"), !c.regular);
        WriteHistoryLogFile("lost %s", c.name);
        EXPECT_TRUE(c.historySays.empty() || mark.Contains(c.historySays)) << mark.Text();
        if (reader >= 0) {
            char byte;
            EXPECT_EQ(read(reader, &byte, 1), 0) << "a line went into the pipe";
            close(reader);
            reader = -1;
        }
        ASSERT_EQ(remove(path_.c_str()), 0);
    }
    EXPECT_EQ(ReadFile(target), "plain");
    // Nothing at the path is no regular file, but not refused: the engine creates it.
    errno = 0;
    EXPECT_TRUE(TAKFile::OpenRegular(path_, O_RDONLY) == -1 && errno == ENOENT);
    EXPECT_TRUE(TAKFile::IsRegularOrAbsent(path_));
    WriteHistoryLogFile("back");
    EXPECT_EQ(Lines(path_).size(), 1u);
}

TEST_F(HistoryLogTest, RotatesOnlyAboveTheLimitAndKeepsThreeBackupsNewestFirst) {
    WriteFile(path_, std::string(kLimit, 'x'));
    WriteHistoryLogFile("generation 1");
    EXPECT_FALSE(TAKFile::Exists(path_ + ".1")) << "rotated at exactly the limit";
    for (int generation = 2; generation <= 6; ++generation) {
        long long grown = TAKFile::Size(path_);
        WriteHistoryLogFile("generation %d", generation);
        EXPECT_TRUE(TAKFile::Size(path_ + ".1") == grown && Lines(path_).size() == 1u) << generation;
        // Grow the current file past the limit, so the next line starts a new generation.
        std::ofstream(path_, std::ios::app) << std::string(kLimit, '.') << "\n";
    }
    std::string firstMessages;  // of the current file and each backup, after the time prefix
    for (const char* suffix : {"", ".1", ".2", ".3"}) {
        firstMessages += ReadFile(path_ + suffix).substr(0, 33).substr(21) + ";";
    }
    EXPECT_EQ(firstMessages, "generation 6;generation 5;generation 4;generation 3;");
    EXPECT_FALSE(TAKFile::Exists(path_ + ".4"));
}

// Eight writers, rotation on the way. What survives (three full backups and the current file, oldest
// first) must be, for every writer, an unbroken run of its last lines, each line whole.
TEST_F(HistoryLogTest, ConcurrentWritersNeverInterleaveOrLoseKeptLines) {
    const int kLinesEach = 400;
    std::vector<std::thread> writers;
    for (int t = 0; t < 8; ++t) {
        writers.emplace_back([t] {
            for (int i = 0; i < kLinesEach; ++i) {
                WriteHistoryLogFile("T%d-%d-%s", t, i, std::string(900, 'p').c_str());
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    std::map<int, std::vector<int>> kept;
    for (const char* suffix : {".3", ".2", ".1", ""}) {
        long long size = TAKFile::Size(path_ + suffix);
        EXPECT_TRUE(size <= kLimit + 1000 && (*suffix == '\0' || size > kLimit)) << suffix << ": " << size;
        for (const std::string& line : Lines(path_ + suffix)) {
            std::string message;
            int writer = -1, index = -1, n = 0;
            ASSERT_TRUE(StripStamp(line, message) &&
                        sscanf(message.c_str(), "T%d-%d-%n", &writer, &index, &n) == 2 &&
                        message.substr(n) == std::string(900, 'p'))
                << "broken line in " << suffix;
            kept[writer].push_back(index);
        }
    }
    EXPECT_FALSE(TAKFile::Exists(path_ + ".4"));
    for (const auto& [writer, sequence] : kept) {
        auto gap =
            std::adjacent_find(sequence.begin(), sequence.end(), [](int a, int b) { return b != a + 1; });
        EXPECT_TRUE(sequence.back() == kLinesEach - 1 && gap == sequence.end()) << "writer " << writer;
    }
}

// Each event reaches the host framework's file as one JSON object; the completion runs on the worker.
using KpiTest = FoundationTest;

TEST_F(KpiTest, EventsCarryServiceEventCategoryAndDescription) {
    std::pair<int, std::thread::id> written{-99, {}};  // result and thread of the completion
    auto callback = [](int result, void* data) {
        *static_cast<std::pair<int, std::thread::id>*>(data) = {result, std::this_thread::get_id()};
    };
    IClogger::SendTAKEventKPI(KPI_TAK_EVENT_DB_INVALID, "DB file size is zero");
    IClogger::SendTAKEventKPI(KPI_TAK_EVENT_DB_INVALID, "");
    IClogger::SendIconKPI("org.app", "2024-03-05", TAK_CLOGGER_ICON_REASON_UPDATE, 0);
    IClogger::SendIconKPI("org.app", "2024-03-05", TAK_CLOGGER_ICON_REASON_UPDATE, -7);
    ASSERT_EQ(
        KPILogFramework::CLogger::GetInstance()->AddEventLogAsync("s", "e", "c", "d", callback, &written), 0);
    KPILogFramework::CLogger::GetInstance()->Flush();
    EXPECT_TRUE(written.first == 1 && written.second != std::this_thread::get_id());
    const std::vector<std::string> expected = {
        "23_appdown EV019 TAK_EVENT {type=6;info=DB file size is zero}",
        "23_appdown EV019 TAK_EVENT {type=6;info=}",
        "23_appdown EV017 ICON_DOWNLOAD_PASS {appid=org.app;reason=1;server_update_date=2024-03-05}",
        "23_appdown EV018 ICON_DOWNLOAD_FAIL {appid=org.app;reason=1;server_update_date=2024-03-05;error=-7}",
        "s e c d"};
    std::vector<std::string> records;
    for (const std::string& line : Lines(Under("var/log/kpi.log"))) {
        Json::Value record;
        std::istringstream in(line);
        EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &record, nullptr)) << line;
        records.push_back(record["service"].asString() + " " + record["event"].asString() + " " +
                          record["category"].asString() + " " + record["description"].asString());
    }
    EXPECT_EQ(records, expected);
    EXPECT_TRUE(
        LogHas("Send KPI log successfully. category[TAK_EVENT], event[EV019], description[{type=6;info=}]."));
}

}  // namespace

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <map>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "FoundationTest.h"
#include "TAKDir.h"
#include "TAKFile.h"
#include "TAKHistoryLog.h"

namespace foundation {
namespace {

const long long kLimit = 262144;

class HistoryLogTest : public FoundationTest {
protected:
    void SetUp() override {
        FoundationTest::SetUp();
        dir_ = Under("opt/usr/data/vardell/log");
        ASSERT_TRUE(TAKDir::Create(dir_));
        HistoryLogFileName("tak_reset_history");
        path_ = dir_ + "/tak_reset_history.log";
    }

    static std::vector<std::string> Lines(const std::string& text) {
        std::vector<std::string> lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    std::string dir_;
    std::string path_;
};

TEST_F(HistoryLogTest, LineCarriesTheUtcTimeAndTheMessage) {
    time_t before = time(nullptr);
    WriteHistoryLogFile("[%s][%d]End", "m_ClearDB", 637);
    time_t after = time(nullptr);

    std::vector<std::string> lines = Lines(ReadFile(path_));
    ASSERT_EQ(lines.size(), 1u);
    std::smatch match;
    ASSERT_TRUE(std::regex_match(
        lines[0], match,
        std::regex(R"((\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d):(\d\d):>\[m_ClearDB\]\[637\]End)")));
    struct tm utc {};
    utc.tm_year = std::stoi(match[1]) - 1900;
    utc.tm_mon = std::stoi(match[2]) - 1;
    utc.tm_mday = std::stoi(match[3]);
    utc.tm_hour = std::stoi(match[4]);
    utc.tm_min = std::stoi(match[5]);
    utc.tm_sec = std::stoi(match[6]);
    time_t stamped = timegm(&utc);
    EXPECT_GE(stamped, before);
    EXPECT_LE(stamped, after);
}

TEST_F(HistoryLogTest, RotatesOnlyAboveTheLimit) {
    WriteFile(path_, std::string(kLimit, 'x'));
    WriteHistoryLogFile("at the limit");
    EXPECT_FALSE(TAKFile::Exists(path_ + ".1"));
    long long grown = TAKFile::Size(path_);
    EXPECT_GT(grown, kLimit);

    WriteHistoryLogFile("one byte more is enough");
    EXPECT_EQ(TAKFile::Size(path_ + ".1"), grown);
    std::vector<std::string> lines = Lines(ReadFile(path_));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find(":>one byte more is enough"), std::string::npos);
}

TEST_F(HistoryLogTest, KeepsThreeBackupsNewestFirst) {
    for (int generation = 1; generation <= 5; ++generation) {
        WriteHistoryLogFile("generation %d", generation);
        // Grow the current file past the limit, so the next line starts a new generation.
        std::string padding(kLimit, '.');
        FILE* file = fopen(path_.c_str(), "a");
        ASSERT_NE(file, nullptr);
        fputs((padding + "\n").c_str(), file);
        fclose(file);
    }
    WriteHistoryLogFile("generation 6");

    auto firstLine = [](const std::string& path) {
        std::vector<std::string> lines = Lines(ReadFile(path));
        return lines.empty() ? std::string() : lines[0].substr(lines[0].find(":>") + 2);
    };
    EXPECT_EQ(firstLine(path_), "generation 6");
    EXPECT_EQ(firstLine(path_ + ".1"), "generation 5");
    EXPECT_EQ(firstLine(path_ + ".2"), "generation 4");
    EXPECT_EQ(firstLine(path_ + ".3"), "generation 3");
    EXPECT_FALSE(TAKFile::Exists(path_ + ".4"));
}

TEST_F(HistoryLogTest, LongLinesAreCutAt2047Characters) {
    std::string longText(5000, 'y');
    WriteHistoryLogFile("%s", longText.c_str());
    std::string content = ReadFile(path_);
    EXPECT_EQ(content.size(), 2048u);
    EXPECT_EQ(content.back(), '\n');
    EXPECT_EQ(content.find('\n'), 2047u);
}

TEST_F(HistoryLogTest, NameRulesAndNullFormat) {
    HistoryLogFileName("");
    WriteHistoryLogFile("nameless");
    EXPECT_NE(ReadFile(dir_ + "/.log").find(":>nameless\n"), std::string::npos);

    HistoryLogFileName("other");
    HistoryLogFileName(nullptr);
    WriteHistoryLogFile("still other");
    EXPECT_NE(ReadFile(dir_ + "/other.log").find(":>still other\n"), std::string::npos);

    const char* noFormat = nullptr;
    WriteHistoryLogFile(noFormat);
    EXPECT_EQ(Lines(ReadFile(dir_ + "/other.log")).size(), 1u);
}

TEST_F(HistoryLogTest, RefusesAPathThroughALink) {
    std::string elsewhere = Under("elsewhere");
    ASSERT_TRUE(TAKDir::Create(elsewhere));
    ASSERT_TRUE(TAKDir::RemoveAllFiles(dir_, true, false));
    ASSERT_EQ(symlink(elsewhere.c_str(), dir_.c_str()), 0);

    WriteHistoryLogFile("must not land");
    EXPECT_EQ(TAKDir::FolderSize(elsewhere), 0);
    EXPECT_NE(Log().find(path_ + " is not realpath, so can not open it!!!"), std::string::npos);
}

// Eight writers, rotation on the way. Lines of one writer carry its sequence numbers; what survives
// (three backups and the current file, oldest first) must be, for every writer, an unbroken run of its
// last lines, each line whole.
TEST_F(HistoryLogTest, ConcurrentWritersNeverInterleaveOrLoseKeptLines) {
    const int kThreads = 8;
    const int kLinesEach = 400;
    const std::string padding(900, 'p');
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t) {
        writers.emplace_back([t, &padding] {
            for (int i = 0; i < kLinesEach; ++i) {
                WriteHistoryLogFile("T%d-%d-%s", t, i, padding.c_str());
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }

    const std::regex linePattern(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d:>T(\d)-(\d+)-(p+))");
    std::map<int, std::vector<int>> kept;
    for (const char* suffix : {".3", ".2", ".1", ""}) {
        std::string file = path_ + suffix;
        ASSERT_TRUE(TAKFile::IsFile(file)) << file;
        if (*suffix != '\0') {
            EXPECT_GT(TAKFile::Size(file), kLimit) << file;
            EXPECT_LE(TAKFile::Size(file), kLimit + 1000) << file;
        }
        for (const std::string& line : Lines(ReadFile(file))) {
            std::smatch match;
            ASSERT_TRUE(std::regex_match(line, match, linePattern)) << "broken line in " << file;
            ASSERT_EQ(match[3].length(), static_cast<long>(padding.size()));
            kept[std::stoi(match[1])].push_back(std::stoi(match[2]));
        }
    }
    EXPECT_FALSE(TAKFile::Exists(path_ + ".4"));
    size_t total = 0;
    for (const auto& [thread, sequence] : kept) {
        total += sequence.size();
        ASSERT_FALSE(sequence.empty());
        EXPECT_EQ(sequence.back(), kLinesEach - 1) << "writer " << thread;
        for (size_t i = 1; i < sequence.size(); ++i) {
            ASSERT_EQ(sequence[i], sequence[i - 1] + 1) << "writer " << thread << " lost or reordered a line";
        }
    }
    // Each backup holds more than 262144 bytes of lines shorter than 1000 bytes.
    EXPECT_GT(total, 3u * (kLimit / 1000));
}

}  // namespace
}  // namespace foundation

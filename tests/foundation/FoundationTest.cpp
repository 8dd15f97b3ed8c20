// The foundation under the reset: file and directory utilities (never following a link out of where they
// were sent), number texts, the history log (time prefix, cut, rotation, backups, link refusal,
// concurrent writers), the KPI log, the kit's files replaced by FIFOs, the settings store with its
// adapter and tool, CTAKShell, the privileged utility confined to the host root, and the trace markers
// (written by several threads at once, a file that parses without its closing bracket, nothing written
// outside a root).
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <vconf.h>

#include <KPILogFramework.h>
#include <dlog.h>
#include <pkgmgr-info.h>
#include <platform_path.h>
#include <system_info.h>
#include <ttrace.h>
#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <future>
#include <list>
#include <map>

#include "HostFixture.h"
#include "ICVConf.h"
#include "TAKDir.h"
#include "TAKFile.h"
#include "TAKHistoryLog.h"
#include "TAKShell.h"
#include "TAKString.h"
#include "TAKUtilityWrapper.h"
#include "TempDir.h"

namespace {

using orvix::test::LogMark;
using orvix::test::RunResult;

const long long kLimit = 262144;  // the history log's size limit

// A fresh host root per test, the process's log since the test began, and its children.
class FoundationTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = orvix::test::TempPattern("foundation-root.");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        orvix::host::SetRoot(root_ = pattern);
    }
    void TearDown() override { std::filesystem::remove_all(root_); }

    std::string Under(const std::string& relative) const { return root_ + "/" + relative; }
    // orvix-host works only in a root that init made, which it marks.
    void MarkAsMadeByInit() const { WriteFile(Under(".orvix-host"), ""); }
    bool LogHas(const std::string& text) const { return mark_.Contains(text); }
    static std::string ReadFile(const std::string& path) { return orvix::test::ReadWholeFile(path); }
    static void WriteFile(const std::string& path, const std::string& content) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    }
    static std::list<std::string> Lines(const std::string& path) {
        return TAKString::SplitStringToList(ReadFile(path), "\n", true);
    }
    // The program run with the arguments given as one text, split at '|'.
    static RunResult Run(const std::string& program, const std::string& args) {
        std::list<std::string> parts = TAKString::SplitStringToList(args, "|");
        parts.push_front(program);
        return orvix::test::RunProgram(std::vector<std::string>(parts.begin(), parts.end()));
    }
    static int ExitCode(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

    std::string root_;
    LogMark mark_;
};

// inside: a.txt, .hidden, sub/deeper/c.txt (1 + 1 + 3 bytes); outside: nested/keep.txt.
class FileDirTest : public FoundationTest {
protected:
    void SetUp() override {
        FoundationTest::SetUp();
        inside_ = Under("inside");
        outside_ = Under("outside");
        ASSERT_TRUE(TAKDir::Create(inside_ + "/sub/deeper") && TAKDir::Create(outside_ + "/nested"));
        WriteFile(inside_ + "/a.txt", "a");
        WriteFile(inside_ + "/.hidden", "h");
        WriteFile(inside_ + "/sub/deeper/c.txt", "ccc");
        WriteFile(outside_ + "/nested/keep.txt", "keep");
    }
    void ExpectOutsideWhole() { EXPECT_EQ(ReadFile(outside_ + "/nested/keep.txt"), "keep"); }
    std::string inside_, outside_;
};

TEST_F(FileDirTest, QueriesNeverFollowALink) {
    ASSERT_EQ(symlink((inside_ + "/a.txt").c_str(), Under("link").c_str()), 0);
    // A link to its own directory: followed, it would count the files twice, or forever.
    ASSERT_EQ(symlink(inside_.c_str(), (inside_ + "/dirlink").c_str()), 0);
    EXPECT_TRUE(TAKFile::IsFile(inside_ + "/a.txt") && TAKFile::IsDir(inside_) &&
                TAKFile::Exists(Under("link")));
    EXPECT_FALSE(TAKFile::IsDir(inside_ + "/a.txt") || TAKFile::IsFile(inside_) ||
                 TAKFile::IsFile(Under("link")) || TAKFile::Exists(Under("missing")) || TAKFile::Exists(""));
    EXPECT_TRUE(TAKFile::Size(inside_ + "/sub/deeper/c.txt") == 3 && TAKFile::Size(Under("missing")) == -1);
    EXPECT_EQ(TAKDir::FolderSize(inside_), 1 + 1 + 3);
    EXPECT_FALSE(TAKDir::Create("") || TAKDir::Create(inside_ + "/a.txt/sub"));

    EXPECT_TRUE(TAKFile::IsRealPath(inside_ + "/a.txt") &&
                TAKFile::IsRealPath(inside_ + "/not-yet-created.log"));
    for (const std::string& path : {inside_ + "/dirlink/a.txt", Under("link"), inside_ + "/sub/../a.txt",
                                    inside_ + "//a.txt", std::string("relative/a.txt")}) {
        EXPECT_FALSE(TAKFile::IsRealPath(path)) << path;
    }
    // Relative to a working directory where it exists, a path is still not a real path.
    g_autofree gchar* before = g_get_current_dir();
    ASSERT_EQ(chdir(inside_.c_str()), 0);
    EXPECT_FALSE(TAKFile::IsRealPath("sub/new.log"));
    ASSERT_EQ(chdir(before), 0);
}

// The first flag removes the directory itself, the second keeps the tree of sub-directories; with both,
// the directory goes only if nothing was kept in it. Links inside are removed as links with every flag. A
// link given as the path is not followed, but removed as a link when the directory itself is to go. A
// missing directory is logged and survived; a file is not a directory.
TEST_F(FileDirTest, RemoveAllFilesFlagsAndLinks) {
    EXPECT_TRUE(TAKDir::RemoveAllFiles(inside_, false, true));
    EXPECT_TRUE(TAKFile::IsDir(inside_ + "/sub/deeper"));
    EXPECT_EQ(TAKDir::FolderSize(inside_), 0);
    EXPECT_TRUE(TAKDir::RemoveAllFiles(inside_ + "/sub/deeper", true, true) &&
                !TAKFile::Exists(inside_ + "/sub/deeper"));
    EXPECT_TRUE(TAKDir::RemoveAllFiles(inside_, true, true) && TAKFile::IsDir(inside_ + "/sub"));
    for (int flags = 0; flags < 4; ++flags) {
        SCOPED_TRACE(flags);
        ASSERT_TRUE(TAKDir::Create(inside_ + "/sub"));
        ASSERT_EQ(symlink(outside_.c_str(), (inside_ + "/to-dir").c_str()), 0);
        ASSERT_EQ(symlink(outside_.c_str(), (inside_ + "/sub/to-dir-deep").c_str()), 0);
        ASSERT_EQ(symlink((outside_ + "/nested/keep.txt").c_str(), (inside_ + "/to-file").c_str()), 0);
        EXPECT_TRUE(TAKDir::RemoveAllFiles(inside_ + "/", flags & 1, flags & 2));
        EXPECT_EQ(TAKFile::Exists(inside_), (flags & 1) == 0 || (flags & 2) != 0);
        EXPECT_FALSE(TAKFile::Exists(inside_ + "/to-dir") || TAKFile::Exists(inside_ + "/to-file") ||
                     TAKFile::Exists(inside_ + "/sub/to-dir-deep"));
        EXPECT_EQ(TAKFile::IsDir(inside_ + "/sub"), (flags & 2) != 0);
        ExpectOutsideWhole();
    }

    ASSERT_EQ(symlink(outside_.c_str(), Under("link").c_str()), 0);
    EXPECT_FALSE(TAKDir::RemoveAllFiles(Under("link"), false, false) ||
                 TAKDir::RemoveAllFiles(Under("link/"), false, true));
    EXPECT_TRUE(TAKDir::RemoveAllFiles(Under("link"), true, false));
    EXPECT_FALSE(TAKFile::Exists(Under("link")));
    ExpectOutsideWhole();

    EXPECT_TRUE(TAKDir::RemoveAllFiles(Under("missing"), false, false));
    WriteFile(inside_ + "/a.txt", "a");
    EXPECT_FALSE(TAKDir::RemoveAllFiles(inside_ + "/a.txt", true, false) ||
                 TAKDir::RemoveAllFiles("", false, false));
    EXPECT_TRUE(TAKFile::IsFile(inside_ + "/a.txt"));
}

TEST(TAKStringTest, NumbersFromTextAndUcs2ToUtf8) {
    // Decimal texts with blanks around; anything else, and what does not fit, reads as 0.
    for (const char* text : {"2147483648", "", "12abc", "- 5"}) {
        EXPECT_EQ(TAKString::Integer(text), 0) << "text [" << text << "]";
    }
    EXPECT_EQ(std::vector<int>({TAKString::Integer("-17"), TAKString::Integer("\t12\n"),
                                TAKString::Integer("2147483647"), TAKString::Integer("-2147483648")}),
              std::vector<int>({-17, 12, INT_MAX, INT_MIN}));
    EXPECT_EQ(TAKString::UlInteger("18446744073709551615"), ULONG_MAX);
    EXPECT_TRUE(TAKString::UlInteger("18446744073709551616") == 0 && TAKString::UlInteger("-1") == 0);
    // UCS-2 at each place where the UTF-8 length changes and at both ends of the surrogate ranges; a lone
    // surrogate becomes U+FFFD.
    EXPECT_EQ(TAKString::Ucs2ToUtf8(std::u16string{0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0xD800, 0xDC00, 0xDBFF,
                                                   0xDFFF, 0xDC00, 0xD800}),
              "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF\xEF\xBF\xBD\xEF"
              "\xBF\xBD");
    EXPECT_TRUE(!TAKString::Diff("ok", "ok") && !TAKString::Diff(nullptr, nullptr) &&
                TAKString::Diff("ok", "OK") && TAKString::Diff(nullptr, "ok") &&
                TAKString::Diff("", nullptr));
}

// The tag is the caller's: one longer than the whole line still gives a single line, cut, with its newline.
TEST(PlatformLogTest, ATagLongerThanTheLineIsCut) {
    orvix::test::LogMark mark;
    dlog_print(DLOG_ERROR, std::string(5000, 't').c_str(), "%s", "lost");
    std::string text = mark.Text();
    EXPECT_TRUE(text.size() < 4096 && orvix::test::Count(text, "\n") == 1 && text.back() == '\n')
        << text.size();
}

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

class HistoryLogTest : public FoundationTest {
protected:
    void SetUp() override {
        FoundationTest::SetUp();
        ASSERT_TRUE(TAKDir::Create(dir_ = Under("opt/usr/data/vardell/log")));
        HistoryLogFileName("tak_reset_history");
        path_ = dir_ + "/tak_reset_history.log";
    }
    std::string dir_, path_;
};

// A line carries the UTC time and the message, cut at 2047 characters; a path through a link is refused.
TEST_F(HistoryLogTest, LineCarriesTheUtcTimeAndTheMessageCutAt2047Characters) {
    time_t before = time(nullptr);
    WriteHistoryLogFile("[%s][%d]End", "m_ClearDB", 637);
    time_t after = time(nullptr);
    std::string line = ReadFile(path_), message;
    ASSERT_TRUE(StripStamp(line, message)) << line;
    EXPECT_EQ(message, "[m_ClearDB][637]End\n");
    struct tm utc {};
    strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    EXPECT_TRUE(timegm(&utc) >= before && timegm(&utc) <= after) << line;

    WriteFile(path_, "");
    WriteHistoryLogFile("%s", std::string(5000, 'y').c_str());
    EXPECT_TRUE(ReadFile(path_).size() == 2048u && ReadFile(path_).find('\n') == 2047u);

    ASSERT_TRUE(TAKDir::Create(Under("elsewhere")) && TAKDir::RemoveAllFiles(dir_, true, false));
    ASSERT_EQ(symlink(Under("elsewhere").c_str(), dir_.c_str()), 0);
    WriteHistoryLogFile("must not land");
    EXPECT_EQ(TAKDir::FolderSize(Under("elsewhere")), 0);
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
    const std::tuple<const char*, std::function<bool()>, bool, std::string> cases[] = {
        // name, how the path is made, whether it is regular, what the history log says ("" when it takes it)
        {"regular file", [&] { return WriteFile(path_, "plain"), true; }, true, ""},
        {"link to a file", [&] { return symlink(target.c_str(), path_.c_str()) == 0; }, true, notReal},
        {"fifo without reader", [&] { return mkfifo(path_.c_str(), 0600) == 0; }, false, "ptLog is NULL"},
        {"fifo with reader",
         [&] {
             return mkfifo(path_.c_str(), 0600) == 0 &&
                    (reader = open(path_.c_str(), O_RDONLY | O_NONBLOCK)) >= 0;
         },
         false, "ptLog is NULL"},
        {"link to a device", [&] { return symlink("/dev/null", path_.c_str()) == 0; }, false, notReal},
    };
    for (const auto& [name, make, regular, historySays] : cases) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(make()) << strerror(errno);
        LogMark mark;
        for (int flags : {O_RDONLY, O_WRONLY | O_APPEND}) {
            int fd = TAKFile::OpenRegular(path_, flags);
            EXPECT_EQ(fd >= 0, regular) << flags << ": " << strerror(errno);
            if (fd >= 0) {
                EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0) << "left non-blocking";
                EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
                close(fd);
            }
        }
        std::string text = "old";
        EXPECT_TRUE(TAKFile::ReadRegular(path_, text) == regular && text == (regular ? "plain" : ""));
        EXPECT_EQ(TAKFile::IsRegularOrAbsent(path_), regular);
        EXPECT_EQ(mark.Contains(path_ + " is not a regular file, refused"), !regular);
        WriteHistoryLogFile("lost %s", name);
        EXPECT_TRUE(historySays.empty() || mark.Contains(historySays)) << mark.Text();
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
    EXPECT_TRUE(TAKFile::OpenRegular(path_, O_RDONLY) == -1 && errno == ENOENT &&
                TAKFile::IsRegularOrAbsent(path_));
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

// The kit's files, each replaced by a FIFO that nobody opens: every call that reads or writes one must
// come back with its failure result instead of waiting in open() for a peer that never comes.
struct FifoCase {
    const char* name;
    const char* file;  // below the root; a FIFO takes its place
    // Runs the call; true when it failed as it does for a file that cannot be read or written.
    std::function<bool(const std::string& root)> failsAsForAnUnreadableFile;
    const char* logged;  // what the process logs about it ("" when it reports on standard error)
};

const FifoCase kFifoCases[] = {
    {"SettingsKey", "var/lib/vconf/db/test/key",
     [](const std::string&) {
         int value = 7;
         return vconf_get_int("db/test/key", &value) == VCONF_ERROR && value == 7;
     },
     "is not a regular file, not read"},
    {"PackageRecords", "var/lib/pkgmgr/packages.json",
     [](const std::string&) {
         pkgmgrinfo_pkginfo_h package = nullptr;
         return pkgmgrinfo_pkginfo_get_pkginfo("org.test.app", &package) == PMINFO_R_ERROR;
     },
     "cannot be read, no packages"},
    {"SystemInformation", "etc/sysinfo.ini",
     [](const std::string&) {
         bool value = true;
         return system_info_get_platform_bool("robot_product.support", &value) == SYSTEM_INFO_ERROR_NONE &&
                !value;
     },
     "flag robot_product.support reads as false"},
    {"KpiLog", "var/log/kpi.log",
     [](const std::string&) {
         std::promise<int> written;
         auto done = [](int count, void* data) { static_cast<std::promise<int>*>(data)->set_value(count); };
         KPILogFramework::CLogger::GetInstance()->AddEventLogAsync("tak", "reset", "c", "d", done, &written);
         return written.get_future().get() == 0;
     },
     "cannot write the KPI log"},
    // A trace marker comes back at once and leaves the FIFO as it was.
    {"TraceFile", "var/log/tak-reset.trace.json",
     [](const std::string& root) {
         trace_begin("into a fifo");
         trace_end();
         struct stat st {};
         return stat((root + "/var/log/tak-reset.trace.json").c_str(), &st) == 0 && S_ISFIFO(st.st_mode);
     },
     "cannot open the trace file"},
    // A process whose platform log is a FIFO logs to standard error: here that a file stands where the
    // directory of a key should be.
    {"PlatformLog", "var/log/platform.log",
     [](const std::string& root) {
         orvix::host::MakeDirs(root + "/var/lib/vconf/db");
         std::ofstream(root + "/var/lib/vconf/db/test");
         std::ofstream(root + "/.orvix-host");  // orvix-host works only in a root init made
         RunResult run =
             orvix::test::RunProgram({"/usr/bin/env", "ORVIX_LOG_FILE=" + root + "/var/log/platform.log",
                                      ORVIX_HOST_TOOL, "settings", "set", "db/test/key", "1"});
         return run.status > 0 && run.err.find("cannot open the platform log") != std::string::npos &&
                run.err.find("cannot create " + root + "/var/lib/vconf/db/test") != std::string::npos;
     },
     ""},
};

class NoWaitOpenTest : public FoundationTest, public ::testing::WithParamInterface<FifoCase> {};

TEST_P(NoWaitOpenTest, AFifoInPlaceOfTheFileFailsTheCallAtOnce) {
    const FifoCase& row = GetParam();
    std::string fifo = Under(row.file);
    ASSERT_TRUE(orvix::host::MakeDirs(fifo.substr(0, fifo.rfind('/'))));
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    auto call = std::async(std::launch::async, row.failsAsForAnUnreadableFile, root_);
    if (call.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        ADD_FAILURE() << "still waiting in the open of " << row.file;
        // A peer lets the open return: a writer is done while it stays, a reader at its end of data.
        int peer = open(fifo.c_str(), O_RDWR | O_NONBLOCK);
        call.wait_for(std::chrono::seconds(10));
        close(peer);
    }
    EXPECT_TRUE(call.get());
    EXPECT_TRUE(*row.logged == '\0' || LogHas(row.logged)) << row.logged;
}

INSTANTIATE_TEST_SUITE_P(KitFiles, NoWaitOpenTest, ::testing::ValuesIn(kFifoCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Change notifications: type and text of each, and the thread they came on (the main context's).
struct Changes {
    std::vector<std::string> seen;
    std::thread::id thread;

    static void Callback(keynode_t* node, void* data) {
        auto* self = static_cast<Changes*>(data);
        const char* text = vconf_keynode_get_str(node);
        self->seen.push_back(std::to_string(vconf_keynode_get_type(node)) + " " +
                             (text != nullptr ? text : ""));
        self->thread = std::this_thread::get_id();
    }
};

using SettingsTest = FoundationTest;

TEST_F(SettingsTest, BadKeysKeyFilesAndToolArgumentsAreRefusedAndChangeNothing) {
    for (const char* key : {"", "other/x", "db/", "db/../escape", "db/.hidden"}) {
        EXPECT_TRUE(vconf_set_int(key, 1) != VCONF_OK &&
                    vconf_set_int_async(key, 1, nullptr, nullptr) != VCONF_OK)
            << key;
    }
    EXPECT_TRUE(vconf_set_int(nullptr, 1) != VCONF_OK && vconf_get_str(nullptr) == nullptr);
    EXPECT_EQ(TAKDir::FolderSize(root_), 0);
    using namespace std::string_literals;
    for (const std::string& content :
         {""s, "int 2\n7"s, "int 1\nx"s, "zzz 1\n1"s, "int 11\n99999999999"s, "string 4\na\0bc"s}) {
        WriteFile(Under("var/lib/vconf/db/foundation/bad"), content);
        int number = 0;
        EXPECT_TRUE(vconf_get_int("db/foundation/bad", &number) != VCONF_OK &&
                    vconf_get_bool("db/foundation/bad", &number) != VCONF_OK &&
                    vconf_get_str("db/foundation/bad") == nullptr)
            << "content [" << content << "]";
    }
    MarkAsMadeByInit();
    ASSERT_EQ(Run(ORVIX_HOST_TOOL, "settings|set|-t|int|db/f/x|7").status, 0);
    EXPECT_EQ(Run(ORVIX_HOST_TOOL, "settings|get|db/f/x").out, "7\n");
    std::string before = ReadFile(Under("var/lib/vconf/db/f/x"));
    // The tool: one row per kind of error (type, value, range, arguments, command, key outside the store,
    // no key, a broken key file), each refused with one line.
    for (const char* args :
         {"settings|set|-t|float|db/f/x|1", "settings|set|-t|int|db/f/x|12x",
          "settings|set|-t|int|db/f/x|2147483648", "settings|set|db/f/x", "settings|frob|db/f/x",
          "settings|set|other/key|1", "settings|get|db/f/missing", "settings|get|db/foundation/bad"}) {
        RunResult result = Run(ORVIX_HOST_TOOL, args);
        EXPECT_TRUE(result.status != 0 && std::count(result.err.begin(), result.err.end(), '\n') == 1 &&
                    ReadFile(Under("var/lib/vconf/db/f/x")) == before)
            << args << ": " << result.err;
    }
    EXPECT_FALSE(TAKFile::Exists(Under("var/lib/vconf/db/f/missing")));
}

// The adapter reads and writes each type; a failed get clears a text but leaves a number or a flag as it
// was. An asynchronous set completes on a worker thread with its node; the adapter logs its outcome on
// completion (a write that will fail is still accepted), but never the access token.
TEST_F(SettingsTest, AdapterReadsWritesAndLogsAllButTheAccessToken) {
    std::string text;
    int number = 0;
    bool flag = false;
    EXPECT_TRUE(ICVConf::Set("db/home/homeversion_pkg_id", "org.home", true) &&
                ICVConf::Set("memory/tak/app_change", 1, true) &&
                ICVConf::Set("db/built-in-app-upgrader/server_upgrade", true, true));
    EXPECT_TRUE(ICVConf::Get("db/home/homeversion_pkg_id", text) && text == "org.home");
    EXPECT_TRUE(ICVConf::Get("memory/tak/app_change", number) && number == 1);
    EXPECT_TRUE(ICVConf::Get("db/built-in-app-upgrader/server_upgrade", flag) && flag);
    EXPECT_TRUE(!ICVConf::Get("db/appstore/ratingvalue", text) && text.empty());
    EXPECT_FALSE(ICVConf::Get("db/home/homeversion_pkg_id", number) ||
                 ICVConf::Get("db/home/homeversion_pkg_id", flag));
    EXPECT_TRUE(number == 1 && flag);

    const std::string secret = "tok-3f9a1c77-secret";
    EXPECT_TRUE(ICVConf::Set("db/comss/atoken", secret, true) && ICVConf::Get("db/comss/atoken", text) &&
                text == secret);
    EXPECT_TRUE(ICVConf::Set("db/comss/atoken", secret + "-later", false) &&
                ICVConf::Set("memory/tak/app_group_list_ready", 0, false));
    ASSERT_TRUE(TAKDir::Create(Under("run/vconf/memory")));
    WriteFile(Under("run/vconf/memory/blocked"), "a file where a directory should be");
    EXPECT_TRUE(ICVConf::Set("memory/blocked/key", 5, false));
    // Asynchronous sets are written in submission order: once the last has failed, all before it are done.
    EXPECT_TRUE(orvix::test::WaitUntil([&] { return LogHas("failed to set (memory/blocked/key:5)"); }));
    EXPECT_TRUE(ICVConf::Get("db/comss/atoken", text) && text == secret + "-later");
    EXPECT_TRUE(vconf_get_int("memory/tak/app_group_list_ready", &number) == VCONF_OK && number == 0);
    EXPECT_FALSE(ICVConf::Set("memory/blocked/key", 5, true));
    EXPECT_TRUE(LogHas("Failed to set vconf value key=(memory/blocked/key)") && !LogHas("tok-3f9a1c77"));
}

// A change made by another process (the tool) reaches a callback on the main context, also when it was
// registered on a worker thread; an ignored key's callback is not called. Changes arrive in the order
// they happened: once the second key's change is seen, one of the first key would have been seen.
TEST_F(SettingsTest, ChangesByAnotherProcessReachTheCallbacksOnTheMainContext) {
    Changes ignored, watched;
    std::thread([&] {
        EXPECT_EQ(vconf_notify_key_changed("memory/tak/biu_updating_app", Changes::Callback, &watched),
                  VCONF_OK);
    }).join();
    // The same callback on another key: ignoring that one must leave the first watch alone.
    ASSERT_EQ(vconf_notify_key_changed("memory/foundation/first", Changes::Callback, &ignored), VCONF_OK);
    ASSERT_EQ(vconf_ignore_key_changed("memory/foundation/first", Changes::Callback), VCONF_OK);
    MarkAsMadeByInit();
    ASSERT_EQ(Run(ORVIX_HOST_TOOL, "settings|set|memory/foundation/first|a").status, 0);
    ASSERT_EQ(Run(ORVIX_HOST_TOOL, "settings|set|memory/tak/biu_updating_app|org.pkg.one").status, 0);
    // The notifications are dispatched by the default main context, which nothing else iterates here.
    ASSERT_TRUE(orvix::test::WaitUntil(
        [&] { return g_main_context_iteration(nullptr, FALSE), !watched.seen.empty(); }));
    EXPECT_EQ(watched.seen, std::vector<std::string>{std::to_string(VCONF_TYPE_STRING) + " org.pkg.one"});
    EXPECT_TRUE(watched.thread == std::this_thread::get_id() && ignored.seen.empty());
    EXPECT_EQ(vconf_ignore_key_changed("memory/tak/biu_updating_app", Changes::Callback), VCONF_OK);
}

// The NUL-terminated entries that the probe wrote to a file.
std::list<std::string> Entries(const std::string& path) {
    return TAKString::SplitStringToList(orvix::test::ReadWholeFile(path), std::string(1, '\0'), true);
}

using ShellTest = FoundationTest;
using UtilityTest = FoundationTest;

TEST_F(ShellTest, ChildGetsEveryArgumentWholeAndNothingButPath) {
    setenv("FOUNDATION_PARENT_ONLY", "must not pass", 1);
    std::string out = Under("child");
    std::string argv[] = {FOUNDATION_PROBE, "dump", out,
                          "two words 'single' \"double\"; echo $(id) `id` $HOME", "line one\nline two\n"};
    EXPECT_EQ(CTAKShell::ExecShell(argv, 5), 0);
    unsetenv("FOUNDATION_PARENT_ONLY");
    EXPECT_EQ(Entries(out + ".args"), std::list<std::string>(argv, argv + 5));
    EXPECT_EQ(Entries(out + ".env"),
              std::list<std::string>{std::string("PATH=") + platform_path_get(PLATFORM_PATH_SYSTEM_BIN)});
}

// The result is the raw wait status, also while SIGCHLD is ignored (with it ignored the kernel would reap
// the child itself): the shell sets the default for the run and restores the caller's setting after.
// Bad arguments are refused before anything runs; a program that cannot run exits with its errno.
TEST_F(ShellTest, ResultIsTheRawWaitStatusOrARefusal) {
    struct sigaction ignore {};
    struct sigaction previous {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGCHLD, &ignore, &previous), 0);
    std::string exitFive[] = {"/bin/sh", "-c", "exit 5"};
    int status = CTAKShell::ExecShell(exitFive, 3);
    ASSERT_EQ(sigaction(SIGCHLD, &previous, &ignore), 0);
    EXPECT_TRUE(ignore.sa_handler == SIG_IGN && ExitCode(status) == 5) << status;

    std::string out = Under("child");
    std::string six[] = {FOUNDATION_PROBE, "dump", out, "a", "b", "c"};
    EXPECT_TRUE(CTAKShell::ExecShell(six, 6) == -1 && CTAKShell::ExecShell(nullptr, 1) == -1);
    EXPECT_TRUE(!TAKFile::Exists(out + ".args") && CTAKShell::Copy("a", nullptr) == -1);
    std::string missing[] = {Under("no-such-program")};
    EXPECT_EQ(ExitCode(CTAKShell::ExecShell(missing, 1)), ENOENT);
}

// A child that finds another one between its two marker lines (its flag file there) writes "overlap"; each
// stays in flight for a moment, so that a second child started beside it would find the flag.
TEST_F(ShellTest, ChildrenOfTwoThreadsRunOneAtATime) {
    std::string markers = Under("markers");
    auto runTen = [&] {
        std::string argv[] = {
            "/bin/sh", "-c",
            "if (set -C; : >\"$0.busy\") 2>/dev/null; then echo start >>\"$0\"; /bin/sleep 0.005; "
            "echo end >>\"$0\"; exec /bin/rm \"$0.busy\"; fi; echo overlap >>\"$0\"",
            markers};
        for (int i = 0; i < 10; ++i) {
            CTAKShell::ExecShell(argv, 4);
        }
    };
    std::thread first(runTen);
    runTen();
    first.join();
    const std::string text = ReadFile(markers);  // twenty runs, one after the other
    EXPECT_TRUE(text.size() == 200 && orvix::test::Count(text, "start\nend\n") == 20) << text;
}

// The utility is installed in the root, as `orvix-host init` does, and run by the service with nothing in
// its environment but PATH. Paths outside the root, also through `..` or a link inside, are refused with a
// message and a non-zero status, and what is there stays untouched.
TEST_F(UtilityTest, RefusesEverythingOutsideTheRoot) {
    for (const char* place : {"bin", "usr/bin"}) {
        ASSERT_TRUE(TAKDir::Create(Under(place)));
        ASSERT_EQ(symlink(TAKUTILITY_TOOL, Under(std::string(place) + "/takutility").c_str()), 0);
    }
    const std::string outside = root_ + "-outside";
    ASSERT_TRUE(TAKDir::Create(outside) && TAKDir::Create(Under("data")));
    WriteFile(outside + "/precious", "precious");
    WriteFile(Under("data/a.txt"), "alpha");
    EXPECT_EQ(symlink(outside.c_str(), Under("data/to-outside").c_str()), 0);
    const std::string throughDotDot = Under("..") + outside.substr(outside.rfind('/')) + "/precious";
    EXPECT_NE(ExitCode(ITAKUtility::RemoveFile(throughDotDot)), 0);
    EXPECT_NE(ExitCode(ITAKUtility::RemoveFileInDirectory(Under("data/to-outside"))), 0);
    EXPECT_NE(ExitCode(ITAKUtility::SetSmack(outside + "/precious", "Evil")), 0);
    RunResult result = Run(TAKUTILITY_TOOL, "-e|" + outside + "/precious");
    EXPECT_TRUE(result.status != 0 && result.err.find("outside the host root") != std::string::npos);
    for (const std::string& args :
         {std::string("-e|relative/path"), "-q|" + Under("data"), std::string("-e")}) {
        EXPECT_NE(Run(TAKUTILITY_TOOL, args).status, 0) << args;
    }
    EXPECT_TRUE(ReadFile(outside + "/precious") == "precious" && TAKDir::FolderSize(outside) == 8);
    TAKDir::RemoveAllFiles(outside, true, false);
}

// The platform's tracing markers: Chrome trace events appended to the root's trace file.
class TraceTest : public FoundationTest {
protected:
    void SetUp() override {
        FoundationTest::SetUp();
        ASSERT_TRUE(orvix::host::MakeDirs(Under("var/log")));
        file_ = Under("var/log/tak-reset.trace.json");
    }
    void TearDown() override {
        setenv("ORVIX_HOST_ROOT", root_.c_str(), 1);  // a test may have unset it
        FoundationTest::TearDown();
    }

    // The file as the trace tools read it: an array whose closing bracket may be missing.
    Json::Value Events() const {
        std::string text = orvix::test::ReadWholeFile(file_);
        EXPECT_EQ(text.rfind("[\n", 0), 0u) << text.substr(0, 40);
        EXPECT_EQ(text.find(']', text.size() - 2), std::string::npos) << "a closing bracket was written";
        size_t last = text.find_last_not_of(",\n");
        std::istringstream closed(text.substr(0, last + 1) + (text[last] == '[' ? "]" : "\n]"));
        Json::CharReaderBuilder builder;
        Json::CharReaderBuilder::strictMode(&builder.settings_);
        Json::Value events;
        std::string errors;
        EXPECT_TRUE(Json::parseFromStream(builder, closed, &events, &errors)) << errors;
        return events;
    }

    std::string file_;
};

// Each thread's events come in its own order (nested ones too, their name made valid UTF-8), with this
// process's id, its thread id and times that never go back; no event of one thread is lost or mixed into
// another's.
TEST_F(TraceTest, EventsOfConcurrentThreadsPairUpPerThread) {
    const int kThreads = 4, kEach = 200;
    std::vector<std::string> expected(kThreads);  // per thread: "B name;" or "E;" for each event
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &mine = expected[t]] {
            for (int i = 0; i < kEach; ++i) {
                trace_begin("t%d-%d", t, i);
                mine += "B t" + std::to_string(t) + "-" + std::to_string(i) + ";";
                if (i % 10 == 0) {
                    trace_begin("nested \xff%d", i);  // not UTF-8
                    trace_end();
                    mine += "B nested \xef\xbf\xbd" + std::to_string(i) + ";E;";
                }
                trace_end();
                mine += "E;";
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::map<Json::Int64, std::string> seen;  // tid -> its events as above
    std::map<Json::Int64, Json::Int64> lastTs;
    for (const Json::Value& event : Events()) {
        ASSERT_EQ(event["pid"].asInt(), getpid());
        Json::Int64 tid = event["tid"].asInt64();
        ASSERT_GE(event["ts"].asInt64(), lastTs[tid]) << "time went back on thread " << tid;
        lastTs[tid] = event["ts"].asInt64();
        const std::string phase = event["ph"].asString();
        seen[tid] += phase == "B" ? "B " + event["name"].asString() + ";" : phase + ";";
    }
    std::vector<std::string> perThread;
    for (const auto& [tid, events] : seen) {
        perThread.push_back(events);
    }
    std::sort(perThread.begin(), perThread.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_TRUE(perThread == expected)
        << perThread.size()
        << " threads, the first: " << (perThread.empty() ? "" : perThread[0].substr(0, 300));
}

// Outside a root, or in a root without its log directory, a marker writes and creates nothing; once the
// directory is there it writes, and to a new file when the old one was removed.
TEST_F(TraceTest, WrittenOnlyInARootWithItsLogDirectoryToTheFileThatIsThere) {
    unsetenv("ORVIX_HOST_ROOT");
    trace_begin("no root");
    trace_end();
    EXPECT_FALSE(std::filesystem::exists(file_));

    std::filesystem::remove_all(root_ + "/var");
    orvix::host::SetRoot(root_);
    trace_begin("no log directory");
    trace_end();
    EXPECT_FALSE(std::filesystem::exists(root_ + "/var"));

    // The directory made later, the file removed later (a root made anew in place): a new file each time.
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(orvix::host::MakeDirs(root_ + "/var/log"));
        trace_begin("round %d", round);
        trace_end();
        Json::Value events = Events();
        ASSERT_EQ(events.size(), 2u) << round;
        EXPECT_EQ(events[0]["name"].asString(), "round " + std::to_string(round));
        std::filesystem::remove(file_);
    }
}

}  // namespace

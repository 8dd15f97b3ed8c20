// File and directory utilities (never following a link out of where they were sent) and number texts.
#include <climits>

#include "FoundationTest.h"

namespace {

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
    std::string inside_;
    std::string outside_;
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
    EXPECT_TRUE(TAKDir::FolderSize(Under("missing")) == -1 && TAKDir::FolderSize(inside_ + "/a.txt") == -1);

    EXPECT_TRUE(TAKFile::IsRealPath(inside_ + "/a.txt") &&
                TAKFile::IsRealPath(inside_ + "/not-yet-created.log"));
    for (const std::string& path : {inside_ + "/dirlink/a.txt", Under("link"), inside_ + "/sub/../a.txt",
                                    inside_ + "//a.txt", std::string("relative/a.txt")}) {
        EXPECT_FALSE(TAKFile::IsRealPath(path)) << path;
    }
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
    EXPECT_TRUE(LogHas(Under("link") + " is a symbolic link, not followed"));
    EXPECT_TRUE(TAKDir::RemoveAllFiles(Under("link"), true, false));
    EXPECT_FALSE(TAKFile::Exists(Under("link")));
    ExpectOutsideWhole();

    EXPECT_TRUE(TAKDir::RemoveAllFiles(Under("missing"), false, false));
    EXPECT_TRUE(LogHas(Under("missing") + " does not exist"));
    WriteFile(inside_ + "/a.txt", "a");
    EXPECT_FALSE(TAKDir::RemoveAllFiles(inside_ + "/a.txt", true, false) ||
                 TAKDir::RemoveAllFiles("", false, false));
    EXPECT_TRUE(TAKFile::IsFile(inside_ + "/a.txt"));
    EXPECT_TRUE(LogHas(inside_ + "/a.txt is not a directory"));
}

TEST(TAKStringTest, NumbersFromAndToText) {
    // Decimal texts with blanks around; anything else, and what does not fit, reads as 0.
    for (const char* text : {"0", "2147483648", "", "abc", "12abc", "1 2", "-", "0x10", "- 5"}) {
        EXPECT_EQ(TAKString::Integer(text), 0) << "text [" << text << "]";
    }
    EXPECT_EQ(std::vector<int>({TAKString::Integer("42"), TAKString::Integer("-17"), TAKString::Integer("+8"),
                                TAKString::Integer("\t12\n"), TAKString::Integer("2147483647"),
                                TAKString::Integer("-2147483648")}),
              std::vector<int>({42, -17, 8, 12, INT_MAX, INT_MIN}));
    EXPECT_EQ(TAKString::UlInteger("18446744073709551615"), ULONG_MAX);
    EXPECT_EQ(TAKString::UlInteger("140737488355328"), 140737488355328UL);
    EXPECT_TRUE(TAKString::UlInteger("18446744073709551616") == 0 && TAKString::UlInteger("-1") == 0 &&
                TAKString::UlInteger("7x") == 0 && TAKString::UlInteger("") == 0);
    EXPECT_EQ(TAKString::ToString(LLONG_MIN), "-9223372036854775808");
    EXPECT_TRUE(!TAKString::Diff("ok", "ok") && !TAKString::Diff(nullptr, nullptr) &&
                TAKString::Diff("ok", "OK") && TAKString::Diff(nullptr, "ok") &&
                TAKString::Diff("", nullptr));
}

}  // namespace

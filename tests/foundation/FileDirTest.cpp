#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "FoundationTest.h"
#include "TAKDir.h"
#include "TAKFile.h"

namespace foundation {
namespace {

class FileDirTest : public FoundationTest {
protected:
    void SetUp() override {
        FoundationTest::SetUp();
        inside_ = Under("inside");
        outside_ = Under("outside");
        ASSERT_TRUE(TAKDir::Create(inside_ + "/sub/deeper"));
        ASSERT_TRUE(TAKDir::Create(outside_ + "/nested"));
        WriteFile(inside_ + "/a.txt", "a");
        WriteFile(inside_ + "/.hidden", "h");
        WriteFile(inside_ + "/sub/b.txt", "bb");
        WriteFile(inside_ + "/sub/deeper/c.txt", "ccc");
        WriteFile(outside_ + "/keep.txt", "keep");
        WriteFile(outside_ + "/nested/keep2.txt", "keep2");
    }

    void ExpectOutsideWhole() {
        EXPECT_EQ(ReadFile(outside_ + "/keep.txt"), "keep");
        EXPECT_EQ(ReadFile(outside_ + "/nested/keep2.txt"), "keep2");
        EXPECT_EQ(TAKDir::FolderSize(outside_), 9);
    }

    std::string inside_;
    std::string outside_;
};

TEST_F(FileDirTest, FileQueriesNeverFollowALink) {
    ASSERT_EQ(symlink((inside_ + "/a.txt").c_str(), Under("link").c_str()), 0);
    ASSERT_EQ(symlink(Under("nowhere").c_str(), Under("dangling").c_str()), 0);

    EXPECT_TRUE(TAKFile::IsFile(inside_ + "/a.txt"));
    EXPECT_FALSE(TAKFile::IsDir(inside_ + "/a.txt"));
    EXPECT_TRUE(TAKFile::IsDir(inside_));
    EXPECT_FALSE(TAKFile::IsFile(inside_));
    EXPECT_EQ(TAKFile::Size(inside_ + "/sub/deeper/c.txt"), 3);
    EXPECT_EQ(TAKFile::Size(Under("missing")), -1);
    EXPECT_FALSE(TAKFile::Exists(Under("missing")));
    EXPECT_FALSE(TAKFile::Exists(""));

    EXPECT_FALSE(TAKFile::IsFile(Under("link")));
    EXPECT_TRUE(TAKFile::Exists(Under("dangling")));
}

TEST_F(FileDirTest, RealPathCheckAcceptsOnlyCanonicalPaths) {
    ASSERT_EQ(symlink(inside_.c_str(), Under("dirlink").c_str()), 0);
    ASSERT_EQ(symlink((inside_ + "/a.txt").c_str(), Under("filelink").c_str()), 0);

    EXPECT_TRUE(TAKFile::IsRealPath(inside_ + "/a.txt"));
    EXPECT_TRUE(TAKFile::IsRealPath(inside_ + "/not-yet-created.log"));

    EXPECT_FALSE(TAKFile::IsRealPath(Under("dirlink") + "/a.txt"));
    EXPECT_FALSE(TAKFile::IsRealPath(Under("filelink")));
    EXPECT_FALSE(TAKFile::IsRealPath(inside_ + "/sub/../a.txt"));
    EXPECT_FALSE(TAKFile::IsRealPath(inside_ + "//a.txt"));
    EXPECT_FALSE(TAKFile::IsRealPath(inside_ + "/"));
    EXPECT_FALSE(TAKFile::IsRealPath("relative/a.txt"));
    EXPECT_FALSE(TAKFile::IsRealPath(Under("missing-dir/a.txt")));
}

TEST_F(FileDirTest, EmptiesTheDirectoryAndKeepsIt) {
    EXPECT_TRUE(TAKDir::RemoveAllFiles(inside_, false, false));
    EXPECT_TRUE(TAKFile::IsDir(inside_));
    EXPECT_EQ(TAKDir::FolderSize(inside_), 0);
    EXPECT_FALSE(TAKFile::Exists(inside_ + "/sub"));
    EXPECT_FALSE(TAKFile::Exists(inside_ + "/.hidden"));
}

TEST_F(FileDirTest, FirstFlagRemovesTheDirectoryItself) {
    EXPECT_TRUE(TAKDir::RemoveAllFiles(inside_ + "/", true, false));
    EXPECT_FALSE(TAKFile::Exists(inside_));
    ExpectOutsideWhole();
}

TEST_F(FileDirTest, SecondFlagKeepsTheSubDirectoryTree) {
    EXPECT_TRUE(TAKDir::RemoveAllFiles(inside_, false, true));
    EXPECT_TRUE(TAKFile::IsDir(inside_ + "/sub/deeper"));
    EXPECT_FALSE(TAKFile::Exists(inside_ + "/a.txt"));
    EXPECT_FALSE(TAKFile::Exists(inside_ + "/sub/b.txt"));
    EXPECT_FALSE(TAKFile::Exists(inside_ + "/sub/deeper/c.txt"));

    // Both flags: the directory goes only if nothing was kept in it.
    EXPECT_TRUE(TAKDir::RemoveAllFiles(inside_ + "/sub/deeper", true, true));
    EXPECT_FALSE(TAKFile::Exists(inside_ + "/sub/deeper"));
    EXPECT_TRUE(TAKDir::RemoveAllFiles(inside_, true, true));
    EXPECT_TRUE(TAKFile::IsDir(inside_ + "/sub"));
}

TEST_F(FileDirTest, LinksInsideAreRemovedAsLinksWithEveryFlag) {
    const bool flags[][2] = {{false, false}, {true, false}, {false, true}, {true, true}};
    for (const auto& flag : flags) {
        SCOPED_TRACE(testing::Message() << "bFirst " << flag[0] << " bSecond " << flag[1]);
        ASSERT_TRUE(TAKDir::Create(inside_ + "/sub"));
        ASSERT_EQ(symlink(outside_.c_str(), (inside_ + "/to-dir").c_str()), 0);
        ASSERT_EQ(symlink(outside_.c_str(), (inside_ + "/sub/to-dir-deep").c_str()), 0);
        ASSERT_EQ(symlink((outside_ + "/keep.txt").c_str(), (inside_ + "/to-file").c_str()), 0);

        EXPECT_TRUE(TAKDir::RemoveAllFiles(inside_, flag[0], flag[1]));

        EXPECT_FALSE(TAKFile::Exists(inside_ + "/to-dir"));
        EXPECT_FALSE(TAKFile::Exists(inside_ + "/sub/to-dir-deep"));
        EXPECT_FALSE(TAKFile::Exists(inside_ + "/to-file"));
        ExpectOutsideWhole();
        ASSERT_TRUE(TAKDir::Create(inside_));
    }
}

TEST_F(FileDirTest, ALinkGivenAsThePathIsNotFollowed) {
    ASSERT_EQ(symlink(outside_.c_str(), Under("link").c_str()), 0);

    EXPECT_FALSE(TAKDir::RemoveAllFiles(Under("link"), false, false));
    EXPECT_FALSE(TAKDir::RemoveAllFiles(Under("link/"), false, true));
    EXPECT_TRUE(TAKFile::Exists(Under("link")));
    ExpectOutsideWhole();
    EXPECT_NE(Log().find(Under("link") + " is a symbolic link, not followed"), std::string::npos);

    // Asked to remove the directory itself, it removes the link as a link.
    EXPECT_TRUE(TAKDir::RemoveAllFiles(Under("link"), true, false));
    EXPECT_FALSE(TAKFile::Exists(Under("link")));
    ExpectOutsideWhole();
}

TEST_F(FileDirTest, MissingDirectoryOrFileIsReportedNotFatal) {
    EXPECT_TRUE(TAKDir::RemoveAllFiles(Under("missing"), false, false));
    EXPECT_NE(Log().find(Under("missing") + " does not exist"), std::string::npos);

    EXPECT_FALSE(TAKDir::RemoveAllFiles(inside_ + "/a.txt", true, false));
    EXPECT_TRUE(TAKFile::IsFile(inside_ + "/a.txt"));
    EXPECT_NE(Log().find(inside_ + "/a.txt is not a directory"), std::string::npos);
    EXPECT_FALSE(TAKDir::RemoveAllFiles("", false, false));
}

TEST_F(FileDirTest, FolderSizeCountsRegularFilesOnly) {
    ASSERT_EQ(symlink(outside_.c_str(), (inside_ + "/to-dir").c_str()), 0);
    EXPECT_EQ(TAKDir::FolderSize(inside_), 1 + 1 + 2 + 3);
    EXPECT_EQ(TAKDir::FolderSize(Under("missing")), -1);
    EXPECT_EQ(TAKDir::FolderSize(inside_ + "/a.txt"), -1);
}

TEST_F(FileDirTest, CreateMakesMissingParentsAndToleratesExisting) {
    EXPECT_TRUE(TAKDir::Create(Under("x/y/z")));
    EXPECT_TRUE(TAKDir::Create(Under("x/y/z")));
    EXPECT_TRUE(TAKFile::IsDir(Under("x/y/z")));
    EXPECT_FALSE(TAKDir::Create(inside_ + "/a.txt/below"));
}

}  // namespace
}  // namespace foundation

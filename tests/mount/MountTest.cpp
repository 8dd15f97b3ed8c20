// Loop mounts of real ext4 images through the privileged service: what a mount shows, that it is
// read-only, and that neither a mount nor a loop device outlives an unmount or a refused request.
#include <privileged_service.h>

#include "MountSupport.h"
#include "TAKMount.h"

using namespace mount_test;

namespace {

// With a directory outside the root, which nothing may touch.
class ALoopMount : public MountFixture {
protected:
    void SetUp() override {
        MountFixture::SetUp();
        char pattern[] = "/tmp/tak-mount-outside-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_outside = pattern;
    }
    void TearDown() override {
        unsetenv("ORVIX_LOOP_NODE_DIR");
        ExpectNothingLeft(m_outside);
        fs::remove_all(m_outside);
        MountFixture::TearDown();
    }

    std::string m_outside;
};

using ThePrivilegedService = ALoopMount;

}  // namespace

TEST_F(ALoopMount, ShowsTheImageReadOnlyAndLeavesNothingOnceUnmounted) {
    struct Case {
        const char* name;
        const char* fsType;
        const char* nodeDir;  // below the root: the platform "has no node" and one is made there
        const char* mountDir;
    };
    const Case cases[] = {
        {"the type given, an existing directory", "ext4", nullptr, "mnt/given"},
        {"the type found by trying, a directory made with its parents", "", nullptr, "mnt/found/deep/"},
        {"a loop node made where the platform has none", "ext4", "no-loop-nodes", "mnt/own-node"},
    };
    ASSERT_TRUE(orvix::host::MakeDirs(Root() + "/mnt/given"));
    std::map<std::string, std::string> expected = IconFiles();
    expected["lost+found"] = "dir";
    if (!CanMount()) {
        NoteForbidden();
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string image = Root() + "/images/" + std::to_string(&c - cases) + ".img";
        std::string dir = Root() + "/" + c.mountDir;
        std::string stripped = dir.back() == '/' ? dir.substr(0, dir.size() - 1) : dir;
        MakeIconImage(image);
        if (c.nodeDir != nullptr) {
            setenv("ORVIX_LOOP_NODE_DIR", (Root() + "/" + c.nodeDir).c_str(), 1);
        } else {
            unsetenv("ORVIX_LOOP_NODE_DIR");
        }
        LogMark mark;
        if (!CanMount()) {
            EXPECT_FALSE(CTAKMount::Mount(image, dir, c.fsType));
            EXPECT_TRUE(mark.Contains("cannot mount " + image + " on " + stripped)) << mark.Text();
            ExpectNothingLeft();
            continue;
        }
        ASSERT_TRUE(CTAKMount::Mount(image, dir, c.fsType)) << mark.Text();
        std::vector<MountEntry> mounts = MountsAt(stripped);
        ASSERT_EQ(mounts.size(), 1u);
        EXPECT_EQ(mounts[0].type + " " + mounts[0].options.substr(0, 3), "ext4 ro,") << mounts[0].options;
        std::string nodePrefix = c.nodeDir != nullptr ? Root() + "/dev/loop" : "/dev/loop";
        EXPECT_EQ(mounts[0].source.compare(0, nodePrefix.size(), nodePrefix), 0) << mounts[0].source;
        // A node of our own is only needed until the mount holds the device.
        EXPECT_EQ(c.nodeDir != nullptr, !Exists(mounts[0].source)) << mounts[0].source;
        EXPECT_EQ(Tree(stripped), expected);
        EXPECT_EQ(LoopsBackedBelow(Root()).size(), 1u);
        EXPECT_TRUE(open((stripped + "/new.png").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644) == -1 &&
                    errno == EROFS);

        ASSERT_TRUE(CTAKMount::Umount(dir));
        EXPECT_TRUE(MountsAt(stripped).empty() && Exists(stripped) && Exists(image));
        EXPECT_TRUE(mark.Contains(stripped + " unmounted")) << mark.Text();
        ExpectNothingLeft();
        // Unmounting twice is a failure of its own, with its line.
        LogMark again;
        EXPECT_FALSE(CTAKMount::Umount(dir));
        EXPECT_TRUE(again.Contains("cannot unmount " + stripped + ": Invalid argument")) << again.Text();
    }
}

TEST_F(ALoopMount, RefusesBadRequestsAndLeavesNothingBehind) {
    const std::string images = Root() + "/images";
    const std::string good = images + "/good.img";
    MakeIconImage(good);
    WriteFile(images + "/noise.img", std::string(1 << 20, '\x5a'));
    fs::copy_file(good, m_outside + "/good.img");
    fs::create_symlink(m_outside + "/good.img", images + "/link.img");
    fs::create_directories(Root() + "/mnt");
    fs::create_symlink(m_outside, Root() + "/mnt/link");

    struct Case {
        const char* name;
        std::string image;
        std::string dir;
        const char* fsType;
        const char* detail;     // in the log when the request gets as far as the kernel's answer
        bool refusedEarly;      // refused before anything needs privileges: the same everywhere
        std::string madeLevel;  // the highest directory the call made, gone again afterwards
    };
    const Case cases[] = {
        {"not a file system", images + "/noise.img", Root() + "/mnt/noise/deep", "",
         "not an image of kind squashfs,ext4,vfat", false, Root() + "/mnt/noise"},
        {"a missing image", images + "/missing.img", Root() + "/mnt/missing", "", "No such file or directory",
         true, Root() + "/mnt/missing"},
        {"a mount directory outside the root", good, m_outside + "/made/here", "", "is outside the host root",
         true, m_outside + "/made"},
        {"an image linked from outside", images + "/link.img", Root() + "/mnt/linked", "",
         "is a symbolic link", true, Root() + "/mnt/linked"},
        {"a mount directory linked to outside", good, Root() + "/mnt/link", "", "is a symbolic link", true,
         ""},
    };
    if (!CanMount()) {
        NoteForbidden();
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogMark mark;
        EXPECT_FALSE(CTAKMount::Mount(c.image, c.dir, c.fsType));
        EXPECT_TRUE(mark.Contains("cannot mount " + c.image + " on " + c.dir)) << mark.Text();
        if (c.refusedEarly || CanMount()) {
            EXPECT_TRUE(mark.Contains(c.detail)) << mark.Text();
        }
        EXPECT_FALSE(!c.madeLevel.empty() && Exists(c.madeLevel));
        ExpectNothingLeft(m_outside);
    }
    EXPECT_TRUE(Exists(good) && Exists(images + "/noise.img") && Exists(m_outside + "/good.img"));
}

TEST_F(ThePrivilegedService, ActsOnlyBelowTheRootAndAnswersWithErrnoCodes) {
    const std::string nodes = Root() + "/nodes";
    fs::create_directories(nodes);
    fs::create_symlink(m_outside, nodes + "/out");
    struct Refused {
        const char* name;
        std::string path;
        const char* why;
    };
    const Refused refused[] = {
        {"outside", m_outside + "/node", "is outside the host root"},
        {"through a linked directory", nodes + "/out/node", "is outside the host root"},
        {"a link itself", nodes + "/out", "is a symbolic link"},
    };
    for (const Refused& r : refused) {
        SCOPED_TRACE(r.name);
        LogMark mark;
        EXPECT_EQ(PS_Mknod(r.path.c_str(), S_IFIFO | 0600, 0), -EACCES);
        EXPECT_EQ(PS_Umount(r.path.c_str(), 0), -EACCES);
        EXPECT_EQ(PS_Mount(r.path.c_str(), nodes.c_str(), "ext4", 0, nullptr), -EACCES);
        EXPECT_EQ(PS_Mount((nodes + "/image").c_str(), r.path.c_str(), "ext4", 0, nullptr), -EACCES);
        for (const char* call : {"PS_Mknod", "PS_Umount", "PS_Mount"}) {
            EXPECT_TRUE(mark.Contains(std::string(call) + ": [" + r.path + "] " + r.why)) << call << "\n"
                                                                                          << mark.Text();
        }
    }
    EXPECT_TRUE(Tree(m_outside).empty());
    EXPECT_EQ(PS_Mknod(nullptr, S_IFIFO | 0600, 0), -EACCES);
    EXPECT_EQ(PS_Mount((nodes + "/image").c_str(), nodes.c_str(), "", 0, nullptr), -EINVAL);

    LogMark mark;
    EXPECT_EQ(PS_Umount(nodes.c_str(), 0), CanMount() ? -EINVAL : -EPERM);
    EXPECT_TRUE(mark.Contains("cannot unmount " + nodes)) << mark.Text();
}

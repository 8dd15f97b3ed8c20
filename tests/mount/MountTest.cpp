// Loop mounts of real ext4 images (built with mke2fs) through the privileged service: what a mount shows,
// that it is read-only, and that neither a mount nor a loop device outlives an unmount or a refused
// request, as the kernel's mount table and the loop devices' backing files show.

#include <fcntl.h>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <privileged_service.h>

#include "HostFixture.h"
#include "ProcessDbus.h"
#include "TAKMount.h"

namespace {

namespace fs = std::filesystem;
using orvix::test::LogMark;

struct MountEntry {
    std::string source, point, type, options;  // options: "ro,nosuid,..."
};

// A private root without a bus, and a directory outside it that nothing may touch. TearDown fails the
// test when a mount or a loop device is left below either.
class ALoopMount : public orvix::test::HostFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "0", "--builtin", "0"}; }
    bool StartsBus() const override { return false; }
    // Probes whether this process can make loop mounts by mounting a tmpfs.
    void SetUp() override {
        HostFixture::SetUp();
        const std::string scratch = Root() + "/mount-probe";
        int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        m_canMount = mkdir(scratch.c_str(), 0700) == 0 &&
                     mount("probe", scratch.c_str(), "tmpfs", 0, "") == 0 &&
                     umount2(scratch.c_str(), MNT_DETACH) == 0 && control >= 0;
        if (!m_canMount) {  // the success paths cannot run here: the tests check the failures
            fprintf(stderr, "[  NOTE    ] loop mounts cannot succeed here (%s)\n", strerror(errno));
        }
        close(control);
        rmdir(scratch.c_str());
        char pattern[] = "/tmp/tak-mount-outside-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_outside = pattern;
    }
    void TearDown() override {
        unsetenv("ORVIX_LOOP_NODE_DIR");
        ExpectNothingLeft();
        // Whatever a failed test left mounted goes, deepest first, so that the roots can be removed.
        for (const std::string& dir : {Root(), m_outside}) {
            std::vector<MountEntry> left = MountsAt(dir);
            for (auto it = left.rbegin(); it != left.rend(); ++it) {
                umount2(it->point.c_str(), MNT_DETACH);
            }
        }
        fs::remove_all(m_outside);
        HostFixture::TearDown();
    }

    // Mounts of this process's mount table whose mount point is `dir` or below it, in table order.
    static std::vector<MountEntry> MountsAt(const std::string& dir) {
        std::vector<MountEntry> mounts;
        FILE* table = setmntent("/proc/self/mounts", "r");
        for (struct mntent* m; table != nullptr && (m = getmntent(table)) != nullptr;) {
            if (m->mnt_dir == dir || std::string(m->mnt_dir).rfind(dir + "/", 0) == 0) {
                mounts.push_back({m->mnt_fsname, m->mnt_dir, m->mnt_type, m->mnt_opts});
            }
        }
        endmntent(table);
        return mounts;
    }
    // How many loop devices are bound to a file below `dir`.
    static int LoopsBackedBelow(const std::string& dir) {
        int loops = 0;
        std::error_code error;
        for (const auto& device : fs::directory_iterator("/sys/block", error)) {
            loops += orvix::test::ReadWholeFile(device.path().string() + "/loop/backing_file")
                         .rfind(dir + "/", 0) == 0;
        }
        return loops;
    }
    static void WriteFile(const std::string& path, const std::string& text) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path, std::ios::trunc | std::ios::binary) << text;
    }
    // The two icons that the test images hold, read below `dir`.
    static std::string Icons(const std::string& dir) {
        return orvix::test::ReadWholeFile(dir + "/icon.png") + "|" +
               orvix::test::ReadWholeFile(dir + "/sizes/64.png");
    }
    static bool Exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

    // An ext4 image at `image` with two icons, one in a sub-directory (fails the test when it cannot be
    // built).
    void MakeIconImage(const std::string& image) const {
        const std::string tree = image + ".tree";
        WriteFile(tree + "/icon.png", "\x89PNG main");
        WriteFile(tree + "/sizes/64.png", "\x89PNG 64");
        g_autofree gchar* found = g_find_program_in_path("mke2fs");
        const std::string program = found != nullptr ? found : "/sbin/mke2fs";
        orvix::test::RunResult made = orvix::test::RunProgram(
            {program, "-q", "-F", "-t", "ext4", "-b", "1024", "-d", tree, image, "2048"});
        fs::remove_all(tree);
        ASSERT_EQ(made.status, 0) << program << ": " << made.err;
    }

    // Nothing mounted or loop-bound below the root or the outside (waits for the kernel's auto-clear).
    void ExpectNothingLeft() const {
        for (const std::string& dir : {Root(), m_outside}) {
            EXPECT_TRUE(MountsAt(dir).empty()) << "a mount left below " << dir;
            EXPECT_TRUE(orvix::test::WaitUntil([&] { return LoopsBackedBelow(dir) == 0; })) << "loop left";
        }
    }

    std::string m_outside;
    bool m_canMount = false;
};

TEST_F(ALoopMount, ShowsTheImageReadOnlyAndLeavesNothingOnceUnmounted) {
    struct Case {
        const char* name;
        const char* fsType;
        const char* nodeDir;  // below the root: the platform "has no node" and one is made there
        const char* mountDir;
    } const cases[] = {
        {"the type given, an existing directory", "ext4", nullptr, "mnt/given"},
        {"the type found by trying, a directory made with its parents", "", nullptr, "mnt/found/deep/"},
        {"a loop node made where the platform has none", "ext4", "no-loop-nodes", "mnt/own-node"},
    };
    ASSERT_TRUE(orvix::host::MakeDirs(Root() + "/mnt/given"));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string image = Root() + "/images/" + std::to_string(&c - cases) + ".img";
        const std::string dir = Root() + "/" + c.mountDir;
        const std::string stripped = dir.back() == '/' ? dir.substr(0, dir.size() - 1) : dir;
        MakeIconImage(image);
        if (c.nodeDir != nullptr) {
            setenv("ORVIX_LOOP_NODE_DIR", (Root() + "/" + c.nodeDir).c_str(), 1);
        }
        LogMark mark;
        if (!m_canMount) {
            EXPECT_FALSE(CTAKMount::Mount(image, dir, c.fsType));
            EXPECT_TRUE(mark.Contains("cannot mount " + image + " on " + stripped)) << mark.Text();
            continue;
        }
        ASSERT_TRUE(CTAKMount::Mount(image, dir, c.fsType)) << mark.Text();
        std::vector<MountEntry> mounts = MountsAt(stripped);
        ASSERT_EQ(mounts.size(), 1u);
        EXPECT_EQ(mounts[0].type + " " + mounts[0].options.substr(0, 3), "ext4 ro,") << mounts[0].options;
        EXPECT_EQ(mounts[0].source.rfind((c.nodeDir != nullptr ? Root() : "") + "/dev/loop", 0), 0u)
            << mounts[0].source;
        // A node of our own is only needed until the mount holds the device.
        EXPECT_EQ(c.nodeDir != nullptr, !Exists(mounts[0].source)) << mounts[0].source;
        EXPECT_TRUE(Icons(stripped) == "\x89PNG main|\x89PNG 64" && LoopsBackedBelow(Root()) == 1);
        EXPECT_TRUE(open((stripped + "/new.png").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644) == -1 &&
                    errno == EROFS);
        ASSERT_TRUE(CTAKMount::Umount(dir));
        EXPECT_TRUE(MountsAt(stripped).empty() && Exists(stripped) && Exists(image));
        EXPECT_TRUE(mark.Contains(stripped + " unmounted")) << mark.Text();
        ExpectNothingLeft();
        // Unmounting twice is a failure of its own, with its line.
        EXPECT_FALSE(CTAKMount::Umount(dir));
        EXPECT_TRUE(mark.Contains("cannot unmount " + stripped + ": Invalid argument")) << mark.Text();
    }
}

TEST_F(ALoopMount, RefusesBadRequestsAndLeavesNothingBehind) {
    const std::string images = Root() + "/images", good = images + "/good.img", mnt = Root() + "/mnt";
    MakeIconImage(good);
    WriteFile(images + "/noise.img", std::string(1 << 20, '\x5a'));
    fs::copy_file(good, m_outside + "/good.img");
    fs::create_symlink(m_outside + "/good.img", images + "/link.img");
    fs::create_directories(mnt);
    fs::create_symlink(m_outside, mnt + "/link");
    struct Case {
        std::string image, dir;
        const char* detail;     // in the log when the request gets as far as the kernel's answer
        bool refusedEarly;      // refused before anything needs privileges: the same everywhere
        std::string madeLevel;  // the highest directory the call made, gone again afterwards
    } const cases[] = {
        {images + "/noise.img", mnt + "/noise/deep", "not an image of kind squashfs,ext4,vfat", false,
         mnt + "/noise"},
        {images + "/missing.img", mnt + "/missing", "No such file or directory", true, mnt + "/missing"},
        {good, m_outside + "/made/here", "is outside the host root", true, m_outside + "/made"},
        {images + "/link.img", mnt + "/linked", "is a symbolic link", true, mnt + "/linked"},
        {good, mnt + "/link", "is a symbolic link", true, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.image + " on " + c.dir);
        LogMark mark;
        EXPECT_FALSE(CTAKMount::Mount(c.image, c.dir, ""));
        EXPECT_TRUE(mark.Contains("cannot mount " + c.image + " on " + c.dir)) << mark.Text();
        EXPECT_TRUE(!(c.refusedEarly || m_canMount) || mark.Contains(c.detail)) << mark.Text();
        EXPECT_FALSE(!c.madeLevel.empty() && Exists(c.madeLevel));
        ExpectNothingLeft();
    }
    EXPECT_TRUE(Exists(good) && Exists(images + "/noise.img") && Exists(m_outside + "/good.img"));
    // The service itself makes no node, mounts and unmounts nothing outside the root, through a link or on
    // one.
    for (const auto& [path, why] :
         std::vector<std::pair<std::string, std::string>>{{m_outside + "/node", "is outside the host root"},
                                                          {mnt + "/link/node", "is outside the host root"},
                                                          {mnt + "/link", "is a symbolic link"}}) {
        LogMark mark;
        EXPECT_TRUE(PS_Mknod(path.c_str(), S_IFIFO | 0600, 0) == -EACCES &&
                    PS_Umount(path.c_str(), 0) == -EACCES &&
                    PS_Mount(path.c_str(), images.c_str(), "ext4", 0, nullptr) == -EACCES &&
                    PS_Mount(good.c_str(), path.c_str(), "ext4", 0, nullptr) == -EACCES);
        for (const char* call : {"PS_Mknod", "PS_Umount", "PS_Mount"}) {
            EXPECT_TRUE(mark.Contains(std::string(call) + ": [" + path + "] " + why)) << call << mark.Text();
        }
    }
    EXPECT_FALSE(Exists(m_outside + "/node"));
    EXPECT_TRUE(PS_Mknod(nullptr, S_IFIFO | 0600, 0) == -EACCES &&
                PS_Mount(good.c_str(), images.c_str(), "", 0, nullptr) == -EINVAL);
    LogMark mark;
    EXPECT_EQ(PS_Umount(images.c_str(), 0), m_canMount ? -EINVAL : -EPERM);
    EXPECT_TRUE(mark.Contains("cannot unmount " + images)) << mark.Text();
}

class AnIconImage : public ALoopMount {
protected:
    bool StartsBus() const override { return true; }
    void SetUp() override {
        ALoopMount::SetUp();
        setenv("DBUS_SYSTEM_BUS_ADDRESS", BusAddress().c_str(), 1);
    }
};

}  // namespace

// An icon image (no reset path asks for one): mounted, its icons copied by the inner server over the
// bus, then unmounted and removed. (Where this machine cannot mount, it fails before the server.)
TEST_F(AnIconImage, IsCopiedOverTheBusThenUnmountedAndRemoved) {
    const std::string share = orvix::host::PathVariable(27) + "/vardell", image = share + "/icons.img";
    const std::string mountDir = share + "/iconmnt", icons = share + "/icons/app1";
    MakeIconImage(image);
    LogMark mark;
    EXPECT_EQ(CProcessDbus::GetIconFromIconImg(image, mountDir, icons), m_canMount) << mark.Text();
    EXPECT_TRUE(!Exists(mountDir) && Exists(image) != m_canMount);
    EXPECT_EQ(Icons(icons), m_canMount ? "\x89PNG main|\x89PNG 64" : "|");
    std::vector<Json::Value> calls = CallsOf("innerserver", "sub_process_copy_server_icons");
    ASSERT_EQ(calls.size(), m_canMount ? 1u : 0u);
    for (const Json::Value& call : calls) {
        EXPECT_EQ(call["args"][0].asString() + " " + call["args"][1].asString() + " " +
                      orvix::host::JsonLine(call["reply"]),
                  mountDir + "/ " + icons + " [0]");
    }
}

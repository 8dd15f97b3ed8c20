// Loop mounts of real ext4 images (built with mke2fs) through the privileged service. No reset path mounts
// anything, so this is one smoke check of the icon-image path and one of the service's refusals; both
// check that neither a mount nor a loop device outlives the call, as the kernel's tables show.

#include <fcntl.h>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "HostFixture.h"
#include "ProcessDbus.h"
#include "TAKMount.h"
#include "TempDir.h"

namespace {

namespace fs = std::filesystem;
using orvix::test::LogMark;

// A private root with a bus, and a directory outside it that nothing may touch.
class AnIconImage : public orvix::test::HostFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "0", "--builtin", "0"}; }
    // Probes whether this process can make loop mounts by mounting a tmpfs.
    void SetUp() override {
        HostFixture::SetUp();
        setenv("DBUS_SYSTEM_BUS_ADDRESS", BusAddress().c_str(), 1);
        const std::string scratch = Root() + "/mount-probe";
        int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        m_canMount = mkdir(scratch.c_str(), 0700) == 0 &&
                     mount("probe", scratch.c_str(), "tmpfs", 0, "") == 0 &&
                     umount2(scratch.c_str(), MNT_DETACH) == 0 && control >= 0;
        close(control);
        std::string pattern = orvix::test::TempPattern("tak-mount-outside-");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_outside = pattern;
    }
    void TearDown() override {
        ExpectNothingLeft();
        for (const std::string& dir : {Root(), m_outside}) {  // deepest first, so the roots can go
            for (const std::string& point : MountsAt(dir)) {
                umount2(point.c_str(), MNT_DETACH);
            }
        }
        fs::remove_all(m_outside);
        HostFixture::TearDown();
    }
    static std::vector<std::string> MountsAt(const std::string& dir) {
        std::vector<std::string> points;
        FILE* table = setmntent("/proc/self/mounts", "r");
        for (struct mntent* m; table != nullptr && (m = getmntent(table)) != nullptr;) {
            if (m->mnt_dir == dir || std::string(m->mnt_dir).rfind(dir + "/", 0) == 0) {
                points.insert(points.begin(), m->mnt_dir);  // the latest, the deepest, first
            }
        }
        endmntent(table);
        return points;
    }
    static int LoopsBackedBelow(const std::string& dir) {
        int loops = 0;
        for (const auto& device : fs::directory_iterator("/sys/block")) {
            loops += orvix::test::ReadWholeFile(device.path().string() + "/loop/backing_file")
                         .rfind(dir + "/", 0) == 0;
        }
        return loops;
    }
    // An ext4 image with two icons, one in a sub-directory.
    static void MakeIconImage(const std::string& image) {
        const std::string tree = image + ".tree";
        ASSERT_TRUE(orvix::host::MakeDirs(tree + "/sizes"));
        std::ofstream(tree + "/icon.png") << "\x89PNG main";
        std::ofstream(tree + "/sizes/64.png") << "\x89PNG 64";
        g_autofree gchar* found = g_find_program_in_path("mke2fs");
        const std::string program = found != nullptr ? found : "/sbin/mke2fs";
        orvix::test::RunResult made = orvix::test::RunProgram(
            {program, "-q", "-F", "-t", "ext4", "-b", "1024", "-d", tree, image, "2048"});
        fs::remove_all(tree);
        ASSERT_EQ(made.status, 0) << program << ": " << made.err;
    }
    void ExpectNothingLeft() const {
        for (const std::string& dir : {Root(), m_outside}) {
            EXPECT_TRUE(MountsAt(dir).empty()) << "a mount left below " << dir;
            EXPECT_TRUE(orvix::test::WaitUntil([&] { return LoopsBackedBelow(dir) == 0; })) << "loop left";
        }
    }

    std::string m_outside;
    bool m_canMount = false;
};

}  // namespace

// Refused first: the service mounts nothing that is not an image, nothing outside the root and nothing
// through a link, and takes back the directories the refused call made. Then mounted, its icons copied
// by the inner server over the bus, unmounted and removed. (Where this machine cannot mount, that fails
// before the server.)
TEST_F(AnIconImage, IsCopiedOverTheBusAndBadMountsAreRefusedLeavingNothingBehind) {
    const std::string share = orvix::host::PathVariable(27) + "/vardell", image = share + "/icons.img";
    const std::string mountDir = share + "/iconmnt", icons = share + "/icons/app1", mnt = Root() + "/mnt";
    MakeIconImage(image);
    std::ofstream(share + "/noise.img") << std::string(1 << 20, '\x5a');
    fs::create_directories(mnt);
    fs::create_symlink(m_outside, mnt + "/link");
    struct Case {
        std::string image, dir, detail, madeLevel;
        bool refusedEarly;  // before anything needs privileges: the same everywhere
    } const cases[] = {
        {share + "/noise.img", mnt + "/noise/deep", "not an image of kind squashfs,ext4,vfat", mnt + "/noise",
         false},
        {image, m_outside + "/made/here", "is outside the host root", m_outside + "/made", true},
        {image, mnt + "/link", "is a symbolic link", "", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.dir);
        LogMark mark;
        EXPECT_FALSE(CTAKMount::Mount(c.image, c.dir, ""));
        EXPECT_TRUE(mark.Contains("cannot mount " + c.image + " on " + c.dir)) << mark.Text();
        EXPECT_TRUE(!(c.refusedEarly || m_canMount) || mark.Contains(c.detail)) << mark.Text();
        EXPECT_FALSE(!c.madeLevel.empty() && fs::exists(c.madeLevel));
        ExpectNothingLeft();
    }

    EXPECT_EQ(CProcessDbus::GetIconFromIconImg(image, mountDir, icons), m_canMount);
    EXPECT_TRUE(!fs::exists(mountDir) && fs::exists(image) != m_canMount);
    EXPECT_EQ(orvix::test::ReadWholeFile(icons + "/icon.png") + "|" +
                  orvix::test::ReadWholeFile(icons + "/sizes/64.png"),
              m_canMount ? "\x89PNG main|\x89PNG 64" : "|");
    EXPECT_EQ(CallsOf("innerserver", "sub_process_copy_server_icons").size(), m_canMount ? 1u : 0u);
}

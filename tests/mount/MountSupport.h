// What the loop-mount tests share: a root without a bus, a probe of whether this machine lets the test
// mount at all, real ext4 images built with mke2fs, and views of the kernel's state (the mount table
// and the loop devices' backing files) that show what a call left behind.
#pragma once

#include <fcntl.h>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "HostFixture.h"

namespace mount_test {

namespace fs = std::filesystem;
using orvix::test::LogMark;

struct MountEntry {
    std::string source, point, type, options;  // options: "ro,nosuid,..."
};

inline std::string RealPath(const std::string& path) {
    std::error_code error;
    fs::path real = fs::weakly_canonical(path, error);
    return error ? path : real.string();
}

// Mounts of this process's mount table whose mount point is `dir` or below it, in table order.
inline std::vector<MountEntry> MountsAt(const std::string& dir) {
    std::vector<MountEntry> mounts;
    const std::string real = RealPath(dir);
    FILE* table = setmntent("/proc/self/mounts", "r");
    for (struct mntent* m; table != nullptr && (m = getmntent(table)) != nullptr;) {
        if (m->mnt_dir == real || std::string(m->mnt_dir).rfind(real + "/", 0) == 0) {
            mounts.push_back({m->mnt_fsname, m->mnt_dir, m->mnt_type, m->mnt_opts});
        }
    }
    endmntent(table);
    return mounts;
}

// "loopN <backing file>" for every loop device bound to a file below `dir`.
inline std::vector<std::string> LoopsBackedBelow(const std::string& dir) {
    std::vector<std::string> loops;
    const std::string real = RealPath(dir) + "/";
    std::error_code error;
    for (const auto& device : fs::directory_iterator("/sys/block", error)) {
        std::string backing = orvix::test::ReadWholeFile(device.path().string() + "/loop/backing_file");
        if (backing.rfind(real, 0) == 0) {
            loops.push_back(device.path().filename().string() + " " + backing.substr(0, backing.find('\n')));
        }
    }
    return loops;
}

inline void WriteFile(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::trunc | std::ios::binary) << text;
}

// Everything below `dir`: relative path -> "file:<content>", "dir" or "link:<target>".
inline std::map<std::string, std::string> Tree(const std::string& dir) {
    std::map<std::string, std::string> tree;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(dir, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        std::string& entry = tree[it->path().lexically_relative(dir).string()];
        entry = it->is_symlink()     ? "link:" + fs::read_symlink(it->path()).string()
                : it->is_directory() ? "dir"
                                     : "file:" + orvix::test::ReadWholeFile(it->path().string());
    }
    return tree;
}

inline bool Exists(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0;
}

// A private root without a bus; TearDown fails the test when a mount or a loop device is left below it.
class MountFixture : public orvix::test::HostFixture {
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
        m_forbidden = m_canMount ? "" : strerror(errno);
        close(control);
        rmdir(scratch.c_str());
    }
    void TearDown() override {
        ExpectNothingLeft();
        // Whatever a failed test left mounted goes, deepest first, so that the root can be removed.
        std::vector<MountEntry> left = MountsAt(Root());
        for (auto it = left.rbegin(); it != left.rend(); ++it) {
            umount2(it->point.c_str(), MNT_DETACH);
        }
        HostFixture::TearDown();
    }

    bool CanMount() const { return m_canMount; }
    // Says on the test's output why the success path cannot run here; the test then checks the failure.
    void NoteForbidden() const {
        fprintf(stderr, "[  NOTE    ] loop mounts cannot succeed here (%s): only the failure is checked\n",
                m_forbidden.c_str());
    }

    // The tree the test images hold: two icons, one in a sub-directory, and a link out of the image.
    static std::map<std::string, std::string> IconFiles() {
        return {{"icon_main.png", "file:\x89PNG main icon"},
                {"sizes", "dir"},
                {"sizes/icon_64.png", "file:\x89PNG 64x64"},
                {"outside.png", "link:/etc/hostname"}};
    }
    // An ext4 image at `image` with IconFiles() (fails the test when it cannot be built).
    void MakeIconImage(const std::string& image) const {
        const std::string tree = image + ".tree";
        for (const auto& [relative, what] : IconFiles()) {
            fs::create_directories(fs::path(tree + "/" + relative).parent_path());
            if (what.rfind("file:", 0) == 0) {
                WriteFile(tree + "/" + relative, what.substr(5));
            } else if (what == "dir") {
                fs::create_directories(tree + "/" + relative);
            } else {
                fs::create_symlink(what.substr(5), tree + "/" + relative);
            }
        }
        g_autofree gchar* found = g_find_program_in_path("mke2fs");
        const std::string program = found != nullptr ? found : "/sbin/mke2fs";
        orvix::test::RunResult made = orvix::test::RunProgram(
            {program, "-q", "-F", "-t", "ext4", "-b", "1024", "-d", tree, image, "2048"});
        fs::remove_all(tree);
        ASSERT_EQ(made.status, 0) << program << ": " << made.err;
    }

    // Nothing mounted or loop-bound below the root or `also` (waits for the kernel's auto-clear).
    void ExpectNothingLeft(const std::string& also = "") const {
        for (const std::string& dir : {Root(), also}) {
            for (const auto& entry : dir.empty() ? std::vector<MountEntry>() : MountsAt(dir)) {
                ADD_FAILURE() << entry.source << " is still mounted on " << entry.point;
            }
            EXPECT_TRUE(dir.empty() || orvix::test::WaitUntil([&] { return LoopsBackedBelow(dir).empty(); }))
                << "still attached: " << ::testing::PrintToString(LoopsBackedBelow(dir));
        }
    }

private:
    bool m_canMount = false;
    std::string m_forbidden;
};

}  // namespace mount_test

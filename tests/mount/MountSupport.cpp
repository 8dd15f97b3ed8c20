#include "MountSupport.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace mount_test {

namespace {

bool AtOrBelow(const std::string& path, const std::string& dir) {
    return path == dir || path.compare(0, dir.size() + 1, dir + "/") == 0;
}

std::string RealPath(const std::string& path) {
    std::error_code error;
    std::filesystem::path real = std::filesystem::weakly_canonical(path, error);
    return error ? path : real.string();
}

}  // namespace

std::vector<MountEntry> MountsAt(const std::string& dir) {
    std::vector<MountEntry> mounts;
    std::string real = RealPath(dir);
    std::ifstream table("/proc/self/mountinfo");
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string id, parent, device, root, point, options, field;
        fields >> id >> parent >> device >> root >> point >> options;
        while (fields >> field && field != "-") {
        }
        MountEntry entry;
        fields >> entry.type >> entry.source;
        entry.point = point;  // the test roots hold no blanks the table would escape
        entry.options = options;
        if (AtOrBelow(entry.point, real)) {
            mounts.push_back(entry);
        }
    }
    return mounts;
}

std::vector<std::string> LoopsBackedBelow(const std::string& dir) {
    std::vector<std::string> loops;
    std::string real = RealPath(dir);
    std::error_code error;
    for (const auto& device : std::filesystem::directory_iterator("/sys/block", error)) {
        std::string name = device.path().filename().string();
        if (name.compare(0, 4, "loop") != 0) {
            continue;
        }
        std::string backing = orvix::test::ReadWholeFile(device.path().string() + "/loop/backing_file");
        while (!backing.empty() && backing.back() == '\n') {
            backing.pop_back();
        }
        if (!backing.empty() && backing.compare(0, real.size() + 1, real + "/") == 0) {
            loops.push_back(name + " " + backing);
        }
    }
    return loops;
}

std::string MountForbidden(const std::string& scratch) {
    if (mkdir(scratch.c_str(), 0700) != 0) {
        return "cannot make the scratch directory " + scratch + ": " + strerror(errno);
    }
    std::string reason;
    if (mount("probe", scratch.c_str(), "tmpfs", 0, "size=16k") != 0) {
        reason = std::string("mount(2) of a tmpfs is refused: ") + strerror(errno);
    } else {
        umount2(scratch.c_str(), MNT_DETACH);
        int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        if (control < 0) {
            reason = std::string("/dev/loop-control cannot be opened: ") + strerror(errno);
        } else {
            close(control);
        }
    }
    rmdir(scratch.c_str());
    return reason;
}

void WriteFile(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::trunc | std::ios::binary) << text;
}

std::map<std::string, std::string> Tree(const std::string& dir) {
    std::map<std::string, std::string> tree;
    std::error_code error;
    for (auto it = std::filesystem::recursive_directory_iterator(dir, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
        std::string relative = it->path().lexically_relative(dir).string();
        if (it->is_symlink()) {
            tree[relative] = "link:" + std::filesystem::read_symlink(it->path()).string();
        } else if (it->is_directory()) {
            tree[relative] = "dir";
        } else {
            tree[relative] = "file:" + orvix::test::ReadWholeFile(it->path().string());
        }
    }
    return tree;
}

bool Exists(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0;
}

void MountFixture::SetUp() {
    HostFixture::SetUp();
    m_forbidden = MountForbidden(Root() + "/mount-probe");
}

void MountFixture::TearDown() {
    ExpectNothingLeft();
    // Whatever a failed test left mounted goes, deepest first, so that the root can be removed.
    std::vector<MountEntry> left = MountsAt(Root());
    for (auto it = left.rbegin(); it != left.rend(); ++it) {
        umount2(it->point.c_str(), MNT_DETACH);
    }
    HostFixture::TearDown();
}

void MountFixture::NoteForbidden() const {
    fprintf(stderr,
            "[  NOTE    ] loop mounts cannot succeed on this machine (%s): only the failure is checked\n",
            m_forbidden.c_str());
}

std::map<std::string, std::string> MountFixture::IconFiles() {
    return {{"icon_main.png", "file:\x89PNG main icon"},
            {"sizes", "dir"},
            {"sizes/icon_64.png", "file:\x89PNG 64x64"},
            {"outside.png", "link:/etc/hostname"}};
}

void MountFixture::MakeIconImage(const std::string& image) const {
    std::string tree = image + ".tree";
    for (const auto& [relative, what] : IconFiles()) {
        std::string path = tree + "/" + relative;
        if (what.compare(0, 5, "file:") == 0) {
            WriteFile(path, what.substr(5));
        } else if (what == "dir") {
            std::filesystem::create_directories(path);
        } else {
            std::filesystem::create_directories(std::filesystem::path(path).parent_path());
            std::filesystem::create_symlink(what.substr(5), path);
        }
    }
    gchar* found = g_find_program_in_path("mke2fs");
    std::string program = found != nullptr ? found : "/sbin/mke2fs";
    g_free(found);
    orvix::test::RunResult made =
        orvix::test::RunProgram({program, "-q", "-F", "-t", "ext4", "-b", "1024", "-d", tree, image, "2048"});
    std::filesystem::remove_all(tree);
    ASSERT_EQ(made.status, 0) << program << ": " << made.err;
}

void MountFixture::ExpectNothingLeft(const std::string& also) const {
    for (const std::string& dir : {Root(), also}) {
        if (dir.empty()) {
            continue;
        }
        for (const auto& entry : MountsAt(dir)) {
            ADD_FAILURE() << entry.source << " is still mounted on " << entry.point;
        }
        std::vector<std::string> loops;
        bool detached = orvix::test::WaitUntil([&] {
            loops = LoopsBackedBelow(dir);
            return loops.empty();
        });
        EXPECT_TRUE(detached) << "still attached: " << ::testing::PrintToString(loops);
    }
}

}  // namespace mount_test

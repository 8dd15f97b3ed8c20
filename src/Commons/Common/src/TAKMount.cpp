#include "TAKMount.h"

#include <privileged_service.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "TAKDir.h"
#include "TAKLog.h"

// Icon images come packed as squashfs or as ext4 (which also mounts ext2 and ext3 images), vfat when made
// on other systems. Each kind refuses a foreign image by its magic number, so the order only decides how
// many attempts a mount takes.
const char* const CTAKMount::TYPES[] = {"squashfs", "ext4", "vfat"};
const int CTAKMount::TYPE_COUNT = sizeof(TYPES) / sizeof(TYPES[0]);

namespace {

std::string StripTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string Parent(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return "";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The directories between `dir` and its nearest existing ancestor, deepest first: what making `dir`
// adds and what a failed mount takes away again.
std::vector<std::string> MissingLevels(const std::string& dir) {
    std::vector<std::string> missing;
    struct stat st {};
    for (std::string level = dir; !level.empty() && level != "/" && lstat(level.c_str(), &st) != 0;
         level = Parent(level)) {
        missing.push_back(level);
    }
    return missing;
}

void RemoveLevels(const std::vector<std::string>& levels) {
    for (const auto& level : levels) {
        rmdir(level.c_str());
    }
}

// The kernel's answers that mean "not an image of this kind" (or a kind it does not know).
bool WrongKind(int result) {
    return result == -EINVAL || result == -ENODEV;
}

int MountAs(const std::string& image, const std::string& dir, const std::string& fsType, std::string& tried) {
    if (!fsType.empty()) {
        tried = fsType;
        return PS_Mount(image.c_str(), dir.c_str(), fsType.c_str(), MS_RDONLY | MS_NODEV | MS_NOSUID,
                        nullptr);
    }
    int result = -EINVAL;
    for (int i = 0; i < CTAKMount::TYPE_COUNT && WrongKind(result); ++i) {
        tried += (tried.empty() ? "" : ",") + std::string(CTAKMount::TYPES[i]);
        result = PS_Mount(image.c_str(), dir.c_str(), CTAKMount::TYPES[i], MS_RDONLY | MS_NODEV | MS_NOSUID,
                          nullptr);
    }
    return result;
}

}  // namespace

bool CTAKMount::Mount(const std::string& image, const std::string& mountDir, const std::string& fsType) {
    std::string dir = StripTrailingSlashes(mountDir);
    std::vector<std::string> made = MissingLevels(dir);
    if (!made.empty() && !TAKDir::Create(dir)) {
        RemoveLevels(made);
        return false;
    }
    std::string tried;
    int result = MountAs(image, dir, fsType, tried);
    if (result != 0) {
        if (WrongKind(result)) {
            TAK_LOGE("cannot mount %s on %s: not an image of kind %s", image.c_str(), dir.c_str(),
                     tried.c_str());
        } else {
            TAK_LOGE("cannot mount %s on %s as %s: %s", image.c_str(), dir.c_str(), tried.c_str(),
                     strerror(-result));
        }
        RemoveLevels(made);
        return false;
    }
    TAK_LOGI("%s mounted on %s", image.c_str(), dir.c_str());
    return true;
}

bool CTAKMount::Umount(const std::string& mountDir) {
    std::string dir = StripTrailingSlashes(mountDir);
    int result = PS_Umount(dir.c_str(), 0);
    if (result != 0) {
        TAK_LOGE("cannot unmount %s: %s", dir.c_str(), strerror(-result));
        return false;
    }
    TAK_LOGI("%s unmounted", dir.c_str());
    return true;
}

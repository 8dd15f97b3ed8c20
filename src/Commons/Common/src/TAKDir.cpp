#include "TAKDir.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "TAKLog.h"

namespace {

const int kDirOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

struct RemoveWalk {
    dev_t device;   // the file system of the directory being emptied; others are never entered
    bool keepTree;  // remove only non-directories
    bool ok;
};

std::string StripTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string Join(const std::string& dir, const char* name) {
    return dir == "/" ? dir + name : dir + "/" + name;
}

// Opens the directory stream on `fd` (consumed) and reads every name before anything is removed, so
// that removal never races with the stream. Null when the directory cannot be read.
DIR* ReadNames(int fd, const std::string& path, std::vector<std::string>& names) {
    DIR* dir = fdopendir(fd);
    if (dir == nullptr) {
        TAK_LOGE("Failed to read directory %s: %s", path.c_str(), strerror(errno));
        close(fd);
        return nullptr;
    }
    while (struct dirent* entry = readdir(dir)) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
            names.emplace_back(entry->d_name);
        }
    }
    return dir;
}

void UnlinkEntry(int parentFd, const std::string& name, const std::string& path, int flags,
                 RemoveWalk& walk) {
    if (unlinkat(parentFd, name.c_str(), flags) != 0 && errno != ENOENT) {
        TAK_LOGE("Failed to remove %s: %s", path.c_str(), strerror(errno));
        walk.ok = false;
    }
}

void EmptyDirectory(int dirFd, const std::string& path, RemoveWalk& walk);

void RemoveSubDirectory(int parentFd, const std::string& name, const std::string& path, RemoveWalk& walk) {
    int fd = openat(parentFd, name.c_str(), kDirOpenFlags);
    if (fd < 0) {
        if (errno == ELOOP || errno == ENOTDIR) {
            // Swapped for a link or a file since it was looked at: remove whatever is there now, as itself.
            UnlinkEntry(parentFd, name, path, 0, walk);
        } else if (errno != ENOENT) {
            TAK_LOGE("Failed to open %s: %s", path.c_str(), strerror(errno));
            walk.ok = false;
        }
        return;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0 || st.st_dev != walk.device) {
        TAK_LOGE("%s is on another file system, not removed", path.c_str());
        close(fd);
        walk.ok = false;
        return;
    }
    EmptyDirectory(fd, path, walk);
    if (!walk.keepTree) {
        UnlinkEntry(parentFd, name, path, AT_REMOVEDIR, walk);
    }
}

// Removes what is inside the open directory `dirFd` (consumed).
void EmptyDirectory(int dirFd, const std::string& path, RemoveWalk& walk) {
    std::vector<std::string> names;
    DIR* dir = ReadNames(dirFd, path, names);
    if (dir == nullptr) {
        walk.ok = false;
        return;
    }
    int fd = dirfd(dir);
    for (const std::string& name : names) {
        std::string child = Join(path, name.c_str());
        struct stat st {};
        if (fstatat(fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT) {
                TAK_LOGE("Failed to stat %s: %s", child.c_str(), strerror(errno));
                walk.ok = false;
            }
            continue;
        }
        if (!S_ISDIR(st.st_mode)) {
            UnlinkEntry(fd, name, child, 0, walk);
        } else if (st.st_dev != walk.device) {
            TAK_LOGE("%s is on another file system, not removed", child.c_str());
            walk.ok = false;
        } else {
            RemoveSubDirectory(fd, name, child, walk);
        }
    }
    closedir(dir);
}

// The path itself is not a directory that can be entered: a link is never followed.
bool RemoveNonDirectory(const std::string& path, bool bFirst) {
    struct stat st {};
    if (lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        if (!bFirst) {
            TAK_LOGE("%s is a symbolic link, not followed", path.c_str());
            return false;
        }
        if (unlink(path.c_str()) != 0) {
            TAK_LOGE("Failed to remove %s: %s", path.c_str(), strerror(errno));
            return false;
        }
        return true;
    }
    TAK_LOGE("%s is not a directory", path.c_str());
    return false;
}

long long SumSizes(int dirFd, const std::string& path, dev_t device) {
    std::vector<std::string> names;
    DIR* dir = ReadNames(dirFd, path, names);
    if (dir == nullptr) {
        return 0;
    }
    long long total = 0;
    for (const std::string& name : names) {
        struct stat st {};
        if (fstatat(dirfd(dir), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        if (S_ISREG(st.st_mode)) {
            total += st.st_size;
        } else if (S_ISDIR(st.st_mode) && st.st_dev == device) {
            int fd = openat(dirfd(dir), name.c_str(), kDirOpenFlags);
            if (fd >= 0) {
                total += SumSizes(fd, Join(path, name.c_str()), device);
            }
        }
    }
    closedir(dir);
    return total;
}

}  // namespace

namespace TAKDir {

bool RemoveAllFiles(const std::string& path, bool bFirst, bool bSecond) {
    std::string dir = StripTrailingSlashes(path);
    if (dir.empty()) {
        TAK_LOGE("path is empty");
        return false;
    }
    // O_NOFOLLOW only guards the last component, and a trailing slash would make open() follow it:
    // that is why the slashes are stripped above.
    int fd = open(dir.c_str(), kDirOpenFlags);
    if (fd < 0) {
        if (errno == ENOENT) {
            TAK_LOGI("%s does not exist, nothing to remove", dir.c_str());
            return true;
        }
        if (errno == ELOOP || errno == ENOTDIR) {
            return RemoveNonDirectory(dir, bFirst);
        }
        TAK_LOGE("Failed to open %s: %s", dir.c_str(), strerror(errno));
        return false;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0) {
        TAK_LOGE("Failed to stat %s: %s", dir.c_str(), strerror(errno));
        close(fd);
        return false;
    }
    RemoveWalk walk{st.st_dev, bSecond, true};
    EmptyDirectory(fd, dir, walk);
    // With the tree kept, sub-directories may remain: the directory then stays, and that is no failure.
    if (bFirst && rmdir(dir.c_str()) != 0 && !(bSecond && errno == ENOTEMPTY)) {
        TAK_LOGE("Failed to remove %s: %s", dir.c_str(), strerror(errno));
        walk.ok = false;
    }
    return walk.ok;
}

long long FolderSize(const std::string& path) {
    std::string dir = StripTrailingSlashes(path);
    int fd = dir.empty() ? -1 : open(dir.c_str(), kDirOpenFlags);
    if (fd < 0) {
        return -1;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0) {
        close(fd);
        return -1;
    }
    return SumSizes(fd, dir, st.st_dev);
}

bool Create(const std::string& path) {
    if (path.empty()) {
        return false;
    }
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        std::string partial = path.substr(0, pos);
        if (mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) {
            TAK_LOGE("Failed to create %s: %s", partial.c_str(), strerror(errno));
            return false;
        }
    }
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace TAKDir

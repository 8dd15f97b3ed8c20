// What stat says of a file, to tell one version of it from another without reading it: the host's
// stand-ins read files that tests and tools change while the stand-ins run.
#pragma once

#include <errno.h>
#include <sys/stat.h>

#include <string>

namespace orvix::host {

struct FileStamp {
    std::string path;
    int statError = 0;  // errno of a failed stat(); ENOENT: there is no file
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    bool operator==(const FileStamp& other) const {
        return path == other.path && statError == other.statError && device == other.device &&
               inode == other.inode && size == other.size && modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec && changed.tv_sec == other.changed.tv_sec &&
               changed.tv_nsec == other.changed.tv_nsec;
    }
};

inline FileStamp StampOf(const std::string& path) {
    FileStamp stamp;
    stamp.path = path;
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        stamp.statError = errno;
        return stamp;
    }
    stamp.device = info.st_dev;
    stamp.inode = info.st_ino;
    stamp.size = info.st_size;
    stamp.modified = info.st_mtim;
    stamp.changed = info.st_ctim;
    return stamp;
}

}  // namespace orvix::host

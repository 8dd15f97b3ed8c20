#include "TAKFile.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "TAKLog.h"

namespace {

bool LStat(const std::string& path, struct stat* st) {
    return !path.empty() && lstat(path.c_str(), st) == 0;
}

// Absolute, no trailing slash, and no empty, "." or ".." component: the spelling of a canonical path.
bool CanonicalSpelling(const std::string& path) {
    if (path.size() < 2 || path.front() != '/' || path.back() == '/') {
        return false;
    }
    size_t begin = 1;
    while (begin <= path.size()) {
        size_t end = path.find('/', begin);
        if (end == std::string::npos) {
            end = path.size();
        }
        // A view, not a copy: this runs for every component of every history line's path.
        std::string_view component(path.data() + begin, end - begin);
        if (component.empty() || component == "." || component == "..") {
            return false;
        }
        begin = end + 1;
    }
    return true;
}

// openat2 with every symbolic link refused on the way; -1 with errno ENOSYS where the kernel (or a
// sandbox) does not offer it.
int OpenWithoutLinks(const std::string& path, int flags, mode_t mode) {
#ifdef SYS_openat2
    struct open_how how {};
    how.flags = static_cast<unsigned long long>(flags | O_CLOEXEC | O_NOFOLLOW);
    how.mode = (flags & O_CREAT) != 0 ? mode : 0;
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    return static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof(how)));
#else
    errno = ENOSYS;
    return -1;
#endif
}

bool Unavailable(int error) {
    return error == ENOSYS || error == EPERM;
}

// The check without openat2: resolve the directory and compare.
bool IsRealPathByResolving(const std::string& path) {
    size_t slash = path.rfind('/');
    std::string dir = slash == 0 ? "/" : path.substr(0, slash);
    char resolved[PATH_MAX];
    if (realpath(dir.c_str(), resolved) == nullptr || dir != resolved) {
        return false;
    }
    struct stat st {};
    return !(lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode));
}

// Keeps `fd` only if it is a regular file, and makes it blocking again; else closes it, -1 with errno.
int KeepRegular(int fd) {
    if (fd < 0) {
        return -1;
    }
    struct stat st {};
    int error = 0;
    if (fstat(fd, &st) != 0) {
        error = errno;
    } else if (!S_ISREG(st.st_mode)) {
        error = S_ISDIR(st.st_mode) ? EISDIR : ENXIO;
    } else {
        int flags = fcntl(fd, F_GETFL);
        if (flags < 0 || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0) {
            error = errno;
        }
    }
    if (error == 0) {
        return fd;
    }
    close(fd);
    errno = error;
    return -1;
}

// Nothing an open does may wait, nor make the file the process's terminal.
const int kNoWaitFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

}  // namespace

namespace TAKFile {

bool Exists(const std::string& path) {
    struct stat st {};
    return LStat(path, &st);
}

bool IsFile(const std::string& path) {
    struct stat st {};
    return LStat(path, &st) && S_ISREG(st.st_mode);
}

bool IsDir(const std::string& path) {
    struct stat st {};
    return LStat(path, &st) && S_ISDIR(st.st_mode);
}

long long Size(const std::string& path) {
    struct stat st {};
    if (!LStat(path, &st)) {
        return -1;
    }
    return static_cast<long long>(st.st_size);
}

bool IsRealPath(const std::string& path) {
    if (!CanonicalSpelling(path)) {
        return false;
    }
    size_t slash = path.rfind('/');
    std::string dir = slash == 0 ? "/" : path.substr(0, slash);
    int dirFd = OpenWithoutLinks(dir, O_PATH | O_DIRECTORY, 0);
    if (dirFd < 0) {
        return Unavailable(errno) ? IsRealPathByResolving(path) : false;
    }
    struct stat st {};
    bool linkAtEnd =
        fstatat(dirFd, path.c_str() + slash + 1, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode);
    close(dirFd);
    return !linkAtEnd;
}

int OpenRealPath(const std::string& path, int flags, mode_t mode, bool& isRealPath) {
    isRealPath = CanonicalSpelling(path);
    if (!isRealPath) {
        return -1;
    }
    int fd = OpenWithoutLinks(path, flags, mode);
    if (fd >= 0) {
        return fd;
    }
    if (Unavailable(errno)) {
        isRealPath = IsRealPathByResolving(path);
        return isRealPath ? open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode) : -1;
    }
    // A link on the way, or a directory on the way that is missing or not a directory: the path does
    // not resolve to itself.
    isRealPath = !(errno == ELOOP || errno == ENOENT || errno == ENOTDIR);
    return -1;
}

int OpenRegular(const std::string& path, int flags, mode_t mode) {
    return KeepRegular(open(path.c_str(), flags | kNoWaitFlags, mode));
}

int OpenRegularRealPath(const std::string& path, int flags, mode_t mode, bool& isRealPath) {
    return KeepRegular(OpenRealPath(path, flags | kNoWaitFlags, mode, isRealPath));
}

bool ReadRegular(const std::string& path, std::string& text) {
    text.clear();
    int fd = OpenRegular(path, O_RDONLY);
    if (fd < 0) {
        return false;
    }
    char buffer[65536];
    ssize_t got = 0;
    while ((got = read(fd, buffer, sizeof(buffer))) != 0) {
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            int error = errno;
            close(fd);
            text.clear();
            errno = error;
            return false;
        }
        text.append(buffer, static_cast<size_t>(got));
    }
    close(fd);
    return true;
}

bool IsRegularOrAbsent(const std::string& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        if (errno == ENOENT) {
            return true;
        }
        TAK_LOGE("can not stat %s: %s", path.c_str(), strerror(errno));
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        TAK_LOGE("%s is not a regular file, refused", path.c_str());
        return false;
    }
    return true;
}

}  // namespace TAKFile

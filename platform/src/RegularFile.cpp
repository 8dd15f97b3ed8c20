// See orvix_regular_file.h.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "orvix_regular_file.h"

namespace orvix::host {

namespace {

// Closes `fd` and gives back -1 with `error` in errno.
int CloseWith(int fd, int error) {
    close(fd);
    errno = error;
    return -1;
}

}  // namespace

int OpenNoWait(const std::string& path, int flags, mode_t mode) {
    int fd = open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode);
    if (fd < 0) {
        return -1;
    }
    int current = fcntl(fd, F_GETFL);
    if (current < 0 || fcntl(fd, F_SETFL, current & ~O_NONBLOCK) != 0) {
        return CloseWith(fd, errno);
    }
    return fd;
}

int OpenRegular(const std::string& path, int flags, mode_t mode) {
    int fd = OpenNoWait(path, flags, mode);
    if (fd < 0) {
        return -1;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0) {
        return CloseWith(fd, errno);
    }
    if (!S_ISREG(st.st_mode)) {
        return CloseWith(fd, S_ISDIR(st.st_mode) ? EISDIR : ENXIO);
    }
    return fd;
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
            text.clear();
            CloseWith(fd, errno);
            return false;
        }
        text.append(buffer, static_cast<size_t>(got));
    }
    close(fd);
    return true;
}

}  // namespace orvix::host

#include "LineFollower.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "orvix_regular_file.h"

namespace {

constexpr size_t kChunk = 64 * 1024;

}  // namespace

void CLineFollower::ReadNew(const std::function<void(const std::string& line)>& line) {
    int fd = orvix::host::OpenRegular(m_strPath, O_RDONLY);
    if (fd < 0) {
        return;
    }
    struct stat info = {};
    if (fstat(fd, &info) == 0 && info.st_size < m_nOffset) {
        m_nOffset = 0;
    }
    std::string pending;
    char buffer[kChunk];
    ssize_t n = 0;
    while ((n = pread(fd, buffer, sizeof(buffer), m_nOffset + static_cast<off_t>(pending.size()))) > 0) {
        pending.append(buffer, static_cast<size_t>(n));
        size_t start = 0;
        for (size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n', start)) {
            line(pending.substr(start, end - start));
            start = end + 1;
        }
        m_nOffset += static_cast<off_t>(start);
        pending.erase(0, start);
    }
    close(fd);
}

void CLineFollower::SkipToEnd() {
    struct stat info = {};
    m_nOffset = stat(m_strPath.c_str(), &info) == 0 ? info.st_size : 0;
}

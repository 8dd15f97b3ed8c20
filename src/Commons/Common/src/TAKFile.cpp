#include "TAKFile.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>

namespace {

bool LStat(const std::string& path, struct stat* st) {
    return !path.empty() && lstat(path.c_str(), st) == 0;
}

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
    if (path.size() < 2 || path.front() != '/' || path.back() == '/') {
        return false;
    }
    size_t slash = path.rfind('/');
    std::string name = path.substr(slash + 1);
    if (name == "." || name == "..") {
        return false;
    }
    std::string dir = slash == 0 ? "/" : path.substr(0, slash);
    char resolved[PATH_MAX];
    if (realpath(dir.c_str(), resolved) == nullptr || dir != resolved) {
        return false;
    }
    struct stat st {};
    if (lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        return false;
    }
    return true;
}

}  // namespace TAKFile

// Host security labels. A Smack kernel keeps a file's label in the extended attribute
// "security.SMACK64" (and "...EXEC", "...MMAP" for the other label kinds). On a host the security
// namespace is writable only with privileges, so the kit falls back to the same name in the "user"
// namespace, which any owner may write. A file that carries no label at all reads as "_", the label
// a Smack kernel gives to unlabelled files, so callers see the state a device would show them.
#include <sys/xattr.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "smack.h"

namespace {

const char kFloorLabel[] = "_";

const char* AttributeSuffix(int type) {
    switch (type) {
        case SMACK_LABEL_ACCESS:
            return "SMACK64";
        case SMACK_LABEL_EXEC:
            return "SMACK64EXEC";
        case SMACK_LABEL_MMAP:
            return "SMACK64MMAP";
        default:
            return nullptr;
    }
}

// Errors that mean "this namespace holds nothing for us", as opposed to a missing file.
bool NamespaceUnavailable(int error) {
    return error == ENODATA || error == ENOTSUP || error == EPERM || error == EACCES;
}

// The attribute's value, or false with errno set.
bool ReadAttribute(const char* path, const std::string& name, std::string& value) {
    char buffer[256];
    ssize_t length = getxattr(path, name.c_str(), buffer, sizeof(buffer));
    if (length < 0) {
        return false;
    }
    value.assign(buffer, static_cast<size_t>(length));
    // Some writers store the terminating NUL as part of the value.
    while (!value.empty() && value.back() == '\0') {
        value.pop_back();
    }
    return true;
}

ssize_t HandOut(const std::string& value, char** label) {
    char* copy = strdup(value.c_str());
    if (copy == nullptr) {
        return -1;
    }
    *label = copy;
    return static_cast<ssize_t>(value.size());
}

}  // namespace

extern "C" ssize_t smack_getlabel(const char* path, char** label, int type) {
    const char* suffix = AttributeSuffix(type);
    if (path == nullptr || label == nullptr || suffix == nullptr) {
        errno = EINVAL;
        return -1;
    }
    *label = nullptr;
    std::string value;
    if (ReadAttribute(path, std::string("security.") + suffix, value)) {
        return HandOut(value, label);
    }
    if (!NamespaceUnavailable(errno)) {
        return -1;
    }
    if (ReadAttribute(path, std::string("user.") + suffix, value)) {
        return HandOut(value, label);
    }
    if (errno != ENODATA && errno != ENOTSUP) {
        return -1;
    }
    return HandOut(kFloorLabel, label);
}

extern "C" int smack_setlabel(const char* path, const char* label, int type) {
    const char* suffix = AttributeSuffix(type);
    if (path == nullptr || suffix == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const std::string security = std::string("security.") + suffix;
    const std::string user = std::string("user.") + suffix;
    if (label == nullptr || *label == '\0') {
        // Removing a label: clear both places so that the file reads as unlabelled again.
        int a = removexattr(path, security.c_str());
        int b = removexattr(path, user.c_str());
        return (a == 0 || b == 0 || errno == ENODATA) ? 0 : -1;
    }
    size_t length = strlen(label);
    if (setxattr(path, security.c_str(), label, length, 0) == 0) {
        // A stale fallback value would otherwise never be seen again but could confuse a later reader.
        removexattr(path, user.c_str());
        return 0;
    }
    if (!NamespaceUnavailable(errno)) {
        return -1;
    }
    return setxattr(path, user.c_str(), label, length, 0) == 0 ? 0 : -1;
}

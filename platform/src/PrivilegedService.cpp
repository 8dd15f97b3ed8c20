// The host's privileged service. A device has a daemon with the privileges a service process lacks; on
// the host the calls act in the calling process, which therefore needs the right to mount (root, or
// CAP_SYS_ADMIN with access to /dev/loop-control). Confinement to the host root stands in for the
// device's access policy: nothing outside the root is mounted over, unmounted or created.
//
// A loop device is attached with LO_FLAGS_AUTOCLEAR, so the kernel detaches it by itself when the last
// user (the mounted file system) lets go of it; every failure path detaches it explicitly, so a failed
// mount never leaves a device bound to an image.
#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dlog.h"
#include "orvix_host.h"
#include "orvix_regular_file.h"
#include "privileged_service.h"

namespace {

const char kTag[] = "ORVIX";
const char kLoopControl[] = "/dev/loop-control";
// Another process may take the free device between the question and the attach; it is asked again.
const int kAttachAttempts = 8;

// Logs one failure line and gives back the negative code.
__attribute__((format(printf, 2, 3))) int Fail(int error, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    char message[4096];
    vsnprintf(message, sizeof(message), fmt, args);
    dlog_print(DLOG_ERROR, kTag, "privileged service: %s", message);
    va_end(args);
    return -error;
}

std::string Canonical(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? std::string(resolved) : std::string();
}

bool AtOrBelow(const std::string& path, const std::string& root) {
    if (root == "/") {
        return true;
    }
    return path == root || path.compare(0, root.size() + 1, root + "/") == 0;
}

// Why `path` may not be used, or "" when it may; `resolved` is then its real directory joined with its
// last component.
std::string Refusal(const char* path, std::string& resolved) {
    if (path == nullptr || path[0] != '/') {
        return "is not an absolute path";
    }
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') {
        trimmed.pop_back();
    }
    size_t slash = trimmed.rfind('/');
    std::string name = trimmed.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        return "does not name an entry";
    }
    std::string parent = Canonical(slash == 0 ? "/" : trimmed.substr(0, slash));
    if (parent.empty()) {
        return std::string("has no directory: ") + strerror(errno);
    }
    std::string root = Canonical(orvix::host::Root());
    if (root.empty() || !AtOrBelow(parent, root)) {
        return "is outside the host root " + orvix::host::Root();
    }
    resolved = (parent == "/" ? "" : parent) + "/" + name;
    struct stat st {};
    if (lstat(resolved.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        return "is a symbolic link";
    }
    return "";
}

// The real place of `path`, or "" after one log line when it is refused.
std::string Confined(const char* call, const char* path, int& error) {
    std::string resolved;
    std::string refusal = Refusal(path, resolved);
    if (refusal.empty()) {
        return resolved;
    }
    error = Fail(EACCES, "%s: [%s] %s, refused", call, path != nullptr ? path : "(null)", refusal.c_str());
    return "";
}

struct LoopDevice {
    int number = -1;
    int fd = -1;
    std::string node;
    bool nodeMade = false;  // the node is ours, below the root, and goes once the device is in use
};

// "major:minor" of a loop device, as the kernel publishes it.
bool LoopDeviceNumber(int number, dev_t& device) {
    std::string path = "/sys/block/loop" + std::to_string(number) + "/dev";
    std::string text;
    unsigned int major = 0;
    unsigned int minor = 0;
    if (!orvix::host::ReadRegular(path, text) || sscanf(text.c_str(), "%u:%u", &major, &minor) != 2) {
        return false;
    }
    device = makedev(major, minor);
    return true;
}

bool IsNodeOf(const std::string& node, dev_t device) {
    struct stat st {};
    return stat(node.c_str(), &st) == 0 && S_ISBLK(st.st_mode) && st.st_rdev == device;
}

// The node of loop device `number`: the platform's, or one made below the root where the platform has
// none (a container's static /dev, say).
int FindLoopNode(LoopDevice& loop) {
    dev_t device = 0;
    if (!LoopDeviceNumber(loop.number, device)) {
        return Fail(ENODEV, "loop%d has no device number", loop.number);
    }
    const char* dir = getenv("ORVIX_LOOP_NODE_DIR");
    std::string name = "loop" + std::to_string(loop.number);
    loop.node = std::string(dir != nullptr && *dir != '\0' ? dir : "/dev") + "/" + name;
    if (IsNodeOf(loop.node, device)) {
        return 0;
    }
    std::string own = orvix::host::UnderRoot("dev");
    if (!orvix::host::MakeDirs(own)) {
        int error = errno;
        return Fail(error, "cannot create %s for the node of %s: %s", own.c_str(), name.c_str(),
                    strerror(error));
    }
    loop.node = own + "/" + name;
    unlink(loop.node.c_str());  // a node left by a process that died before it removed it
    int made = PS_Mknod(loop.node.c_str(), S_IFBLK | 0600, device);
    loop.nodeMade = made == 0;
    return made;
}

void ForgetNode(LoopDevice& loop) {
    if (loop.nodeMade) {
        unlink(loop.node.c_str());
        loop.nodeMade = false;
    }
}

void Detach(LoopDevice& loop) {
    if (loop.fd >= 0) {
        ioctl(loop.fd, LOOP_CLR_FD, 0);
        close(loop.fd);
        loop.fd = -1;
    }
    ForgetNode(loop);
}

// Binds `backing` to loop device loop.number. On failure nothing stays bound and the code is -errno;
// -EBUSY (someone else took the device first) is left to the caller to retry, every other failure is
// logged here.
int Configure(LoopDevice& loop, int backing, const std::string& source) {
    int made = FindLoopNode(loop);
    if (made != 0) {
        return made;
    }
    loop.fd = orvix::host::OpenNoWait(loop.node, O_RDWR);  // a device by design; only its open must not wait
    if (loop.fd < 0) {
        int error = errno;
        ForgetNode(loop);
        return Fail(error, "cannot open %s: %s", loop.node.c_str(), strerror(error));
    }
    struct loop_config config {};
    config.fd = static_cast<__u32>(backing);
    config.info.lo_flags = LO_FLAGS_READ_ONLY | LO_FLAGS_AUTOCLEAR;
    snprintf(reinterpret_cast<char*>(config.info.lo_file_name), LO_NAME_SIZE, "%s", source.c_str());
    if (ioctl(loop.fd, LOOP_CONFIGURE, &config) == 0) {
        return 0;
    }
    int error = errno;
    close(loop.fd);
    loop.fd = -1;
    ForgetNode(loop);
    if (error == EBUSY) {
        return -EBUSY;
    }
    return Fail(error, "cannot attach %s to loop%d: %s", source.c_str(), loop.number, strerror(error));
}

int Attach(int backing, const std::string& source, LoopDevice& loop) {
    int control = orvix::host::OpenNoWait(kLoopControl, O_RDWR);
    if (control < 0) {
        return Fail(errno, "cannot open %s: %s", kLoopControl, strerror(errno));
    }
    int result = -EBUSY;
    for (int attempt = 0; attempt < kAttachAttempts && result == -EBUSY; ++attempt) {
        loop.number = ioctl(control, LOOP_CTL_GET_FREE);
        if (loop.number < 0) {
            result = Fail(errno, "no free loop device: %s", strerror(errno));
            break;
        }
        result = Configure(loop, backing, source);
    }
    close(control);
    if (result == -EBUSY) {
        return Fail(EBUSY, "every free loop device was taken by others before %s could be attached",
                    source.c_str());
    }
    return result;
}

int OpenImage(const std::string& source) {
    int fd = orvix::host::OpenRegular(source, O_RDONLY | O_NOFOLLOW);
    if (fd >= 0) {
        return fd;
    }
    if (orvix::host::IsNotRegularError(errno)) {
        return Fail(EINVAL, "%s is not an image file", source.c_str());
    }
    return Fail(errno, "cannot open the image %s: %s", source.c_str(), strerror(errno));
}

}  // namespace

extern "C" int PS_Mount(const char* source, const char* target, const char* fstype, unsigned long flags,
                        const char* data) {
    if (fstype == nullptr || *fstype == '\0') {
        return Fail(EINVAL, "PS_Mount: no file-system type for [%s]", source != nullptr ? source : "(null)");
    }
    int error = 0;
    std::string image = Confined("PS_Mount", source, error);
    std::string mountPoint = image.empty() ? "" : Confined("PS_Mount", target, error);
    if (mountPoint.empty()) {
        return error;
    }
    int backing = OpenImage(image);
    if (backing < 0) {
        return backing;
    }
    LoopDevice loop;
    int attached = Attach(backing, image, loop);
    close(backing);  // the loop device holds the file from here on
    if (attached != 0) {
        return attached;
    }
    if (mount(loop.node.c_str(), mountPoint.c_str(), fstype, flags | MS_RDONLY, data) != 0) {
        int failure = errno;
        Detach(loop);
        // The kernel's answer to an image of another kind: expected while the kind is being found out.
        bool otherKind = failure == EINVAL || failure == ENODEV;
        dlog_print(otherKind ? DLOG_INFO : DLOG_ERROR, kTag,
                   "privileged service: cannot mount %s (loop%d) on %s as %s: %s", image.c_str(), loop.number,
                   mountPoint.c_str(), fstype, strerror(failure));
        return -failure;
    }
    // The mount holds the device now; with auto-clear it detaches when the file system lets go of it.
    close(loop.fd);
    ForgetNode(loop);
    dlog_print(DLOG_INFO, kTag, "privileged service: %s mounted on %s as %s through loop%d", image.c_str(),
               mountPoint.c_str(), fstype, loop.number);
    return 0;
}

extern "C" int PS_Umount(const char* target, int flags) {
    int error = 0;
    std::string mountPoint = Confined("PS_Umount", target, error);
    if (mountPoint.empty()) {
        return error;
    }
    if (umount2(mountPoint.c_str(), flags | UMOUNT_NOFOLLOW) != 0) {
        return Fail(errno, "cannot unmount %s: %s", mountPoint.c_str(), strerror(errno));
    }
    dlog_print(DLOG_INFO, kTag, "privileged service: %s unmounted", mountPoint.c_str());
    return 0;
}

extern "C" int PS_Mknod(const char* path, mode_t mode, dev_t dev) {
    int error = 0;
    std::string node = Confined("PS_Mknod", path, error);
    if (node.empty()) {
        return error;
    }
    if (mknod(node.c_str(), mode, dev) != 0) {
        return Fail(errno, "cannot make the node %s: %s", node.c_str(), strerror(errno));
    }
    return 0;
}

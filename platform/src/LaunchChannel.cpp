// Wire format and client side of the launch channel. The serving side lives in ServiceApp.cpp.
#include <errno.h>
#include <glib.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "orvix_host.h"
#include "orvix_launch.h"

namespace orvix::host {

namespace {

constexpr char kFrameMagic[4] = {'O', 'L', 'R', '1'};

GVariant* ByteString(const std::string& text) {
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, text.data(), text.size(), 1);
}

std::string FromByteString(GVariant* value) {
    gsize size = 0;
    const void* data = g_variant_get_fixed_array(value, &size, 1);
    return std::string(static_cast<const char*>(data), size);
}

bool WaitFor(int fd, short events, int timeoutMs) {
    struct pollfd pfd = {fd, events, 0};
    int rc;
    do {
        rc = poll(&pfd, 1, timeoutMs);
    } while (rc < 0 && errno == EINTR);
    return rc > 0;
}

bool WriteAll(int fd, const char* data, size_t size, int timeoutMs) {
    while (size > 0) {
        if (!WaitFor(fd, POLLOUT, timeoutMs)) {
            return false;
        }
        ssize_t n = send(fd, data, size, MSG_NOSIGNAL);
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

bool ReadExactly(int fd, char* data, size_t size) {
    while (size > 0) {
        ssize_t n = read(fd, data, size);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

int ConnectTo(const std::string& path) {
    struct sockaddr_un addr {};
    if (path.size() >= sizeof(addr.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    if (connect(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

void SetError(std::string* error, const std::string& text) {
    if (error != nullptr) {
        *error = text;
    }
}

}  // namespace

std::string LaunchDir(const std::string& app) {
    return UnderRoot("run/" + app);
}

std::string LaunchSocketPath(const std::string& app) {
    return LaunchDir(app) + "/launch.sock";
}

std::string LaunchPidPath(const std::string& app) {
    return LaunchDir(app) + "/" + app + ".pid";
}

bool ParseLaunchArgument(const std::string& argument, std::string& key, std::string& value) {
    size_t eq = argument.find('=');
    if (eq == std::string::npos || eq == 0) {
        return false;
    }
    key = argument.substr(0, eq);
    value = argument.substr(eq + 1);
    return true;
}

std::string EncodeLaunchPayload(const LaunchExtras& extras) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ayay)"));
    for (const auto& [key, value] : extras) {
        g_variant_builder_add(&builder, "(@ay@ay)", ByteString(key), ByteString(value));
    }
    GVariant* packed = g_variant_ref_sink(g_variant_builder_end(&builder));
    std::string payload(static_cast<const char*>(g_variant_get_data(packed)), g_variant_get_size(packed));
    g_variant_unref(packed);
    return payload;
}

bool DecodeLaunchPayload(const std::string& payload, LaunchExtras& extras) {
    // The bytes come from another process: copy them so that GVariant gets aligned data, and insist on
    // normal form so that a hostile frame cannot make the reads below misbehave.
    GBytes* bytes = g_bytes_new(payload.data(), payload.size());
    GVariant* packed = g_variant_ref_sink(g_variant_new_from_bytes(G_VARIANT_TYPE("a(ayay)"), bytes, FALSE));
    g_bytes_unref(bytes);
    bool ok = g_variant_is_normal_form(packed);
    LaunchExtras decoded;
    for (gsize i = 0; ok && i < g_variant_n_children(packed); ++i) {
        GVariant* pair = g_variant_get_child_value(packed, i);
        GVariant* key = g_variant_get_child_value(pair, 0);
        GVariant* value = g_variant_get_child_value(pair, 1);
        decoded.emplace_back(FromByteString(key), FromByteString(value));
        ok = !decoded.back().first.empty();
        g_variant_unref(value);
        g_variant_unref(key);
        g_variant_unref(pair);
    }
    g_variant_unref(packed);
    if (ok) {
        extras = std::move(decoded);
    }
    return ok;
}

std::string EncodeLaunchFrame(const LaunchExtras& extras) {
    std::string payload = EncodeLaunchPayload(extras);
    guint32 size = GUINT32_TO_LE(static_cast<guint32>(payload.size()));
    std::string frame(kFrameMagic, sizeof(kFrameMagic));
    frame.append(reinterpret_cast<const char*>(&size), sizeof(size));
    frame += payload;
    return frame;
}

bool DecodeLaunchFrameHeader(const char (&header)[kLaunchFrameHeaderSize], size_t& payloadSize) {
    if (memcmp(header, kFrameMagic, sizeof(kFrameMagic)) != 0) {
        return false;
    }
    guint32 size = 0;
    memcpy(&size, header + sizeof(kFrameMagic), sizeof(size));
    payloadSize = GUINT32_FROM_LE(size);
    return payloadSize <= kLaunchMaxPayload;
}

bool DecodeLaunchFrame(const std::string& frame, LaunchExtras& extras) {
    char header[kLaunchFrameHeaderSize];
    size_t size = 0;
    if (frame.size() < sizeof(header)) {
        return false;
    }
    memcpy(header, frame.data(), sizeof(header));
    return DecodeLaunchFrameHeader(header, size) && frame.size() - sizeof(header) == size &&
           DecodeLaunchPayload(frame.substr(sizeof(header)), extras);
}

bool ReadLaunchFrame(int fd, LaunchExtras& extras) {
    char header[kLaunchFrameHeaderSize];
    size_t size = 0;
    if (!ReadExactly(fd, header, sizeof(header)) || !DecodeLaunchFrameHeader(header, size)) {
        return false;
    }
    std::string payload(size, '\0');
    return ReadExactly(fd, payload.data(), payload.size()) && DecodeLaunchPayload(payload, extras);
}

LaunchDelivery DeliverLaunchRequest(const std::string& app, const LaunchExtras& extras, int timeoutMs,
                                    std::string* error) {
    std::string path = LaunchSocketPath(app);
    int fd = ConnectTo(path);
    if (fd < 0) {
        SetError(error, "cannot connect to " + path + ": " + strerror(errno));
        return LaunchDelivery::NoInstance;
    }
    std::string frame = EncodeLaunchFrame(extras);
    char answer = 0;
    bool sent = WriteAll(fd, frame.data(), frame.size(), timeoutMs);
    bool answered = sent && WaitFor(fd, POLLIN, timeoutMs) && ReadExactly(fd, &answer, 1);
    close(fd);
    if (answered && answer == 'Q') {
        return LaunchDelivery::Delivered;
    }
    if (answered && answer == 'R') {
        SetError(error, app + " is shutting down and refused the request");
        return LaunchDelivery::Refused;
    }
    SetError(error, app + " did not acknowledge the request");
    return LaunchDelivery::Failed;
}

}  // namespace orvix::host

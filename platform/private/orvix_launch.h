// The launch channel of a service app on the host: how launch requests reach a running instance.
// Only the kit, its tools and the tests use this header; the reset code never does.
//
// Every app has a directory <root>/run/<app> holding its lock/pid file "<app>.pid" and its socket
// "launch.sock". A request is a set of KEY=VALUE extras; values are byte strings (any bytes but NUL,
// newlines and '=' included, no size limit below the channel's ceiling). On the socket a client writes
// one frame: the 4 bytes "OLR1", a 32-bit little-endian payload size, and the payload, a serialised
// GVariant of type "a(ayay)". The instance answers one byte: 'Q' once the request is queued, 'R' when it
// refuses it because it is shutting down. The channel carries a NUL byte like any other, but the app
// receives its values as C strings: the framework drops a request holding one, with a log line.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace orvix::host {

using LaunchExtras = std::vector<std::pair<std::string, std::string>>;

// The largest payload the channel accepts.
constexpr size_t kLaunchMaxPayload = 64u * 1024u * 1024u;

// Environment of an instance started by a launcher: the fd the first request is read from instead of the
// command line, and the fd that gets one byte once the first request is queued or handed on.
constexpr const char kLaunchRequestFdEnv[] = "ORVIX_LAUNCH_REQUEST_FD";
constexpr const char kLaunchReadyFdEnv[] = "ORVIX_LAUNCH_READY_FD";

std::string LaunchDir(const std::string& app);         // <root>/run/<app>
std::string LaunchSocketPath(const std::string& app);  // <root>/run/<app>/launch.sock
std::string LaunchPidPath(const std::string& app);     // <root>/run/<app>/<app>.pid

// Splits "KEY=VALUE" at the first '='. False for an argument without '=' or with an empty key.
bool ParseLaunchArgument(const std::string& argument, std::string& key, std::string& value);

// The payload of a frame (without the 8-byte frame header) and back. Decoding refuses anything that is
// not a normal-form "a(ayay)" or holds an empty key.
std::string EncodeLaunchPayload(const LaunchExtras& extras);
bool DecodeLaunchPayload(const std::string& payload, LaunchExtras& extras);

// Header + payload, ready to be written to the socket or to a request fd.
std::string EncodeLaunchFrame(const LaunchExtras& extras);
// The payload size an 8-byte frame header announces; false when the header is not "OLR1" or the size is
// above kLaunchMaxPayload.
constexpr size_t kLaunchFrameHeaderSize = 8;
bool DecodeLaunchFrameHeader(const char (&header)[kLaunchFrameHeaderSize], size_t& payloadSize);
// One whole frame as bytes: a valid header followed by exactly the payload it announces.
bool DecodeLaunchFrame(const std::string& frame, LaunchExtras& extras);
// Reads one frame from a blocking fd; false on a short read, a bad header or a bad payload.
bool ReadLaunchFrame(int fd, LaunchExtras& extras);

enum class LaunchDelivery {
    Delivered,   // the instance queued the request
    NoInstance,  // nobody listens on the socket
    Refused,     // the instance is shutting down
    Failed,      // an I/O error or time-out after connecting
};

// Hands one request to the running instance of `app`; returns once it is acknowledged or the time-out
// (milliseconds, per I/O step) passes.
LaunchDelivery DeliverLaunchRequest(const std::string& app, const LaunchExtras& extras, int timeoutMs,
                                    std::string* error);

}  // namespace orvix::host

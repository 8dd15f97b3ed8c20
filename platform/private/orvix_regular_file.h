// Opening the kit's files without ever waiting in open(): a FIFO without a peer, or a device, where a
// regular file is expected would otherwise hold the calling process (the reset process among them) in
// open() for good.
#pragma once

#include <errno.h>
#include <sys/types.h>

#include <string>

namespace orvix::host {

// open(2) with `flags` and `mode`, made so that the open itself cannot wait (O_NONBLOCK, O_NOCTTY); the
// descriptor is blocking again afterwards and closed on exec. For a file that may rightly be a device or
// a pipe (a log written to /dev/null or to the standard output): a FIFO without a reader fails with ENXIO.
int OpenNoWait(const std::string& path, int flags, mode_t mode = 0);

// OpenNoWait, and what it opened is refused unless it is a regular file: -1 with errno EISDIR for a
// directory, ENXIO for anything else that is not a regular file. The caller logs the failure.
int OpenRegular(const std::string& path, int flags, mode_t mode = 0);

// The whole content of a regular file, opened as OpenRegular does. False with errno set and `text` empty
// when it cannot be opened or read; the caller logs it.
bool ReadRegular(const std::string& path, std::string& text);

// The errno values with which OpenRegular refuses what is there (rather than failing to open it).
inline bool IsNotRegularError(int error) {
    return error == EISDIR || error == ENXIO;
}

}  // namespace orvix::host

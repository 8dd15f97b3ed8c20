// File queries of the service. None of them follows a symbolic link at the last component: a link is
// reported as what it is, never as the file it points at.
#pragma once

#include <sys/types.h>

#include <string>

namespace TAKFile {

// Something (file, directory, link, ...) exists at the path.
bool Exists(const std::string& path);

// The path names a regular file.
bool IsFile(const std::string& path);

// The path names a directory.
bool IsDir(const std::string& path);

// Size in bytes of what the path names; -1 when nothing is there.
long long Size(const std::string& path);

// The path is absolute and already canonical: its directory resolves to itself (no symbolic link,
// ".", ".." or doubled slash on the way) and its last component, when it exists, is not a link.
// The last component need not exist yet, so a file about to be created can be checked.
bool IsRealPath(const std::string& path);

// Opens `path` (open(2) flags and mode) only if it passes the real-path check, in one step: no
// component, the last included, is followed as a symbolic link, so the path cannot be swapped for a
// link between check and open. `isRealPath` tells a refused path (false, result -1) from a real path
// that could not be opened (true, result -1, errno set).
int OpenRealPath(const std::string& path, int flags, mode_t mode, bool& isRealPath);

// Opens `path` (open(2) flags and mode) as a regular file, in a way no open can block on: the open
// itself does not wait (a FIFO without a peer, a device), and what it opened is refused unless it is a
// regular file. The descriptor is blocking again and closed on exec. -1 on failure, with errno set (EISDIR
// for a directory, ENXIO for anything else that is not a regular file); the caller logs it, so that each
// failure keeps its own one line.
int OpenRegular(const std::string& path, int flags, mode_t mode = 0);

// OpenRegular through the real-path check (see OpenRealPath).
int OpenRegularRealPath(const std::string& path, int flags, mode_t mode, bool& isRealPath);

// The whole content of a regular file, opened as OpenRegular does. False with errno set (and `text`
// empty) when it cannot be opened or read; the caller logs it.
bool ReadRegular(const std::string& path, std::string& text);

// For files that are opened by code that cannot be handed a descriptor (the database engine): true when
// the path names nothing or (links followed, as that code follows them) a regular file; anything else is
// refused with one log line.
bool IsRegularOrAbsent(const std::string& path);

}  // namespace TAKFile

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

}  // namespace TAKFile

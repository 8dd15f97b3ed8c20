// File queries of the service. None of them follows a symbolic link at the last component: a link is
// reported as what it is, never as the file it points at.
#pragma once

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

}  // namespace TAKFile

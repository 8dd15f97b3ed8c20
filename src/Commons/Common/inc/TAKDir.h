// Directory utilities of the service.
#pragma once

#include <string>

namespace TAKDir {

// Empties the directory at `path`.
//
//   bFirst  (remove the directory itself): after emptying it, the directory is removed as well.
//   bSecond (keep the tree): only non-directories are removed; every sub-directory stays, emptied of
//           files, so that the layout other processes expect survives. With bFirst also set, the
//           directory itself is still removed when it ends up empty.
//
// With both flags false the directory is emptied completely and stays in place.
//
// A symbolic link is never followed: a link inside the directory is removed as a link, and a link at
// `path` itself is not entered (with bFirst it is removed as a link). Nothing on another mounted file
// system is entered or removed. Every entry is reached through descriptors of its parent directory
// (openat/unlinkat with O_NOFOLLOW), so a directory swapped for a link while the walk runs cannot lead
// it outside. Each failure logs the path that failed and the walk goes on with the rest.
//
// Returns true when everything asked for was removed. A missing directory is logged and counts as
// success: there is nothing to remove.
bool RemoveAllFiles(const std::string& path, bool bFirst, bool bSecond);

// Total size in bytes of the regular files below `path` (recursively, links not followed, other file
// systems not entered); -1 when `path` is not a directory.
long long FolderSize(const std::string& path);

// Creates the directory and its missing parents (mode 0755); true when it exists afterwards.
bool Create(const std::string& path);

}  // namespace TAKDir

// The host root: the one directory under which the host platform kit keeps everything, and the small
// file and text helpers the kit's programs share.
// Only the kit, its tools and the tests use this header; the reset code never does.
#pragma once

#include <string>

namespace orvix::host {

// ORVIX_HOST_ROOT, or ${XDG_DATA_HOME:-$HOME/.local/share}/orvix-host when it is unset.
std::string Root();

// Points the whole kit at another root (tests use a temporary directory). Also exports ORVIX_HOST_ROOT
// so that child processes agree.
void SetRoot(const std::string& root);

// <root>/<relative>
std::string UnderRoot(const std::string& relative);

// The directory of a path variable below the root; empty for an unknown variable.
std::string PathVariable(int variable);

// Where a fixed device path lives below the root; paths that are not remapped come back as given.
std::string FixedPath(const std::string& devicePath);

// Creates a directory and its parents (mode 0755); true when it exists afterwards.
bool MakeDirs(const std::string& path);

// Replaces the file with `text` in one step (a temporary file renamed over it), so a reader sees the old
// contents or the new ones, never a part. On failure, `error` (when given) says why.
bool WriteFileAtomically(const std::string& path, const std::string& text, std::string* error = nullptr);

// True for a key of the host settings store: "db/" or "memory/", then components of letters, digits,
// '_', '-' and '.' (none starting with a dot). The vconf calls refuse any other key with a log line.
bool IsSettingsKey(const char* key);

// The shortest text that reads back as the same double (how the settings store writes doubles).
std::string ShortestDoubleText(double value);

// Only for a copy of the kit inside a library that can be unloaded: joins the settings store's worker
// threads and frees what a process keeps until its end, so that each unload gives its memory back.
// Nothing of the settings store may be called afterwards.
void ReleaseSettingsAtUnload();

}  // namespace orvix::host

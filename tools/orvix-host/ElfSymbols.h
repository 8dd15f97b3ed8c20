// Removing entry points from a copy of a shared library, so that dlsym() no longer finds them: the
// dynamic symbol of each named function is turned into a local symbol without a value, which the dynamic
// loader skips in every look-up. The rest of the library is untouched (the substitute common library is
// linked with -Bsymbolic, so nothing inside it reaches a removed name through the dynamic table).
#pragma once

#include <set>
#include <string>

namespace orvix::host {

// Rewrites the 64-bit ELF file at `path` in place. `removed` gets the names that were found and
// removed; names the library does not export are left out of it. False (with `error`) when the file is
// not a 64-bit ELF shared library or cannot be written.
bool RemoveDynamicSymbols(const std::string& path, const std::set<std::string>& names,
                          std::set<std::string>& removed, std::string& error);

}  // namespace orvix::host

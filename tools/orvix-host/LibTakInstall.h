// Installing the substitute common library into a root as <root>/etc/libtak_common.json asks:
// "library" "present" (default) copies the built library to <root>/usr/lib64/libtak_common.so and removes
// the entry points listed in "absent" from that copy (ElfSymbols.h); "missing" leaves no library there;
// "broken" puts a file there that is not a library. The copy replaces the old one atomically.
#pragma once

#include <string>

namespace orvix::host {

std::string LibTakBehaviourFile();  // <root>/etc/libtak_common.json
std::string InstalledLibTak();      // <root>/usr/lib64/libtak_common.so

// The behaviour file with every setting at its default.
bool WriteDefaultLibTakBehaviour(std::string& error);

// `notes` gets one line per remark (names in "absent" that the library does not export).
bool InstallLibTak(std::string& notes, std::string& error);

}  // namespace orvix::host

// Where orvix-host finds the programs and files of the kit.
//
// For each one, the first that exists wins:
//   1. its environment variable (ORVIX_TAK_RESET, ORVIX_INNERSERVER, ORVIX_MANAGERCLIENT,
//      ORVIX_LIBTAK_COMMON, ORVIX_TAKUTILITY), which names the file itself;
//   2. the file beside orvix-host's own executable (an installed kit keeps its programs in one
//      directory); for the substitute library, its installed place relative to that directory
//      (<prefix>/bin/../lib/tak-reset/libtak_common.so by default, as the build's install rules put it);
//   3. its place in the build tree, relative to orvix-host's own executable (<build>/tools/orvix-host):
//      <build>/src/tak-reset, <build>/tools/innerserver/orvix-innerserver,
//      <build>/tools/managerclient/orvix-managerclient, <build>/tools/libtak_common/libtak_common.so,
//      <build>/tools/takutility/takutility.
// orvix-host's own executable is found through /proc/self/exe, so the rule holds whatever the current
// directory and however orvix-host was called.
#pragma once

#include <string>

namespace orvix::host {

enum class KitFile { TakReset, InnerServer, ManagerClient, LibTakCommon, TakUtility };

// The path of `file`, or empty with `error` set to a one-line explanation.
std::string FindKitFile(KitFile file, std::string& error);

// The directory of orvix-host's own executable.
std::string OwnDirectory();

}  // namespace orvix::host

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
//
// A reset process built for another processor runs beside this kit through an emulator:
//   ORVIX_EXEC_PREFIX  a command (words separated by blanks) put before the path of every program the kit
//                      starts for the device's side (tak-reset); unset or blank: programs start as they are;
//   ORVIX_LIBTAK       the substitute library that init and `libtak apply` install into the root. It is the
//                      name outside scripts use, so it wins over ORVIX_LIBTAK_COMMON, the kit's own name for
//                      the same file, which is read only when ORVIX_LIBTAK is unset or empty.
#pragma once

#include <string>
#include <vector>

namespace orvix::host {

enum class KitFile { TakReset, InnerServer, ManagerClient, LibTakCommon, TakUtility };

// The path of `file`, or empty with `error` set to a one-line explanation.
std::string FindKitFile(KitFile file, std::string& error);

// The words of ORVIX_EXEC_PREFIX, the first one as the executable PATH finds (none when unset or blank).
// False, with `error` naming the variable, when the first word is not an executable found in PATH.
bool DeviceExecPrefix(std::vector<std::string>& words, std::string& error);

// False, with `error` naming the variable, when ORVIX_LIBTAK is set but not a readable regular file.
bool CheckLibTakVariable(std::string& error);

// The directory of orvix-host's own executable.
std::string OwnDirectory();

}  // namespace orvix::host

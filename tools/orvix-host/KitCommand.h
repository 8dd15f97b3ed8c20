// What the kit's subcommands of orvix-host share: option parsing, the one-line errors, the root check.
#pragma once

#include <glib.h>

#include <string>

namespace orvix::host {

// Prints "orvix-host COMMAND: MESSAGE" on standard error; returns kUsageError.
int UsageError(const char* command, const std::string& message);
// The same for a failure that is not the caller's input; returns 1.
int Failure(const char* command, const std::string& message);

// Parses `entries` out of argc/argv (argv[0] is the subcommand). On bad options prints one line and
// returns false. A "--" ends the options.
bool ParseOptions(const char* command, const GOptionEntry* entries, int& argc, char**& argv);

// One line and false unless ORVIX_HOST_ROOT (or the default) is a root made by `orvix-host init`.
bool RequireInitialisedRoot(const char* command);

}  // namespace orvix::host

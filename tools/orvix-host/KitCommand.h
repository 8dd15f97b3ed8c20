// What the kit's subcommands of orvix-host share: option parsing, help, the one-line errors, the root
// check.
#pragma once

#include <glib.h>

#include <string>
#include <vector>

namespace orvix::host {

// Prints "orvix-host COMMAND: MESSAGE" on standard error; returns kUsageError.
int UsageError(const char* command, const std::string& message);
// The same for a failure that is not the caller's input; returns 1.
int Failure(const char* command, const std::string& message);

// Parses `entries` out of argc/argv (argv[0] is the subcommand). False when the caller should stop
// and exit with `status`: 0 after -h or --help printed the help, kUsageError after one line about bad
// options. A "--" ends the options.
bool ParseOptions(const char* command, const GOptionEntry* entries, int& argc, char**& argv, int& status);

// True when -h or --help comes before any "--".
bool AsksForHelp(int argc, char** argv);

// Prints the help of a subcommand on standard output: its usage line, what it does, one line per
// option of `entries` (may be nullptr; only names and descriptions are read), `details` when given, and
// where the root comes from. Returns 0.
int ShowHelp(const char* command, const GOptionEntry* entries, const char* details = nullptr);

// The environment the kit reads: ORVIX_HOST_ROOT (with its value now) and the variables naming its
// programs.
std::string EnvironmentHelp();

// The board and feature flags the reset process asks; init writes each one false.
const std::vector<const char*>& SystemFlags();

// False with `error` set when ORVIX_HOST_ROOT (or the default) names something that is not a directory.
bool RootIsDirectoryOrMissing(std::string& error);

// One line and false unless ORVIX_HOST_ROOT (or the default) is a root made by `orvix-host init`.
bool RequireInitialisedRoot(const char* command);

}  // namespace orvix::host

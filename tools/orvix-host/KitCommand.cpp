// Shared parts of the kit's subcommands.
#include "KitCommand.h"

#include <cstdio>

#include "Commands.h"
#include "HostDaemons.h"
#include "orvix_host.h"

namespace orvix::host {

int UsageError(const char* command, const std::string& message) {
    fprintf(stderr, "orvix-host %s: %s\n", command, message.c_str());
    return kUsageError;
}

int Failure(const char* command, const std::string& message) {
    fprintf(stderr, "orvix-host %s: %s\n", command, message.c_str());
    return 1;
}

bool ParseOptions(const char* command, const GOptionEntry* entries, int& argc, char**& argv) {
    GOptionContext* context = g_option_context_new(nullptr);
    g_option_context_set_help_enabled(context, FALSE);
    g_option_context_add_main_entries(context, entries, nullptr);
    GError* error = nullptr;
    bool ok = g_option_context_parse(context, &argc, &argv, &error);
    if (!ok) {
        UsageError(command, error->message);
        g_error_free(error);
    }
    g_option_context_free(context);
    // GOption leaves a "--" that ended the options in place.
    if (ok && argc > 1 && g_strcmp0(argv[1], "--") == 0) {
        for (int i = 1; i < argc; ++i) {
            argv[i] = argv[i + 1];
        }
        --argc;
    }
    return ok;
}

bool RequireInitialisedRoot(const char* command) {
    if (IsInitialisedRoot()) {
        return true;
    }
    UsageError(command, Root() + " is not an initialised root (run orvix-host init first)");
    return false;
}

}  // namespace orvix::host

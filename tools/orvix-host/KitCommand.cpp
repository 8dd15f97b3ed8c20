// Shared parts of the kit's subcommands.
#include "KitCommand.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

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

bool AsksForHelp(int argc, char** argv) {
    for (int i = 1; i < argc && strcmp(argv[i], "--") != 0; ++i) {
        if (strcmp(argv[i], "-h") == 0 || strcmp(argv[i], "--help") == 0) {
            return true;
        }
    }
    return false;
}

std::string EnvironmentHelp() {
    return "The root: ORVIX_HOST_ROOT (now " + Root() +
           "); when unset, ${XDG_DATA_HOME:-$HOME/.local/share}/orvix-host.\n"
           "The kit's programs: beside orvix-host, else in its build tree, unless ORVIX_TAK_RESET,\n"
           "ORVIX_INNERSERVER, ORVIX_MANAGERCLIENT, ORVIX_LIBTAK_COMMON or ORVIX_TAKUTILITY name them.\n"
           "A reset process built for another processor: ORVIX_EXEC_PREFIX, a command put before the path\n"
           "of tak-reset when the kit starts it (e.g. 'qemu-aarch64'), and ORVIX_LIBTAK, the\n"
           "libtak_common.so that init and libtak apply install (it wins over ORVIX_LIBTAK_COMMON).\n";
}

int ShowHelp(const char* command, const GOptionEntry* entries, const char* details) {
    const Command* row = FindCommand(command);
    std::string name = std::string("orvix-host ") + command;
    g_set_prgname(name.c_str());
    g_autoptr(GOptionContext) context = g_option_context_new(row != nullptr ? row->parameters : nullptr);
    if (row != nullptr) {
        g_option_context_set_summary(context, row->summary);
    }
    if (entries != nullptr) {
        g_option_context_add_main_entries(context, entries, nullptr);
    }
    std::string description = details != nullptr ? std::string(details) + "\n\n" : "";
    description += EnvironmentHelp();
    g_option_context_set_description(context, description.c_str());
    g_autofree gchar* help = g_option_context_get_help(context, TRUE, nullptr);
    fputs(help, stdout);
    return 0;
}

bool ParseOptions(const char* command, const GOptionEntry* entries, int& argc, char**& argv, int& status) {
    if (AsksForHelp(argc, argv)) {
        status = ShowHelp(command, entries);
        return false;
    }
    g_autoptr(GOptionContext) context = g_option_context_new(nullptr);
    g_option_context_set_help_enabled(context, FALSE);
    g_option_context_add_main_entries(context, entries, nullptr);
    g_autoptr(GError) error = nullptr;
    if (!g_option_context_parse(context, &argc, &argv, &error)) {
        status = UsageError(command, error->message);
        return false;
    }
    // GOption leaves a "--" that ended the options in place.
    if (argc > 1 && g_strcmp0(argv[1], "--") == 0) {
        for (int i = 1; i < argc; ++i) {
            argv[i] = argv[i + 1];
        }
        --argc;
    }
    status = 0;
    return true;
}

bool RootIsDirectoryOrMissing(std::string& error) {
    struct stat st {};
    if (stat(Root().c_str(), &st) != 0) {
        const int failure = errno;
        error = "cannot use the root " + Root() + ": " + strerror(failure);
        return failure == ENOENT;
    }
    if (!S_ISDIR(st.st_mode)) {
        error = "the root " + Root() + " is a file, not a directory (ORVIX_HOST_ROOT names the root)";
        return false;
    }
    return true;
}

bool RequireInitialisedRoot(const char* command) {
    if (IsInitialisedRoot()) {
        return true;
    }
    std::string error;
    if (!RootIsDirectoryOrMissing(error)) {
        UsageError(command, error);
        return false;
    }
    UsageError(command, Root() + " is not an initialised root (run orvix-host init first)");
    return false;
}

}  // namespace orvix::host

// orvix-host: drives the host platform kit. Every subcommand takes the host root from ORVIX_HOST_ROOT.
#include <cstdio>
#include <cstring>

#include "Commands.h"
#include "KitCommand.h"

namespace {

const Command kCommands[] = {
    {"init", RunInit, "[--apps N] [--builtin M]",
     "makes a fresh root: directories, app database, package records, settings, the substitute library"},
    {"up", RunUp, "",
     "starts the root's private system bus and stand-in inner server, prints the bus address"},
    {"down", RunDown, "", "stops every process the kit started for the root"},
    {"launch", RunLaunch, "[--raw] [--] KEY=VALUE ...",
     "hands a launch request to the running tak-reset, or starts one (after up) with it"},
    {"client", RunClient, "OBJ", "starts a manager client OBJ; with --foreground it draws progress here"},
    {"calls", RunCalls, "", "prints the calls the stand-ins and the common library received"},
    {"log", RunLog, "[PROGRAM]",
     "prints a program's log: tak-reset (default), innerserver, managerclient.OBJ, dbus-daemon"},
    {"settings", RunSettings, "get KEY | set KEY VALUE",
     "reads or writes a key of the root's settings store"},
    {"config", RunConfig, "get KEY | set KEY VALUE",
     "reads or writes the app database's configuration table"},
    {"sysinfo", RunSysinfo, "set FLAG true|false | get FLAG | list", "the root's board and feature flags"},
    {"pkg", RunPkg, "add PKGID | remove PKGID | list", "the root's package records"},
    {"path", RunPath, "N", "prints the directory that platform path variable N stands for"},
    {"libtak", RunLibtak, "apply", "installs the substitute library again as etc/libtak_common.json says"},
};

bool IsHelpWord(const char* word) {
    return strcmp(word, "help") == 0 || strcmp(word, "--help") == 0 || strcmp(word, "-h") == 0;
}

int PrintUsage() {
    printf("Usage: orvix-host SUBCOMMAND [OPTION…] [ARGUMENT…]\n\n");
    printf("Drives the host platform kit of one root directory.\n\n");
    printf("subcommands:\n");
    for (const Command& command : kCommands) {
        printf("  %-10s%s\n", command.name, command.summary);
    }
    printf("  %-10s%s\n", "help", "this list; help SUBCOMMAND: the subcommand's arguments and options");
    printf("\noptions:\n  -h, --help  this list\n\n%s\n", orvix::host::EnvironmentHelp().c_str());
    return 0;
}

// help SUBCOMMAND: the subcommand answers its own --help.
int PrintCommandHelp(const char* name) {
    const Command* command = FindCommand(name);
    if (command == nullptr) {
        fprintf(stderr, "orvix-host help: unknown subcommand '%s' (orvix-host help lists them)\n", name);
        return kUsageError;
    }
    char help[] = "--help";
    char* argv[] = {const_cast<char*>(command->name), help, nullptr};
    return command->run(2, argv);
}

}  // namespace

const Command* FindCommand(const char* name) {
    for (const Command& command : kCommands) {
        if (strcmp(name, command.name) == 0) {
            return &command;
        }
    }
    return nullptr;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "orvix-host: missing subcommand (orvix-host help lists them)\n");
        return kUsageError;
    }
    if (IsHelpWord(argv[1])) {
        if (argc == 2) {
            return PrintUsage();
        }
        if (argc == 3 && strcmp(argv[1], "help") == 0) {
            return PrintCommandHelp(argv[2]);
        }
        fprintf(stderr, "orvix-host: expected: orvix-host help [SUBCOMMAND]\n");
        return kUsageError;
    }
    if (const Command* command = FindCommand(argv[1])) {
        return command->run(argc - 1, argv + 1);
    }
    fprintf(stderr, "orvix-host: unknown subcommand '%s' (orvix-host help lists them)\n", argv[1]);
    return kUsageError;
}

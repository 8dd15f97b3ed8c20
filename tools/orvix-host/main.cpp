// orvix-host: drives the host platform kit. Every subcommand takes the host root from ORVIX_HOST_ROOT.
#include <cstdio>
#include <cstring>

#include "Commands.h"

namespace {

const Command kCommands[] = {
    {"settings", RunSettings, "settings get KEY | settings set [-t int|bool|string|double] KEY VALUE"},
    {"init", RunInit, "init [--apps N] [--builtin M]"},
    {"up", RunUp, "up"},
    {"down", RunDown, "down"},
    {"launch", RunLaunch, "launch [--extra-file KEY=PATH]... [--] KEY=VALUE ..."},
    {"calls", RunCalls, "calls [--follow]"},
    {"log", RunLog, "log [--follow] [PROGRAM]"},
    {"client", RunClient, "client OBJ [--foreground]"},
    {"sysinfo", RunSysinfo, "sysinfo set FLAG true|false | sysinfo get FLAG | sysinfo list"},
    {"pkg", RunPkg,
     "pkg add PKGID [--version V] [--removable true|false] [--builtin] [--app APPID]... "
     "[--main APPID] [--meta KEY=VALUE]... [--category C]... | pkg remove PKGID | pkg list"},
    {"path", RunPath, "path N"},
    {"config", RunConfig, "config get KEY | config set KEY VALUE"},
    {"libtak", RunLibtak, "libtak apply"},
};

int PrintUsage(FILE* out) {
    fprintf(out, "usage:\n");
    for (const Command& command : kCommands) {
        fprintf(out, "  orvix-host %s\n", command.usage);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "orvix-host: missing subcommand (orvix-host help lists them)\n");
        return kUsageError;
    }
    if (strcmp(argv[1], "help") == 0 || strcmp(argv[1], "--help") == 0) {
        return PrintUsage(stdout);
    }
    for (const Command& command : kCommands) {
        if (strcmp(argv[1], command.name) == 0) {
            return command.run(argc - 1, argv + 1);
        }
    }
    fprintf(stderr, "orvix-host: unknown subcommand '%s' (orvix-host help lists them)\n", argv[1]);
    return kUsageError;
}

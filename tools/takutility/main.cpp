// takutility (host): the service's privileged utility, confined to the host root. Usage:
//   takutility -OPTION [ARGUMENT]
// Two-value arguments are "first?second". Every path must resolve to a place below the host root.
//
// The service runs the utility with an environment that holds nothing but PATH, so ORVIX_HOST_ROOT is
// not there to tell the root. The utility's own place does: installed as <root>/bin/takutility or
// <root>/usr/bin/takutility it serves that root. Run from anywhere else it uses ORVIX_HOST_ROOT.
#include <cstdio>
#include <cstring>
#include <string>

#include <orvix_host.h>

#include "UtilityOptions.h"

namespace {

const UtilityOption kOptions[] = {
    {"-e", true, RemoveFileOption, "PATH          remove a file (or a link, as a link)"},
    {"-x", true, RemoveInDirectoryOption, "DIR           remove everything inside a directory"},
    {"-p", false, CheckServiceDirOption, "              create missing service directories"},
    {"-n", false, CreateDatabaseOption, "              create the service database"},
    {"-t", false, RestoreDatabaseOption, "              restore the service database from its backup"},
    {"-s", true, SetLabelOption, "PATH?LABEL    set a file's security label"},
    {"-m", true, ReportLabelOption, "PATH          write a file's label into memory/tak/file_smack"},
    {"-o", true, CopyOption, "SRC?DEST      copy recursively"},
    {"-h", true, MoveOption, "SRC?DEST      move"},
    {"-d", true, ExecuteOption, "BINARY        run a program"},
};

void AdoptRootOfPlace(const char* invokedAs) {
    static const char* const kPlaces[] = {"/usr/bin/takutility", "/bin/takutility"};
    std::string self(invokedAs);
    for (const char* place : kPlaces) {
        size_t length = strlen(place);
        if (self.size() > length && self.front() == '/' &&
            self.compare(self.size() - length, length, place) == 0) {
            orvix::host::SetRoot(self.substr(0, self.size() - length));
            return;
        }
    }
}

void PrintUsage(FILE* to) {
    fprintf(to, "Usage: takutility -OPTION [ARGUMENT]\n");
    fprintf(to,
            "The service's privileged utility on the host, confined to the host root: every path must\n"
            "resolve to a place below it. Installed as ROOT/bin/takutility or ROOT/usr/bin/takutility it\n"
            "serves ROOT; run from anywhere else, the root of ORVIX_HOST_ROOT. Two-value arguments are\n"
            "\"first?second\".\n\n");
    for (const UtilityOption& option : kOptions) {
        fprintf(to, "  %s %s\n", option.flag, option.help);
    }
    fprintf(to, "  --help        print this help and exit\n");
}

int Usage() {
    PrintUsage(stderr);
    return kRefused;
}

}  // namespace

int main(int argc, char** argv) {
    AdoptRootOfPlace(argv[0]);
    if (argc < 2) {
        return Usage();
    }
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        PrintUsage(stdout);
        return 0;
    }
    for (const UtilityOption& option : kOptions) {
        if (strcmp(argv[1], option.flag) != 0) {
            continue;
        }
        int expected = option.takesArgument ? 3 : 2;
        if (argc != expected) {
            fprintf(stderr, "takutility: %s %s\n", option.flag,
                    option.takesArgument ? "needs exactly one argument" : "takes no argument");
            return kRefused;
        }
        return option.run(option.takesArgument ? argv[2] : "");
    }
    fprintf(stderr, "takutility: unknown option %s\n", argv[1]);
    return Usage();
}

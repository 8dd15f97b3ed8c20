// orvix-host path N: prints the directory that platform path variable N stands for under the root.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Commands.h"
#include "KitCommand.h"
#include "orvix_host.h"

int RunPath(int argc, char** argv) {
    if (orvix::host::AsksForHelp(argc, argv)) {
        return orvix::host::ShowHelp(
            "path", nullptr,
            "Variables: 0 homes, 2 system data, 6 apps' shared data, 7 binary search "
            "path,\n24 the owner's home, 27 data root for applications, 66 to 74 "
            "the owner's content directories.");
    }
    if (argc != 2) {
        return orvix::host::UsageError("path", "expected one path variable number");
    }
    char* end = nullptr;
    long variable = strtol(argv[1], &end, 10);
    std::string path;
    if (*argv[1] != '\0' && *end == '\0' && variable >= 0 && variable < 1000) {
        path = orvix::host::PathVariable(static_cast<int>(variable));
    }
    if (path.empty()) {
        return orvix::host::UsageError("path", std::string("no path variable '") + argv[1] + "'");
    }
    printf("%s\n", path.c_str());
    return 0;
}

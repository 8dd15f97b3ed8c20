// orvix-host libtak apply: installs the substitute common library again as <root>/etc/libtak_common.json
// says ("library": present, missing or broken; "absent": entry points removed from the copy). Run it
// after editing "library" or "absent"; the other settings are read by the library at every call.
// A running tak-reset keeps the library it loaded.
#include <cstdio>
#include <cstring>
#include <string>

#include "Commands.h"
#include "HostPrograms.h"
#include "KitCommand.h"
#include "LibTakInstall.h"

int RunLibtak(int argc, char** argv) {
    const char kCommand[] = "libtak";
    if (orvix::host::AsksForHelp(argc, argv)) {
        return orvix::host::ShowHelp(
            kCommand, nullptr,
            "Puts <root>/usr/lib64/libtak_common.so in place as \"library\" (present, "
            "missing, broken)\nand \"absent\" (entry points hidden) of "
            "<root>/etc/libtak_common.json say. A running tak-reset\nkeeps the "
            "library it loaded.");
    }
    if (argc != 2 || strcmp(argv[1], "apply") != 0) {
        return orvix::host::UsageError(kCommand, "expected: libtak apply");
    }
    if (!orvix::host::RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    std::string notes;
    std::string error;
    if (!orvix::host::CheckLibTakVariable(error)) {
        return orvix::host::UsageError(kCommand, error);
    }
    if (!orvix::host::InstallLibTak(notes, error)) {
        return orvix::host::Failure(kCommand, error);
    }
    fputs(notes.c_str(), stderr);
    return 0;
}

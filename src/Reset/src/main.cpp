// The reset process of the vardell service.
#include <cstdio>
#include <cstring>
#include <exception>

#include "ResetCore.h"
#include "TAKLog.h"

namespace {

const char kUsage[] =
    "Usage: tak-reset KEY=VALUE ...\n"
    "The reset process of the vardell web-application service. The platform starts it as a background\n"
    "service with a launch request of KEY=VALUE pairs; a second start hands its request to the running\n"
    "process. It uninstalls downloaded apps, resets the home screen, reinstalls built-in apps at their\n"
    "base versions, empties the service's working and content directories, and reports progress and\n"
    "results over the system bus.\n"
    "\n"
    "Keys of a launch request:\n"
    "  reset=KIND           tak_app_reset, tak_service_reset, corvane_reset, biu_app_reset,\n"
    "                       biu_service_reset, or end (the common library's clean-up, then exit)\n"
    "  userdata=N           returned with the result\n"
    "  obj=O, method=M      the caller a built-in reset reports its progress to\n"
    "  deprecated, thread_id, event_index, caller_process_name, reset_reason\n"
    "                       passed on to the reset as given\n"
    "\n"
    "  --help               print this help and exit, starting nothing\n"
    "\n"
    "Environment (host platform kit):\n"
    "  ORVIX_HOST_ROOT          the sandboxed root the process works in\n"
    "  DBUS_SYSTEM_BUS_ADDRESS  the bus of that root (orvix-host up prints it)\n"
    "  ORVIX_LOG_FILE           where the platform log goes (default: standard error)\n"
    "  ORVIX_LOG_LEVEL          the lowest level logged: V, D, I, W, E, F or S (silent)\n"
    "\n"
    "On the host, orvix-host launch starts it; tak-reset-plan shows what a request would do.\n";

}  // namespace

int main(int argc, char** argv) {
    // Asked for its usage, the process says what it is and starts nothing: no instance, no bus, no log.
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    TAK_LOGM("----------Reset main() start.---------");
    try {
        CResetCore core(argc, argv);
        core.Exec();
    } catch (...) {
        TAK_LOGE("Exception occurred");
    }
    return 0;
}

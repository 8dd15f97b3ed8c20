// orvix-managerclient OBJ: owns "org.orvix.tv.vardell.managerclient." + OBJ on the bus of
// $DBUS_SYSTEM_BUS_ADDRESS and records every call to its object until SIGTERM or SIGINT. It shows the
// progress it is told about on standard error: as bars on a terminal, else as one line per step (the
// log of a background client). Its own platform log goes to ORVIX_LOG_FILE when that is set, as
// `orvix-host client OBJ --foreground` sets it, so that nothing but the progress reaches the terminal.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "BusStandIn.h"
#include "ManagerClient.h"
#include "orvix_calls.h"
#include "orvix_host.h"

namespace {

constexpr guint kPollMs = 250;

gboolean Poll(gpointer client) {
    static_cast<CManagerClient*>(client)->Poll();
    return G_SOURCE_CONTINUE;
}

}  // namespace

namespace {

const char kUsage[] =
    "Usage: orvix-managerclient OBJ\n"
    "The host platform kit's manager client: owns org.orvix.tv.vardell.managerclient.OBJ on the bus of\n"
    "DBUS_SYSTEM_BUS_ADDRESS and records every call to its object in the root's call log until SIGTERM or\n"
    "SIGINT. It shows the progress it is told about on standard error: as bars on a terminal, else as one\n"
    "line per step. OBJ is letters, digits and '_', not starting with a digit. orvix-host client OBJ starts\n"
    "it.\n"
    "\n"
    "  --help  print this help and exit\n"
    "\n"
    "Environment:\n"
    "  ORVIX_HOST_ROOT          the root whose call log it writes\n"
    "  DBUS_SYSTEM_BUS_ADDRESS  the bus it serves\n";

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc != 2 || !CManagerClient::IsValidObjectName(argv[1])) {
        fprintf(stderr, "usage: %s OBJ (OBJ: letters, digits and '_', not starting with a digit)\n", argv[0]);
        return 2;
    }
    CManagerClient client(argv[1], stderr, isatty(STDERR_FILENO) != 0,
                          orvix::host::UnderRoot("var/log/tak-reset.log"), orvix::host::LaunchesFile());
    CBusStandIn standIn(client.Who(), client.BusName(), client.ObjectPath(), client.InterfaceName(),
                        [&client](const std::string& method, GVariant* parameters, const std::string&) {
                            return client.Handle(method, parameters);
                        });
    guint poll = g_timeout_add(kPollMs, Poll, &client);
    int status = standIn.Run();
    g_source_remove(poll);
    client.Close();
    return status;
}

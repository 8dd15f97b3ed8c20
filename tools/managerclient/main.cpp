// orvix-managerclient OBJ: owns "org.orvix.tv.vardell.managerclient." + OBJ on the bus of
// $DBUS_SYSTEM_BUS_ADDRESS and records every call to its object until SIGTERM or SIGINT. It shows the
// progress it is told about on standard error: as bars on a terminal, else as one line per step (the
// log of a background client).
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "BusStandIn.h"
#include "ManagerClient.h"

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
    CManagerClient client(argv[1], stderr, isatty(STDERR_FILENO) != 0);
    CBusStandIn standIn(client.Who(), client.BusName(), client.ObjectPath(), client.InterfaceName(),
                        [&client](const std::string& method, GVariant* parameters, const std::string&) {
                            return client.Handle(method, parameters);
                        });
    return standIn.Run();
}

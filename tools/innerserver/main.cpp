// orvix-innerserver: owns "org.orvix.tv.vardell.innerserver" on the bus of $DBUS_SYSTEM_BUS_ADDRESS,
// answers and records every call to the inner server's object until SIGTERM or SIGINT.
#include <cstdio>
#include <cstring>

#include "BusStandIn.h"
#include "InnerServer.h"

namespace {

const char kUsage[] =
    "Usage: orvix-innerserver\n"
    "The host platform kit's stand-in for the vardell service daemon: owns\n"
    "org.orvix.tv.vardell.innerserver on the bus of DBUS_SYSTEM_BUS_ADDRESS, answers every call to the\n"
    "inner server's object and records it in the root's call log, until SIGTERM or SIGINT.\n"
    "orvix-host up starts it; it takes no arguments. ROOT/etc/innerserver.json, when present, changes\n"
    "what it answers.\n"
    "\n"
    "  --help  print this help and exit\n"
    "\n"
    "Environment:\n"
    "  ORVIX_HOST_ROOT          the root it serves\n"
    "  DBUS_SYSTEM_BUS_ADDRESS  the bus it serves\n";

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc > 1) {
        fprintf(stderr, "usage: %s (no arguments; the root comes from ORVIX_HOST_ROOT)\n", argv[0]);
        return 2;
    }
    CInnerServer server;
    server.OpenStore();
    CBusStandIn standIn("innerserver", CInnerServer::BUS_NAME, CInnerServer::OBJECT_PATH,
                        CInnerServer::INTERFACE_NAME,
                        [&server](const std::string& method, GVariant* parameters, const std::string&) {
                            return server.Handle(method, parameters);
                        });
    return standIn.Run();
}

// orvix-innerserver: owns "org.orvix.tv.vardell.innerserver" on the bus of $DBUS_SYSTEM_BUS_ADDRESS,
// answers and records every call to the inner server's object until SIGTERM or SIGINT.
#include <cstdio>
#include <cstring>

#include "BusStandIn.h"
#include "InnerServer.h"

int main(int argc, char** argv) {
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

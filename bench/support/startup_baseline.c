/* The start-up baseline of bench/startup.sh: the least a GLib+GIO service does before it can work.
 * It connects to the system bus (the private one of DBUS_SYSTEM_BUS_ADDRESS), makes one call, says
 * "ready" on standard output and then idles until standard input closes. */
#include <gio/gio.h>
#include <stdio.h>
#include <unistd.h>

int main(void) {
    GError* error = NULL;
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, NULL, &error);
    if (connection == NULL) {
        fprintf(stderr, "startup_baseline: %s\n", error->message);
        g_error_free(error);
        return 1;
    }
    GVariant* reply = g_dbus_connection_call_sync(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                  "org.freedesktop.DBus", "GetId", NULL, NULL,
                                                  G_DBUS_CALL_FLAGS_NONE, -1, NULL, &error);
    if (reply == NULL) {
        fprintf(stderr, "startup_baseline: %s\n", error->message);
        g_error_free(error);
        g_object_unref(connection);
        return 1;
    }
    g_variant_unref(reply);
    printf("ready\n");
    fflush(stdout);
    char buffer[64];
    while (read(STDIN_FILENO, buffer, sizeof(buffer)) > 0) {
    }
    g_object_unref(connection);
    return 0;
}

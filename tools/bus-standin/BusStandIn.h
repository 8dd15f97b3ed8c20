// CBusStandIn: a peer of the reset process on the system bus. It owns one well-known name and takes
// every method call made to its object path and interface, whatever the method's name or signature (the
// calls are taken off the connection by a message filter, so no introspection data limits them). Each
// call is handed to the handler on the main thread, in arrival order, recorded as one line of the kit's
// call record, and answered with the handler's reply.
#pragma once

#include <gio/gio.h>
#include <json/json.h>

#include <deque>
#include <functional>
#include <mutex>
#include <string>

class CBusStandIn {
public:
    struct Reply {
        GVariant* body = nullptr;  // a tuple (floating or not) or NULL for an empty reply
        std::string errorName;     // non-empty: answer with this D-Bus error instead
        std::string errorMessage;
    };
    using Handler =
        std::function<Reply(const std::string& method, GVariant* parameters, const std::string& sender)>;

    // `who` names the recorder in the call record ("innerserver", "managerclient.OBJ").
    CBusStandIn(std::string who, std::string busName, std::string objectPath, std::string interfaceName,
                Handler handler);
    ~CBusStandIn();
    CBusStandIn(const CBusStandIn&) = delete;
    CBusStandIn& operator=(const CBusStandIn&) = delete;

    // Connects to the system bus ($DBUS_SYSTEM_BUS_ADDRESS), owns the name and serves until SIGTERM or
    // SIGINT. The exit status: 0 after a signal, 1 when the bus or the name cannot be had.
    int Run();

private:
    static GDBusMessage* s_Filter(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                                  gpointer data);
    static gboolean s_Drain(gpointer data);
    static void s_NameAcquired(GDBusConnection* connection, const gchar* name, gpointer data);
    static void s_NameLost(GDBusConnection* connection, const gchar* name, gpointer data);
    static gboolean s_Quit(gpointer data);

    bool m_IsForUs(GDBusMessage* message) const;
    // The next call the filter handed over, or NULL.
    GDBusMessage* m_TakePending();
    void m_Serve(GDBusMessage* message);
    void m_Answer(GDBusMessage* call, const Reply& reply);

    std::string m_strWho;
    std::string m_strBusName;
    std::string m_strObjectPath;
    std::string m_strInterface;
    Handler m_Handler;
    GDBusConnection* m_pConnection = nullptr;
    GMainLoop* m_pLoop = nullptr;
    int m_nExitStatus = 0;
    // Calls taken off the connection by the filter (GDBus's thread), served by the main thread in order.
    // A lock of our own rather than GLib's hand-over, so that the hand-over is visible to ThreadSanitizer.
    std::mutex m_tPendingLock;  // guards m_Pending
    std::deque<GDBusMessage*> m_Pending;
};

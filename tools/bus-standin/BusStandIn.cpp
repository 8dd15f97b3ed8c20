// A stand-in peer on the private system bus.
#include "BusStandIn.h"

#include <glib-unix.h>
#include <unistd.h>

#include <csignal>

#include "dlog.h"
#include "orvix_calls.h"

namespace {

const char kTag[] = "ORVIX";

}  // namespace

CBusStandIn::CBusStandIn(std::string who, std::string busName, std::string objectPath,
                         std::string interfaceName, Handler handler)
    : m_strWho(std::move(who)),
      m_strBusName(std::move(busName)),
      m_strObjectPath(std::move(objectPath)),
      m_strInterface(std::move(interfaceName)),
      m_Handler(std::move(handler)) {}

CBusStandIn::~CBusStandIn() {
    g_clear_object(&m_pConnection);
    if (m_pLoop != nullptr) {
        g_main_loop_unref(m_pLoop);
    }
}

bool CBusStandIn::m_IsForUs(GDBusMessage* message) const {
    if (g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
        return false;
    }
    const char* path = g_dbus_message_get_path(message);
    const char* interfaceName = g_dbus_message_get_interface(message);
    return path != nullptr && m_strObjectPath == path &&
           (interfaceName == nullptr || m_strInterface == interfaceName);
}

// Runs on GDBus's worker thread: only hands the call over to the main thread, which keeps the order.
GDBusMessage* CBusStandIn::s_Filter(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                    gpointer data) {
    auto* self = static_cast<CBusStandIn*>(data);
    if (!incoming || !self->m_IsForUs(message)) {
        return message;
    }
    {
        std::lock_guard<std::mutex> lock(self->m_tPendingLock);
        self->m_Pending.push_back(message);  // the filter chain's reference moves into the queue
    }
    g_main_context_invoke(nullptr, s_Drain, self);
    return nullptr;
}

GDBusMessage* CBusStandIn::m_TakePending() {
    std::lock_guard<std::mutex> lock(m_tPendingLock);
    if (m_Pending.empty()) {
        return nullptr;
    }
    GDBusMessage* message = m_Pending.front();
    m_Pending.pop_front();
    return message;
}

gboolean CBusStandIn::s_Drain(gpointer data) {
    auto* self = static_cast<CBusStandIn*>(data);
    while (GDBusMessage* message = self->m_TakePending()) {
        self->m_Serve(message);
        g_object_unref(message);
    }
    return G_SOURCE_REMOVE;
}

void CBusStandIn::m_Serve(GDBusMessage* message) {
    const char* member = g_dbus_message_get_member(message);
    const char* senderName = g_dbus_message_get_sender(message);
    std::string method = member != nullptr ? member : "";
    std::string sender = senderName != nullptr ? senderName : "";
    GVariant* parameters = g_dbus_message_get_body(message);
    Reply reply = m_Handler(method, parameters, sender);
    if (reply.body != nullptr) {
        g_variant_ref_sink(reply.body);
    }
    Json::Value extra(Json::objectValue);
    const char* signature = g_dbus_message_get_signature(message);
    extra["signature"] = signature != nullptr ? signature : "";
    extra["reply"] =
        reply.body != nullptr ? orvix::host::TupleToJsonArgs(reply.body) : Json::Value(Json::arrayValue);
    if (!reply.errorName.empty()) {
        extra["error"] = reply.errorName;
    }
    orvix::host::RecordCall(m_strWho, method, orvix::host::TupleToJsonArgs(parameters), sender, extra);
    m_Answer(message, reply);
    if (reply.body != nullptr) {
        g_variant_unref(reply.body);
    }
}

void CBusStandIn::m_Answer(GDBusMessage* call, const Reply& reply) {
    if (g_dbus_message_get_flags(call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) {
        return;
    }
    GDBusMessage* answer = reply.errorName.empty()
                               ? g_dbus_message_new_method_reply(call)
                               : g_dbus_message_new_method_error_literal(call, reply.errorName.c_str(),
                                                                         reply.errorMessage.c_str());
    if (reply.errorName.empty() && reply.body != nullptr) {
        g_dbus_message_set_body(answer, reply.body);
    }
    GError* error = nullptr;
    if (!g_dbus_connection_send_message(m_pConnection, answer, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                        &error)) {
        dlog_print(DLOG_ERROR, kTag, "%s: cannot answer %s: %s", m_strWho.c_str(),
                   g_dbus_message_get_member(call), error->message);
        g_error_free(error);
    }
    g_object_unref(answer);
}

void CBusStandIn::s_NameAcquired(GDBusConnection*, const gchar* name, gpointer data) {
    auto* self = static_cast<CBusStandIn*>(data);
    dlog_print(DLOG_INFO, kTag, "%s: owns %s", self->m_strWho.c_str(), name);
}

void CBusStandIn::s_NameLost(GDBusConnection*, const gchar* name, gpointer data) {
    auto* self = static_cast<CBusStandIn*>(data);
    dlog_print(DLOG_ERROR, kTag, "%s: cannot own %s (taken, or the bus is gone)", self->m_strWho.c_str(),
               name);
    self->m_nExitStatus = 1;
    g_main_loop_quit(self->m_pLoop);
}

gboolean CBusStandIn::s_Quit(gpointer data) {
    auto* self = static_cast<CBusStandIn*>(data);
    dlog_print(DLOG_INFO, kTag, "%s: stopping", self->m_strWho.c_str());
    g_main_loop_quit(self->m_pLoop);
    return G_SOURCE_CONTINUE;
}

int CBusStandIn::Run() {
    GError* error = nullptr;
    m_pConnection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (m_pConnection == nullptr) {
        dlog_print(DLOG_ERROR, kTag, "%s: no system bus: %s", m_strWho.c_str(), error->message);
        g_error_free(error);
        return 1;
    }
    // When the bus goes away the name is lost and the loop ends; GDBus must not raise SIGTERM on us.
    g_dbus_connection_set_exit_on_close(m_pConnection, FALSE);
    m_pLoop = g_main_loop_new(nullptr, FALSE);
    guint filter = g_dbus_connection_add_filter(m_pConnection, s_Filter, this, nullptr);
    guint owner =
        g_bus_own_name_on_connection(m_pConnection, m_strBusName.c_str(), G_BUS_NAME_OWNER_FLAGS_DO_NOT_QUEUE,
                                     s_NameAcquired, s_NameLost, this, nullptr);
    guint term = g_unix_signal_add(SIGTERM, s_Quit, this);
    guint interrupt = g_unix_signal_add(SIGINT, s_Quit, this);
    g_main_loop_run(m_pLoop);
    g_source_remove(interrupt);
    g_source_remove(term);
    g_bus_unown_name(owner);
    g_dbus_connection_remove_filter(m_pConnection, filter);
    g_dbus_connection_flush_sync(m_pConnection, nullptr, nullptr);
    g_dbus_connection_close_sync(m_pConnection, nullptr, nullptr);
    // Calls that the filter handed over but the loop did not serve yet; once the connection is closed no
    // further one can come. The invocations still queued on the context find the queue empty.
    s_Drain(this);
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    return m_nExitStatus;
}

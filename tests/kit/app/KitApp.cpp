// orvix-kit-app: a minimal service app for the kit's own tests. It records every framework callback in
// the root's call record (who "kit-app", the callback as the method, extras base64-encoded since they
// may be any bytes) and obeys two extras of its launch requests:
//   "iterate_ms"=N iterates the main context inside the callback that long (requests that arrive
//                  meanwhile are queued, but none may start before this callback returns)
//   "exit"="1"     asks the framework to exit (before iterating, so that iterate_ms then winds it down)
//   "critical"="1" logs a GLib critical, as a broken GLib call would
#include <glib.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "app_control.h"
#include "orvix_calls.h"
#include "service_app.h"

namespace {

int g_depth = 0;  // callbacks running now; more than one would break the one-at-a-time rule

void Record(const char* event, const Json::Value& extra = Json::Value()) {
    orvix::host::RecordCall("kit-app", event, Json::Value(), "", extra);
}

bool Collect(app_control_h request, const char* key, void* data) {
    char* value = nullptr;
    if (app_control_get_extra_data(request, key, &value) == APP_CONTROL_ERROR_NONE) {
        gchar* encoded = g_base64_encode(reinterpret_cast<const guchar*>(value), strlen(value));
        (*static_cast<Json::Value*>(data))[key] = encoded;
        g_free(encoded);
        free(value);
    }
    return true;
}

std::string Extra(app_control_h request, const char* key) {
    char* value = nullptr;
    if (app_control_get_extra_data(request, key, &value) != APP_CONTROL_ERROR_NONE) {
        return "";
    }
    std::string text = value;
    free(value);
    return text;
}

bool OnCreate(void*) {
    Record("create");
    return true;
}

void OnTerminate(void*) {
    Record("terminate");
}

void OnControl(app_control_h request, void*) {
    ++g_depth;
    Json::Value event;
    event["depth"] = g_depth;
    event["extras"] = Json::Value(Json::objectValue);
    app_control_foreach_extra_data(request, Collect, &event["extras"]);
    Record("control", event);
    if (Extra(request, "critical") == "1") {
        g_critical("kit-app was asked for a critical");
    }
    if (Extra(request, "exit") == "1") {
        service_app_exit();
    }
    if (int ms = atoi(Extra(request, "iterate_ms").c_str()); ms > 0) {
        gint64 end = g_get_monotonic_time() + static_cast<gint64>(ms) * 1000;
        while (g_get_monotonic_time() < end) {
            g_main_context_iteration(nullptr, FALSE);
            g_usleep(1000);
        }
    }
    --g_depth;
    event["depth"] = g_depth;
    Record("done", event);
}

}  // namespace

int main(int argc, char** argv) {
    service_app_lifecycle_callback_s callbacks = {OnCreate, OnTerminate, OnControl};
    Json::Value event;
    event["result"] = service_app_main(argc, argv, &callbacks, nullptr);
    Record("return", event);
    return 0;
}

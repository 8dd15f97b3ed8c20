// orvix-kit-app: a minimal service app for the kit's own tests. It records every framework callback in
// the root's call record (who "kit-app", the callback as the method, extras base64-encoded since they
// may be any bytes) and obeys one extra of its launch requests:
//   "iterate_ms"=N iterates the main context inside the callback that long (requests that arrive
//                  meanwhile are queued, but none may start before this callback returns)
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
        g_autofree gchar* encoded = g_base64_encode(reinterpret_cast<const guchar*>(value), strlen(value));
        (*static_cast<Json::Value*>(data))[key] = encoded;
        free(value);
    }
    return true;
}

void OnControl(app_control_h request, void*) {
    ++g_depth;
    Json::Value event;
    event["depth"] = g_depth;
    event["extras"] = Json::Value(Json::objectValue);
    app_control_foreach_extra_data(request, Collect, &event["extras"]);
    Record("control", event);
    auto extra = [request](const char* key) {
        g_autofree char* value = nullptr;
        app_control_get_extra_data(request, key, &value);
        return std::string(value != nullptr ? value : "");
    };
    gint64 end = g_get_monotonic_time() + atoll(extra("iterate_ms").c_str()) * 1000;
    while (g_get_monotonic_time() < end) {
        g_main_context_iteration(nullptr, FALSE);
        g_usleep(1000);
    }
    --g_depth;
    event["depth"] = g_depth;
    Record("done", event);
}

}  // namespace

int main(int argc, char** argv) {
    service_app_lifecycle_callback_s callbacks = {[](void*) {
                                                      Record("create");
                                                      return true;
                                                  },
                                                  [](void*) { Record("terminate"); }, OnControl};
    Json::Value event;
    event["result"] = service_app_main(argc, argv, &callbacks, nullptr);
    Record("return", event);
    return 0;
}

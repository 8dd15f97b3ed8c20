// orvix-kit-app: a minimal service app for the kit's own tests. It records its create callback and every
// launch request in the root's call record (who "kit-app"; its extras, which the tests keep to plain text,
// and how many callbacks run at that moment) and obeys one extra:
//   "iterate_ms"=N iterates the main context inside the callback that long (requests that arrive
//                  meanwhile are queued, but none may start before this callback returns)
#include <glib.h>

#include <cstdlib>

#include "app_control.h"
#include "orvix_calls.h"
#include "service_app.h"

namespace {

int g_depth = 0;  // callbacks running now; more than one would break the one-at-a-time rule

bool Collect(app_control_h request, const char* key, void* extras) {
    g_autofree char* value = nullptr;
    if (app_control_get_extra_data(request, key, &value) == APP_CONTROL_ERROR_NONE) {
        (*static_cast<Json::Value*>(extras))[key] = value;
    }
    return true;
}

void OnControl(app_control_h request, void*) {
    Json::Value event;
    event["depth"] = ++g_depth;
    app_control_foreach_extra_data(request, Collect, &event["extras"]);
    orvix::host::RecordCall("kit-app", "control", Json::Value(), "", event);
    g_autofree char* iterate = nullptr;
    app_control_get_extra_data(request, "iterate_ms", &iterate);
    gint64 end = g_get_monotonic_time() + (iterate != nullptr ? atoll(iterate) : 0) * 1000;
    for (; g_get_monotonic_time() < end; g_usleep(1000)) {
        g_main_context_iteration(nullptr, FALSE);
    }
    --g_depth;
}

}  // namespace

int main(int argc, char** argv) {
    service_app_lifecycle_callback_s callbacks = {
        [](void*) { return orvix::host::RecordCall("kit-app", "create", Json::Value(), ""); }, [](void*) {},
        OnControl};
    service_app_main(argc, argv, &callbacks, nullptr);
    return 0;
}

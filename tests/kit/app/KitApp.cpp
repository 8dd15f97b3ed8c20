// orvix-kit-app: a minimal service app for the kit's own tests. It records every framework callback as
// one JSON line in <root>/var/log/kit-app.jsonl and obeys a few extras of its launch requests:
//   "sleep_ms"=N   stays in the callback that long (so that later requests queue up behind it)
//   "iterate_ms"=N iterates the main context inside the callback that long (requests that arrive
//                  meanwhile are queued, but none may start before this callback returns)
//   "exit"="1"     asks the framework to exit (before iterating, so that iterate_ms then winds it down)
#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "app_control.h"
#include "orvix_calls.h"
#include "orvix_host.h"
#include "service_app.h"

namespace {

int g_depth = 0;  // callbacks running now; more than one would break the one-at-a-time rule

void Record(Json::Value event) {
    event["pid"] = static_cast<Json::Int>(getpid());
    std::string line = orvix::host::JsonLine(event) + "\n";
    orvix::host::MakeDirs(orvix::host::UnderRoot("var/log"));
    int fd = open(orvix::host::UnderRoot("var/log/kit-app.jsonl").c_str(),
                  O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd >= 0) {
        if (write(fd, line.data(), line.size()) < 0) {
            perror("kit-app");
        }
        close(fd);
    }
}

std::string Hex(const std::string& bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned char c : bytes) {
        hex += kDigits[c >> 4];
        hex += kDigits[c & 15];
    }
    return hex;
}

bool Collect(app_control_h request, const char* key, void* data) {
    auto* extras = static_cast<Json::Value*>(data);
    char* value = nullptr;
    if (app_control_get_extra_data(request, key, &value) == APP_CONTROL_ERROR_NONE) {
        (*extras)[key] = Hex(value);
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
    Json::Value event;
    event["event"] = "create";
    Record(event);
    return true;
}

void OnTerminate(void*) {
    Json::Value event;
    event["event"] = "terminate";
    Record(event);
}

void OnControl(app_control_h request, void*) {
    ++g_depth;
    Json::Value event;
    event["event"] = "control";
    event["depth"] = g_depth;
    event["extras"] = Json::Value(Json::objectValue);
    app_control_foreach_extra_data(request, Collect, &event["extras"]);
    Record(event);
    if (int ms = atoi(Extra(request, "sleep_ms").c_str()); ms > 0) {
        g_usleep(static_cast<gulong>(ms) * 1000);
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
    Json::Value done;
    done["event"] = "done";
    done["extras"] = event["extras"];
    Record(done);
    --g_depth;
}

}  // namespace

int main(int argc, char** argv) {
    service_app_lifecycle_callback_s callbacks = {OnCreate, OnTerminate, OnControl};
    int result = service_app_main(argc, argv, &callbacks, nullptr);
    Json::Value event;
    event["event"] = "return";
    event["result"] = result;
    Record(event);
    return 0;
}

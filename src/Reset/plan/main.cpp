// tak-reset-plan KEY=VALUE ...: what a reset would do on this device, with nothing changed.
//
// Exit status: 0 with the plan printed (what could not be read is named on standard error and in the
// plan), 1 when nothing at all could be read, 2 on bad arguments.
#include <glib.h>

#include <cstdio>
#include <string>
#include <vector>

#include "PlanPrinter.h"
#include "PlanRequest.h"
#include "ResetPlan.h"

namespace {

const int kExitNothingRead = 1;
const int kExitBadArguments = 2;

int BadArguments(const std::string& message) {
    g_printerr("tak-reset-plan: %s\n", message.c_str());
    return kExitBadArguments;
}

}  // namespace

int main(int argc, char** argv) {
    gboolean json = FALSE;
    gboolean verbose = FALSE;
    GOptionEntry entries[] = {
        {"json", 0, 0, G_OPTION_ARG_NONE, &json, "Print the plan as one JSON document", nullptr},
        {"verbose", 'v', 0, G_OPTION_ARG_NONE, &verbose,
         "Also print the platform log of the reads (as does ORVIX_LOG_LEVEL when set)", nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    g_autoptr(GOptionContext) context = g_option_context_new("KEY=VALUE ... - what a reset would do");
    g_option_context_set_summary(
        context,
        "Prints what tak-reset would do for the launch request KEY=VALUE ..., without "
        "doing any of it.\nreset=tak_app_reset, tak_service_reset, corvane_reset, "
        "biu_app_reset or biu_service_reset chooses the reset; the other keys are those "
        "of a launch request\n(userdata, deprecated, method, obj, thread_id, "
        "event_index, caller_process_name, reset_reason).");
    g_option_context_add_main_entries(context, entries, nullptr);
    g_autoptr(GError) error = nullptr;
    if (!g_option_context_parse(context, &argc, &argv, &error)) {
        return BadArguments(error->message);
    }
    // The reads log what the reset's reads log; an operator asking for a plan wants the plan only.
    const char* level = g_getenv("ORVIX_LOG_LEVEL");
    if (!verbose && (level == nullptr || *level == '\0')) {
        g_setenv("ORVIX_LOG_LEVEL", "S", TRUE);
    }
    std::vector<std::string> arguments(argv + 1, argv + argc);
    CPlanRequest request;
    std::string problem;
    if (!request.Parse(arguments, problem)) {
        return BadArguments(problem);
    }

    CResetPlan plan(request);
    bool planned = plan.Build();
    for (const std::string& unread : plan.Get().problems) {
        g_printerr("tak-reset-plan: %s\n", unread.c_str());
    }
    if (!planned) {
        g_printerr("tak-reset-plan: nothing could be read, so there is no plan\n");
        return kExitNothingRead;
    }
    std::string text = json ? CPlanPrinter::Json(plan.Get()) : CPlanPrinter::Text(plan.Get());
    fwrite(text.data(), 1, text.size(), stdout);
    return 0;
}

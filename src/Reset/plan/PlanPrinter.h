// CPlanPrinter: a reset plan as a table for people and as one JSON document for scripts. Both carry
// the same facts; the JSON names every app with "appId", "action" ("uninstall", "install" or "keep")
// and "rule" (why it is kept; null when it is not).
#pragma once

#include <string>

#include "ResetPlan.h"

class CPlanPrinter {
public:
    static std::string Text(const RESET_PLAN_T& plan);
    static std::string Json(const RESET_PLAN_T& plan);

    // The rule that keeps an app of an apps or Corvane reset; empty when it is uninstalled.
    static std::string AppRule(const RESET_PLAN_T& plan, const PLAN_APP_T& app);
    // The same for a built-in app.
    static std::string BuiltInRule(const RESET_PLAN_T& plan, const PLAN_BUILTIN_APP_T& app);
    static const char* CleanUpAction(RESET_CLEANUP_ACTION_E action);
};

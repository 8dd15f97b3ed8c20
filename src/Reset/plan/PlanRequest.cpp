#include "PlanRequest.h"

#include <glib.h>

#include <climits>
#include <set>

namespace {

struct KindName {
    const char* reset;
    CPlanRequest::Kind kind;
};

const KindName kKinds[] = {
    {"tak_app_reset", CPlanRequest::KIND_APP_RESET},
    {"tak_service_reset", CPlanRequest::KIND_SERVICE_RESET},
    {"corvane_reset", CPlanRequest::KIND_CORVANE_RESET},
    {"biu_app_reset", CPlanRequest::KIND_BIU_APP},
    {"biu_service_reset", CPlanRequest::KIND_BIU_SERVICE},
};

// A whole decimal number within [min, max]; GLib refuses blanks, signs out of place and trailing text.
bool ParseNumber(const std::string& key, const std::string& text, long long min, long long max,
                 long long& out, std::string& error) {
    gint64 number = 0;
    g_autoptr(GError) failure = nullptr;
    if (!g_ascii_string_to_signed(text.c_str(), 10, min, max, &number, &failure)) {
        error = "\"" + key + "\" takes a whole number from " + std::to_string(min) + " to " +
                std::to_string(max) + ", not \"" + text + "\"";
        return false;
    }
    out = number;
    return true;
}

bool ParseInt(const std::string& key, const std::string& text, int& out, std::string& error) {
    long long number = 0;
    if (!ParseNumber(key, text, INT_MIN, INT_MAX, number, error)) {
        return false;
    }
    out = static_cast<int>(number);
    return true;
}

}  // namespace

bool CPlanRequest::Parse(const std::vector<std::string>& arguments, std::string& error) {
    std::set<std::string> seen;
    for (const std::string& argument : arguments) {
        size_t equals = argument.find('=');
        if (equals == std::string::npos || equals == 0) {
            error = "\"" + argument + "\" is not KEY=VALUE";
            return false;
        }
        std::string key = argument.substr(0, equals);
        if (!seen.insert(key).second) {
            error = "\"" + key + "\" is given twice";
            return false;
        }
        if (!m_SetValue(key, argument.substr(equals + 1), error)) {
            return false;
        }
    }
    if (seen.count("reset") == 0 && m_strOtherRequest.empty()) {
        error = "no reset=KIND given (" + m_Kinds() + ")";
        return false;
    }
    return true;
}

std::string CPlanRequest::m_Kinds() const {
    std::string kinds = "tak_app_reset, tak_service_reset, corvane_reset, biu_app_reset, biu_service_reset";
    return m_ePurpose == PURPOSE_LAUNCH ? kinds + ", end" : kinds;
}

std::string CPlanRequest::m_Keys() const {
    std::string keys =
        "reset, userdata, deprecated, method, obj, thread_id, event_index, caller_process_name, reset_reason";
    return m_ePurpose == PURPOSE_LAUNCH ? keys + ", monitor_event, appkey, caller_pid, recovery_action"
                                        : keys;
}

bool CPlanRequest::m_IsLaunchKey(const std::string& key) const {
    return m_ePurpose == PURPOSE_LAUNCH &&
           (key == "monitor_event" || key == "appkey" || key == "caller_pid" || key == "recovery_action");
}

// The keys of the requests besides a reset: tak-reset serves a monitor_event or a recovery_action before
// it looks at "reset" at all.
bool CPlanRequest::m_SetLaunchValue(const std::string& key, const std::string& value, std::string& error) {
    int callerPid = 0;
    if (key == "caller_pid") {
        return ParseInt(key, value, callerPid, error);
    }
    if (key == "monitor_event" && value != "monitor_install" && value != "cancel_monitor_install") {
        error = "monitor_event=\"" + value + "\" is no request (monitor_install, cancel_monitor_install)";
        return false;
    }
    if (key == "monitor_event" || key == "recovery_action") {
        m_strOtherRequest = key;
    }
    return true;
}

bool CPlanRequest::m_SetValue(const std::string& key, const std::string& value, std::string& error) {
    long long userdata = 0;
    if (key == "reset") {
        return m_SetKind(value, error);
    }
    if (key == "userdata") {
        if (!ParseNumber(key, value, LONG_MIN, LONG_MAX, userdata, error)) {
            return false;
        }
        m_nUserData = static_cast<long>(userdata);
        return true;
    }
    if (key == "deprecated") {
        return ParseInt(key, value, m_tClient.deprecated, error);
    }
    if (m_IsLaunchKey(key)) {
        return m_SetLaunchValue(key, value, error);
    }
    if (key == "thread_id") {
        return ParseInt(key, value, m_tClient.thread_id, error);
    }
    if (key == "event_index") {
        return ParseInt(key, value, m_tClient.event_index, error);
    }
    std::string* text = key == "method"                ? &m_tClient.method
                        : key == "obj"                 ? &m_tClient.obj
                        : key == "caller_process_name" ? &m_tClient.caller_process_name
                        : key == "reset_reason"        ? &m_tClient.reset_reason
                                                       : nullptr;
    if (text == nullptr) {
        error = "unknown key \"" + key + "\" (keys: " + m_Keys() + ")";
        return false;
    }
    *text = value;
    return true;
}

bool CPlanRequest::m_SetKind(const std::string& value, std::string& error) {
    for (const KindName& known : kKinds) {
        if (value == known.reset) {
            m_eKind = known.kind;
            m_strReset = value;
            return true;
        }
    }
    if (value == "end" && m_ePurpose == PURPOSE_LAUNCH) {
        m_strReset = value;
        return true;
    }
    if (value == "end") {
        error = "reset=end stops tak-reset; it resets nothing, so there is nothing to plan";
        return false;
    }
    error = "reset=\"" + value + "\" starts no reset (" + m_Kinds() + ")";
    return false;
}

// The typed reads of a launch request (string, bool, 32- and 64-bit numbers) over whatever extras a
// caller sends. The input is split at newlines into KEY=VALUE extras; every key of the reset dispatch is
// then read as each type. No input may crash, and each type keeps its promise.
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "FuzzSupport.h"
#include "ProcessCore.h"
#include "TAKString.h"
#include "app_control.h"

TAK_FUZZ_QUIET_LOG()

namespace {

const char* const kKeys[] = {
    "reset",     "userdata",    "deprecated",          "method",       "obj",
    "thread_id", "event_index", "caller_process_name", "reset_reason", "monitor_event",
    "appkey",    "caller_pid",  "recovery_action"};

void AddExtras(app_control_h request, const std::string& text) {
    size_t begin = 0;
    while (begin <= text.size()) {
        size_t end = text.find('\n', begin);
        std::string line = text.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
        size_t eq = line.find('=');
        if (eq != std::string::npos && eq > 0) {
            app_control_add_extra_data(request, line.substr(0, eq).c_str(), line.substr(eq + 1).c_str());
        }
        if (end == std::string::npos) {
            break;
        }
        begin = end + 1;
    }
}

// "-"? digits, within the range of long long.
bool PlainDecimal(const std::string& text, long long& value) {
    size_t digits = (!text.empty() && text[0] == '-') ? 1 : 0;
    if (digits == text.size()) {
        return false;
    }
    for (size_t i = digits; i < text.size(); ++i) {
        if (!isdigit(static_cast<unsigned char>(text[i]))) {
            return false;
        }
    }
    errno = 0;
    value = strtoll(text.c_str(), nullptr, 10);
    return errno == 0;
}

// The text an app_control hands out for `key` (what every typed read starts from).
bool RawValue(app_control_h request, const char* key, std::string& value) {
    char* raw = nullptr;
    if (app_control_get_extra_data(request, key, &raw) != APP_CONTROL_ERROR_NONE) {
        return false;
    }
    value = raw;
    free(raw);
    return true;
}

void CheckKey(app_control_h request, const char* key) {
    std::string raw;
    bool present = RawValue(request, key, raw);

    std::string text = "untouched";
    TAK_FUZZ_CHECK(CProcessCore::m_GetControlData(request, key, text) == present);
    TAK_FUZZ_CHECK(present ? text == raw : text == "untouched");

    bool flag = true;
    TAK_FUZZ_CHECK(CProcessCore::m_GetControlData(request, key, flag) == present);
    TAK_FUZZ_CHECK(present ? flag == (raw == "true") : flag);

    int number = -7;
    TAK_FUZZ_CHECK(CProcessCore::m_GetControlData(request, key, number) == present);
    TAK_FUZZ_CHECK(present ? number == TAKString::Integer(raw) : number == -7);

    long cookie = -7;
    TAK_FUZZ_CHECK(CProcessCore::m_GetControlData(request, key, cookie) == present);
    if (!present) {
        TAK_FUZZ_CHECK(cookie == -7);
        return;
    }
    // A cookie that is a plain decimal within range reads as that number; anything else reads as some
    // number without crashing.
    long long expected = 0;
    if (PlainDecimal(raw, expected)) {
        TAK_FUZZ_CHECK(cookie == expected);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    app_control_h request = nullptr;
    TAK_FUZZ_CHECK(app_control_create(&request) == APP_CONTROL_ERROR_NONE);
    AddExtras(request, std::string(reinterpret_cast<const char*>(data), size));
    for (const char* key : kKeys) {
        CheckKey(request, key);
    }
    app_control_destroy(request);
    return 0;
}

// Launch requests on the host: a record of string extras kept in the order they were added.
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "app_control.h"

struct app_control_s {
    std::vector<std::pair<std::string, std::string>> extras;

    std::pair<std::string, std::string>* Find(const char* key) {
        for (auto& extra : extras) {
            if (extra.first == key) {
                return &extra;
            }
        }
        return nullptr;
    }
};

namespace {

bool IsValidKey(const char* key) {
    return key != nullptr && key[0] != '\0';
}

// A fault for tests of the callers: with ORVIX_APP_CONTROL_REFUSE set, adding an extra whose value equals
// it fails as an invalid parameter, the way a platform refuses what it cannot store. Read once.
bool IsRefusedForTests(const char* value) {
    static const char* refused = getenv("ORVIX_APP_CONTROL_REFUSE");
    return refused != nullptr && refused[0] != '\0' && strcmp(value, refused) == 0;
}

}  // namespace

extern "C" int app_control_create(app_control_h* app_control) {
    if (app_control == nullptr) {
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    }
    *app_control = new (std::nothrow) app_control_s();
    return *app_control != nullptr ? APP_CONTROL_ERROR_NONE : APP_CONTROL_ERROR_OUT_OF_MEMORY;
}

extern "C" int app_control_destroy(app_control_h app_control) {
    if (app_control == nullptr) {
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    }
    delete app_control;
    return APP_CONTROL_ERROR_NONE;
}

extern "C" int app_control_add_extra_data(app_control_h app_control, const char* key, const char* value) {
    if (app_control == nullptr || !IsValidKey(key) || value == nullptr || IsRefusedForTests(value)) {
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    }
    if (auto* existing = app_control->Find(key)) {
        existing->second = value;
    } else {
        app_control->extras.emplace_back(key, value);
    }
    return APP_CONTROL_ERROR_NONE;
}

extern "C" int app_control_remove_extra_data(app_control_h app_control, const char* key) {
    if (app_control == nullptr || !IsValidKey(key)) {
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    }
    auto* existing = app_control->Find(key);
    if (existing == nullptr) {
        return APP_CONTROL_ERROR_KEY_NOT_FOUND;
    }
    app_control->extras.erase(app_control->extras.begin() + (existing - app_control->extras.data()));
    return APP_CONTROL_ERROR_NONE;
}

extern "C" int app_control_get_extra_data(app_control_h app_control, const char* key, char** value) {
    if (app_control == nullptr || !IsValidKey(key) || value == nullptr) {
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    }
    const auto* existing = app_control->Find(key);
    if (existing == nullptr) {
        return APP_CONTROL_ERROR_KEY_NOT_FOUND;
    }
    *value = strdup(existing->second.c_str());
    return *value != nullptr ? APP_CONTROL_ERROR_NONE : APP_CONTROL_ERROR_OUT_OF_MEMORY;
}

extern "C" int app_control_foreach_extra_data(app_control_h app_control, app_control_extra_data_cb callback,
                                              void* user_data) {
    if (app_control == nullptr || callback == nullptr) {
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    }
    // A copy of the keys: the callback may add or remove extras of the record it is walking.
    std::vector<std::string> keys;
    keys.reserve(app_control->extras.size());
    for (const auto& extra : app_control->extras) {
        keys.push_back(extra.first);
    }
    for (const auto& key : keys) {
        if (!callback(app_control, key.c_str(), user_data)) {
            break;
        }
    }
    return APP_CONTROL_ERROR_NONE;
}

extern "C" int app_control_clone(app_control_h* clone, app_control_h app_control) {
    if (clone == nullptr || app_control == nullptr) {
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    }
    *clone = new (std::nothrow) app_control_s(*app_control);
    return *clone != nullptr ? APP_CONTROL_ERROR_NONE : APP_CONTROL_ERROR_OUT_OF_MEMORY;
}

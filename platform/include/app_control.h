// Launch requests: records of string extra data.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef struct app_control_s* app_control_h;

typedef enum {
    APP_CONTROL_ERROR_NONE = 0,
    APP_CONTROL_ERROR_INVALID_PARAMETER = -22,
    APP_CONTROL_ERROR_OUT_OF_MEMORY = -12,
    APP_CONTROL_ERROR_KEY_NOT_FOUND = -126,
} app_control_error_e;

typedef bool (*app_control_extra_data_cb)(app_control_h app_control, const char* key, void* user_data);

int app_control_create(app_control_h* app_control);
int app_control_destroy(app_control_h app_control);
// Adds or replaces one value; empty keys and NULL values are refused.
int app_control_add_extra_data(app_control_h app_control, const char* key, const char* value);
int app_control_remove_extra_data(app_control_h app_control, const char* key);
// *value is a copy the caller frees.
int app_control_get_extra_data(app_control_h app_control, const char* key, char** value);
int app_control_foreach_extra_data(app_control_h app_control, app_control_extra_data_cb callback, void* user_data);
int app_control_clone(app_control_h* clone, app_control_h app_control);

#ifdef __cplusplus
}
#endif

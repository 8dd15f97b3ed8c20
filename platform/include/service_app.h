// Service-application framework. service_app_main runs the main loop on the calling thread and hands
// launch requests to the app-control callback, one at a time, in arrival order.
#pragma once

#include "app_control.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef bool (*service_app_create_cb)(void* user_data);
typedef void (*service_app_terminate_cb)(void* user_data);
typedef void (*service_app_control_cb)(app_control_h app_control, void* user_data);

typedef struct {
    service_app_create_cb create;
    service_app_terminate_cb terminate;
    service_app_control_cb app_control;
} service_app_lifecycle_callback_s;

typedef enum {
    SERVICE_APP_ERROR_NONE = 0,
    SERVICE_APP_ERROR_INVALID_PARAMETER = -22,
    SERVICE_APP_ERROR_INVALID_CONTEXT = -1,
    SERVICE_APP_ERROR_ALREADY_RUNNING = -114,
} service_app_error_e;

int service_app_main(int argc, char** argv, service_app_lifecycle_callback_s* callback, void* user_data);
void service_app_exit(void);

#ifdef __cplusplus
}
#endif

// Settings store. Persistent "db/" keys and volatile "memory/" keys, typed. On the host every key is one
// file below the host root, written atomically; changes are announced across processes.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum vconf_type {
    VCONF_TYPE_NONE = 0,
    VCONF_TYPE_STRING = 40,
    VCONF_TYPE_INT = 41,
    VCONF_TYPE_DOUBLE = 42,
    VCONF_TYPE_BOOL = 43,
    VCONF_TYPE_DIR = 44,
};

#define VCONF_OK 0
#define VCONF_ERROR (-1)

typedef struct _keynode_t keynode_t;

// Change notification: delivered on the main loop (default GLib context) of the registering process.
typedef void (*vconf_callback_fn)(keynode_t* node, void* user_data);
// Completion of an asynchronous set: runs on a worker thread; the node carries the key and the value.
typedef void (*vconf_async_cb)(int result, keynode_t* node, void* user_data);

const char* vconf_keynode_get_name(keynode_t* node);
int vconf_keynode_get_type(keynode_t* node);
int vconf_keynode_get_int(keynode_t* node);
int vconf_keynode_get_bool(keynode_t* node);
double vconf_keynode_get_dbl(keynode_t* node);
char* vconf_keynode_get_str(keynode_t* node);  // owned by the node

int vconf_get_int(const char* key, int* value);
int vconf_get_bool(const char* key, int* value);
int vconf_get_dbl(const char* key, double* value);
char* vconf_get_str(const char* key);  // caller frees; NULL when missing or not a string

int vconf_set_int(const char* key, int value);
int vconf_set_bool(const char* key, int value);
int vconf_set_dbl(const char* key, double value);
int vconf_set_str(const char* key, const char* value);

// Accepted sets return VCONF_OK at once; the write and the completion happen on a worker thread.
int vconf_set_int_async(const char* key, int value, vconf_async_cb cb, void* user_data);
int vconf_set_bool_async(const char* key, int value, vconf_async_cb cb, void* user_data);
int vconf_set_str_async(const char* key, const char* value, vconf_async_cb cb, void* user_data);

int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data);
int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb);

#ifdef __cplusplus
}
#endif

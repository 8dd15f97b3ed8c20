// _APPINFO_T: one installed web app, one field per column of the "widgetinfo" table.
//
// The column list below is the only place the columns are written down. It yields, in one order:
// the record's fields (named exactly as the columns), the static table of 30-character column names
// that the SQL builders walk, the field table that binding, reading and JSON conversion walk, and the
// column types of the schema. The order is the order of binding in inserts and of reading in selects.
//
// Field kinds:
//   TEXT  std::string  ids, titles, paths, versions, dates, names, the reserved string columns
//   INT   int          counters, codes and the reserved integer columns ("reserved_tinyint_*" hold
//                      flags 0/1 or small codes, "reserved_int_1" an integer)
//   FLAG  bool         the "is_*" columns
//
// Meanings the resets rely on: `id` is the app id (primary key); `app_type` 4 is a default/native app;
// `is_need_reset` is the reset flag; `reserved_tinyint_1` is the disable-reset flag; `reserved_tinyint_2`
// places the app at the front of the uninstall list; `install_state` 3 is "installed".
//
// Two text fields start with a value that marks a state nobody has settled yet, so that an empty text
// is never mistaken for a known one: `pkg_type` is "undefined" until the installer has read the
// package's format, and `rating` is "not confirmed" until the store has confirmed the app's age rating.
#pragma once

#include <string>

// X(column, kind)
#define TAK_APPINFO_COLUMNS(X)     \
    X(id, TEXT)                    \
    X(app_index, INT)              \
    X(title, TEXT)                 \
    X(install_path, TEXT)          \
    X(icon_path, TEXT)             \
    X(version, TEXT)               \
    X(size, TEXT)                  \
    X(install_date, TEXT)          \
    X(is_lock, FLAG)               \
    X(is_support_voice, FLAG)      \
    X(is_support_gesture, FLAG)    \
    X(is_hidden, FLAG)             \
    X(is_network, FLAG)            \
    X(orvix_id, TEXT)              \
    X(pkgname, TEXT)               \
    X(app_featured, INT)           \
    X(app_type, INT)               \
    X(install_type, INT)           \
    X(widget_category, TEXT)       \
    X(is_removable, FLAG)          \
    X(is_display, FLAG)            \
    X(use_count, INT)              \
    X(run_title, TEXT)             \
    X(install_state, INT)          \
    X(is_premium_game, FLAG)       \
    X(pkg_type, TEXT)              \
    X(pannel_icon_path, TEXT)      \
    X(is_need_login, FLAG)         \
    X(launch_date, TEXT)           \
    X(is_app_available, FLAG)      \
    X(resources_path, TEXT)        \
    X(is_need_update, FLAG)        \
    X(install_source_type, INT)    \
    X(is_updated, FLAG)            \
    X(icon_updated_date, TEXT)     \
    X(firstscreen_icon_path, TEXT) \
    X(is_ticker, FLAG)             \
    X(is_need_reset, FLAG)         \
    X(is_multi_screen2, FLAG)      \
    X(is_multi_tasking, FLAG)      \
    X(is_system, FLAG)             \
    X(hbbTV, INT)                  \
    X(takorder, INT)               \
    X(ait_appid, TEXT)             \
    X(ait_orgid, TEXT)             \
    X(chanel_name, TEXT)           \
    X(is_ispbound, FLAG)           \
    X(is_hybrid_tv, FLAG)          \
    X(is_auto_update, FLAG)        \
    X(duid, TEXT)                  \
    X(limit_age, INT)              \
    X(is_age_auth, FLAG)           \
    X(is_usb_app, FLAG)            \
    X(hybrid_app, INT)             \
    X(rating, TEXT)                \
    X(use_gamepad, INT)            \
    X(reserved_string_1, TEXT)     \
    X(reserved_tinyint_1, INT)     \
    X(reserved_tinyint_2, INT)     \
    X(reserved_string_2, TEXT)     \
    X(reserved_string_3, TEXT)     \
    X(reserved_tinyint_3, INT)     \
    X(reserved_tinyint_4, INT)     \
    X(reserved_tinyint_5, INT)     \
    X(reserved_string_4, TEXT)     \
    X(reserved_tinyint_6, INT)     \
    X(reserved_tinyint_7, INT)     \
    X(reserved_tinyint_8, INT)     \
    X(reserved_string_5, TEXT)     \
    X(reserved_string_6, TEXT)     \
    X(reserved_tinyint_9, INT)     \
    X(reserved_string_7, TEXT)     \
    X(reserved_string_8, TEXT)     \
    X(reserved_int_1, INT)         \
    X(reserved_string_9, TEXT)     \
    X(reserved_string_10, TEXT)    \
    X(reserved_string_11, TEXT)    \
    X(reserved_string_12, TEXT)    \
    X(reserved_tinyint_10, INT)    \
    X(reserved_string_13, TEXT)    \
    X(reserved_tinyint_11, INT)    \
    X(reserved_tinyint_12, INT)    \
    X(reserved_string_14, TEXT)    \
    X(reserved_tinyint_13, INT)    \
    X(reserved_string_15, TEXT)    \
    X(reserved_string_16, TEXT)    \
    X(reserved_string_17, TEXT)    \
    X(reserved_string_18, TEXT)    \
    X(reserved_tinyint_14, INT)    \
    X(reserved_tinyint_15, INT)    \
    X(reserved_tinyint_16, INT)    \
    X(reserved_string_19, TEXT)    \
    X(reserved_string_20, TEXT)    \
    X(reserved_tinyint_17, INT)    \
    X(reserved_tinyint_18, INT)    \
    X(reserved_string_21, TEXT)    \
    X(reserved_string_22, TEXT)    \
    X(reserved_string_23, TEXT)    \
    X(reserved_tinyint_19, INT)    \
    X(reserved_string_24, TEXT)    \
    X(reserved_string_25, TEXT)    \
    X(reserved_tinyint_20, INT)    \
    X(reserved_string_26, TEXT)    \
    X(reserved_string_27, TEXT)    \
    X(reserved_tinyint_21, INT)

#define TAK_APPINFO_FIELD_TYPE_TEXT std::string
#define TAK_APPINFO_FIELD_TYPE_INT int
#define TAK_APPINFO_FIELD_TYPE_FLAG bool

#define TAK_APPINFO_DECLARE_FIELD(column, kind) TAK_APPINFO_FIELD_TYPE_##kind column{};

struct _APPINFO_T {
    TAK_APPINFO_COLUMNS(TAK_APPINFO_DECLARE_FIELD)

    _APPINFO_T() : pkg_type("undefined"), rating("not confirmed") {}
};

#undef TAK_APPINFO_DECLARE_FIELD

#define TAK_APPINFO_COUNT_COLUMN(column, kind) +1
constexpr unsigned TAK_APPINFO_COLUMN_COUNT = 0 TAK_APPINFO_COLUMNS(TAK_APPINFO_COUNT_COLUMN);
#undef TAK_APPINFO_COUNT_COLUMN
static_assert(TAK_APPINFO_COLUMN_COUNT == 105, "the widgetinfo table has 105 columns");

// Width of one entry of the name table, terminating NUL included.
constexpr unsigned TAK_APPINFO_COLUMN_NAME_WIDTH = 30;

// The column names, in column order.
#define TAK_APPINFO_COLUMN_NAME(column, kind) #column,
inline constexpr char TAK_APPINFO_COLUMN_NAMES[TAK_APPINFO_COLUMN_COUNT][TAK_APPINFO_COLUMN_NAME_WIDTH] = {
    TAK_APPINFO_COLUMNS(TAK_APPINFO_COLUMN_NAME)};
#undef TAK_APPINFO_COLUMN_NAME

enum APPINFO_FIELD_KIND_E { APPINFO_FIELD_TEXT = 0, APPINFO_FIELD_INT, APPINFO_FIELD_FLAG };

// Where one column lives in the record. Exactly one of the three member pointers is set, the one
// that `kind` names.
struct _APPINFO_FIELD_T {
    APPINFO_FIELD_KIND_E kind;
    std::string _APPINFO_T::*text;
    int _APPINFO_T::*number;
    bool _APPINFO_T::*flag;
};

#define TAK_APPINFO_FIELD_ENTRY_TEXT(column) \
    { APPINFO_FIELD_TEXT, &_APPINFO_T::column, nullptr, nullptr }
#define TAK_APPINFO_FIELD_ENTRY_INT(column) \
    { APPINFO_FIELD_INT, nullptr, &_APPINFO_T::column, nullptr }
#define TAK_APPINFO_FIELD_ENTRY_FLAG(column) \
    { APPINFO_FIELD_FLAG, nullptr, nullptr, &_APPINFO_T::column }
#define TAK_APPINFO_FIELD_ENTRY(column, kind) TAK_APPINFO_FIELD_ENTRY_##kind(column),

// The fields, in column order: entry i belongs to TAK_APPINFO_COLUMN_NAMES[i].
inline const _APPINFO_FIELD_T TAK_APPINFO_FIELDS[TAK_APPINFO_COLUMN_COUNT] = {
    TAK_APPINFO_COLUMNS(TAK_APPINFO_FIELD_ENTRY)};

#undef TAK_APPINFO_FIELD_ENTRY
#undef TAK_APPINFO_FIELD_ENTRY_TEXT
#undef TAK_APPINFO_FIELD_ENTRY_INT
#undef TAK_APPINFO_FIELD_ENTRY_FLAG

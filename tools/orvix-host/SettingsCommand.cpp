// orvix-host settings: reads and writes keys of the host settings store.
//
//   settings get [-t|--type] KEY                       prints the value (bool as true/false); with -t, or
//                                                      on a terminal, the type before it
//   settings set [-t|--type int|bool|string|double] KEY VALUE
//
// Without -t a key keeps the type it already has; a new key is a string, and a line on standard error
// says so (the service reads most keys as int or bool, and would find a string key missing). Values must
// parse as their type: int as a 32-bit decimal, bool as true/false/1/0, double as a finite decimal number. A
// malformed key (checked here, before the store could log about it), a bad value, an unknown type or a
// missing argument prints one line on standard error, exits with 2 and writes nothing. A failed write or a
// missing key exits with 1. -t is parsed by hand, so that a VALUE such as "-5" is never taken for an
// option.
#include <unistd.h>
#include <vconf.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Commands.h"
#include "KitCommand.h"
#include "orvix_host.h"

namespace {

const char kCommand[] = "settings";

const char kUsage[] =
    "usage: orvix-host settings get [-t] KEY | settings set [-t int|bool|string|double] KEY VALUE";

int UsageError(const std::string& message) {
    fprintf(stderr, "orvix-host settings: %s\n", message.c_str());
    return kUsageError;
}

bool ParseInt(const char* text, int& value) {
    if (isspace(static_cast<unsigned char>(*text))) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    long parsed = strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || errno != 0 || parsed < INT_MIN || parsed > INT_MAX) {
        return false;
    }
    value = static_cast<int>(parsed);
    return true;
}

bool ParseBool(const char* text, int& value) {
    if (strcmp(text, "true") == 0 || strcmp(text, "1") == 0) {
        value = 1;
        return true;
    }
    if (strcmp(text, "false") == 0 || strcmp(text, "0") == 0) {
        value = 0;
        return true;
    }
    return false;
}

bool ParseDouble(const char* text, double& value) {
    if (isspace(static_cast<unsigned char>(*text))) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    double parsed = strtod(text, &end);
    if (*text == '\0' || *end != '\0' || errno != 0 || !std::isfinite(parsed)) {
        return false;
    }
    value = parsed;
    return true;
}

// The type the key is stored with, found by asking each typed getter; VCONF_TYPE_NONE when missing.
int StoredType(const char* key, std::string& valueText) {
    int number = 0;
    double real = 0;
    if (vconf_get_int(key, &number) == VCONF_OK) {
        valueText = std::to_string(number);
        return VCONF_TYPE_INT;
    }
    if (vconf_get_bool(key, &number) == VCONF_OK) {
        valueText = number != 0 ? "true" : "false";
        return VCONF_TYPE_BOOL;
    }
    if (vconf_get_dbl(key, &real) == VCONF_OK) {
        valueText = orvix::host::ShortestDoubleText(real);
        return VCONF_TYPE_DOUBLE;
    }
    if (char* text = vconf_get_str(key)) {
        valueText = text;
        free(text);
        return VCONF_TYPE_STRING;
    }
    return VCONF_TYPE_NONE;
}

const struct {
    const char* name;
    int type;
} kTypes[] = {{"int", VCONF_TYPE_INT},
              {"bool", VCONF_TYPE_BOOL},
              {"string", VCONF_TYPE_STRING},
              {"double", VCONF_TYPE_DOUBLE}};

int TypeOfOption(const char* name) {
    for (const auto& entry : kTypes) {
        if (strcmp(name, entry.name) == 0) {
            return entry.type;
        }
    }
    return VCONF_TYPE_NONE;
}

const char* NameOfType(int type) {
    for (const auto& entry : kTypes) {
        if (type == entry.type) {
            return entry.name;
        }
    }
    return "none";
}

// Bad input unless `key` is a key of the store; checked here so that the store's own log line about a
// bad key never reaches the terminal.
int CheckKey(const char* key) {
    if (orvix::host::IsSettingsKey(key)) {
        return 0;
    }
    return UsageError(std::string("malformed KEY '") + key +
                      "' (db/ or memory/, then components of letters, digits, '_', '-' and '.')");
}

int Get(int argc, char** argv) {
    // Scripts read the bare value, as they always have; a person at a terminal also sees the type.
    bool showType = isatty(STDOUT_FILENO) != 0;
    if (argc > 0 && (strcmp(argv[0], "-t") == 0 || strcmp(argv[0], "--type") == 0)) {
        showType = true;
        --argc;
        ++argv;
    }
    if (argc != 1) {
        return UsageError(argc == 0 ? "missing KEY" : "too many arguments");
    }
    if (int bad = CheckKey(argv[0])) {
        return bad;
    }
    if (!orvix::host::RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    std::string valueText;
    const int type = StoredType(argv[0], valueText);
    if (type == VCONF_TYPE_NONE) {
        fprintf(stderr, "orvix-host settings: no readable key %s\n", argv[0]);
        return 1;
    }
    // Type first: the value of a string key may hold anything, blanks included.
    printf("%s%s%s\n", showType ? NameOfType(type) : "", showType ? " " : "", valueText.c_str());
    return 0;
}

// Parses VALUE as `type` and writes it; the value is checked completely before anything is written.
int Store(const char* key, int type, const char* valueText) {
    int number = 0;
    double real = 0;
    int ret = VCONF_ERROR;
    switch (type) {
        case VCONF_TYPE_INT:
            if (!ParseInt(valueText, number)) {
                return UsageError(std::string("not an int: ") + valueText);
            }
            ret = vconf_set_int(key, number);
            break;
        case VCONF_TYPE_BOOL:
            if (!ParseBool(valueText, number)) {
                return UsageError(std::string("not a bool (true, false, 1, 0): ") + valueText);
            }
            ret = vconf_set_bool(key, number);
            break;
        case VCONF_TYPE_DOUBLE:
            if (!ParseDouble(valueText, real)) {
                return UsageError(std::string("not a double: ") + valueText);
            }
            ret = vconf_set_dbl(key, real);
            break;
        default:
            ret = vconf_set_str(key, valueText);
            break;
    }
    if (ret != VCONF_OK) {
        fprintf(stderr, "orvix-host settings: cannot set %s (keys start with db/ or memory/)\n", key);
        return 1;
    }
    return 0;
}

int Set(int argc, char** argv) {
    int type = VCONF_TYPE_NONE;
    const char* typeName = nullptr;
    if (argc >= 1 && g_str_has_prefix(argv[0], "--type=")) {
        typeName = argv[0] + strlen("--type=");
        argc -= 1;
        argv += 1;
    } else if (argc >= 1 && (strcmp(argv[0], "-t") == 0 || strcmp(argv[0], "--type") == 0)) {
        if (argc < 2) {
            return UsageError("-t needs a type: int, bool, string or double");
        }
        typeName = argv[1];
        argc -= 2;
        argv += 2;
    }
    if (typeName != nullptr && (type = TypeOfOption(typeName)) == VCONF_TYPE_NONE) {
        return UsageError(std::string("unknown type: ") + typeName);
    }
    if (argc != 2) {
        return UsageError(argc < 2 ? "missing KEY or VALUE" : "too many arguments");
    }
    if (int bad = CheckKey(argv[0])) {
        return bad;
    }
    if (!orvix::host::RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    if (type == VCONF_TYPE_NONE) {
        std::string ignored;
        type = StoredType(argv[0], ignored);
    }
    if (type == VCONF_TYPE_NONE) {
        fprintf(stderr,
                "orvix-host settings: %s is a new key, stored as a string (-t int|bool|double for another)\n",
                argv[0]);
        type = VCONF_TYPE_STRING;
    }
    return Store(argv[0], type, argv[1]);
}

}  // namespace

int RunSettings(int argc, char** argv) {
    if (orvix::host::AsksForHelp(argc, argv)) {
        // -t is parsed by hand: a VALUE such as "-5" must not be taken for an option.
        const GOptionEntry kHelpEntries[] = {
            {"type", 't', 0, G_OPTION_ARG_STRING, nullptr,
             "set: the value's type, int, bool, string or double (default: the key's own, a new key string)",
             "TYPE"},
            {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
        };
        return orvix::host::ShowHelp(
            kCommand, kHelpEntries,
            "get [-t] KEY prints the value (a bool as true or false; with -t or on a terminal the type "
            "before it; exit status 1 when missing).\nset [-t TYPE] KEY VALUE writes it; bools are true, "
            "false, 1 or "
            "0.\nKEY: db/... (kept) or memory/... (until reboot), e.g. "
            "db/tak/factory_reset.");
    }
    if (argc < 2) {
        return UsageError(kUsage);
    }
    if (strcmp(argv[1], "get") == 0) {
        return Get(argc - 2, argv + 2);
    }
    if (strcmp(argv[1], "set") == 0) {
        return Set(argc - 2, argv + 2);
    }
    return UsageError(std::string("unknown action '") + argv[1] + "'; " + kUsage);
}

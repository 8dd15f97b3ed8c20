// The one door to the platform settings store: uniform logging, true/false answers, blocking or
// asynchronous writes, and one secret-bearing key kept out of the log. Stateless; any thread may call.
#pragma once

#include <vconf.h>

#include <string>

class ICVConf {
public:
    ICVConf();
    ~ICVConf();

    // The string is cleared first; false (and a log line) when the key is missing or not a string.
    static bool Get(const std::string& key, std::string& value);
    // `value` is left untouched on failure.
    static bool Get(const std::string& key, int& value);
    // Any non-zero stored value reads as true; untouched on failure.
    static bool Get(const std::string& key, bool& value);
    // An optional integer key (a knob that is normally unset): absent is no failure and leaves only a
    // debug line; a value of another type gets one error line saying what it holds. False unless an
    // integer was read; `value` is then untouched.
    static bool GetOptional(const std::string& key, int& value);

    // `sync` true writes before returning; false hands the write to the store and returns whether it
    // was accepted: the outcome is then only logged, by ResponseCB.
    static bool Set(const std::string& key, const std::string& value, bool sync);
    // A null value is a caller's mistake: refused with false and a log line, nothing written.
    static bool Set(const std::string& key, const char* value, bool sync);
    static bool Set(const std::string& key, char* value, bool sync);
    static bool Set(const std::string& key, int value, bool sync);
    static bool Set(const std::string& key, bool value, bool sync);

    // Completion of an asynchronous write; runs on the store's worker thread and only logs.
    static void ResponseCB(int result, keynode_t* node, void* userData);
};

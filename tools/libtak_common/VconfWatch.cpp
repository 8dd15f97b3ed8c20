// RegisterVconfChangeCBAPI / UnregisterVconfChangeCBAPI: watches of settings keys for the caller, made
// for real on the host settings store, so that a change from any process (`orvix-host settings set`)
// reaches the callback, on the library's watcher thread (CLibTakSettingsWatch). One watch per key:
// registering again replaces the callback. Each callback is recorded as
// "RegisterVconfChangeCBAPI:callback" with the key and its value.
//
// 0 on success; -1 for an empty or invalid key, a null callback or, on unregister, a key not watched.
// A non-zero "results"."RegisterVconfChangeCBAPI" is returned as it is, and nothing is watched.
#include <string>

#include "LibTak.h"
#include "LibTakSettingsWatch.h"
#include "TAKCommonApi.h"

LIBTAK_EXPORT int RegisterVconfChangeCBAPI(std::string key, TAK_VCONF_CHANGE_CB callback) {
    Json::Value args(Json::arrayValue);
    args.append(key);
    args.append(callback != nullptr);
    libtak::Enter(TAK_API_REGISTER_VCONF_CHANGE_CB, args);
    int configured = libtak::IntSetting("results", TAK_API_REGISTER_VCONF_CHANGE_CB, 0);
    if (configured != 0) {
        return configured;
    }
    if (callback == nullptr || !CLibTakSettingsWatch::ValidKey(key)) {
        libtak::LogError("%s: refused, %s", TAK_API_REGISTER_VCONF_CHANGE_CB,
                         callback == nullptr ? "no callback" : ("invalid key '" + key + "'").c_str());
        return -1;
    }
    return CLibTakSettingsWatch::Get().Watch(key, callback) ? 0 : -1;
}

LIBTAK_EXPORT int UnregisterVconfChangeCBAPI(std::string key) {
    Json::Value args(Json::arrayValue);
    args.append(key);
    libtak::Enter(TAK_API_UNREGISTER_VCONF_CHANGE_CB, args);
    if (!CLibTakSettingsWatch::Get().Unwatch(key)) {
        libtak::LogError("%s: '%s' is not watched", TAK_API_UNREGISTER_VCONF_CHANGE_CB, key.c_str());
        return -1;
    }
    return 0;
}

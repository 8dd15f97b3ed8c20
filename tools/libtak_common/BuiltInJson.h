// The built-in reset's records as JSON, both ways: how the behaviour file describes them and how the
// library records what it was handed. One table per record names every field, so that reading and
// writing never disagree.
//
// OPENAPI_BUILTIN_APP_INFO: an object with the members below, all strings; the record's unnamed fields
// 4 to 7, 10 and 11 are "field4", "field5", "field6", "field7", "field10" and "field11"; "requires" as
// for the download info.
//
// OPENAPI_APP_DLD_INFO: an object with the download-info file's attribute names (AppDLDInfo.h): a text
// attribute is a string, a size an integer, a flag a bool; "requires" and "requiredService" are objects
// {"<id>": {"version": "...", "pkgid": "...", "builtInApp": false}} (the key is the record's id).
#pragma once

#include <json/json.h>

#include <map>
#include <string>

#include "TAKCommonApi.h"

namespace libtak {

struct BuiltInField {
    const char* name;
    std::string OPENAPI_BUILTIN_APP_INFO::*field;
};

inline constexpr BuiltInField kBuiltInFields[] = {
    {"appId", &OPENAPI_BUILTIN_APP_INFO::appId},         {"orvixId", &OPENAPI_BUILTIN_APP_INFO::orvixId},
    {"pkgId", &OPENAPI_BUILTIN_APP_INFO::pkgId},         {"field4", &OPENAPI_BUILTIN_APP_INFO::field4},
    {"field5", &OPENAPI_BUILTIN_APP_INFO::field5},       {"field6", &OPENAPI_BUILTIN_APP_INFO::field6},
    {"field7", &OPENAPI_BUILTIN_APP_INFO::field7},       {"appType", &OPENAPI_BUILTIN_APP_INFO::appType},
    {"resetMode", &OPENAPI_BUILTIN_APP_INFO::resetMode}, {"field10", &OPENAPI_BUILTIN_APP_INFO::field10},
    {"field11", &OPENAPI_BUILTIN_APP_INFO::field11},
};

using RequireMap = std::map<std::string, OPENAPI_REQUIRE_INFO>;

// False with `error` set when the text does not describe such a record; members it does not name are
// errors too, so that a misspelt member is seen rather than ignored. `ignored` members are skipped.
bool BuiltInAppFromJson(const Json::Value& item, OPENAPI_BUILTIN_APP_INFO& app, std::string& error,
                        const char* ignored = nullptr);
bool DLDInfoFromJson(const Json::Value& item, OPENAPI_APP_DLD_INFO& info, std::string& error);
bool RequiresFromJson(const Json::Value& item, RequireMap& required, std::string& error);

Json::Value DLDInfoToJson(const OPENAPI_APP_DLD_INFO& info);
Json::Value RequiresToJson(const RequireMap& required);

}  // namespace libtak

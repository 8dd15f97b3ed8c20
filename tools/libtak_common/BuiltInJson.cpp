// JSON forms of the built-in reset's records.
#include "BuiltInJson.h"

#include <cstring>

#include "AppDLDInfo.h"

namespace libtak {

namespace {

const char kRequires[] = "requires";
const char kRequiredService[] = "requiredService";

const BuiltInField* FindBuiltInField(const std::string& name) {
    for (const auto& field : kBuiltInFields) {
        if (name == field.name) {
            return &field;
        }
    }
    return nullptr;
}

const TAKDLDInfo::Attribute* FindAttribute(const std::string& name) {
    for (const auto& attribute : TAKDLDInfo::kAttributes) {
        if (name == attribute.name) {
            return &attribute;
        }
    }
    return nullptr;
}

bool RequireFromJson(const std::string& id, const Json::Value& item, OPENAPI_REQUIRE_INFO& info,
                     std::string& error) {
    if (!item.isObject()) {
        error = "requirement " + id + " is not an object";
        return false;
    }
    info.id = id;
    for (const auto& name : item.getMemberNames()) {
        const Json::Value& value = item[name];
        if ((name == "version" || name == "pkgid") && value.isString()) {
            (name == "version" ? info.version : info.pkgid) = value.asString();
        } else if (name == "builtInApp" && value.isBool()) {
            info.builtInApp = value.asBool();
        } else {
            error = "requirement " + id + ": unknown member or wrong type: " + name;
            return false;
        }
    }
    return true;
}

bool AttributeFromJson(const TAKDLDInfo::Attribute& attribute, const Json::Value& value,
                       OPENAPI_APP_DLD_INFO& info) {
    switch (attribute.kind) {
        case TAKDLDInfo::Kind::TEXT:
            if (!value.isString()) {
                return false;
            }
            info.*attribute.text = value.asString();
            return true;
        case TAKDLDInfo::Kind::SIZE:
            if (!value.isInt64()) {
                return false;
            }
            info.*attribute.size = value.asInt64();
            return true;
        case TAKDLDInfo::Kind::FLAG:
            if (!value.isBool()) {
                return false;
            }
            info.*attribute.flag = value.asBool();
            return true;
    }
    return false;
}

Json::Value AttributeToJson(const TAKDLDInfo::Attribute& attribute, const OPENAPI_APP_DLD_INFO& info) {
    switch (attribute.kind) {
        case TAKDLDInfo::Kind::TEXT:
            return Json::Value(info.*attribute.text);
        case TAKDLDInfo::Kind::SIZE:
            return Json::Value(static_cast<Json::Int64>(info.*attribute.size));
        case TAKDLDInfo::Kind::FLAG:
            return Json::Value(info.*attribute.flag);
    }
    return Json::Value();
}

}  // namespace

bool RequiresFromJson(const Json::Value& item, RequireMap& required, std::string& error) {
    if (!item.isObject()) {
        error = "requirements are not an object";
        return false;
    }
    for (const auto& id : item.getMemberNames()) {
        if (!RequireFromJson(id, item[id], required[id], error)) {
            return false;
        }
    }
    return true;
}

Json::Value RequiresToJson(const RequireMap& required) {
    Json::Value object(Json::objectValue);
    for (const auto& [id, info] : required) {
        Json::Value item(Json::objectValue);
        item["version"] = info.version;
        item["pkgid"] = info.pkgid;
        item["builtInApp"] = info.builtInApp;
        object[id] = item;
    }
    return object;
}

bool BuiltInAppFromJson(const Json::Value& item, OPENAPI_BUILTIN_APP_INFO& app, std::string& error,
                        const char* ignored) {
    if (!item.isObject()) {
        error = "not an object";
        return false;
    }
    // An empty id is a value like any other: the caller must see it as given.
    if (!item["appId"].isString()) {
        error = "no appId";
        return false;
    }
    for (const auto& name : item.getMemberNames()) {
        const Json::Value& value = item[name];
        if (ignored != nullptr && name == ignored) {
            continue;
        }
        if (name == kRequires) {
            if (!RequiresFromJson(value, app.requires, error)) {
                return false;
            }
            continue;
        }
        const BuiltInField* field = FindBuiltInField(name);
        if (field == nullptr || !value.isString()) {
            error = "unknown member or not a string: " + name;
            return false;
        }
        app.*field->field = value.asString();
    }
    return true;
}

bool DLDInfoFromJson(const Json::Value& item, OPENAPI_APP_DLD_INFO& info, std::string& error) {
    if (!item.isObject()) {
        error = "not an object";
        return false;
    }
    for (const auto& name : item.getMemberNames()) {
        const Json::Value& value = item[name];
        if (name == kRequires || name == kRequiredService) {
            if (!RequiresFromJson(value, name == kRequires ? info.requires : info.requiredService, error)) {
                return false;
            }
            continue;
        }
        const TAKDLDInfo::Attribute* attribute = FindAttribute(name);
        if (attribute == nullptr || !AttributeFromJson(*attribute, value, info)) {
            error = "unknown attribute or wrong type: " + name;
            return false;
        }
    }
    return true;
}

Json::Value DLDInfoToJson(const OPENAPI_APP_DLD_INFO& info) {
    Json::Value object(Json::objectValue);
    for (const auto& attribute : TAKDLDInfo::kAttributes) {
        object[attribute.name] = AttributeToJson(attribute, info);
    }
    object[kRequires] = RequiresToJson(info.requires);
    object[kRequiredService] = RequiresToJson(info.requiredService);
    return object;
}

}  // namespace libtak

// Parsing of the behaviour file's "builtin" member.
#include "BuiltInBehaviour.h"

#include <json/json.h>

#include <mutex>

#include "BuiltInJson.h"
#include "LibTak.h"

namespace libtak {

namespace {

const int kDefaultDelayMs = 20;

void ParseList(const Json::Value& list, BuiltInBehaviour& behaviour) {
    behaviour.listGiven = !list.isNull();
    if (!behaviour.listGiven) {
        return;
    }
    if (!list.isArray()) {
        LogError("builtin.list is not an array");
        behaviour.listValid = false;
        return;
    }
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        BuiltInListEntry entry;
        std::string error;
        if (!BuiltInAppFromJson(list[i], entry.app, error, "baseVersion")) {
            LogError("builtin.list[%u] left out: %s", i, error.c_str());
            continue;
        }
        const Json::Value& baseVersion = list[i]["baseVersion"];
        if (!baseVersion.isNull() && !baseVersion.isString()) {
            LogError("builtin.list[%u] left out: baseVersion is not a string", i);
            continue;
        }
        entry.hasBaseVersion = baseVersion.isString();
        entry.baseVersion = baseVersion.asString();
        behaviour.entryIndex.emplace(entry.app.appId, behaviour.list.size());
        behaviour.list.push_back(std::move(entry));
    }
}

void ParseDLD(const Json::Value& dld, BuiltInBehaviour& behaviour) {
    if (dld.isNull()) {
        return;
    }
    if (!dld.isObject()) {
        LogError("builtin.dld is not an object");
        return;
    }
    for (const auto& appId : dld.getMemberNames()) {
        OPENAPI_APP_DLD_INFO info;
        info.id = appId;
        std::string error;
        if (!DLDInfoFromJson(dld[appId], info, error)) {
            LogError("builtin.dld.%s left out: %s", appId.c_str(), error.c_str());
            continue;
        }
        behaviour.dld[appId] = info;
    }
}

bool ParseSteps(const Json::Value& states, std::vector<InstallStep>& steps) {
    if (!states.isArray()) {
        return false;
    }
    for (const auto& item : states) {
        if (!item.isArray() || item.size() != 3 || !item[0].isInt() || !item[1].isInt() || !item[2].isInt()) {
            return false;
        }
        steps.push_back({item[0].asInt(), item[1].asInt(), item[2].asInt()});
    }
    return true;
}

// One member of an app's install answer; false when it is not one or has the wrong type.
bool ParseInstallMember(const std::string& name, const Json::Value& value, InstallAnswer& answer) {
    if (name == "terminal" || name == "delay_ms") {
        if (!value.isInt()) {
            return false;
        }
        (name == "terminal" ? answer.terminal : answer.delayMs) = value.asInt();
        return true;
    }
    if (name == "silent" || name == "twice") {
        if (!value.isBool()) {
            return false;
        }
        (name == "silent" ? answer.silent : answer.twice) = value.asBool();
        return true;
    }
    if (name == "also_for") {
        answer.alsoFor = value.isString() ? value.asString() : answer.alsoFor;
        return value.isString();
    }
    return name == "states" && ParseSteps(value, answer.states);
}

void ParseInstall(const Json::Value& install, BuiltInBehaviour& behaviour) {
    if (install.isNull()) {
        return;
    }
    if (!install.isObject()) {
        LogError("builtin.install is not an object");
        return;
    }
    if (install["delay_ms"].isInt()) {
        behaviour.installDelayMs = install["delay_ms"].asInt();
    }
    const Json::Value& apps = install["apps"];
    for (const auto& appId : apps.isObject() ? apps.getMemberNames() : std::vector<std::string>()) {
        InstallAnswer answer;
        answer.delayMs = behaviour.installDelayMs;
        bool valid = apps[appId].isObject();
        for (const auto& name : valid ? apps[appId].getMemberNames() : std::vector<std::string>()) {
            if (!ParseInstallMember(name, apps[appId][name], answer)) {
                LogError("builtin.install.apps.%s.%s is not understood", appId.c_str(), name.c_str());
                valid = false;
            }
        }
        if (!valid) {
            LogError("builtin.install.apps.%s left out: the default answer applies", appId.c_str());
            continue;
        }
        behaviour.installs[appId] = answer;
    }
}

std::shared_ptr<const BuiltInBehaviour> Parse(const Json::Value& file) {
    auto behaviour = std::make_shared<BuiltInBehaviour>();
    behaviour->installDelayMs = kDefaultDelayMs;
    const Json::Value& builtin = file.isObject() ? file["builtin"] : Json::Value::nullSingleton();
    if (builtin.isNull()) {
        return behaviour;
    }
    if (!builtin.isObject()) {
        LogError("builtin is not an object");
        return behaviour;
    }
    ParseList(builtin["list"], *behaviour);
    ParseDLD(builtin["dld"], *behaviour);
    ParseInstall(builtin["install"], *behaviour);
    return behaviour;
}

}  // namespace

const BuiltInListEntry* BuiltInBehaviour::Entry(const std::string& appId) const {
    auto found = entryIndex.find(appId);
    return found != entryIndex.end() ? &list[found->second] : nullptr;
}

InstallAnswer BuiltInBehaviour::InstallFor(const std::string& appId) const {
    auto found = installs.find(appId);
    if (found != installs.end()) {
        return found->second;
    }
    InstallAnswer plain;
    plain.delayMs = installDelayMs;
    return plain;
}

std::shared_ptr<const BuiltInBehaviour> CurrentBuiltInBehaviour() {
    return DerivedBehaviour<BuiltInBehaviour>(Parse);
}

}  // namespace libtak

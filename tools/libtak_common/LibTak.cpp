// Recording and behaviour of the substitute common library.
#include "LibTak.h"

#include <unistd.h>

#include <fstream>

#include "LibTakWorkers.h"
#include "orvix_calls.h"
#include "orvix_host.h"

namespace libtak {

namespace {

// "program[pid]" of the process the library is loaded into.
std::string Sender() {
    std::ifstream in("/proc/self/comm");
    std::string name;
    std::getline(in, name);
    return name + "[" + std::to_string(getpid()) + "]";
}

}  // namespace

Json::Value Behaviour() {
    std::ifstream in(orvix::host::UnderRoot("etc/libtak_common.json"));
    Json::Value behaviour;
    if (!in) {
        return behaviour;
    }
    Json::CharReaderBuilder builder;
    std::string errors;
    if (!Json::parseFromStream(builder, in, &behaviour, &errors) || !behaviour.isObject()) {
        return Json::Value();
    }
    return behaviour;
}

int IntSetting(const char* section, const char* entryPoint, int fallback) {
    Json::Value behaviour = Behaviour();
    if (!behaviour.isObject() || !behaviour[section].isObject()) {
        return fallback;
    }
    const Json::Value& value = behaviour[section][entryPoint];
    return value.isInt() ? value.asInt() : fallback;
}

void Enter(const char* entryPoint, const Json::Value& args) {
    orvix::host::RecordCall("libtak_common", entryPoint, args, Sender());
    int delayMs = IntSetting("delay_ms", entryPoint, 0);
    if (delayMs > 0) {
        CLibTakWorkers::Get().WaitUntil(delayMs, [] { return false; });
    }
}

void RecordCallback(const char* entryPoint, const Json::Value& args) {
    orvix::host::RecordCall("libtak_common", std::string(entryPoint) + ":callback", args, Sender());
}

}  // namespace libtak

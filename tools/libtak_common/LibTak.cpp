// Recording and behaviour of the substitute common library.
#include "LibTak.h"

#include <glib.h>
#include <unistd.h>

#include <memory>
#include <mutex>

#include "LibTakWorkers.h"
#include "orvix_calls.h"
#include "orvix_host.h"

namespace libtak {

namespace {

std::string ReadText(const std::string& path, bool& found) {
    gchar* data = nullptr;
    gsize size = 0;
    found = g_file_get_contents(path.c_str(), &data, &size, nullptr);
    std::string text = found ? std::string(data, size) : std::string();
    g_free(data);
    return text;
}

// "program[pid]" of the process the library is loaded into; the name is read once per process.
std::string Sender() {
    static std::mutex nameLock;  // guards the two statics below
    static pid_t namedPid = 0;
    static std::string name;
    std::lock_guard<std::mutex> guard(nameLock);
    pid_t pid = getpid();
    if (namedPid != pid) {
        bool found = false;
        name = ReadText("/proc/self/comm", found);
        name.erase(name.find_last_not_of('\n') + 1);
        namedPid = pid;
    }
    return name + "[" + std::to_string(pid) + "]";
}

Json::Value Parse(const std::string& text) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value behaviour;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &behaviour, &errors) ||
        !behaviour.isObject()) {
        return Json::Value();
    }
    return behaviour;
}

}  // namespace

// The file is read at every call, but parsed again only when its text changed: reading is a few
// microseconds, parsing is most of the cost of an entry point.
Json::Value Behaviour() {
    static std::mutex cacheLock;  // guards the two statics below
    static std::string cachedText;
    static Json::Value cachedValue;
    bool found = false;
    std::string text = ReadText(orvix::host::UnderRoot("etc/libtak_common.json"), found);
    if (!found) {
        return Json::Value();
    }
    std::lock_guard<std::mutex> guard(cacheLock);
    if (text != cachedText || cachedValue.isNull()) {
        cachedValue = Parse(text);
        cachedText = std::move(text);
    }
    return cachedValue;
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

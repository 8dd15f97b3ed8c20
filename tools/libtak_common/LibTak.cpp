// Recording and behaviour of the substitute common library.
#include "LibTak.h"

#include <cstdlib>

#include <dlog.h>
#include <errno.h>  // program_invocation_short_name
#include <glib.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

#include "LibTakWorkers.h"
#include "orvix_calls.h"
#include "orvix_file_stamp.h"
#include "orvix_host.h"
#include "orvix_regular_file.h"

namespace libtak {

namespace {

// Only a regular file is read, and its open cannot wait: this runs inside the reset process at every call.
std::string ReadText(const std::string& path, bool& found) {
    std::string text;
    found = orvix::host::ReadRegular(path, text);
    if (!found && errno != ENOENT) {
        fprintf(stderr, "libtak_common: cannot read %s: %s\n", path.c_str(), strerror(errno));
    }
    return text;
}

// "program[pid]" of the process the library is loaded into.
std::string Sender() {
    return std::string(program_invocation_short_name) + "[" + std::to_string(getpid()) + "]";
}

Json::Value Parse(const std::string& text) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value behaviour;
    std::string errors;
    // The reader throws instead of failing on a text nested deeper than its limit; an exception must not
    // leave the library through an entry point, so such a file counts as no file.
    try {
        if (!reader->parse(text.data(), text.data() + text.size(), &behaviour, &errors) ||
            !behaviour.isObject()) {
            return Json::Value();
        }
    } catch (const Json::Exception& error) {
        dlog_print(DLOG_ERROR, "libtak_common", "etc/libtak_common.json is not usable: %s", error.what());
        return Json::Value();
    }
    return behaviour;
}

}  // namespace

// The file is looked at every call, so that a change takes effect at the next call. Its text is read
// again only when the file may have changed, and parsed again only when the text did: the built-in
// reset's list makes the file grow with the number of apps, and reading and comparing it at every install
// made a reset of n apps cost n^2 in the process that loads the library.
namespace {

std::mutex g_behaviourLock;  // guards everything below
std::string g_behaviourText;
// Replaced, never changed, so that a holder of the old object can go on using it.
std::shared_ptr<const Json::Value> g_behaviour = std::make_shared<const Json::Value>();

// What stat said of the file whose text is in g_behaviourText.
orvix::host::FileStamp g_behaviourStamp;
// The file's times have a granularity of a clock tick: a rewrite of the same size in the tick of the last
// read would leave the same stamp. So the stamp is trusted only for a file that was last changed this long
// before it was read; a younger file is read every time.
const gint64 kTrustedAgeUs = G_USEC_PER_SEC;
bool g_stampTrusted = false;

bool OldEnough(const orvix::host::FileStamp& stamp, gint64 readAtUs) {
    gint64 changedUs =
        static_cast<gint64>(stamp.changed.tv_sec) * G_USEC_PER_SEC + stamp.changed.tv_nsec / 1000;
    return readAtUs - changedUs >= kTrustedAgeUs;
}

// Brings the parsed copy up to date; the caller holds g_behaviourLock. False when there is no file.
bool RefreshBehaviour() {
    std::string path = orvix::host::UnderRoot("etc/libtak_common.json");
    orvix::host::FileStamp stamp = orvix::host::StampOf(path);
    if (stamp.statError != 0) {
        return false;
    }
    if (g_stampTrusted && stamp == g_behaviourStamp && !g_behaviour->isNull()) {
        return true;
    }
    gint64 readAtUs = g_get_real_time();
    bool found = false;
    std::string text = ReadText(path, found);
    if (!found) {
        return false;
    }
    if (text != g_behaviourText || g_behaviour->isNull()) {
        g_behaviour = std::make_shared<const Json::Value>(Parse(text));
        g_behaviourText = std::move(text);
    }
    // Taken before the read: a change between the stat and the read leaves a newer stamp next time.
    g_behaviourStamp = stamp;
    g_stampTrusted = OldEnough(stamp, readAtUs);
    return true;
}

}  // namespace

Json::Value Behaviour() {
    std::lock_guard<std::mutex> guard(g_behaviourLock);
    return RefreshBehaviour() ? *g_behaviour : Json::Value();
}

std::shared_ptr<const Json::Value> SharedBehaviour() {
    static const auto s_pNone = std::make_shared<const Json::Value>();
    std::lock_guard<std::mutex> guard(g_behaviourLock);
    return RefreshBehaviour() ? g_behaviour : s_pNone;
}

void LogError(const char* format, ...) {
    va_list args;
    va_start(args, format);
    dlog_vprint(DLOG_ERROR, "libtak_common", format, args);
    va_end(args);
}

int IntSetting(const char* section, const char* entryPoint, int fallback) {
    std::lock_guard<std::mutex> guard(g_behaviourLock);
    if (!RefreshBehaviour() || !g_behaviour->isObject()) {
        return fallback;
    }
    const Json::Value* value = g_behaviour->find(section, section + strlen(section));
    if (value == nullptr || !value->isObject()) {
        return fallback;
    }
    value = value->find(entryPoint, entryPoint + strlen(entryPoint));
    return value != nullptr && value->isInt() ? value->asInt() : fallback;
}

void Enter(const char* entryPoint, const Json::Value& args, const Json::Value& extra) {
    orvix::host::RecordCall("libtak_common", entryPoint, args, Sender(), extra);
    int delayMs = IntSetting("delay_ms", entryPoint, 0);
    if (delayMs > 0) {
        CLibTakWorkers::Get().WaitUntil(delayMs, [] { return false; });
    }
}

// Namespace scope: constructed when the library is loaded, so it outlives every thread of the library.
std::mutex g_packageRecordsLock;

std::mutex& PackageRecordsLock() {
    return g_packageRecordsLock;
}

void RecordCallback(const char* entryPoint, const Json::Value& args) {
    orvix::host::RecordCall("libtak_common", std::string(entryPoint) + ":callback", args, Sender());
}

std::vector<std::pair<std::string, std::string>> ReadExtras(app_control_h request) {
    std::vector<std::string> keys;
    app_control_foreach_extra_data(
        request,
        [](app_control_h, const char* key, void* user) {
            static_cast<std::vector<std::string>*>(user)->push_back(key);
            return true;
        },
        &keys);
    std::vector<std::pair<std::string, std::string>> extras;
    for (const auto& key : keys) {
        char* value = nullptr;
        if (app_control_get_extra_data(request, key.c_str(), &value) == APP_CONTROL_ERROR_NONE &&
            value != nullptr) {
            extras.emplace_back(key, value);
        }
        free(value);
    }
    return extras;
}

}  // namespace libtak

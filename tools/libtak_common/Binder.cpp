// Binder entry points. The communicator binder is announced through the caller's callback from a thread
// of the library, after "binder"."delay_ms" (default 100), or never ("binder"."never": true). A non-zero
// "results"."CreateCommunicatorBinderAPI" means the binder exists already: no callback then.
#include "LibTak.h"
#include "LibTakWorkers.h"
#include "TAKCommonApi.h"

namespace {

void AnnounceBinder(TAK_BINDER_CB callback, void* userData, int delayMs) {
    if (CLibTakWorkers::Get().WaitUntil(delayMs, [] { return false; }) == CLibTakWorkers::Wake::Stopping) {
        return;
    }
    Json::Value args(Json::arrayValue);
    args.append(std::to_string(reinterpret_cast<unsigned long long>(userData)));
    libtak::RecordCallback("CreateCommunicatorBinderAPI", args);
    callback(userData);
}

}  // namespace

LIBTAK_EXPORT int CreateCommunicatorBinderAPI(TAK_BINDER_CB callback, void* userData) {
    Json::Value args(Json::arrayValue);
    args.append(callback != nullptr);
    args.append(std::to_string(reinterpret_cast<unsigned long long>(userData)));
    libtak::Enter("CreateCommunicatorBinderAPI", args);
    int result = libtak::IntSetting("results", "CreateCommunicatorBinderAPI", 0);
    Json::Value binder = libtak::Behaviour()["binder"];
    bool never = binder.isObject() && binder["never"].isBool() && binder["never"].asBool();
    if (result != 0 || never || callback == nullptr) {
        return result;
    }
    int delayMs = binder.isObject() && binder["delay_ms"].isInt() ? binder["delay_ms"].asInt() : 100;
    CLibTakWorkers::Get().Start(
        [callback, userData, delayMs] { AnnounceBinder(callback, userData, delayMs); });
    return result;
}

LIBTAK_EXPORT void CreateAppFWBinderAPI(void) {
    libtak::Enter("CreateAppFWBinderAPI");
}

LIBTAK_EXPORT void DestroyCommunicatorBinderAPI(void) {
    libtak::Enter("DestroyCommunicatorBinderAPI");
}

LIBTAK_EXPORT void DestroyAppFWBinderAPI(void) {
    libtak::Enter("DestroyAppFWBinderAPI");
}

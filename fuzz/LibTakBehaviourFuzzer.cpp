// The substitute common library's behaviour file (<root>/etc/libtak_common.json) as a test or a person
// may have written it, read the way the library reads it at every call. No input may crash or throw out
// of the library; the built-in reset's answers keep the promises of BuiltInBehaviour.h and the download
// information reads back as itself.
#include <json/json.h>
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

#include "BuiltInBehaviour.h"
#include "BuiltInJson.h"
#include "FuzzSupport.h"
#include "LibTak.h"
#include "TAKDir.h"
#include "orvix_host.h"

namespace {

std::string g_root;
std::string g_file;

void CheckList(const libtak::BuiltInBehaviour& behaviour) {
    TAK_FUZZ_CHECK(behaviour.listValid || behaviour.list.empty());
    TAK_FUZZ_CHECK(behaviour.listGiven || behaviour.list.empty());
    for (size_t i = 0; i < behaviour.list.size(); ++i) {
        const std::string& appId = behaviour.list[i].app.appId;
        TAK_FUZZ_CHECK(!appId.empty());
        const libtak::BuiltInListEntry* first = behaviour.Entry(appId);
        TAK_FUZZ_CHECK(first != nullptr && first->app.appId == appId && first <= &behaviour.list[i]);
    }
    TAK_FUZZ_CHECK(behaviour.entryIndex.size() <= behaviour.list.size());
}

void CheckDownloadInfo(const libtak::BuiltInBehaviour& behaviour) {
    for (const auto& [appId, info] : behaviour.dld) {
        Json::Value written = libtak::DLDInfoToJson(info);
        OPENAPI_APP_DLD_INFO again;
        std::string error;
        TAK_FUZZ_CHECK(libtak::DLDInfoFromJson(written, again, error));
        TAK_FUZZ_CHECK(libtak::DLDInfoToJson(again) == written);
    }
}

void CheckInstalls(const libtak::BuiltInBehaviour& behaviour) {
    for (const auto& [appId, answer] : behaviour.installs) {
        libtak::InstallAnswer same = behaviour.InstallFor(appId);
        TAK_FUZZ_CHECK(same.terminal == answer.terminal && same.states.size() == answer.states.size());
    }
    // The fuzzer learns the strings the code compares with, so the absent id is made absent here.
    std::string absent = "\x01";
    while (behaviour.installs.count(absent) != 0) {
        absent += '\x01';
    }
    TAK_FUZZ_CHECK(behaviour.InstallFor(absent).delayMs == behaviour.installDelayMs);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("ORVIX_LOG_FILE", "/dev/null", 1);
    char pattern[] = "/tmp/fuzz-libtak-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        abort();
    }
    g_root = pattern;
    // libFuzzer ends a timed run with exit(), so the temporary root goes with it.
    atexit([] { TAKDir::RemoveAllFiles(g_root, true, false); });
    orvix::host::SetRoot(g_root);
    TAK_FUZZ_CHECK(orvix::host::MakeDirs(orvix::host::UnderRoot("etc")));
    g_file = orvix::host::UnderRoot("etc/libtak_common.json");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::ofstream(g_file, std::ios::binary | std::ios::trunc)
        << std::string(reinterpret_cast<const char*>(data), size);
    Json::Value whole = libtak::Behaviour();
    TAK_FUZZ_CHECK(whole.isNull() || whole.isObject());
    libtak::IntSetting("delay_ms", "UninstallAppAPI", 0);
    libtak::IntSetting("results", "InstallAppAPI", 0);
    std::shared_ptr<const libtak::BuiltInBehaviour> behaviour = libtak::CurrentBuiltInBehaviour();
    TAK_FUZZ_CHECK(behaviour != nullptr);
    CheckList(*behaviour);
    CheckDownloadInfo(*behaviour);
    CheckInstalls(*behaviour);
    return 0;
}

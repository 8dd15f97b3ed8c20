// The preinstalled-app lists of the configuration table: "RESERVED_11" ("appid:value" entries) and
// "RESERVED_3" (app ids), as any writer of the table may have left them. No input may crash; every entry
// is an app id without the separators, and the list the map reads back as is the map itself.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "FuzzSupport.h"
#include "TAKUtil.h"

TAK_FUZZ_QUIET_LOG()

namespace {

std::string Assemble(const std::map<std::string, std::string>& apps, bool withValues) {
    std::string text;
    for (const auto& [id, value] : apps) {
        text += (text.empty() ? "" : ",") + id + (withValues ? ":" + value : "");
    }
    return text;
}

void Check(int type, const std::string& text) {
    std::map<std::string, std::string> apps = {{"stale", "entry"}};
    CTAKUtil::ParsePreinstallApps(type, text, apps);
    bool withValues = type == 0;
    for (const auto& [id, value] : apps) {
        TAK_FUZZ_CHECK(id.find(',') == std::string::npos && value.find(',') == std::string::npos);
        TAK_FUZZ_CHECK(!withValues || id.find(':') == std::string::npos);
        TAK_FUZZ_CHECK(withValues || (value.empty() && !id.empty()));
    }
    if (text.find_first_not_of(',') == std::string::npos) {
        TAK_FUZZ_CHECK(apps.empty());
    }
    std::map<std::string, std::string> again;
    CTAKUtil::ParsePreinstallApps(type, Assemble(apps, withValues), again);
    TAK_FUZZ_CHECK(again == apps);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    Check(0, text);
    Check(1, text);
    return 0;
}

// The JSON text of "memory/tak/biu_updating_app": no input may throw or crash, and a package is named
// exactly when the answer is yes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "BuiltInAppUtil.h"
#include "FuzzSupport.h"

TAK_FUZZ_QUIET_LOG()

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string pkgname = "stale";
    bool updating =
        CBuiltInAppUtil::ParseUpdatingApp(std::string(reinterpret_cast<const char*>(data), size), pkgname);
    TAK_FUZZ_CHECK(updating == !pkgname.empty());
    return 0;
}

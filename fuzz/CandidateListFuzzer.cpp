// The Home test candidate file as anyone may have written it. Trimmed fields must still read back as
// themselves.
#include <cstddef>
#include <cstdint>
#include <string>

#include "HomeTestAppCheck.h"

TAK_FUZZ_QUIET_LOG()

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tak_fuzz::CheckHomeTestApps(std::string(reinterpret_cast<const char*>(data), size),
                                CBuiltInAppUtil::ParseP0TestChangeList, true);
    return 0;
}

// HOME_TEST_LIST as the configuration table may hold it.
#include <cstddef>
#include <cstdint>
#include <string>

#include "HomeTestAppCheck.h"

TAK_FUZZ_QUIET_LOG()

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tak_fuzz::CheckHomeTestApps(std::string(reinterpret_cast<const char*>(data), size),
                                CBuiltInAppUtil::ParseHomeTestList, false);
    return 0;
}

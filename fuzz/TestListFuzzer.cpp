// RESERVED_16: the list read from any text assembles into a text that reads back as the same list.
#include <cstddef>
#include <cstdint>
#include <string>

#include "BuiltInAppUtil.h"
#include "FuzzSupport.h"

TAK_FUZZ_QUIET_LOG()

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto list = CBuiltInAppUtil::ParseTestList(std::string(reinterpret_cast<const char*>(data), size));
    std::string text = CBuiltInAppUtil::AssembleTestList(list);
    TAK_FUZZ_CHECK(CBuiltInAppUtil::ParseTestList(text) == list);
    TAK_FUZZ_CHECK(list.empty() || !text.empty());
    return 0;
}

// A frame of the launch channel as any local process may write it. No input may crash, and a frame that
// decodes is the one frame that its extras encode to: the payload must be GVariant's normal form, so
// nothing else can pass.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "orvix_launch.h"

TAK_FUZZ_QUIET_LOG()

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string frame(reinterpret_cast<const char*>(data), size);
    orvix::host::LaunchExtras extras;
    if (!orvix::host::DecodeLaunchFrame(frame, extras)) {
        TAK_FUZZ_CHECK(extras.empty());
        return 0;
    }
    for (const auto& [key, value] : extras) {
        TAK_FUZZ_CHECK(!key.empty());
    }
    TAK_FUZZ_CHECK(orvix::host::EncodeLaunchFrame(extras) == frame);
    return 0;
}

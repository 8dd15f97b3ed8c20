#include "TAKCommonHandle.h"

#include <dlfcn.h>
#include <platform_path.h>

#include <exception>
#include <string>

#include "TAKLog.h"

// Written only before the tasks start and after they end; lookups themselves are thread-safe in the
// dynamic loader.
void* CTAKCommonHandle::handler = nullptr;

void CTAKCommonHandle::OpenLibrary() {
    TAK_LOGN("open library start");
    try {
        std::string path = std::string(platform_path_fixed("/usr/lib64")) + "/libtak_common.so";
        handler = dlopen(path.c_str(), RTLD_LAZY);
        if (handler == nullptr) {
            const char* error = dlerror();
            TAK_LOGE("error: %s", error != nullptr ? error : "");
        }
    } catch (const std::exception&) {
        TAK_LOGE("Exception occurred");
    }
    TAK_LOGN("open library end, handler %zd", reinterpret_cast<ssize_t>(handler));
}

void* CTAKCommonHandle::GetSymbolAddress(const char* name) {
    TAK_LOGD("get symbol address of %s", name != nullptr ? name : "");
    if (handler == nullptr || name == nullptr) {
        return nullptr;
    }
    // dlerror keeps per-thread state: clear it so that a null symbol value is told from a failure.
    dlerror();
    void* address = dlsym(handler, name);
    if (address == nullptr) {
        const char* error = dlerror();
        TAK_LOGE("error: %s", error != nullptr ? error : "");
    }
    return address;
}

void CTAKCommonHandle::CloseLibrary() {
    TAK_LOGN("close library start");
    if (handler != nullptr) {
        dlclose(handler);
        handler = nullptr;
    }
    TAK_LOGN("close library end");
}

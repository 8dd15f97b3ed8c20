// Loader of the service's common library. The library is opened once by the process core and its
// entry points are looked up by name just before each use, so that a library lacking an entry point
// only disables the step that needs it.
#pragma once

#include <type_traits>
#include <utility>

#include "TAKCommonApi.h"

class CTAKCommonHandle {
public:
    // Loads "/usr/lib64/libtak_common.so" with lazy binding. A library that cannot be loaded is logged
    // and leaves the loader empty; every later lookup then finds nothing.
    static void OpenLibrary();

    // The address of an entry point, or nullptr when the library or the name is missing. Not cached:
    // every use looks the name up again.
    static void* GetSymbolAddress(const char* name);

    // The entry point `name` typed as Fn (one of the TAK_*_API types of TAKCommonApi.h), or nullptr when
    // the library lacks it. Looked up again at every call, like GetSymbolAddress.
    template <typename Fn>
    static Fn Find(const char* name) {
        static_assert(std::is_pointer<Fn>::value && std::is_function<std::remove_pointer_t<Fn>>::value,
                      "Find<Fn>: Fn must be a function pointer type");
        return reinterpret_cast<Fn>(GetSymbolAddress(name));
    }

    // Calls the entry point with `args` when the library offers it; false when it does not, which every
    // caller treats as a feature that is not there.
    template <typename Fn, typename... Args>
    static bool CallIfPresent(const char* name, Args&&... args) {
        Fn entryPoint = Find<Fn>(name);
        if (entryPoint == nullptr) {
            return false;
        }
        entryPoint(std::forward<Args>(args)...);
        return true;
    }

    // The entry points without arguments.
    static bool CallVoid(const char* name) { return CallIfPresent<TAK_VOID_API>(name); }

    static void CloseLibrary();

private:
    static void* handler;
};

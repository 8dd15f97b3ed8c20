// Loader of the service's common library. The library is opened once by the process core and its
// entry points are looked up by name just before each use, so that a library lacking an entry point
// only disables the step that needs it.
#pragma once

class CTAKCommonHandle {
public:
    // Loads "/usr/lib64/libtak_common.so" with lazy binding. A library that cannot be loaded is logged
    // and leaves the loader empty; every later lookup then finds nothing.
    static void OpenLibrary();

    // The address of an entry point, or nullptr when the library or the name is missing. Not cached:
    // every use looks the name up again.
    static void* GetSymbolAddress(const char* name);

    static void CloseLibrary();

private:
    static void* handler;
};

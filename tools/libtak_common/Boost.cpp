// Scheduling-boost entry points: recorded only.
#include "LibTak.h"

LIBTAK_EXPORT void StartBoostOwnProcessAPI(void) {
    libtak::Enter("StartBoostOwnProcessAPI");
}

LIBTAK_EXPORT void StartBoostAppFWAPI(void) {
    libtak::Enter("StartBoostAppFWAPI");
}

LIBTAK_EXPORT void StopBoostOwnProcessAPI(void) {
    libtak::Enter("StopBoostOwnProcessAPI");
}

LIBTAK_EXPORT void StopBoostAppFWAPI(void) {
    libtak::Enter("StopBoostAppFWAPI");
}

// Recovery-action notification: recorded only.
#include "LibTak.h"

LIBTAK_EXPORT void NotifyRecoveryActionChangedAPI(void) {
    libtak::Enter("NotifyRecoveryActionChangedAPI");
}

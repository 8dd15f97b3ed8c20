// Entry points of the library's own life: the SSL lock of the network stack, the connector and the
// installer. The substitute keeps no state for them; it records the calls, in order.
#include "LibTak.h"

LIBTAK_EXPORT void QXCurlSSLLock(void) {
    libtak::Enter("QXCurlSSLLock");
}

LIBTAK_EXPORT void QXCurlSSLUnLock(void) {
    libtak::Enter("QXCurlSSLUnLock");
}

LIBTAK_EXPORT void CreateConnector(void) {
    libtak::Enter("CreateConnector");
}

LIBTAK_EXPORT void CreateInstaller(void) {
    libtak::Enter("CreateInstaller");
}

LIBTAK_EXPORT void DestroyInstaller(void) {
    libtak::Enter("DestroyInstaller");
}

LIBTAK_EXPORT void DestroyConnector(void) {
    libtak::Enter("DestroyConnector");
}

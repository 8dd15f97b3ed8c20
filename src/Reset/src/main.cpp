// The reset process of the vardell service.
#include <exception>

#include "ResetCore.h"
#include "TAKLog.h"

int main(int argc, char** argv) {
    TAK_LOGM("----------Reset main() start.---------");
    try {
        CResetCore core(argc, argv);
        core.Exec();
    } catch (...) {
        TAK_LOGE("Exception occurred");
    }
    return 0;
}

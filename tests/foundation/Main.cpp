// The platform log of the test process goes to a file of its own, so that tests can read back what the
// code under test logged. It must be chosen before anything logs: the log opens its file once.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "FoundationTest.h"

int main(int argc, char** argv) {
    char path[] = "/tmp/foundation-log.XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) {
        return 1;
    }
    close(fd);
    setenv("ORVIX_LOG_FILE", path, 1);
    setenv("ORVIX_LOG_LEVEL", "D", 1);
    foundation::SetLogFile(path);
    ::testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    unlink(path);
    return result;
}

// Test program of the host platform kit. The platform log of this process goes to a private file, so
// that the output stays readable; it is kept when a test fails.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
    char path[] = "/tmp/test_kit_log_XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) {
        perror("mkstemp");
        return 2;
    }
    close(fd);
    setenv("ORVIX_LOG_FILE", path, 1);
    ::testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    if (result != 0) {
        fprintf(stderr, "platform log of this run: %s\n", path);
    } else {
        unlink(path);
    }
    return result;
}

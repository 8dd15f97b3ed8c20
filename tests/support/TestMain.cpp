// The main() of every test program that does not bring its own.
#include <glib.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "TempDir.h"

namespace orvix::test {
void SetPlatformLogPath(const std::string& path);
}

int main(int argc, char** argv) {
    std::string path = orvix::test::TempPattern("tak_test_log_");
    int fd = mkstemp(path.data());
    if (fd < 0) {
        perror("mkstemp");
        return 2;
    }
    close(fd);
    orvix::test::SetPlatformLogPath(path);
    setenv("ORVIX_LOG_FILE", path.c_str(), 1);
    setenv("ORVIX_LOG_LEVEL", "D", 1);
    // GLib only prints a warning or a critical (a failed g_return_if_fail, a misused object) and goes
    // on; in a test either one is a fault, so it ends the test program on the spot, with the message.
    g_log_set_always_fatal(
        static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING));
    ::testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    if (result != 0) {
        fprintf(stderr, "platform log of this run: %s\n", path.c_str());
    } else {
        unlink(path.c_str());
    }
    return result;
}

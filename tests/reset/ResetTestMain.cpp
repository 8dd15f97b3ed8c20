// Test program of the apps reset. The in-process tests log to a private file and use a private host root,
// so that nothing of the machine's own home is read; the integration tests make roots of their own.
#include <dlog.h>
#include <gtest/gtest.h>
#include <orvix_host.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    char log[] = "/tmp/test_reset_log_XXXXXX";
    int fd = mkstemp(log);
    char root[] = "/tmp/test_reset_root_XXXXXX";
    if (fd < 0 || mkdtemp(root) == nullptr) {
        perror("test_reset");
        return 2;
    }
    close(fd);
    // The platform log reads these once, at its first line; they are taken away again at once so that
    // the programs the integration tests start do not inherit them.
    setenv("ORVIX_LOG_FILE", log, 1);
    setenv("ORVIX_LOG_LEVEL", "D", 1);
    dlog_print(DLOG_DEBUG, "TAK", "test_reset starts");
    unsetenv("ORVIX_LOG_FILE");
    unsetenv("ORVIX_LOG_LEVEL");
    orvix::host::SetRoot(root);
    ::testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    std::string cleanup = std::string("rm -rf '") + root + "'";
    if (system(cleanup.c_str()) != 0) {
        fprintf(stderr, "could not remove %s\n", root);
    }
    if (result != 0) {
        fprintf(stderr, "platform log of the in-process tests: %s\n", log);
    } else {
        unlink(log);
    }
    return result;
}

// Test program of the app data store. The platform log goes to a private file before anything logs,
// so that tests can check the lines the store writes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace dbtest {
std::string& LogPath() {
    static std::string path;
    return path;
}
}  // namespace dbtest

int main(int argc, char** argv) {
    char path[] = "/tmp/test_db_log_XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) {
        perror("mkstemp");
        return 2;
    }
    close(fd);
    dbtest::LogPath() = path;
    setenv("ORVIX_LOG_FILE", path, 1);
    setenv("ORVIX_LOG_LEVEL", "D", 1);
    ::testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    if (result != 0) {
        fprintf(stderr, "platform log of this run: %s\n", path);
    } else {
        unlink(path);
    }
    return result;
}

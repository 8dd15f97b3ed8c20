#include "ProcessTestEnv.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace process_test {

std::string& LogPath() {
    static std::string path;
    return path;
}

TempRoot::TempRoot() {
    std::string pattern = (std::filesystem::temp_directory_path() / "process-test-XXXXXX").string();
    char* made = mkdtemp(pattern.data());
    m_path = made != nullptr ? made : "";
    orvix::host::SetRoot(m_path);
    orvix::host::MakeDirs(m_path + "/usr/lib64");
    orvix::host::MakeDirs(m_path + "/run");
    orvix::host::MakeDirs(m_path + "/etc");
}

TempRoot::~TempRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

bool TempRoot::InstallLibrary(const std::string& from) const {
    std::error_code error;
    std::filesystem::copy_file(from, m_path + "/usr/lib64/libtak_common.so",
                               std::filesystem::copy_options::overwrite_existing, error);
    return !error;
}

Request::Request(std::initializer_list<std::pair<const char*, const char*>> extras) {
    app_control_create(&m_handle);
    for (const auto& [key, value] : extras) {
        app_control_add_extra_data(m_handle, key, value);
    }
}

Request::~Request() {
    app_control_destroy(m_handle);
}

}  // namespace process_test

int main(int argc, char** argv) {
    // Every line this program logs goes to one file that the tests read back. No test may reach a
    // real system bus: an address that leads nowhere makes every report fail at once.
    std::string dir = (std::filesystem::temp_directory_path() / "process-test-log-XXXXXX").string();
    char* made = mkdtemp(dir.data());
    process_test::LogPath() = std::string(made != nullptr ? made : "/tmp") + "/test.log";
    setenv("ORVIX_LOG_FILE", process_test::LogPath().c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS",
           ("unix:path=" + std::string(made != nullptr ? made : "/tmp") + "/no-bus").c_str(), 1);
    testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    std::error_code ignored;
    std::filesystem::remove_all(made != nullptr ? made : "", ignored);
    return result;
}

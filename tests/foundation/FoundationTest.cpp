#include "FoundationTest.h"

#include <glib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <orvix_host.h>

#include "TAKDir.h"

namespace foundation {

namespace {

std::string g_logFile;

long long FileSize(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : 0;
}

gboolean KeepPolling(gpointer) {
    return G_SOURCE_CONTINUE;
}

}  // namespace

void SetLogFile(const std::string& path) {
    g_logFile = path;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

RunResult RunProgram(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    for (const std::string& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    gchar* out = nullptr;
    gchar* err = nullptr;
    gint status = 0;
    GError* error = nullptr;
    RunResult result{-1, "", ""};
    if (!g_spawn_sync(nullptr, args.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, &out, &err, &status,
                      &error)) {
        result.err = error->message;
        g_error_free(error);
        return result;
    }
    result.out = out;
    result.err = err;
    g_free(out);
    g_free(err);
    if (WIFEXITED(status)) {
        result.exitCode = WEXITSTATUS(status);
    }
    return result;
}

bool PumpUntil(const std::function<bool()>& done, int timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    // Wakes the blocking iteration now and then, so that the deadline is seen even when nothing happens.
    guint ticker = g_timeout_add(50, KeepPolling, nullptr);
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(ticker);
    return done();
}

void FoundationTest::SetUp() {
    char pattern[] = "/tmp/foundation-root.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    orvix::host::SetRoot(root_);
    logStart_ = FileSize(g_logFile);
}

void FoundationTest::TearDown() {
    TAKDir::RemoveAllFiles(root_, true, false);
}

std::string FoundationTest::Log() const {
    std::string all = ReadFile(g_logFile);
    return static_cast<long long>(all.size()) > logStart_ ? all.substr(logStart_) : "";
}

}  // namespace foundation

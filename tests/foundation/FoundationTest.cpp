#include "FoundationTest.h"

#include <glib.h>

#include <chrono>
#include <fstream>

#include <orvix_host.h>

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

RunResult RunProgram(const std::string& program, const std::string& args) {
    std::list<std::string> parts = TAKString::SplitStringToList(args, "|");
    parts.push_front(program);
    return orvix::test::RunProgram(std::vector<std::string>(parts.begin(), parts.end()));
}

bool PumpUntil(const std::function<bool()>& done) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    // Wakes the blocking iteration now and then, so that the deadline is seen even when nothing happens.
    guint ticker = g_timeout_add(
        50, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
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
}

void FoundationTest::TearDown() {
    TAKDir::RemoveAllFiles(root_, true, false);
}

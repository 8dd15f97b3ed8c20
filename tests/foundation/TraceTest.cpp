// The platform's tracing markers on the host: Chrome trace events appended to the root's trace file by
// several threads at once, a file that parses without its closing bracket, nothing written outside a root.
#include <json/json.h>
#include <ttrace.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <thread>
#include <vector>

#include "HostFixture.h"

namespace {

class TraceTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/trace-root.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        orvix::host::SetRoot(root_ = pattern);
        ASSERT_TRUE(orvix::host::MakeDirs(root_ + "/var/log"));
        file_ = root_ + "/var/log/tak-reset.trace.json";
    }
    void TearDown() override {
        setenv("ORVIX_HOST_ROOT", root_.c_str(), 1);
        std::filesystem::remove_all(root_);
    }

    // The file as the trace tools read it: an array whose closing bracket may be missing.
    Json::Value Events() const {
        std::string text = orvix::test::ReadWholeFile(file_);
        EXPECT_EQ(text.rfind("[\n", 0), 0u) << text.substr(0, 40);
        EXPECT_EQ(text.find(']', text.size() - 2), std::string::npos) << "a closing bracket was written";
        size_t last = text.find_last_not_of(",\n");
        text = text.substr(0, last + 1) + (text[last] == '[' ? "]" : "\n]");
        Json::Value events;
        Json::CharReaderBuilder builder;
        builder.strictMode(&builder.settings_);
        std::string errors;
        std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &events, &errors)) << errors;
        return events;
    }

    std::string root_, file_;
};

}  // namespace

// Each thread's events pair up in its own order (nested ones too), with this process's id, its thread id
// and times that never go back; no event of one thread is lost or mixed into another's.
TEST_F(TraceTest, EventsOfConcurrentThreadsPairUpPerThread) {
    const int kThreads = 4, kEach = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kEach; ++i) {
                trace_begin("t%d-%d", t, i);
                if (i % 10 == 0) {
                    trace_begin("nested \xff%d", i);  // not UTF-8, written as valid text
                    trace_end();
                }
                trace_end();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Json::Value events = Events();
    ASSERT_TRUE(events.isArray());
    ASSERT_EQ(events.size(), static_cast<Json::ArrayIndex>(kThreads * (kEach + kEach / 10) * 2));

    std::map<Json::Int64, std::vector<std::string>> open;  // tid -> names begun and not ended
    std::map<Json::Int64, Json::Int64> lastTs;
    std::map<Json::Int64, int> outerCount;
    for (const Json::Value& event : events) {
        ASSERT_EQ(event["pid"].asInt(), getpid());
        Json::Int64 tid = event["tid"].asInt64();
        ASSERT_GE(event["ts"].asInt64(), lastTs[tid]) << "time went back on thread " << tid;
        lastTs[tid] = event["ts"].asInt64();
        std::vector<std::string>& stack = open[tid];
        if (event["ph"].asString() == "B") {
            std::string name = event["name"].asString();
            if (name.rfind("nested ", 0) != 0) {
                ASSERT_EQ(name.substr(name.find('-') + 1), std::to_string(outerCount[tid]++)) << name;
            }
            stack.push_back(name);
            continue;
        }
        ASSERT_EQ(event["ph"].asString(), "E");
        ASSERT_FALSE(stack.empty()) << "an end without a begin on thread " << tid;
        stack.pop_back();
    }
    ASSERT_EQ(open.size(), static_cast<size_t>(kThreads));
    for (const auto& [tid, stack] : open) {
        EXPECT_TRUE(stack.empty()) << tid;
        EXPECT_EQ(outerCount[tid], kEach) << tid;
    }
}

// Outside a root, or in a root without its log directory, a marker writes and creates nothing; once the
// directory is there it writes, and to a new file when the old one was removed.
TEST_F(TraceTest, WrittenOnlyInARootWithItsLogDirectoryToTheFileThatIsThere) {
    unsetenv("ORVIX_HOST_ROOT");
    trace_begin("no root");
    trace_end();
    EXPECT_FALSE(std::filesystem::exists(file_));

    std::filesystem::remove_all(root_ + "/var");
    orvix::host::SetRoot(root_);
    trace_begin("no log directory");
    trace_end();
    EXPECT_FALSE(std::filesystem::exists(root_ + "/var"));

    // The directory made later, the file removed later (a root made anew in place): a new file each time.
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(orvix::host::MakeDirs(root_ + "/var/log"));
        trace_begin("round %d", round);
        trace_end();
        Json::Value events = Events();
        ASSERT_EQ(events.size(), 2u) << round;
        EXPECT_EQ(events[0]["name"].asString(), "round " + std::to_string(round));
        std::filesystem::remove(file_);
    }
}

// Typed reads of launch-request values.
#include <gtest/gtest.h>

#include <limits>

#include "ProcessCore.h"
#include "ProcessTest.h"
#include "TestLog.h"

namespace {

// `text` as the value of "key" in a launch request, read into a variable that held `initial`. Without a
// text the request has no such key, and the read must say so.
template <typename T>
T Read(const char* text, T initial) {
    process_test::Request request({{text != nullptr ? "key" : "other", text != nullptr ? text : ""}});
    EXPECT_EQ(CProcessCore::m_GetControlData(request.Get(), "key", initial), text != nullptr) << text;
    return initial;
}

}  // namespace

TEST(AControlDataRead, ConvertsTextFlagsIntegersAndCookiesAndLeavesTheDefaultOfAMissingKey) {
    orvix::test::LogMark mark;
    EXPECT_EQ(Read<std::string>("tak_app_reset", "old"), "tak_app_reset");
    EXPECT_EQ(Read<std::string>("", "old"), "");
    EXPECT_TRUE(mark.Contains("has key[key] value[tak_app_reset]"));
    // Only the exact text "true" is true.
    EXPECT_TRUE(Read("true", false));
    for (const char* text : {"TRUE", "1", "True", " true", "truex"}) {
        EXPECT_FALSE(Read(text, true)) << text;
    }
    EXPECT_EQ(Read("42", 5), 42);
    EXPECT_EQ(Read("-7", 5), -7);
    EXPECT_EQ(Read("abc", 5), 0);
    // A cookie keeps its sign and its full width.
    EXPECT_EQ(Read("-12345", 1L), -12345L);
    EXPECT_EQ(Read("9223372036854775807", 1L), 9223372036854775807L);
    // The lowest cookie has no positive counterpart to negate (found by fuzzing).
    EXPECT_EQ(Read("-9223372036854775808", 1L), std::numeric_limits<long>::min());
    EXPECT_EQ(Read("x1", 1L), 0L);
    EXPECT_TRUE(mark.Contains("has key[key] value[-12345]"));

    orvix::test::LogMark missing;
    EXPECT_EQ(Read<std::string>(nullptr, "default"), "default");
    EXPECT_TRUE(Read(nullptr, true));
    EXPECT_EQ(Read(nullptr, -1), -1);
    EXPECT_EQ(Read(nullptr, 77L), 77L);
    EXPECT_TRUE(missing.Contains("do not have key[key]!!"));
}

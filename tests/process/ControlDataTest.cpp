// Typed reads of launch-request values.
#include <gtest/gtest.h>

#include "ProcessCore.h"
#include "ProcessTestEnv.h"

using process_test::LogSince;
using process_test::ReadLog;
using process_test::Request;

TEST(AControlDataRead, TakesStringsAsTheyAre) {
    Request request({{"reset", "tak_app_reset"}, {"empty", ""}});
    size_t mark = ReadLog().size();
    std::string value = "old";
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "reset", value));
    EXPECT_EQ(value, "tak_app_reset");
    EXPECT_NE(LogSince(mark).find("has key[reset] value[tak_app_reset]"), std::string::npos);
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "empty", value));
    EXPECT_EQ(value, "");
}

TEST(AControlDataRead, LeavesTheDefaultOfAMissingKeyOfEveryType) {
    Request request({{"other", "1"}});
    size_t mark = ReadLog().size();
    std::string text = "default";
    bool flag = true;
    int number = -1;
    long cookie = 77;
    EXPECT_FALSE(CProcessCore::m_GetControlData(request.Get(), "method", text));
    EXPECT_FALSE(CProcessCore::m_GetControlData(request.Get(), "flag", flag));
    EXPECT_FALSE(CProcessCore::m_GetControlData(request.Get(), "thread_id", number));
    EXPECT_FALSE(CProcessCore::m_GetControlData(request.Get(), "userdata", cookie));
    EXPECT_EQ(text, "default");
    EXPECT_TRUE(flag);
    EXPECT_EQ(number, -1);
    EXPECT_EQ(cookie, 77);
    std::string log = LogSince(mark);
    for (const char* key : {"method", "flag", "thread_id", "userdata"}) {
        EXPECT_NE(log.find(std::string("do not have key[") + key + "]!!"), std::string::npos) << key;
    }
}

TEST(AControlDataRead, TakesOnlyTheExactTextTrueAsTrue) {
    Request request(
        {{"a", "true"}, {"b", "TRUE"}, {"c", "1"}, {"d", "True"}, {"e", " true"}, {"f", "truex"}});
    bool value = false;
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "a", value));
    EXPECT_TRUE(value);
    for (const char* key : {"b", "c", "d", "e", "f"}) {
        value = true;
        EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), key, value));
        EXPECT_FALSE(value) << key;
    }
}

TEST(AControlDataRead, ConvertsIntegersAndGivesZeroForText) {
    Request request({{"thread_id", "42"}, {"event_index", "-7"}, {"deprecated", "abc"}});
    size_t mark = ReadLog().size();
    int value = 5;
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "thread_id", value));
    EXPECT_EQ(value, 42);
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "event_index", value));
    EXPECT_EQ(value, -7);
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "deprecated", value));
    EXPECT_EQ(value, 0);
    EXPECT_NE(LogSince(mark).find("has key[event_index] value[-7]"), std::string::npos);
}

TEST(AControlDataRead, KeepsTheSignOfANegativeCookie) {
    Request request({{"neg", "-12345"}, {"big", "9223372036854775807"}, {"zero", "0"}, {"text", "x1"}});
    size_t mark = ReadLog().size();
    long value = 1;
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "neg", value));
    EXPECT_EQ(value, -12345);
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "big", value));
    EXPECT_EQ(value, 9223372036854775807L);
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "zero", value));
    EXPECT_EQ(value, 0);
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "text", value));
    EXPECT_EQ(value, 0);
    EXPECT_NE(LogSince(mark).find("has key[neg] value[-12345]"), std::string::npos);
}

TEST(AControlDataRead, SurvivesAVeryLongValue) {
    std::string big(1 << 20, 'x');
    Request request({{"reset", big.c_str()}});
    std::string value;
    EXPECT_TRUE(CProcessCore::m_GetControlData(request.Get(), "reset", value));
    EXPECT_EQ(value.size(), big.size());
}

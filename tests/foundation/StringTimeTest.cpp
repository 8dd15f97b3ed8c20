#include <gtest/gtest.h>

#include <climits>
#include <list>
#include <set>
#include <vector>

#include "TAKString.h"
#include "TAKTime.h"

namespace {

TEST(TAKStringTest, IntegerReadsDecimalsAndGivesZeroForAnythingElse) {
    const struct {
        const char* text;
        int value;
    } cases[] = {
        {"0", 0},
        {"42", 42},
        {"-17", -17},
        {"+8", 8},
        {"  12\n", 12},
        {"2147483647", INT_MAX},
        {"-2147483648", INT_MIN},
        {"2147483648", 0},
        {"", 0},
        {"abc", 0},
        {"12abc", 0},
        {"1 2", 0},
        {"-", 0},
        {"0x10", 0},
        {"- 5", 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(TAKString::Integer(c.text), c.value) << "text [" << c.text << "]";
    }
}

TEST(TAKStringTest, UlIntegerCarriesAddressesAndRefusesNegatives) {
    EXPECT_EQ(TAKString::UlInteger("18446744073709551615"), ULONG_MAX);
    EXPECT_EQ(TAKString::UlInteger("140737488355328"), 140737488355328UL);
    EXPECT_EQ(TAKString::UlInteger("18446744073709551616"), 0UL);
    EXPECT_EQ(TAKString::UlInteger("-1"), 0UL);
    EXPECT_EQ(TAKString::UlInteger("7x"), 0UL);
    EXPECT_EQ(TAKString::UlInteger(""), 0UL);
    EXPECT_EQ(TAKString::ToString(LLONG_MIN), "-9223372036854775808");
    EXPECT_EQ(TAKString::ToString(0), "0");
}

TEST(TAKStringTest, DiffIsNullSafe) {
    EXPECT_FALSE(TAKString::Diff("ok", "ok"));
    EXPECT_TRUE(TAKString::Diff("ok", "OK"));
    EXPECT_TRUE(TAKString::Diff("ok", "ok "));
    EXPECT_FALSE(TAKString::Diff(nullptr, nullptr));
    EXPECT_TRUE(TAKString::Diff(nullptr, "ok"));
    EXPECT_TRUE(TAKString::Diff("", nullptr));
}

TEST(TAKStringTest, ListAndMapTextsRoundTrip) {
    std::set<std::string> done = {"org.b", "org.a", "org.c"};
    EXPECT_EQ(TAKString::AssembleListToString(done), "org.a,org.b,org.c");
    EXPECT_EQ(TAKString::AssembleListToString(std::vector<std::string>{"x"}, ";"), "x");
    EXPECT_EQ(TAKString::AssembleListToString(std::list<std::string>{}), "");

    EXPECT_EQ(TAKString::SplitStringToList("a,,b,", ","), (std::list<std::string>{"a", "", "b", ""}));
    EXPECT_EQ(TAKString::SplitStringToList("a,,b,", ",", true), (std::list<std::string>{"a", "b"}));
    EXPECT_EQ(TAKString::SplitStringToList("one::two", "::"), (std::list<std::string>{"one", "two"}));
    EXPECT_TRUE(TAKString::SplitStringToList("", ",").empty());

    std::map<std::string, std::string> map = {{"k1", "v1"}, {"k2", ""}, {"k3", "a=b"}};
    std::string text = TAKString::AssembleMapToString(map);
    EXPECT_EQ(text, "k1=v1;k2=;k3=a=b");
    EXPECT_EQ(TAKString::SplitStringToMap(text), map);
    EXPECT_EQ(TAKString::SplitStringToMap("lonely;;k=v;k=w"),
              (std::map<std::string, std::string>{{"lonely", ""}, {"k", "w"}}));
}

TEST(TAKStringTest, Ucs2ToUtf8EncodesEveryRange) {
    EXPECT_EQ(TAKString::Ucs2ToUtf8(u"Az"), "Az");
    EXPECT_EQ(TAKString::Ucs2ToUtf8(u"\u00e9"), "\xc3\xa9");
    EXPECT_EQ(TAKString::Ucs2ToUtf8(u"\u20ac\uac00"), "\xe2\x82\xac\xea\xb0\x80");
    EXPECT_EQ(TAKString::Ucs2ToUtf8(u"\U0001F600"), "\xf0\x9f\x98\x80");
    const unsigned short lone[] = {0xD800, 'a', 0xDC00};
    EXPECT_EQ(TAKString::Ucs2ToUtf8(lone, 3),
              "\xef\xbf\xbd"
              "a"
              "\xef\xbf\xbd");
    EXPECT_EQ(TAKString::Ucs2ToUtf8(nullptr, 4), "");
}

TEST(CTAKTimeTest, TextsOfKnownInstants) {
    EXPECT_EQ(CTAKTime::UtcText(0), "1970-01-01 00:00:00");
    EXPECT_EQ(CTAKTime::UtcText(1709647629), "2024-03-05 14:07:09");
    long long before = CTAKTime::EpochMs();
    EXPECT_NEAR(static_cast<double>(CTAKTime::EpochSeconds()), before / 1000.0, 2.0);
}

}  // namespace

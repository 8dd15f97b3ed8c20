// Launch-request records (the error codes callers rely on, ownership of values, order) and the watchdog.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "app_control.h"
#include "smart_deadlock.h"

namespace {

using Keys = std::vector<std::string>;

class AppControlRecord : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(app_control_create(&m_request), APP_CONTROL_ERROR_NONE); }
    void TearDown() override { EXPECT_EQ(app_control_destroy(m_request), APP_CONTROL_ERROR_NONE); }

    std::string Get(const char* key) {
        char* value = nullptr;
        EXPECT_EQ(app_control_get_extra_data(m_request, key, &value), APP_CONTROL_ERROR_NONE) << key;
        std::string text = value != nullptr ? value : "<null>";
        free(value);
        return text;
    }
    // The keys a walk visits until the callback returns false on `last`.
    Keys Walk(const std::string& last = "") {
        std::pair<Keys, std::string> walk{{}, last};
        auto visit = [](app_control_h, const char* key, void* data) {
            auto* w = static_cast<std::pair<Keys, std::string>*>(data);
            w->first.push_back(key);
            return w->second != key;
        };
        EXPECT_EQ(app_control_foreach_extra_data(m_request, visit, &walk), APP_CONTROL_ERROR_NONE);
        return walk.first;
    }

    app_control_h m_request = nullptr;
};

TEST_F(AppControlRecord, RefusesNullArgumentsAndEmptyKeys) {
    char* value = nullptr;
    EXPECT_EQ(app_control_create(nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_add_extra_data(m_request, nullptr, "v"), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_add_extra_data(m_request, "", "v"), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_get_extra_data(m_request, "k", nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_get_extra_data(m_request, "", &value), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(value, nullptr);
}

TEST_F(AppControlRecord, AMissingKeyLeavesTheOutputAloneAndValuesKeepTheirOrderAndAreReplacedByALaterAdd) {
    char sentinel = 0;
    char* value = &sentinel;
    EXPECT_EQ(app_control_get_extra_data(m_request, "reset", &value), APP_CONTROL_ERROR_KEY_NOT_FOUND);
    EXPECT_EQ(value, &sentinel);
    for (const char* key : {"z", "reset", "m"}) {
        ASSERT_EQ(app_control_add_extra_data(m_request, key, "tak_app_reset"), APP_CONTROL_ERROR_NONE);
    }
    ASSERT_EQ(app_control_add_extra_data(m_request, "reset", ""), APP_CONTROL_ERROR_NONE);
    EXPECT_EQ(Get("reset"), "");
    EXPECT_EQ(Get("m"), "tak_app_reset");
    EXPECT_EQ(Walk(), (Keys{"z", "reset", "m"}));
    EXPECT_EQ(Walk("reset"), (Keys{"z", "reset"}));
}

// That a notification reaches a service manager's socket is checked where the process feeds the watchdog.
TEST(Watchdog, SucceedsWithoutAServiceManagerAndFailsWhenItIsGone) {
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(smart_deadlock_watchdog_notify(), 0);
    setenv("NOTIFY_SOCKET", "/tmp/orvix-no-such-notify-socket", 1);
    EXPECT_LT(smart_deadlock_watchdog_notify(), 0);
    unsetenv("NOTIFY_SOCKET");
}

}  // namespace

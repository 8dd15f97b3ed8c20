// Launch-request records: the error codes callers rely on, ownership of returned values, order.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "app_control.h"

namespace {

class AppControlRecord : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(app_control_create(&m_request), APP_CONTROL_ERROR_NONE); }
    void TearDown() override { EXPECT_EQ(app_control_destroy(m_request), APP_CONTROL_ERROR_NONE); }

    std::string Get(const char* key) {
        char* value = nullptr;
        EXPECT_EQ(app_control_get_extra_data(m_request, key, &value), APP_CONTROL_ERROR_NONE);
        std::string text = value != nullptr ? value : "<null>";
        free(value);
        return text;
    }

    app_control_h m_request = nullptr;
};

TEST_F(AppControlRecord, RefusesNullArgumentsAndEmptyKeys) {
    char* value = nullptr;
    EXPECT_EQ(app_control_create(nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_destroy(nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_add_extra_data(nullptr, "k", "v"), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_add_extra_data(m_request, nullptr, "v"), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_add_extra_data(m_request, "", "v"), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_add_extra_data(m_request, "k", nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_get_extra_data(m_request, "k", nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_get_extra_data(nullptr, "k", &value), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_get_extra_data(m_request, "", &value), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_remove_extra_data(m_request, nullptr), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_foreach_extra_data(m_request, nullptr, nullptr),
              APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(app_control_clone(nullptr, m_request), APP_CONTROL_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(value, nullptr);
}

TEST_F(AppControlRecord, MissingKeyIsKeyNotFoundAndLeavesTheOutputAlone) {
    char sentinel = 0;
    char* value = &sentinel;
    EXPECT_EQ(app_control_get_extra_data(m_request, "reset", &value), APP_CONTROL_ERROR_KEY_NOT_FOUND);
    EXPECT_EQ(value, &sentinel);
    EXPECT_EQ(app_control_remove_extra_data(m_request, "reset"), APP_CONTROL_ERROR_KEY_NOT_FOUND);
}

TEST_F(AppControlRecord, ValuesAreCopiesAndALaterAddReplaces) {
    std::string original = "tak_app_reset";
    ASSERT_EQ(app_control_add_extra_data(m_request, "reset", original.c_str()), APP_CONTROL_ERROR_NONE);
    original[0] = 'X';
    EXPECT_EQ(Get("reset"), "tak_app_reset");
    ASSERT_EQ(app_control_add_extra_data(m_request, "reset", ""), APP_CONTROL_ERROR_NONE);
    EXPECT_EQ(Get("reset"), "");
    ASSERT_EQ(app_control_remove_extra_data(m_request, "reset"), APP_CONTROL_ERROR_NONE);
    char* value = nullptr;
    EXPECT_EQ(app_control_get_extra_data(m_request, "reset", &value), APP_CONTROL_ERROR_KEY_NOT_FOUND);
}

TEST_F(AppControlRecord, ForeachKeepsInsertionOrderAndStopsWhenAsked) {
    for (const char* key : {"z", "a", "m"}) {
        ASSERT_EQ(app_control_add_extra_data(m_request, key, key), APP_CONTROL_ERROR_NONE);
    }
    std::vector<std::string> seen;
    auto collect = [](app_control_h, const char* key, void* data) {
        static_cast<std::vector<std::string>*>(data)->push_back(key);
        return true;
    };
    ASSERT_EQ(app_control_foreach_extra_data(m_request, collect, &seen), APP_CONTROL_ERROR_NONE);
    EXPECT_EQ(seen, (std::vector<std::string>{"z", "a", "m"}));

    seen.clear();
    auto first = [](app_control_h, const char* key, void* data) {
        static_cast<std::vector<std::string>*>(data)->push_back(key);
        return false;
    };
    app_control_foreach_extra_data(m_request, first, &seen);
    EXPECT_EQ(seen, (std::vector<std::string>{"z"}));
}

TEST_F(AppControlRecord, ACallbackMayRemoveWhatItWalks) {
    for (const char* key : {"a", "b", "c"}) {
        app_control_add_extra_data(m_request, key, key);
    }
    auto removeAll = [](app_control_h request, const char* key, void*) {
        return app_control_remove_extra_data(request, key) == APP_CONTROL_ERROR_NONE;
    };
    EXPECT_EQ(app_control_foreach_extra_data(m_request, removeAll, nullptr), APP_CONTROL_ERROR_NONE);
    char* value = nullptr;
    EXPECT_EQ(app_control_get_extra_data(m_request, "c", &value), APP_CONTROL_ERROR_KEY_NOT_FOUND);
}

TEST_F(AppControlRecord, CloneIsIndependent) {
    app_control_add_extra_data(m_request, "obj", "client1");
    app_control_h clone = nullptr;
    ASSERT_EQ(app_control_clone(&clone, m_request), APP_CONTROL_ERROR_NONE);
    app_control_add_extra_data(m_request, "obj", "changed");
    char* value = nullptr;
    ASSERT_EQ(app_control_get_extra_data(clone, "obj", &value), APP_CONTROL_ERROR_NONE);
    EXPECT_STREQ(value, "client1");
    free(value);
    app_control_destroy(clone);
}

}  // namespace

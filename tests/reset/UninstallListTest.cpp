// CUninstallList: the apps an apps reset still waits for, with an index by app id. Checked against a
// plain list that does what the reset asks literally ("remove the first entry with that id").
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <random>
#include <string>
#include <vector>

#include "UninstallList.h"

namespace {

_APPINFO_T App(const std::string& id, int tag = 0) {
    _APPINFO_T app;
    app.id = id;
    app.app_index = tag;
    return app;
}

std::list<_APPINFO_T> Apps(const std::vector<std::string>& ids) {
    std::list<_APPINFO_T> apps;
    int tag = 0;
    for (const auto& id : ids) {
        apps.push_back(App(id, tag++));
    }
    return apps;
}

std::vector<int> Tags(CUninstallList& list) {
    std::vector<int> tags;
    for (auto& app : list) {
        tags.push_back(app.app_index);
    }
    return tags;
}

std::vector<int> Tags(const std::list<_APPINFO_T>& list) {
    std::vector<int> tags;
    for (const auto& app : list) {
        tags.push_back(app.app_index);
    }
    return tags;
}

bool RemoveFirstLiterally(std::list<_APPINFO_T>& list, const std::string& id) {
    auto found = std::find_if(list.begin(), list.end(), [&](const _APPINFO_T& app) { return app.id == id; });
    if (found == list.end()) {
        return false;
    }
    list.erase(found);
    return true;
}

}  // namespace

TEST(AnUninstallList, KeepsTheGivenOrder) {
    CUninstallList list;
    list.Assign(Apps({"b", "a", "c"}));
    EXPECT_EQ(Tags(list), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(list.size(), 3u);
}

TEST(AnUninstallList, RemovesTheEntryNearestTheFrontOfADuplicatedId) {
    CUninstallList list;
    list.Assign(Apps({"x", "dup", "y", "dup", "dup"}));
    EXPECT_TRUE(list.RemoveFirst("dup"));
    EXPECT_EQ(Tags(list), (std::vector<int>{0, 2, 3, 4}));
    EXPECT_TRUE(list.RemoveFirst("dup"));
    EXPECT_EQ(Tags(list), (std::vector<int>{0, 2, 4}));
}

TEST(AnUninstallList, RemovesNothingForAnUnknownIdOrAnIdAlreadyGone) {
    CUninstallList list;
    list.Assign(Apps({"a", "b"}));
    EXPECT_FALSE(list.RemoveFirst("zzz"));
    EXPECT_TRUE(list.RemoveFirst("a"));
    EXPECT_FALSE(list.RemoveFirst("a"));
    EXPECT_EQ(Tags(list), (std::vector<int>{1}));
    EXPECT_TRUE(list.RemoveFirst("b"));
    EXPECT_TRUE(list.empty());
    EXPECT_FALSE(list.RemoveFirst("b"));
}

TEST(AnUninstallList, ForgetsAnEntryErasedDuringTheWalk) {
    CUninstallList list;
    list.Assign(Apps({"keep", "skip", "dup", "dup"}));
    for (auto it = list.begin(); it != list.end();) {
        bool skip = it->id == "skip" || (it->id == "dup" && it->app_index == 2);
        it = skip ? list.Erase(it) : std::next(it);
    }
    EXPECT_FALSE(list.RemoveFirst("skip"));
    EXPECT_TRUE(list.RemoveFirst("dup"));  // the second "dup", the first one was skipped
    EXPECT_EQ(Tags(list), (std::vector<int>{0}));
}

TEST(AnUninstallList, StartsAfreshOnEveryAssign) {
    CUninstallList list;
    list.Assign(Apps({"old1", "old2"}));
    list.Assign(Apps({"new"}));
    EXPECT_FALSE(list.RemoveFirst("old1"));
    EXPECT_EQ(list.size(), 1u);
    list.Clear();
    EXPECT_TRUE(list.empty());
    EXPECT_FALSE(list.RemoveFirst("new"));
}

TEST(AnUninstallList, TakesIdsWithQuotesBlanksAndNonAsciiText) {
    CUninstallList list;
    list.Assign(Apps({"a \"quoted\" id", "тест 应用", "", "a b"}));
    EXPECT_TRUE(list.RemoveFirst("тест 应用"));
    EXPECT_TRUE(list.RemoveFirst(""));
    EXPECT_TRUE(list.RemoveFirst("a \"quoted\" id"));
    EXPECT_EQ(Tags(list), (std::vector<int>{3}));
}

// Random walks and completions, many duplicates, compared step by step with the literal list.
TEST(AnUninstallList, BehavesLikeTheLiteralListUnderRandomWalksAndCompletions) {
    std::mt19937 random(20240229);
    for (int round = 0; round < 200; ++round) {
        std::vector<std::string> ids;
        int count = static_cast<int>(random() % 40);
        for (int i = 0; i < count; ++i) {
            ids.push_back("app" + std::to_string(random() % 12));
        }
        CUninstallList list;
        list.Assign(Apps(ids));
        std::list<_APPINFO_T> literal = Apps(ids);

        // The walk: erase a random subset, as the skip rules would.
        std::vector<bool> erase;
        for (size_t i = 0; i < ids.size(); ++i) {
            erase.push_back(random() % 3 == 0);
        }
        size_t index = 0;
        for (auto it = list.begin(); it != list.end(); ++index) {
            it = erase[index] ? list.Erase(it) : std::next(it);
        }
        index = 0;
        for (auto it = literal.begin(); it != literal.end(); ++index) {
            it = erase[index] ? literal.erase(it) : std::next(it);
        }
        ASSERT_EQ(Tags(list), Tags(literal));

        // Completions, some for ids never in the list.
        for (int i = 0; i < 60; ++i) {
            std::string id = "app" + std::to_string(random() % 14);
            ASSERT_EQ(list.RemoveFirst(id), RemoveFirstLiterally(literal, id)) << id;
            ASSERT_EQ(Tags(list), Tags(literal));
            ASSERT_EQ(list.size(), literal.size());
        }
    }
}

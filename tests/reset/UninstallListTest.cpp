// CUninstallList, the apps an apps reset still waits for with an index by app id, checked step by step
// against a plain list that does what the reset asks literally ("remove the first entry with that id").
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <random>
#include <string>
#include <vector>

#include "UninstallList.h"

namespace {

std::list<_APPINFO_T> Apps(const std::vector<std::string>& ids) {
    std::list<_APPINFO_T> apps;
    for (const auto& id : ids) {
        apps.emplace_back();
        apps.back().id = id;
        apps.back().app_index = static_cast<int>(apps.size());  // tells duplicates apart
    }
    return apps;
}

template <typename List>
std::vector<int> Tags(List& list) {
    std::vector<int> tags;
    for (auto& app : list) {
        tags.push_back(app.app_index);
    }
    return tags;
}

}  // namespace

// Random lists with many duplicates, a walk that erases some entries as the skip rules would, then
// completions, some for ids never or no longer in the list. The one list is assigned afresh every round,
// so an index entry left over from an earlier round would show as well.
TEST(AnUninstallList, BehavesLikeTheLiteralListUnderRandomWalksAndCompletions) {
    const std::vector<std::string> pool = {"a", "b", "c", "", "a \"quoted\" id", "тест 应用", "a b", "gone"};
    std::mt19937 random(20240229);
    CUninstallList list;
    for (int round = 0; round < 200; ++round) {
        std::vector<std::string> ids;
        for (int i = static_cast<int>(random() % 40); i > 0; --i) {
            ids.push_back(pool[random() % (pool.size() - 1)]);  // "gone" is never in a list
        }
        list.Assign(Apps(ids));
        std::list<_APPINFO_T> plain = Apps(ids);
        auto plainIt = plain.begin();
        for (auto it = list.begin(); it != list.end();) {
            bool erase = random() % 3 == 0;
            it = erase ? list.Erase(it) : std::next(it);
            plainIt = erase ? plain.erase(plainIt) : std::next(plainIt);
        }
        for (int i = 0; i < 60; ++i) {
            const std::string& id = pool[random() % pool.size()];
            auto first = std::find_if(plain.begin(), plain.end(), [&](auto& app) { return app.id == id; });
            ASSERT_EQ(list.RemoveFirst(id), first != plain.end()) << "round " << round << " " << id;
            if (first != plain.end()) {
                plain.erase(first);
            }
            ASSERT_EQ(Tags(list), Tags(plain));
        }
    }
}

// CUninstallList, the apps an apps reset still waits for with an index by app id, checked step by step
// against a plain list that does what the reset asks literally ("remove the first entry with that id").
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "UninstallList.h"
#include "UninstallRequests.h"

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

// CUninstallRequests: which answers count for the run that waits. Each case is a script of steps, one a
// line: "assign a b" (a new run's list), "sent a 100" (a request, due at 100), "walk" (requests out),
// "answer a counts" (the verdict expected), "due 150 a b" (what the deadline gives up at 150),
// "next 200" or "next none", "abandon" (the task is stopped).
namespace {

struct ScriptCase {
    const char* name;
    const char* script;
};

void PrintTo(const ScriptCase& c, std::ostream* out) {
    *out << c.name;
}

const char* const kVerdicts[] = {"counts", "stopped", "late", "early", "unknown"};

void RunStep(CUninstallRequests& requests, const std::vector<std::string>& w) {
    const std::vector<std::string> rest(w.begin() + 1, w.end());
    if (w[0] == "assign") {
        requests.Assign(Apps(rest));
    } else if (w[0] == "sent") {
        requests.Sent(w[1], std::stoll(w[2]));
    } else if (w[0] == "walk") {
        requests.WalkDone();
    } else if (w[0] == "answer") {
        EXPECT_STREQ(kVerdicts[requests.Answer(w[1])], w[2].c_str());
    } else if (w[0] == "due") {
        EXPECT_EQ(requests.GiveUpDue(std::stoll(w[1])), std::vector<std::string>(w.begin() + 2, w.end()));
    } else if (w[0] == "next") {
        int64_t due = -1;
        bool any = requests.NextDue(due);
        EXPECT_EQ(any ? std::to_string(due) : "none", w[1]);
    } else if (w[0] == "abandon") {
        requests.Abandon();
    } else {
        FAIL() << "unknown step " << w[0];
    }
}

}  // namespace

class UninstallAnswers : public ::testing::TestWithParam<ScriptCase> {};

TEST_P(UninstallAnswers, CountOnlyForARequestTheRunStillWaitsFor) {
    std::istringstream script(GetParam().script);
    CUninstallRequests requests;
    for (std::string line; std::getline(script, line);) {
        SCOPED_TRACE(line);
        std::istringstream in(line);
        std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
        if (!words.empty()) {
            RunStep(requests, words);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, UninstallAnswers,
    ::testing::Values(
        // The library answers the new run's request; the stopped run's answer, whenever it comes, is the
        // surplus one, and it changes nothing however often it comes.
        ScriptCase{"RestartedRunEndsWithItsAnswer",
                   "assign a b\nsent a 0\nsent b 0\nwalk\nanswer b counts\nabandon\n"
                   "assign a\nanswer a stopped\nsent a 0\nwalk\nanswer a counts\nanswer a stopped\n"
                   "answer a stopped\nanswer b unknown\nanswer c unknown\n"},
        // A stopped run that never sent its requests leaves nothing behind.
        ScriptCase{"StoppedBeforeItsWalk",
                   "assign a\nanswer a early\nabandon\nassign a\nwalk\n"
                   "answer a counts\nanswer a unknown\n"},
        // Each request falls due on its own; answers after that change nothing, in this run or later.
        ScriptCase{"DeadlinePerRequest",
                   "assign a b c\nsent a 100\nsent b 200\nsent c 300\nwalk\nnext 100\ndue 99\n"
                   "due 150 a\nanswer a late\nanswer a late\nanswer b counts\nnext 300\ndue 400 c\n"
                   "next none\nanswer c late\nassign a\nsent a 1000\nwalk\nanswer a counts\nanswer a late\n"},
        // A new run starts with its own due times only, even where the last one ended without a stop.
        ScriptCase{"ANewRunForgetsTheLastRunsDueTimes",
                   "assign a\nsent a 100\nwalk\nanswer a counts\nassign a\nsent a 1000\nwalk\nnext 1000\n"
                   "due 500\nanswer a counts\n"},
        ScriptCase{"AnsweredBeforeItsDueTime",
                   "assign a\nsent a 100\nwalk\nanswer a counts\nnext none\n"
                   "due 200\nanswer a unknown\n"},
        ScriptCase{"DuplicateIds",
                   "assign a a\nsent a 0\nsent a 0\nwalk\nanswer a counts\nanswer a counts\n"
                   "answer a unknown\n"}),
    [](const auto& info) { return std::string(info.param.name); });

#include "Scenario.h"

#include <random>
#include <sstream>

#include "orvix_calls.h"

namespace explore {

namespace {

// Ids that break naive SQL, list texts and buffers.
const char* const kOddIds[] = {"o'quote", "x' OR '1'='1", "semi;colon", "com,ma", "dq\"uote", "co:lon"};
const char* const kKindNames[] = {"tak_app_reset", "tak_service_reset", "corvane_reset",
                                  "biu_app_reset", "biu_service_reset", "end",
                                  "junk"};
const char* const kStepNames[] = {"the library answers from now on:",
                                  "launch",
                                  "wait until the uninstall requests are out",
                                  "wait until it has reported",
                                  "kill the stand-in daemon and start it again",
                                  "launch",
                                  "right after it, launch"};

class Draw {
public:
    explicit Draw(uint32_t seed) : m_engine(seed) {}
    int Between(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_engine); }
    bool Chance(double p) { return std::bernoulli_distribution(p)(m_engine); }
    template <typename T, size_t N>
    const T& Pick(const T (&items)[N]) {
        return items[Between(0, static_cast<int>(N) - 1)];
    }
    // The first of `bounds` (rising percentages) that a roll of 0..99 stays under.
    int Bucket(std::initializer_list<int> bounds) {
        int roll = Between(0, 99), bucket = 0;
        for (int bound : bounds) {
            bucket += roll >= bound;
        }
        return bucket;
    }

private:
    std::mt19937 m_engine;
};

std::vector<App> DrawApps(Draw& draw) {
    std::vector<App> apps;
    bool odd = draw.Chance(0.25);
    int count = draw.Between(0, 6);
    for (int i = 1; i <= count; ++i) {
        App app{"app." + std::to_string(i)};
        if (odd && draw.Chance(0.5)) {
            app.id = draw.Chance(0.2) ? std::string(4096, static_cast<char>('a' + i)) : draw.Pick(kOddIds);
        }
        for (const App& other : apps) {
            app.id += other.id == app.id ? "." + std::to_string(i) : "";
        }
        app.disableReset = draw.Chance(0.1);
        app.type = draw.Chance(0.08) ? 4 : 1;
        apps.push_back(app);
    }
    return apps;
}

Answers DrawAnswers(Draw& draw, const std::vector<App>& apps) {
    Answers answers;
    for (const App& app : apps) {
        Answer answer;
        answer.mode = static_cast<Answer::Mode>(draw.Bucket({30, 55, 65, 74, 86, 93}));
        answer.delayMs = answer.mode == Answer::Prompt ? draw.Between(0, 30) : draw.Between(50, 300);
        answer.progress = draw.Chance(0.2);
        answer.fails = answer.mode == Answer::Fail || (answer.mode != Answer::Silent && draw.Chance(0.1));
        answers[app.id] = answer;
    }
    return answers;
}

Kind DrawKind(Draw& draw) {
    int bucket = draw.Bucket({30, 45, 60, 70, 80});
    return bucket == 5 ? Kind::Junk : static_cast<Kind>(bucket);
}

bool UsesResetTask(Kind kind) {
    return kind == Kind::App || kind == Kind::Service || kind == Kind::Corvane;
}

// A request that is no reset: an unknown or mis-spelt value, no value, odd keys.
std::vector<std::string> JunkExtras(Draw& draw, const std::string& cookie) {
    const char* const values[] = {"reset=no_such_reset",  "reset=TAK_APP_RESET",
                                  "reset=tak_app_reset ", "reset=",
                                  "reset=endx",           "reset=corvane"};
    std::vector<std::string> extras;
    if (draw.Chance(0.8)) {
        extras.push_back(draw.Pick(values));
    }
    extras.push_back("userdata=" + cookie);
    if (draw.Chance(0.5)) {
        extras.push_back("odd key=odd value");
    }
    if (extras.size() == 1 || draw.Chance(0.3)) {
        extras.push_back("thread_id=not a number");
    }
    return extras;
}

Step LaunchOf(Draw& draw, Kind kind, const std::string& cookie) {
    Step step{Step::Launch, kind, {std::string("reset=") + KindName(kind), "userdata=" + cookie},
              cookie,       0,    {}};
    if (kind == Kind::Junk) {
        step.extras = JunkExtras(draw, cookie);
        return step;
    }
    if (kind == Kind::BuiltInService || draw.Chance(0.3)) {
        step.extras.insert(step.extras.end(), {"obj=tv", "method=m"});
    }
    if (draw.Chance(0.2)) {
        step.extras.push_back("reset_reason=explore " + cookie);
    }
    return step;
}

// Distinct cookies, some of them at the edges of a 64-bit integer.
std::string CookieOf(Draw& draw, uint32_t seed, int index) {
    if (draw.Chance(0.1)) {
        return index % 2 == 0 ? std::to_string(-1000 - index) : std::to_string(9223372036854775807LL - index);
    }
    return std::to_string(static_cast<long long>(seed % 100000) * 100 + index + 1);
}

Step Wait(Step::Type type, Kind kind, size_t of) {
    return {type, kind, {}, "", of, {}};
}

void DrawSteps(Draw& draw, Scenario& scenario) {
    std::vector<Step>& steps = scenario.steps;
    int launches = draw.Between(1, 4);
    Kind previous = Kind::Junk;
    bool walkAwaited = true;  // the last launch of the reset task has made its requests
    bool restart = false;     // this launch restarts the previous one while an app of it never answers
    size_t lastReset = 0;     // the last launch of the reset task
    Answers last;
    for (int i = 0; i < launches; ++i) {
        Kind kind = restart || (i > 0 && draw.Chance(0.35)) ? previous : DrawKind(draw);
        bool restartNext = false;
        if (UsesResetTask(kind) && (restart || i == 0 || draw.Chance(0.5))) {
            // New answers only once the earlier run has asked, so that each run meets the answers drawn
            // for it.
            if (!walkAwaited) {
                steps.push_back(Wait(Step::WaitRequests, Kind::Junk, lastReset));
            }
            Step library{Step::Library, Kind::Junk, {}, "", 0, DrawAnswers(draw, scenario.apps)};
            for (auto& [id, answer] : library.answers) {
                // What the stopped run never got answered, the new run does.
                if (restart && last[id].mode == Answer::Silent && answer.mode == Answer::Silent) {
                    answer.mode = Answer::Delayed;
                }
            }
            restartNext = i + 1 < launches && !scenario.apps.empty() && draw.Chance(0.3);
            if (restartNext) {
                library.answers[scenario.apps[draw.Between(0, static_cast<int>(scenario.apps.size()) - 1)].id]
                    .mode = Answer::Silent;
            }
            last = library.answers;
            steps.push_back(library);
        }
        steps.push_back(LaunchOf(draw, kind, CookieOf(draw, scenario.seed, i)));
        size_t launch = steps.size() - 1;
        if (UsesResetTask(kind)) {
            walkAwaited = false;
            lastReset = launch;
        }
        int wait = restartNext ? 0 : draw.Between(0, 99);
        restart = restartNext;
        if (wait < 35 && UsesResetTask(kind)) {
            steps.push_back(Wait(Step::WaitRequests, kind, launch));
            walkAwaited = true;
        } else if (wait < 55 && kind != Kind::Junk) {
            steps.push_back(Wait(Step::WaitResult, kind, launch));
        }
        if (draw.Chance(0.1)) {
            steps.push_back(Wait(Step::RestartDaemon, kind, 0));
        }
        previous = kind;
    }
    // Mostly every run is given the time to end first; sometimes "end" comes while runs still wait.
    if (draw.Chance(0.7)) {
        std::vector<bool> awaited(steps.size(), false);
        for (const Step& step : steps) {
            awaited[step.of] = awaited[step.of] || step.type == Step::WaitResult;
        }
        for (size_t s = 0; s < awaited.size(); ++s) {
            if (steps[s].type == Step::Launch && steps[s].kind != Kind::Junk && !awaited[s]) {
                steps.push_back(Wait(Step::WaitResult, steps[s].kind, s));
            }
        }
    }
    steps.push_back({Step::End, Kind::End, {"reset=end"}, "", 0, {}});
    if (draw.Chance(0.3)) {
        Kind kind = DrawKind(draw);
        steps.push_back(
            LaunchOf(draw, kind == Kind::Junk ? Kind::App : kind, CookieOf(draw, scenario.seed, 90)));
        steps.back().type = Step::AfterEnd;
    }
}

}  // namespace

std::string Shown(const std::string& text) {
    return text.size() > 60 ? text.substr(0, 20) + "...(" + std::to_string(text.size()) + " bytes)" : text;
}

const char* KindName(Kind kind) {
    return kKindNames[static_cast<int>(kind)];
}

std::string ResultName(Kind kind) {
    return kind < Kind::End ? KindName(kind) + std::string("_result") : "";
}

Scenario Generate(uint32_t seed) {
    Draw draw(seed);
    Scenario scenario;
    scenario.seed = seed;
    scenario.android = draw.Chance(0.3);
    scenario.binderDelayMs = draw.Between(0, 300);
    scenario.deadlineSec = draw.Chance(0.35) ? draw.Between(1, 2) : 0;
    scenario.threads = draw.Chance(0.25) ? draw.Between(2, 3) : 1;
    scenario.requestDelayMs = scenario.deadlineSec > 0 && draw.Chance(0.5) ? draw.Between(100, 400) : 0;
    scenario.builtIns = draw.Between(0, 3);
    scenario.installSilent = scenario.builtIns > 0 && draw.Chance(0.2);
    scenario.historyFifo = draw.Chance(0.05);
    scenario.apps = DrawApps(draw);
    DrawSteps(draw, scenario);
    return scenario;
}

Json::Value Scenario::Behaviour(const Answers& answers) const {
    Json::Value behaviour(Json::objectValue);
    behaviour["binder"]["delay_ms"] = binderDelayMs;
    if (requestDelayMs > 0) {
        behaviour["delay_ms"]["UninstallAppAPI"] = requestDelayMs;
    }
    Json::Value& uninstall = behaviour["uninstall"];
    uninstall["threads"] = threads;
    uninstall["apps"] = Json::Value(Json::objectValue);
    int ghost = 0;
    for (const auto& [id, answer] : answers) {
        Json::Value& app = uninstall["apps"][id];
        app["delay_ms"] = answer.delayMs;
        app["fail"] = answer.fails;
        app["silent"] = answer.mode == Answer::Silent;
        app["twice"] = answer.mode == Answer::Twice;
        app["during_walk"] = answer.mode == Answer::DuringWalk;
        if (answer.mode == Answer::AlsoFor) {
            app["also_for"] = "ghost." + std::to_string(++ghost);
        }
        if (answer.progress) {
            app["states"].append(120);
            app["states"].append(121);
        }
    }
    behaviour["builtin"]["install"]["delay_ms"] = 20;
    if (installSilent) {
        behaviour["builtin"]["install"]["apps"]["builtin001"]["silent"] = true;
    }
    return behaviour;
}

std::string Scenario::Describe() const {
    std::ostringstream out;
    out << "seed " << seed << ": Android apps " << android << " (binder after " << binderDelayMs
        << " ms), deadline " << deadlineSec << " s, " << threads
        << " library thread(s), each uninstall request "
        << "takes " << requestDelayMs << " ms, " << builtIns
        << " built-in app(s), the first install never ends " << installSilent
        << ", a FIFO at the history log path " << historyFifo << "\n  apps [id, disable reset, type]:";
    for (const App& app : apps) {
        out << " [" << Shown(app.id) << ", " << app.disableReset << ", " << app.type << "]";
    }
    for (size_t n = 0; n < steps.size(); ++n) {
        const Step& step = steps[n];
        out << "\n  " << n + 1 << ". " << kStepNames[step.type];
        for (const auto& extra : step.extras) {
            out << " '" << Shown(extra) << "'";
        }
        if (step.type == Step::WaitRequests || step.type == Step::WaitResult) {
            out << " of step " << step.of + 1;
        } else if (step.type == Step::Library) {
            out << " " << orvix::host::JsonLine(Behaviour(step.answers)["uninstall"]["apps"]);
        }
    }
    return out.str();
}

}  // namespace explore

// A scenario of the explorer: a short random sequence of launch requests and disturbances against one
// tak-reset, drawn from a seed, so that any seed can be replayed exactly.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace explore {

enum class Kind { App, Service, Corvane, BuiltInApp, BuiltInService, End, Junk };

// How the library answers one app's uninstall request.
struct Answer {
    enum Mode { Prompt, Delayed, Silent, Twice, Fail, AlsoFor, DuringWalk };
    Mode mode = Prompt;
    int delayMs = 0;
    bool progress = false;  // non-terminal states first
    bool fails = false;     // the terminal state is the failing one (with Twice, say)
    // A terminal callback that matches no request of its run.
    bool Lies() const { return mode == Twice || mode == AlsoFor; }
};
using Answers = std::map<std::string, Answer>;

struct App {
    std::string id;
    bool disableReset = false;
    int type = 1;  // 4: default/native, kept by every reset
};

// Library: the library's answers from now on; Launch: one launch request; WaitRequests: until the
// uninstall walk of the launch `of` is over; WaitResult: until the launch `of` has reported;
// RestartDaemon: the stand-in daemon killed and started again; End: "reset=end", then the process exits;
// AfterEnd: a request right after "end".
struct Step {
    enum Type { Library, Launch, WaitRequests, WaitResult, RestartDaemon, End, AfterEnd };
    Type type = Launch;
    Kind kind = Kind::Junk;
    std::vector<std::string> extras;  // Launch, AfterEnd
    std::string cookie;               // the request's userdata ("" when it carries none)
    size_t of = 0;                    // WaitRequests, WaitResult: index of the launch step
    Answers answers;                  // Library
};

struct Scenario {
    uint32_t seed = 0;
    bool android = false;  // the board runs Android apps: resets wait for the binder
    int binderDelayMs = 100;
    int deadlineSec = 0;     // 0: none
    int threads = 1;         // the library's dispatcher threads
    int requestDelayMs = 0;  // how long UninstallAppAPI itself takes
    int builtIns = 0;
    bool installSilent = false;  // the first built-in app's install never ends
    bool historyFifo = false;    // the history log path holds a FIFO
    std::vector<App> apps;
    std::vector<Step> steps;

    // <root>/etc/libtak_common.json for these answers.
    Json::Value Behaviour(const Answers& answers) const;
    // Kept by the rules of every reset: never requested.
    static bool Kept(const App& app) { return app.type == 4 || app.disableReset; }
    std::string Describe() const;
};

Scenario Generate(uint32_t seed);

const char* KindName(Kind kind);
// A text short enough for a message: long ones cut, with their size.
std::string Shown(const std::string& text);
// The result name a reset of that kind reports ("" for none).
std::string ResultName(Kind kind);

}  // namespace explore

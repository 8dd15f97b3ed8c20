// CUninstallRequests: which uninstall answers count for the run of CReset that is waiting for them.
//
// The common library answers an uninstall by calling back with the task's address as user data, and the
// one task serves every run, so a callback cannot say which run asked. The rule kept here: an answer
// counts for the current run when that run has an outstanding request for the app; otherwise it is
// judged by what the task knows of the app's earlier requests:
//   - a request that a stopped run left unanswered (the process took a new request meanwhile), or
//   - a request the deadline gave up on,
// gets answers that change nothing, however many come, for as long as the current run is not waiting
// for that app itself. An answer that is none of these (the library names an app nobody asked for, or
// answers one request twice) is the caller's to judge.
//
// A run: Assign (the walk's list) -> Sent for each request made -> WalkDone -> Answer / GiveUpDue until
// the list is empty -> Assign of the next run, or Abandon when the task is stopped.
//
// Not thread-safe: CReset guards it with the singleton lock that the walk and the callback share.
#pragma once

#include <cstdint>
#include <deque>
#include <list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "AppInfo.h"
#include "UninstallList.h"

class CUninstallRequests {
public:
    enum ANSWER_E {
        ANSWER_COUNTS,   // the current run waited for it; the app left the list
        ANSWER_STOPPED,  // it answers a request of a stopped run
        ANSWER_LATE,     // it answers a request the deadline gave up on
        ANSWER_EARLY,    // the current run has not sent its requests yet
        ANSWER_UNKNOWN,  // the current run has sent its requests, and none of them is this one
    };

    // The apps of a new run, in uninstall order; nothing is outstanding until WalkDone.
    void Assign(std::list<_APPINFO_T>&& apps);
    // The walk's list: entries that are kept or cannot be requested are erased through it.
    CUninstallList& Apps() { return m_Apps; }

    // A request went out for `id`; with a deadline, `dueUs` is when it is given up (monotonic time, µs).
    void Sent(const std::string& id, int64_t dueUs);
    void WalkDone() { m_bRequestsOut = true; }
    bool RequestsOut() const { return m_bRequestsOut; }

    ANSWER_E Answer(const std::string& id);

    // Takes off the list every app whose request is due at `nowUs` and still outstanding; their ids.
    std::vector<std::string> GiveUpDue(int64_t nowUs);
    // When the next outstanding request falls due; false when none will.
    bool NextDue(int64_t& dueUs);

    // The task is stopped: what its run still waits for is remembered as unanswered by a stopped run, and
    // nothing of the run counts any more (the next Assign replaces its list and due times).
    void Abandon();

private:
    // Drops due times of requests already answered.
    void m_DropAnswered();

    CUninstallList m_Apps;
    bool m_bRequestsOut = false;
    // Due times of this run's requests, in the order they were sent (so also in due order).
    std::deque<std::pair<int64_t, std::string>> m_Due;
    std::set<std::string> m_Stopped;
    std::set<std::string> m_GivenUp;
};

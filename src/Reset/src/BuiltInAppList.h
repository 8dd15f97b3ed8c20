// CBuiltInAppList: the decisions of a built-in app reset, apart from the task that carries them out.
//
// Which built-in apps are reinstalled, and in which order, depends only on the library's list and on
// what the platform answers about packages (installed, version, removable, instant-reset metadata,
// background updates, the Home test lists). Those answers come through CBuiltInAppList::Query, so the
// same code decides for the reset task (the live query) and for tests or tools that replay or predict a
// reset (a query of their own). Nothing here posts events or reports anything; it only logs its
// decisions, and tells an optional observer about each of them (the plan command shows them).
//
// Not thread-safe by itself: one object is used by one thread at a time (the reset task's thread).
#pragma once

#include <string>
#include <vector>

#include "BuiltInAppUtil.h"
#include "TAKCommonApi.h"

typedef std::vector<OPENAPI_BUILTIN_APP_INFO> BUILTIN_APP_LIST;

class CBuiltInAppList {
public:
    // What the decisions ask of the platform. Every answer that cannot be had reads as the negative one:
    // not installed, no version, no metadata; only the removable flag reads as "removable".
    class Query {
    public:
        virtual ~Query() = default;
        // The installed version of a package of the TV's own package space; false when unknown.
        virtual bool InstalledVersion(const std::string& pkgId, std::string& version) = 0;
        virtual bool IsInstalled(const std::string& pkgId, bool robot) = 0;
        // The value of one metadata key of the app: by its platform id for a robot app, else by the main
        // app of its package.
        virtual bool MetadataValue(const OPENAPI_BUILTIN_APP_INFO& app, bool robot, const std::string& key,
                                   std::string& value) = 0;
        virtual bool IsRemovable(const std::string& pkgId, bool robot) = 0;
        // True while the package is being updated in the background (and cleans up after one that ended).
        virtual bool IsUpdating(const std::string& appId, const std::string& pkgId) = 0;
        virtual void HomeTestList(std::vector<HOME_TEST_APP>& list) = 0;
        virtual void CandidateList(const std::string& path, std::vector<HOME_TEST_APP>& list) = 0;
    };

    // The query that asks the package manager, the settings store and the configuration table.
    class LiveQuery : public Query {
    public:
        bool InstalledVersion(const std::string& pkgId, std::string& version) override;
        bool IsInstalled(const std::string& pkgId, bool robot) override;
        bool MetadataValue(const OPENAPI_BUILTIN_APP_INFO& app, bool robot, const std::string& key,
                           std::string& value) override;
        bool IsRemovable(const std::string& pkgId, bool robot) override;
        bool IsUpdating(const std::string& appId, const std::string& pkgId) override;
        void HomeTestList(std::vector<HOME_TEST_APP>& list) override;
        void CandidateList(const std::string& path, std::vector<HOME_TEST_APP>& list) override;
    };

    // Where a Home package that is checked comes from.
    enum HomePackageKind {
        HOME_BASE_PACKAGE,    // "db/home/homeversion_pkg_id"
        HOME_INSTALLED_TEST,  // the installed Home test list
        HOME_TEST_CANDIDATE,  // the candidate file
    };

    // Why an app of the assembled list is not reset.
    enum SkipReason {
        SKIP_NOT_INSTALLED,
        SKIP_NO_INSTANT_RESET,  // the instant-reset metadata is missing or not exactly "true"
        SKIP_NOT_REMOVABLE,
    };

    // Hears each decision as it is made. The decisions are the same with or without an observer, and
    // the observer is called after the decision's log line.
    class Observer {
    public:
        virtual ~Observer() = default;
        // A Home package whose entries, and whose dependants it cannot satisfy, are removed next.
        virtual void OnHomePackage(HomePackageKind /*kind*/, const std::string& /*pkgId*/) {}
        // `app` leaves the list because of the package `pkgid`: it is of that package (`require` null),
        // or its first requirement on it asks for more than the installed version (`versionKnown` false
        // when none could be read).
        virtual void OnRemoved(const OPENAPI_BUILTIN_APP_INFO& /*app*/, const std::string& /*pkgid*/,
                               const OPENAPI_REQUIRE_INFO* /*require*/, bool /*versionKnown*/,
                               const std::string& /*installedVersion*/) {}
        // "add require app <required> before app <app>".
        virtual void OnMoved(const OPENAPI_BUILTIN_APP_INFO& /*required*/,
                             const OPENAPI_BUILTIN_APP_INFO& /*app*/) {}
        // `metadata` is the instant-reset value when one was read.
        virtual void OnSkipped(const OPENAPI_BUILTIN_APP_INFO& /*app*/, SkipReason /*reason*/,
                               const std::string* /*metadata*/) {}
        // The app goes into the instant reset list; `updating`: its package waits for a background update.
        virtual void OnAccepted(const OPENAPI_BUILTIN_APP_INFO& /*app*/, bool /*updating*/) {}
    };

    // The metadata key that lets a built-in app be reset at once, and the only value that does.
    static const char* const INSTANT_RESET_KEY;
    static const char* const INSTANT_RESET_VALUE;
    static const char* const ROBOT_APP_TYPE;

    explicit CBuiltInAppList(Query& query, Observer* observer = nullptr)
        : m_rQuery(query), m_pObserver(observer) {}

    // Removes the Home base package and the apps that need a newer one than is installed.
    void RemoveHomeBasePkg(const std::string& homeBasePkgId, BUILTIN_APP_LIST& list);
    // The same for every Home test package: the installed ones, then the candidates of the file under
    // the applications' data root.
    void RemoveHomeTestVersion(BUILTIN_APP_LIST& list);
    // Removes every entry of the package `pkgid`, and every entry whose first requirement on that package
    // asks for a version above the installed one (or any version when none can be read).
    void RemoveFromBuiltInList(const std::string& pkgid, BUILTIN_APP_LIST& list);
    // Moves each app's required apps that the library listed later in front of it, in key order, each
    // once, one level deep.
    static void AssembleBuiltInList(BUILTIN_APP_LIST& list, Observer* observer = nullptr);
    // True when the app goes into the instant reset list; an app being updated in the background also
    // has its package appended to `waitingList`.
    bool CheckResetCondition(const OPENAPI_BUILTIN_APP_INFO& app, std::vector<std::string>& waitingList);

    // The path of the Home test candidate file.
    static std::string CandidateFilePath();

private:
    void m_Skipped(const OPENAPI_BUILTIN_APP_INFO& app, SkipReason reason, const std::string* metadata);

    Query& m_rQuery;
    Observer* m_pObserver;
};

// CTAKDBTable: the base of every table class of the app database.
//
// The whole process shares one prepared statement (m_pStmt) and one plain mutex (Mutex). A public
// operation that runs a statement holds Mutex from its prepare to its last step; the statement
// primitives (Prepare, Step, the Bind family, the column readers) and m_DeleteByPrimaryKey do not lock
// and are only called with Mutex held. The mutex is not recursive: an operation that holds it never
// calls Exec, Begin, Commit, ClearTable or another locking operation.
//
// A statement that is left on a row when an operation ends is finalized before Mutex is released, so
// that no read transaction outlives the operation and blocks the writer of the file.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// A value kept for deferred binding: queries whose "where" clause is assembled in one place and run in
// another carry their parameters in a list of these.
struct _TAKDB_BIND_T {
    int32_t type;          // TAKDB_BIND_TEXT, TAKDB_BIND_INTEGER; other values are skipped when binding
    std::string strValue;  // the value when type is TAKDB_BIND_TEXT
    int32_t nValue;        // the value when type is TAKDB_BIND_INTEGER
};

enum { TAKDB_BIND_TEXT = 1, TAKDB_BIND_INTEGER = 2 };

class CTAKDBTable {
public:
    explicit CTAKDBTable(const std::string& tableName);
    virtual ~CTAKDBTable();

    std::string GetTableName() const;

    // Prepare and one step; true when the step is done. Takes Mutex.
    bool Exec(const std::string& sql);
    bool Begin();
    bool Commit();
    // "delete from <table>".
    bool ClearTable();

    // Pasted-value update of one column, of one row (id given) or of every row (empty id).
    bool Update(const std::string& id, const std::string& column, const std::string& value);
    bool Update(const std::string& id, const std::string& column, int value);

    // Reads `column` of the row with that id (every row for an empty id). The first row's value is
    // stored; the result is true only when exactly one row matched.
    bool Select(const std::string& id, const std::string& column, std::string& value);
    bool Select(const std::string& id, const std::string& column, int& value);

    bool IsPrimaryKeyExists(const std::string& key, const std::string& value);

    // Deletes every row whose id is not a key of `keep`; with `keepFixedApps` the three fixed app ids
    // are appended to the kept list as the generated text shows (see m_GenerateTruncateCmd).
    bool Truncate(const std::map<std::string, std::string>& keep, bool keepFixedApps);

    static void SaveBind(std::vector<_TAKDB_BIND_T>& values, const std::string& text);
    static void SaveBind(std::vector<_TAKDB_BIND_T>& values, int number);

    // The connection's busy handler: retries a locked database 50 times, 10 ms apart.
    static int BusyHandler(void* data, int count);

    // The lock of the data store; guards m_pStmt and the connection.
    static std::mutex Mutex;

protected:
    // Finalizes a statement left over from an earlier operation and releases Mutex when it goes.
    class CStatementLock {
    public:
        CStatementLock();
        ~CStatementLock();
        CStatementLock(const CStatementLock&) = delete;
        CStatementLock& operator=(const CStatementLock&) = delete;

    private:
        std::lock_guard<std::mutex> m_tGuard;
    };

    static bool Prepare(const std::string& sql);
    static int Step();
    static bool Bind(unsigned position, bool value);
    static bool Bind(unsigned position, int value);
    // The text is not copied: `value` must live until the statement has been stepped for the last time.
    static bool Bind(unsigned position, const std::string& value);
    // A string literal would otherwise turn into a bool.
    static bool Bind(unsigned position, const char* value) = delete;
    static bool Bind(const std::vector<_TAKDB_BIND_T>& values);

    static std::string GetStringFromResult(unsigned column);
    static int GetIntegerFromResult(unsigned column);
    static void GetValueByPosition(unsigned column, int& value);
    static void GetValueByPosition(unsigned column, bool& value);
    static void GetValueByPosition(unsigned column, std::string& value);

    // Finalizes m_pStmt if one is held.
    static void m_FinalizeStmt();

    bool m_DeleteByPrimaryKey(const std::string& key, const std::string& value);

    // Whether a value may be pasted between single quotes of a statement: one with a quote of its own
    // would end the quoted text early and let the rest be read as SQL (an app id "x' or '1'='1" would
    // turn a deletion of one row into a deletion of all). False with one log line; the operation that
    // asked then fails and touches nothing.
    static bool m_IsPasteable(const std::string& value);

    std::string m_GenerateUpdateCmd(const std::string& id, const std::string& column,
                                    const std::string& value) const;
    std::string m_GenerateUpdateCmd(const std::string& id, const std::string& column, int value) const;
    std::string m_GenerateInsertCmd(const std::string& column, const std::string& value) const;
    std::string m_GenerateInsertCmd(const std::string& column, int value) const;
    std::string m_GenerateSelectCmd(const std::string& id, const std::string& column) const;
    std::string m_GenerateTruncateCmd(const std::map<std::string, std::string>& keep,
                                      bool keepFixedApps) const;

    static sqlite3_stmt* m_pStmt;

    std::string m_strQuery;  // working text of a subclass; the base never touches it
    std::string m_strTableName;

private:
    bool m_SelectFirst(const std::string& id, const std::string& column);
};

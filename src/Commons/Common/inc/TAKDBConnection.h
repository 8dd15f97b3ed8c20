// CTAKDBConnection: the one SQLite connection of the process to the service's app database,
// "<user home>/.vardell.db".
//
// Two kinds of process use it, told apart by the flag of the first GetInstance call:
//  - the service daemon (true) owns the file: before opening it checks that the file is sound,
//    restores it from the backup when it is not, repairs the Smack labels, opens it read-write and
//    adds configuration rows that newer versions need;
//  - every other process (false) opens it read-only and checks nothing; its writes go to the daemon
//    over D-Bus.
// The file is never created here: the daemon's restore step or the privileged utility provides it.
//
// GetInstance takes no lock: the first call must happen before other threads use the database. All
// statement work on the connection is serialised by CTAKDBTable::Mutex.
#pragma once

#include <sqlite3.h>

#include <string>

class CTAKDBConnection {
public:
    // The singleton, or null when the connection cannot be made (a later call tries again). The flag
    // counts only on the call that creates the instance.
    static CTAKDBConnection* GetInstance(bool bTAKDaemon);

    ~CTAKDBConnection();
    CTAKDBConnection(const CTAKDBConnection&) = delete;
    CTAKDBConnection& operator=(const CTAKDBConnection&) = delete;

    sqlite3* GetConnection();
    bool Connect(const std::string& path);
    // Always true.
    bool Disconnect();
    // Whether the database file is sound; on failure `reason` names the check that failed.
    bool IsValid(std::string& reason);
    // Gives the database file and its journal the label "User::Home" where they carry another one.
    void CheckSmack();
    // Copies the database and its journal into the backup directory. A missing journal only makes
    // that copy fail; nothing is reported.
    void Backup();
    // Puts the backup in place through the privileged utility.
    void Restore();

    // Paths, built at each use.
    static std::string GetDBPath();
    static std::string GetJournalPath();
    // "<backup root>/vardell/takdb_backup/", with the trailing separator.
    static std::string GetBackupDir();

    // For tests only: drops the instance and forgets the first call's flag, as a new process would
    // start. Never called by the service.
    static void ResetInstanceForTest();

private:
    CTAKDBConnection() = default;
    void m_CheckNewKeys();
    void m_CheckSmack(const std::string& path);

    sqlite3* m_pConnection = nullptr;

    static CTAKDBConnection* m_pInstance;
    static bool m_bTAKDaemon;
};

// The locks of the reset process and the one order in which they are taken. Nothing is declared here:
// this is the one place that says which lock may be taken while another is held, so that a change that
// adds a lock, or a call made under one, is checked against it.
//
// Rule: a thread that holds a lock of a rank may only take locks of a HIGHER rank. Locks of the same
// rank are never held together. No lock is held across a call that waits for another thread that may
// need a lower-ranked lock (a synchronous Send, Destroy() of a task, a bus call made while a callback
// of ours is needed to answer it).
//
//  rank  lock                                           guards
//  ----  ---------------------------------------------  ------------------------------------------------
//   0    g_LiveCoreLock (ProcessCore.cpp)              the process core a binder callback may reach; held
//                                                       by that callback, which takes CReset's binder lock
//   1    CTAKSingleton<CReset>::m_tSingletonLock        the apps reset's uninstall requests (which answers
//                                                       count, which the deadline ended); held by the
//                                                       uninstall walk for its whole run, by the deadline
//                                                       timer and by every uninstall callback
//   1    CBuiltInAppReset::InstanceLock()               m_poInstance and the built-in reset's list, done
//                                                       set, install counter and install-outstanding flag
//   1    CReset::m_tBinderLock                          whether the binder exists and the event held back
//   2    CTAKDBTable::Mutex                             every database statement and the backup after it
//   3    CTAKShell::s_ShellLock                         one child process at a time (the backup's copies)
//   3    g_LogLock (TAKHistoryLog.cpp)                  the history file, its size check and rotation
//   4    CTAKTaskBase::queueMutex (one per task)        the task's event queues; taken by Send()
//   5    CTAKMainLoop::mutex (one per loop)             the loop's context and sources
//   6    CProcessDbus::s_tConnectionLock                the one bus connection while it is made
//   6    g_ThreadLock (TAKThreadBase.cpp)               thread creation
//   6    g_Lock (TAKSync.cpp)                           the counters behind every CTAKSync
//
// What that allows, as the code does it: a rank-1 holder posts events (Send takes 4, then 5), arms and
// drops timers of its task's loop (5), reads the configuration table (2, whose backup runs a child
// process under 3) and writes history lines (3). The
// platform's and the kit's own locks (settings store, package records, platform log) rank above all of
// these: they are taken inside platform calls, last, and never held when those return.
//
// The rank-1 locks assume that the common library never calls back on the thread that made the request:
// the uninstall walk holds the singleton lock while it calls "UninstallAppAPI", and the callback takes the
// same lock, so a library that answered synchronously, on the caller's thread, would deadlock (the mutex
// is not recursive). The library calls back from threads of its own; a library that did not would have to
// be met by a walk that lets go of the lock around each request. The built-in reset does not depend on it:
// it lets go of its lock before calling "InstallAppAPI".
#pragma once

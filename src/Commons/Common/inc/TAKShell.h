// Runs external programs: one program at a time in the whole process, started with vfork/execve, a
// fixed argument vector (never through a shell) and an environment that holds only PATH (the platform's
// system search path). Each call waits for its child.
#pragma once

#include <mutex>
#include <string>

class CTAKShell {
public:
    // Runs argv[0] (an absolute path) with argv[0..count-1]; count is 1 to 5. Returns the child's raw
    // wait status (0 when it exited with 0), or -1 when nothing could be run. A program that cannot be
    // executed exits with its errno, which shows in the status.
    static int ExecShell(std::string* argv, int count);

    // "/bin/rm -rf path"
    static int Remove(const char* path);
    // "/bin/cp -rf source dest"
    static int Copy(const char* source, const char* dest);
    // "/bin/mv source dest"
    static int Move(const char* source, const char* dest);
    // "/bin/mkdir -p -m 777 dir"
    static int CreateDir(const char* dir);

    // Held for a whole ExecShell call, child wait included: only one child runs at a time, and the
    // SIGCHLD disposition it changes is never changed by two runs at once.
    static std::mutex s_ShellLock;
};

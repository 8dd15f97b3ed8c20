#include "TAKShell.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <platform_path.h>

#include "TAKLog.h"

std::mutex CTAKShell::s_ShellLock;

namespace {

const int kMaxArguments = 5;

// Waits for `pid`, retrying when a signal interrupts the wait. Returns the child's status or -1.
int WaitChild(pid_t pid) {
    int status = 0;
    pid_t waited;
    do {
        waited = waitpid(pid, &status, 0);
    } while (waited < 0 && errno == EINTR);
    if (waited == pid) {
        return status;
    }
    TAK_LOGE("waitpid failed(%d != %d) error info = [%s] return = [%s]", waited, pid, strerror(errno),
             waited < 0 ? "-1" : "unexpected pid");
    TAK_LOGE("WIFEXITED:%d, WEXITSTATUS:%d, WIFSIGNALED:%d, WIFSTOPPED:%d, iResult:%d", WIFEXITED(status),
             WEXITSTATUS(status), WIFSIGNALED(status), WIFSTOPPED(status), -1);
    return -1;
}

}  // namespace

int CTAKShell::ExecShell(std::string* argv, int count) {
    std::lock_guard<std::mutex> lock(s_ShellLock);
    if (argv == nullptr || count <= 0 || count > kMaxArguments || argv[0].empty()) {
        TAK_LOGE("Input parameter error!");
        return -1;
    }
    // Everything the child touches is prepared here: between vfork and execve the child only reads.
    std::string copies[kMaxArguments];
    char* arguments[kMaxArguments + 1] = {};
    for (int i = 0; i < count; ++i) {
        copies[i] = argv[i];
        arguments[i] = &copies[i][0];
    }
    const char* searchPath = platform_path_get(PLATFORM_PATH_SYSTEM_BIN);
    std::string pathEntry = std::string("PATH=") + (searchPath != nullptr ? searchPath : "");
    char* environment[] = {&pathEntry[0], nullptr};

    TAK_LOGI("Start");
    struct sigaction previous {};
    struct sigaction defaultAction {};
    defaultAction.sa_handler = SIG_DFL;
    sigemptyset(&defaultAction.sa_mask);
    sigaction(SIGCHLD, &defaultAction, &previous);

    int result;
    pid_t pid = vfork();
    if (pid == 0) {
        execve(arguments[0], arguments, environment);
        int error = errno;
        TAK_LOGE("Execve return error = [%s] ret = [%s]", arguments[0], strerror(error));
        _exit(error);
    }
    if (pid < 0) {
        TAK_LOGE("tPid[%d] is less 0.", pid);
        result = -1;
    } else {
        TAK_LOGI("Waiting...");
        result = WaitChild(pid);
    }
    sigaction(SIGCHLD, &previous, nullptr);
    TAK_LOGI("end.");
    return result;
}

int CTAKShell::Remove(const char* path) {
    if (path == nullptr) {
        TAK_LOGE("pchSource is NULL");
        return -1;
    }
    TAK_LOGD("remove %s", path);
    std::string argv[] = {"/bin/rm", "-rf", path};
    return ExecShell(argv, 3);
}

int CTAKShell::Copy(const char* source, const char* dest) {
    if (source == nullptr || dest == nullptr) {
        TAK_LOGE("pchSource or pchDest is NULL");
        return -1;
    }
    TAK_LOGD("copy %s to %s", source, dest);
    std::string argv[] = {"/bin/cp", "-rf", source, dest};
    return ExecShell(argv, 4);
}

int CTAKShell::Move(const char* source, const char* dest) {
    if (source == nullptr || dest == nullptr) {
        TAK_LOGE("pchSource or pchDest is NULL");
        return -1;
    }
    TAK_LOGD("move %s to %s", source, dest);
    std::string argv[] = {"/bin/mv", source, dest};
    return ExecShell(argv, 3);
}

int CTAKShell::CreateDir(const char* dir) {
    if (dir == nullptr) {
        TAK_LOGE("pDir is NULL");
        return -1;
    }
    TAK_LOGD("create dir %s", dir);
    std::string argv[] = {"/bin/mkdir", "-p", "-m", "777", dir};
    return ExecShell(argv, 5);
}

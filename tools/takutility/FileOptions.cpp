// The file options of the host takutility. Every path is confined to the host root before anything
// is done with it.
#include <smack.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vconf.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <orvix_host.h>
#include <platform_path.h>

#include "TAKDir.h"
#include "TAKShell.h"
#include "UtilityOptions.h"

namespace {

const char kLabelResultKey[] = "memory/tak/file_smack";

std::string Canonical(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? std::string(resolved) : std::string();
}

std::string StripTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

// The canonical directory of `path` joined with its last component, which is left as it is.
std::string ResolveParent(const std::string& path) {
    size_t slash = path.rfind('/');
    std::string name = path.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        return "";
    }
    std::string parent = Canonical(slash == 0 ? "/" : path.substr(0, slash));
    if (parent.empty()) {
        return "";
    }
    return (parent == "/" ? "" : parent) + "/" + name;
}

// A child's wait status as this program's exit status.
int ExitStatus(int status) {
    if (status == -1) {
        return 1;
    }
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : 1;
}

bool ConfinePair(const std::string& argument, bool followSource, std::string& source, std::string& dest) {
    std::string first;
    std::string second;
    if (!SplitPair(argument, first, second)) {
        return false;
    }
    source = ConfinedPath(first, followSource);
    dest = ConfinedPath(second, false);
    return !source.empty() && !dest.empty();
}

}  // namespace

std::string ConfinedPath(const std::string& path, bool followLast) {
    std::string root = Canonical(orvix::host::Root());
    if (root.empty()) {
        fprintf(stderr, "takutility: the host root %s does not exist\n", orvix::host::Root().c_str());
        return "";
    }
    if (path.empty() || path.front() != '/') {
        fprintf(stderr, "takutility: %s is not an absolute path\n", path.c_str());
        return "";
    }
    std::string trimmed = StripTrailingSlashes(path);
    std::string resolved = followLast ? Canonical(trimmed) : "";
    if (resolved.empty()) {
        resolved = ResolveParent(trimmed);
    }
    if (resolved.empty()) {
        fprintf(stderr, "takutility: %s cannot be resolved\n", path.c_str());
        return "";
    }
    if (resolved.compare(0, root.size() + 1, root + "/") != 0) {
        fprintf(stderr, "takutility: %s is outside the host root %s, refused\n", path.c_str(), root.c_str());
        return "";
    }
    return resolved;
}

bool SplitPair(const std::string& argument, std::string& first, std::string& second) {
    size_t mark = argument.find('?');
    if (mark == std::string::npos || mark == 0 || mark + 1 == argument.size()) {
        fprintf(stderr, "takutility: expected FIRST?SECOND, got %s\n", argument.c_str());
        return false;
    }
    first = argument.substr(0, mark);
    second = argument.substr(mark + 1);
    return true;
}

int RemoveFileOption(const std::string& path) {
    std::string target = ConfinedPath(path, false);
    if (target.empty()) {
        return kRefused;
    }
    struct stat st {};
    if (lstat(target.c_str(), &st) != 0) {
        return errno == ENOENT ? 0 : 1;  // nothing there is what was asked for
    }
    if (S_ISDIR(st.st_mode)) {
        fprintf(stderr, "takutility: %s is a directory\n", target.c_str());
        return 1;
    }
    if (unlink(target.c_str()) != 0) {
        fprintf(stderr, "takutility: cannot remove %s: %s\n", target.c_str(), strerror(errno));
        return 1;
    }
    return 0;
}

int RemoveInDirectoryOption(const std::string& path) {
    std::string target = ConfinedPath(path, false);
    if (target.empty()) {
        return kRefused;
    }
    return TAKDir::RemoveAllFiles(target, false, false) ? 0 : 1;
}

int CheckServiceDirOption(const std::string&) {
    const char* dataDir = platform_path_get(PLATFORM_PATH_SYSTEM_DATA);
    const char* appsDir = platform_path_get(PLATFORM_PATH_APPS_RW);
    if (dataDir == nullptr || appsDir == nullptr) {
        return 1;
    }
    const std::string dirs[] = {std::string(dataDir) + "/vardell", std::string(dataDir) + "/vardell/log",
                                std::string(appsDir) + "/vardell"};
    for (const std::string& dir : dirs) {
        if (!TAKDir::Create(dir)) {
            fprintf(stderr, "takutility: cannot create %s\n", dir.c_str());
            return 1;
        }
    }
    return 0;
}

int SetLabelOption(const std::string& pathAndLabel) {
    std::string path;
    std::string label;
    if (!SplitPair(pathAndLabel, path, label)) {
        return kRefused;
    }
    std::string target = ConfinedPath(path, true);
    if (target.empty()) {
        return kRefused;
    }
    if (smack_setlabel(target.c_str(), label.c_str(), SMACK_LABEL_ACCESS) != 0) {
        fprintf(stderr, "takutility: cannot label %s: %s\n", target.c_str(), strerror(errno));
        return 1;
    }
    return 0;
}

int ReportLabelOption(const std::string& path) {
    std::string target = ConfinedPath(path, true);
    if (target.empty()) {
        return kRefused;
    }
    char* label = nullptr;
    if (smack_getlabel(target.c_str(), &label, SMACK_LABEL_ACCESS) < 0 || label == nullptr) {
        fprintf(stderr, "takutility: cannot read the label of %s\n", target.c_str());
        return 1;
    }
    int ret = vconf_set_str(kLabelResultKey, label);
    free(label);
    if (ret != VCONF_OK) {
        fprintf(stderr, "takutility: cannot write %s\n", kLabelResultKey);
        return 1;
    }
    return 0;
}

int CopyOption(const std::string& sourceAndDest) {
    std::string source;
    std::string dest;
    if (!ConfinePair(sourceAndDest, true, source, dest)) {
        return kRefused;
    }
    return ExitStatus(CTAKShell::Copy(source.c_str(), dest.c_str()));
}

int MoveOption(const std::string& sourceAndDest) {
    std::string source;
    std::string dest;
    // A link is moved as a link, so its own place is what must be inside the root.
    if (!ConfinePair(sourceAndDest, false, source, dest)) {
        return kRefused;
    }
    return ExitStatus(CTAKShell::Move(source.c_str(), dest.c_str()));
}

int ExecuteOption(const std::string& binFile) {
    std::string program = ConfinedPath(binFile, true);
    if (program.empty()) {
        return kRefused;
    }
    return ExitStatus(CTAKShell::ExecShell(&program, 1));
}

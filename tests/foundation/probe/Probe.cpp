// A child for the shell tests: it reports what it was given, exits as told, or proves that no other
// probe runs at the same time.
//   probe dump OUT [ARG...]  writes its arguments to OUT.args and its environment to OUT.env, each
//                            entry followed by a NUL byte
//   probe exit N             exits with N
//   probe mark FILE          appends "start" and "end" lines to FILE; if another "mark" probe is between
//                            its two lines at that moment, appends "overlap" and exits 1
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

extern char** environ;

namespace {

bool WriteEntries(const std::string& path, char** entries) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) {
        return false;
    }
    for (char** entry = entries; *entry != nullptr; ++entry) {
        if (write(fd, *entry, strlen(*entry) + 1) < 0) {
            close(fd);
            return false;
        }
    }
    return close(fd) == 0;
}

void AppendLine(const std::string& path, const char* line) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd >= 0) {
        ssize_t ignored = write(fd, line, strlen(line));
        (void)ignored;
        close(fd);
    }
}

int Mark(const std::string& file) {
    std::string busy = file + ".busy";
    int flag = open(busy.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    if (flag < 0) {
        AppendLine(file, "overlap\n");
        return 1;
    }
    close(flag);
    AppendLine(file, "start\n");
    // Stay in flight for a moment, so that a second child started beside this one would find the flag.
    struct timespec pause = {0, 5 * 1000 * 1000};
    nanosleep(&pause, nullptr);
    AppendLine(file, "end\n");
    unlink(busy.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 3 && strcmp(argv[1], "dump") == 0) {
        bool ok = WriteEntries(std::string(argv[2]) + ".args", argv) &&
                  WriteEntries(std::string(argv[2]) + ".env", environ);
        return ok ? 0 : 1;
    }
    if (argc == 3 && strcmp(argv[1], "exit") == 0) {
        return atoi(argv[2]);
    }
    if (argc == 3 && strcmp(argv[1], "mark") == 0) {
        return Mark(argv[2]);
    }
    return 64;
}

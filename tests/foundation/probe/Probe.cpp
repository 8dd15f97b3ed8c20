// A child for the shell tests: it reports what it was given, exits as told, or proves that no other
// probe runs at the same time.
//   probe dump OUT [ARG...]  writes its arguments to OUT.args and its environment to OUT.env, each
//                            entry followed by a NUL byte
//   probe exit N             exits with N
//   probe mark FILE          appends "start" and "end" lines to FILE; if another "mark" probe is between
//                            its two lines at that moment, appends "overlap" and exits 1
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>

extern char** environ;

namespace {

bool WriteEntries(const std::string& path, char** entries) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    for (; *entries != nullptr; ++entries) {
        out << *entries << '\0';
    }
    return static_cast<bool>(out.flush());
}

int Mark(const std::string& file) {
    std::string busy = file + ".busy";
    int flag = open(busy.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    if (flag < 0) {
        std::ofstream(file, std::ios::app) << "overlap\n";
        return 1;
    }
    close(flag);
    std::ofstream(file, std::ios::app) << "start\n";
    // Stay in flight for a moment, so that a second child started beside this one would find the flag.
    struct timespec pause = {0, 5 * 1000 * 1000};
    nanosleep(&pause, nullptr);
    std::ofstream(file, std::ios::app) << "end\n";
    return unlink(busy.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 3 && strcmp(argv[1], "dump") == 0) {
        return WriteEntries(std::string(argv[2]) + ".args", argv) &&
                       WriteEntries(std::string(argv[2]) + ".env", environ)
                   ? 0
                   : 1;
    }
    if (argc == 3 && strcmp(argv[1], "exit") == 0) {
        return atoi(argv[2]);
    }
    return argc == 3 && strcmp(argv[1], "mark") == 0 ? Mark(argv[2]) : 64;
}

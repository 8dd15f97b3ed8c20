// A child for the shell tests that reports what it was given:
//   probe dump OUT [ARG...]  writes its arguments to OUT.args and its environment to OUT.env, each
//                            entry followed by a NUL byte
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

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        return 64;
    }
    return WriteEntries(std::string(argv[2]) + ".args", argv) &&
                   WriteEntries(std::string(argv[2]) + ".env", environ)
               ? 0
               : 1;
}

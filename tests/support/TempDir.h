// Where the tests make their temporary files and directories: under $TMPDIR, which CTest sets to a
// directory of the test run's own that must be empty again when the suite ends, else under /tmp.
#pragma once

#include <cstdlib>
#include <string>

namespace orvix::test {

// A mkdtemp/mkstemp pattern: the temporary directory, then `name` and the six X's.
inline std::string TempPattern(const std::string& name) {
    const char* dir = getenv("TMPDIR");
    return std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/" + name + "XXXXXX";
}

}  // namespace orvix::test

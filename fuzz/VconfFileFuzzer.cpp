// A key file of the host settings store ("<type> <length>\n<value>") as anything may have left it, and a
// key name as any caller may pass it. The input's first line is the key name, the rest the file of the
// key "db/fuzz/key". No input may crash; a file reads as at most one type; what reads back is written
// back as the same value; a name the store's rules refuse is refused for writing.
#include <stdlib.h>

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

#include "FuzzSupport.h"
#include "TAKDir.h"
#include "orvix_host.h"
#include "vconf.h"

namespace {

const char kKey[] = "db/fuzz/key";
std::string g_root;
std::string g_keyFile;

// The store's rule for key names, spelled out once more.
bool ValidName(const std::string& key) {
    if (key.size() > 256 || (key.rfind("db/", 0) != 0 && key.rfind("memory/", 0) != 0)) {
        return false;
    }
    size_t begin = 0;
    while (true) {
        size_t end = key.find('/', begin);
        std::string part = key.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
        if (part.empty() || part[0] == '.') {
            return false;
        }
        for (char c : part) {
            if (!isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-' && c != '.') {
                return false;
            }
        }
        if (end == std::string::npos) {
            return true;
        }
        begin = end + 1;
    }
}

void CheckFile() {
    int number = 0;
    int flag = 0;
    double real = 0;
    bool isInt = vconf_get_int(kKey, &number) == VCONF_OK;
    bool isBool = vconf_get_bool(kKey, &flag) == VCONF_OK;
    bool isDouble = vconf_get_dbl(kKey, &real) == VCONF_OK;
    char* text = vconf_get_str(kKey);
    TAK_FUZZ_CHECK(isInt + isBool + isDouble + (text != nullptr) <= 1);
    TAK_FUZZ_CHECK(!isBool || flag == 0 || flag == 1);
    if (isInt) {
        TAK_FUZZ_CHECK(vconf_set_int(kKey, number) == VCONF_OK);
        int again = 0;
        TAK_FUZZ_CHECK(vconf_get_int(kKey, &again) == VCONF_OK && again == number);
    }
    if (isDouble) {
        TAK_FUZZ_CHECK(vconf_set_dbl(kKey, real) == VCONF_OK);
        double again = 0;
        TAK_FUZZ_CHECK(vconf_get_dbl(kKey, &again) == VCONF_OK && memcmp(&again, &real, sizeof(real)) == 0);
    }
    if (text != nullptr) {
        std::string value = text;
        free(text);
        TAK_FUZZ_CHECK(vconf_set_str(kKey, value.c_str()) == VCONF_OK);
        char* again = vconf_get_str(kKey);
        TAK_FUZZ_CHECK(again != nullptr && value == again);
        free(again);
    }
}

void CheckName(const std::string& input) {
    std::string name = input.c_str();  // what a C caller can pass
    int number = 0;
    vconf_get_int(name.c_str(), &number);
    free(vconf_get_str(name.c_str()));
    if (!ValidName(name)) {
        TAK_FUZZ_CHECK(vconf_set_int(name.c_str(), 1) == VCONF_ERROR);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("ORVIX_LOG_FILE", "/dev/null", 1);
    char pattern[] = "/tmp/fuzz-vconf-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        abort();
    }
    g_root = pattern;
    // libFuzzer ends a timed run with exit(), so the temporary root goes with it.
    atexit([] { TAKDir::RemoveAllFiles(g_root, true, false); });
    orvix::host::SetRoot(g_root);
    g_keyFile = orvix::host::UnderRoot("var/lib/vconf/") + kKey;
    TAK_FUZZ_CHECK(orvix::host::MakeDirs(orvix::host::UnderRoot("var/lib/vconf/db/fuzz")));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t newline = input.find('\n');
    std::string name = newline == std::string::npos ? input : input.substr(0, newline);
    std::string file = newline == std::string::npos ? std::string() : input.substr(newline + 1);
    std::ofstream(g_keyFile, std::ios::binary | std::ios::trunc) << file;
    CheckFile();
    CheckName(name);
    return 0;
}

// The common string utilities over any text: numbers, list and map texts, UCS-2 to UTF-8. No input may
// crash, and each conversion keeps the promise of its header.
#include <glib.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <map>
#include <string>

#include "FuzzSupport.h"
#include "TAKString.h"

TAK_FUZZ_QUIET_LOG()

namespace {

// The header's rule spelled out once more: blanks around, an optional sign, digits only, in range.
bool PlainNumber(const std::string& text, bool allowMinus, std::string& number) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isspace(static_cast<unsigned char>(text[begin]))) {
        ++begin;
    }
    while (end > begin && isspace(static_cast<unsigned char>(text[end - 1]))) {
        --end;
    }
    number = text.substr(begin, end - begin);
    size_t digits = (!number.empty() && (number[0] == '+' || (allowMinus && number[0] == '-'))) ? 1 : 0;
    if (digits == number.size()) {
        return false;
    }
    for (size_t i = digits; i < number.size(); ++i) {
        if (!isdigit(static_cast<unsigned char>(number[i]))) {
            return false;
        }
    }
    return true;
}

void CheckNumbers(const std::string& text) {
    std::string number;
    long long expected = 0;
    if (PlainNumber(text, true, number)) {
        errno = 0;
        long long value = strtoll(number.c_str(), nullptr, 10);
        expected = (errno == 0 && value >= INT_MIN && value <= INT_MAX) ? value : 0;
    }
    TAK_FUZZ_CHECK(TAKString::Integer(text) == expected);
    TAK_FUZZ_CHECK(TAKString::Integer(TAKString::ToString(expected)) == expected);

    unsigned long long address = 0;
    if (PlainNumber(text, false, number)) {
        errno = 0;
        unsigned long long value = strtoull(number.c_str(), nullptr, 10);
        address = (errno == 0 && value <= ULONG_MAX) ? value : 0;
    }
    TAK_FUZZ_CHECK(TAKString::UlInteger(text) == address);
}

void CheckLists(const std::string& text, const std::string& separator) {
    std::list<std::string> items = TAKString::SplitStringToList(text, separator);
    TAK_FUZZ_CHECK(TAKString::AssembleListToString(items, separator) == text);
    for (const auto& item : TAKString::SplitStringToList(text, separator, true)) {
        TAK_FUZZ_CHECK(!item.empty());
        TAK_FUZZ_CHECK(separator.empty() || item.find(separator) == std::string::npos);
    }
    std::map<std::string, std::string> map = TAKString::SplitStringToMap(text, separator, "=");
    for (const auto& [key, value] : map) {
        TAK_FUZZ_CHECK(key.find('=') == std::string::npos);
    }
    // Only a one-character separator other than the key separator can promise the round trip: a longer
    // one may overlap itself where an item ends.
    if (separator.size() == 1 && separator != "=") {
        std::string assembled = TAKString::AssembleMapToString(map, separator, "=");
        TAK_FUZZ_CHECK(TAKString::SplitStringToMap(assembled, separator, "=") == map);
    }
}

void CheckUcs2(const uint8_t* data, size_t size) {
    std::u16string units;
    for (size_t i = 0; i + 1 < size; i += 2) {
        units.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
    }
    std::string utf8 = TAKString::Ucs2ToUtf8(units);
    // A NUL unit is a NUL byte, which is UTF-8 but which g_utf8_validate refuses inside a given length.
    std::string withoutNul = utf8;
    std::replace(withoutNul.begin(), withoutNul.end(), '\0', ' ');
    TAK_FUZZ_CHECK(g_utf8_validate(withoutNul.data(), static_cast<gssize>(withoutNul.size()), nullptr));
    TAK_FUZZ_CHECK(utf8.size() <= units.size() * 3);
    TAK_FUZZ_CHECK(static_cast<size_t>(g_utf8_strlen(utf8.data(), static_cast<gssize>(utf8.size()))) <=
                   units.size());
    TAK_FUZZ_CHECK(
        TAKString::Ucs2ToUtf8(reinterpret_cast<const unsigned short*>(units.data()), units.size()) == utf8);
    TAK_FUZZ_CHECK(TAKString::Ucs2ToUtf8(nullptr, units.size()).empty());
    // Well-formed UTF-16 converts as GLib converts it (GLib stops at a NUL unit, so only without one).
    if (units.find(u'\0') == std::u16string::npos) {
        glong written = 0;
        gchar* reference = g_utf16_to_utf8(reinterpret_cast<const gunichar2*>(units.data()),
                                           static_cast<glong>(units.size()), nullptr, &written, nullptr);
        if (reference != nullptr) {
            TAK_FUZZ_CHECK(std::string(reference, static_cast<size_t>(written)) == utf8);
        }
        g_free(reference);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    CheckNumbers(text);
    // The first byte picks the separator, so that the fuzzer reaches separators of every kind.
    static const char* const kSeparators[] = {",", ";", ":", "", "::", "=", "ab"};
    std::string separator = size > 0 ? kSeparators[data[0] % 7] : ",";
    CheckLists(size > 0 ? text.substr(1) : text, separator);
    CheckUcs2(data, size);
    return 0;
}

#include "TAKString.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

// The digits of a number with optional blanks around it and an optional sign; empty when the text is
// not such a number.
std::string NumberPart(const std::string& text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isspace(static_cast<unsigned char>(text[begin]))) {
        ++begin;
    }
    while (end > begin && isspace(static_cast<unsigned char>(text[end - 1]))) {
        --end;
    }
    size_t digits = begin;
    if (digits < end && (text[digits] == '+' || text[digits] == '-')) {
        ++digits;
    }
    if (digits == end) {
        return "";
    }
    for (size_t i = digits; i < end; ++i) {
        if (!isdigit(static_cast<unsigned char>(text[i]))) {
            return "";
        }
    }
    return text.substr(begin, end - begin);
}

void AppendUtf8(std::string& out, unsigned int code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

const unsigned int kReplacement = 0xFFFD;

bool IsHighSurrogate(unsigned int unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(unsigned int unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

template <class Unit>
std::string UnitsToUtf8(const Unit* text, size_t length) {
    std::string out;
    if (text == nullptr) {
        return out;
    }
    out.reserve(length);
    for (size_t i = 0; i < length; ++i) {
        unsigned int unit = text[i];
        if (IsHighSurrogate(unit) && i + 1 < length && IsLowSurrogate(text[i + 1])) {
            unsigned int low = text[++i];
            AppendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
        } else if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
            AppendUtf8(out, kReplacement);
        } else {
            AppendUtf8(out, unit);
        }
    }
    return out;
}

}  // namespace

namespace TAKString {

int Integer(const std::string& text) {
    std::string number = NumberPart(text);
    if (number.empty()) {
        return 0;
    }
    errno = 0;
    long value = strtol(number.c_str(), nullptr, 10);
    if (errno != 0 || value < INT_MIN || value > INT_MAX) {
        return 0;
    }
    return static_cast<int>(value);
}

unsigned long UlInteger(const std::string& text) {
    std::string number = NumberPart(text);
    if (number.empty() || number.front() == '-') {
        return 0;
    }
    errno = 0;
    unsigned long value = strtoul(number.c_str(), nullptr, 10);
    return errno != 0 ? 0 : value;
}

bool Diff(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) {
        return a != b;
    }
    return strcmp(a, b) != 0;
}

std::list<std::string> SplitStringToList(const std::string& text, const std::string& separator,
                                         bool skipEmpty) {
    std::list<std::string> items;
    if (text.empty()) {
        return items;
    }
    ForEachPiece(text, separator, [&](std::string_view item) {
        if (!item.empty() || !skipEmpty) {
            items.emplace_back(item);
        }
    });
    return items;
}

std::string AssembleMapToString(const std::map<std::string, std::string>& items,
                                const std::string& itemSeparator, const std::string& keySeparator) {
    std::string text;
    for (const auto& [key, value] : items) {
        if (!text.empty()) {
            text += itemSeparator;
        }
        text += key + keySeparator + value;
    }
    return text;
}

std::map<std::string, std::string> SplitStringToMap(const std::string& text, const std::string& itemSeparator,
                                                    const std::string& keySeparator) {
    std::map<std::string, std::string> items;
    for (const std::string& item : SplitStringToList(text, itemSeparator, true)) {
        size_t at = keySeparator.empty() ? std::string::npos : item.find(keySeparator);
        if (at == std::string::npos) {
            items[item] = "";
        } else {
            items[item.substr(0, at)] = item.substr(at + keySeparator.size());
        }
    }
    return items;
}

std::string ToString(long long value) {
    return std::to_string(value);
}

std::string Ucs2ToUtf8(const unsigned short* text, size_t length) {
    return UnitsToUtf8(text, length);
}

std::string Ucs2ToUtf8(const std::u16string& text) {
    return UnitsToUtf8(text.data(), text.size());
}

}  // namespace TAKString

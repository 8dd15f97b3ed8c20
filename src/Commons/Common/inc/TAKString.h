// Text utilities of the service: numbers to and from decimal text, list and map texts, UCS-2 to UTF-8.
#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <string>
#include <string_view>

namespace TAKString {

// Decimal text to int. Blanks around the number and a sign are accepted; anything else (empty text,
// other characters, a value outside int) gives 0, so a bad launch value reads as "not set".
int Integer(const std::string& text);

// Decimal text to unsigned long (addresses travel as such texts). Same rules as Integer; a minus sign
// or a value beyond unsigned long gives 0.
unsigned long UlInteger(const std::string& text);

// True when the two texts differ. Null-safe: two nulls are equal, a null and a text differ.
bool Diff(const char* a, const char* b);

// Joins the items of any container of strings with `separator`, in the container's order.
template <class Container>
std::string AssembleListToString(const Container& items, const std::string& separator = ",") {
    std::string text;
    bool first = true;
    for (const auto& item : items) {
        if (!first) {
            text += separator;
        }
        text += item;
        first = false;
    }
    return text;
}

// Calls each(piece) for every piece of `text` between `separator`s, empty pieces included, without
// copying any: for lists that are split often and long. An empty separator gives the whole text.
template <class Each>
void ForEachPiece(std::string_view text, std::string_view separator, Each each) {
    if (separator.empty()) {
        each(text);
        return;
    }
    size_t begin = 0;
    while (true) {
        size_t end = text.find(separator, begin);
        each(text.substr(begin, end == std::string_view::npos ? std::string_view::npos : end - begin));
        if (end == std::string_view::npos) {
            return;
        }
        begin = end + separator.size();
    }
}

// Splits a list text at every `separator`. Empty text gives an empty list; empty fields between
// separators are kept (a field may legitimately be empty) unless `skipEmpty` is set.
std::list<std::string> SplitStringToList(const std::string& text, const std::string& separator = ",",
                                         bool skipEmpty = false);

// "key=value" pairs joined by `itemSeparator`, in key order.
std::string AssembleMapToString(const std::map<std::string, std::string>& items,
                                const std::string& itemSeparator = ";",
                                const std::string& keySeparator = "=");

// The reverse of AssembleMapToString. An item without `keySeparator` becomes a key with an empty value;
// empty items are skipped; a repeated key keeps its last value.
std::map<std::string, std::string> SplitStringToMap(const std::string& text,
                                                    const std::string& itemSeparator = ";",
                                                    const std::string& keySeparator = "=");

std::string ToString(long long value);

// UCS-2 (UTF-16 code units in host order) to UTF-8. Surrogate pairs are combined; a lone surrogate
// becomes U+FFFD. `length` counts code units; a null text gives "".
std::string Ucs2ToUtf8(const unsigned short* text, size_t length);
std::string Ucs2ToUtf8(const std::u16string& text);

}  // namespace TAKString

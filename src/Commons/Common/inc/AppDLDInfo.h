// The attributes of OPENAPI_APP_DLD_INFO (TAKCommonApi.h) as the download-info file names them.
//
// The list below is the only place that pairs an attribute name with its field. It is in the order in
// which the download-info file writes an app element's start tag, which differs from the record's
// field order (and writes removable before mountInstall). Everything that turns the record into text or
// back walks it: the file writer (CTAKUtil::WriteAppsDLDXml), and the substitute common library, which
// reads its answers from JSON and records the record it is handed under the same names.
//
// Kinds:
//   TEXT  std::string  written as stored, no escaping
//   SIZE  int64_t      signed decimal
//   FLAG  bool         "true" or "false"
//
// The six unnamed strings and the 64-bit value of the record, and its two requirement maps, are not
// attributes; the requirement maps are written as child elements.
#pragma once

#include <cstdint>
#include <string>

#include "TAKCommonApi.h"

// X(attribute, field, kind)
#define TAK_DLD_ATTRIBUTES(X)                     \
    X("id", id, TEXT)                             \
    X("orvixid", orvixid, TEXT)                   \
    X("platform", platform, TEXT)                 \
    X("version", version, TEXT)                   \
    X("fileExtension", fileExtension, TEXT)       \
    X("url", url, TEXT)                           \
    X("checksum", checksum, TEXT)                 \
    X("decompressedSize", decompressedSize, SIZE) \
    X("fileSize", fileSize, SIZE)                 \
    X("title", title, TEXT)                       \
    X("titleLang", titleLang, TEXT)               \
    X("iconURL", iconURL, TEXT)                   \
    X("appGroup", appGroup, TEXT)                 \
    X("iconUpdated", iconUpdated, TEXT)           \
    X("contentID", contentID, TEXT)               \
    X("category", category, TEXT)                 \
    X("usbInstall", usbInstall, FLAG)             \
    X("removable", removable, FLAG)               \
    X("mountInstall", mountInstall, FLAG)         \
    X("multiScreen", multiScreen, FLAG)           \
    X("ambient", ambient, FLAG)                   \
    X("langIcon", langIcon, FLAG)                 \
    X("squareIcon", squareIcon, FLAG)             \
    X("hiddenInstall", hiddenInstall, FLAG)       \
    X("gameHome", gameHome, FLAG)                 \
    X("multiHome", multiHome, FLAG)

namespace TAKDLDInfo {

enum class Kind { TEXT, SIZE, FLAG };

// One attribute: its name, its kind and where its value lives in a record. Exactly one of the three
// member pointers is set, the one of its kind.
struct Attribute {
    const char* name;
    Kind kind;
    std::string OPENAPI_APP_DLD_INFO::*text;
    int64_t OPENAPI_APP_DLD_INFO::*size;
    bool OPENAPI_APP_DLD_INFO::*flag;
};

#define TAK_DLD_ATTRIBUTE_TEXT(field) Kind::TEXT, &OPENAPI_APP_DLD_INFO::field, nullptr, nullptr
#define TAK_DLD_ATTRIBUTE_SIZE(field) Kind::SIZE, nullptr, &OPENAPI_APP_DLD_INFO::field, nullptr
#define TAK_DLD_ATTRIBUTE_FLAG(field) Kind::FLAG, nullptr, nullptr, &OPENAPI_APP_DLD_INFO::field
#define TAK_DLD_ATTRIBUTE_ENTRY(name, field, kind) {name, TAK_DLD_ATTRIBUTE_##kind(field)},

inline constexpr Attribute kAttributes[] = {TAK_DLD_ATTRIBUTES(TAK_DLD_ATTRIBUTE_ENTRY)};

#undef TAK_DLD_ATTRIBUTE_ENTRY
#undef TAK_DLD_ATTRIBUTE_TEXT
#undef TAK_DLD_ATTRIBUTE_SIZE
#undef TAK_DLD_ATTRIBUTE_FLAG

inline constexpr size_t kAttributeCount = sizeof(kAttributes) / sizeof(kAttributes[0]);

// The attribute's value as the file writes it.
inline std::string ValueText(const OPENAPI_APP_DLD_INFO& record, const Attribute& attribute) {
    switch (attribute.kind) {
        case Kind::TEXT:
            return record.*attribute.text;
        case Kind::SIZE:
            return std::to_string(record.*attribute.size);
        case Kind::FLAG:
            return record.*attribute.flag ? "true" : "false";
    }
    return std::string();
}

}  // namespace TAKDLDInfo

// The promise both Home test list parsers make: every entry they return reads back as itself from its
// own re-assembly, no field holds a separator, and only the candidate file has install types.
#pragma once

#include <string>
#include <vector>

#include "BuiltInAppUtil.h"
#include "FuzzSupport.h"

namespace tak_fuzz {

using Parser = std::vector<HOME_TEST_APP> (*)(const std::string&);

inline std::vector<std::string> Fields(const HOME_TEST_APP& app, bool withInstallType) {
    std::vector<std::string> fields = {app.appId, app.pkgId, app.version, app.groupType, app.groupTag};
    if (withInstallType) {
        fields.push_back(app.installType);
    }
    return fields;
}

inline std::string Assemble(const std::vector<HOME_TEST_APP>& list, bool withInstallType) {
    std::string text;
    for (const auto& app : list) {
        std::vector<std::string> fields = Fields(app, withInstallType);
        for (size_t i = 0; i < fields.size(); ++i) {
            text += (i == 0 ? "" : ",") + fields[i];
        }
        text += ";";
    }
    return text;
}

inline void CheckHomeTestApps(const std::string& text, Parser parse, bool withInstallType) {
    std::vector<HOME_TEST_APP> list = parse(text);
    for (const auto& app : list) {
        TAK_FUZZ_CHECK(withInstallType || app.installType.empty());
        for (const auto& field : Fields(app, true)) {
            TAK_FUZZ_CHECK(field.find_first_of(",;") == std::string::npos);
        }
    }
    std::vector<HOME_TEST_APP> again = parse(Assemble(list, withInstallType));
    TAK_FUZZ_CHECK(again.size() == list.size());
    for (size_t i = 0; i < list.size(); ++i) {
        TAK_FUZZ_CHECK(Fields(again[i], true) == Fields(list[i], true));
    }
}

}  // namespace tak_fuzz

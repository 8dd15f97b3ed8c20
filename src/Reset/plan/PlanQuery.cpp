#include "PlanQuery.h"

#include "BuiltInAppUtil.h"
#include "BuiltInResetRules.h"
#include "ICVConf.h"

CPlanQuery::CPlanQuery() {
    std::string text;
    if (ICVConf::Get(CBuiltInResetRules::UPDATING_APP_KEY, text)) {
        CBuiltInAppUtil::ParseUpdatingApp(text, m_strUpdating);
    }
}

bool CPlanQuery::IsUpdating(const std::string& /*appId*/, const std::string& pkgId) {
    return !m_strUpdating.empty() && m_strUpdating == pkgId;
}

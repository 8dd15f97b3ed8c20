// CPlanQuery: the package questions of a built-in reset, answered as the reset task answers them,
// except that a background update is only looked at: the live question cleans up after an update that
// has ended, and a plan changes nothing. The setting that names the update is read once, when the
// query is made, so that every app of one plan is judged against the same moment.
#pragma once

#include <string>

#include "BuiltInAppList.h"

class CPlanQuery : public CBuiltInAppList::LiveQuery {
public:
    CPlanQuery();

    bool IsUpdating(const std::string& appId, const std::string& pkgId) override;

    // The package being updated in the background now; empty when none.
    const std::string& UpdatingPackage() const { return m_strUpdating; }

private:
    std::string m_strUpdating;
};

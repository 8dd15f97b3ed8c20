// CPlanRequest: the launch keys a plan is asked for, read as tak-reset reads a launch request, but
// strictly: a plan of a request the process would read differently is worse than no plan, so an unknown
// key, a key given twice, a number that is not one and a "reset" value that starts no reset are refused.
// Read for a launch, the request may also be one of the others tak-reset serves (reset=end, an install
// monitoring, a recovery notice), so that a launcher can refuse what the process would quietly ignore.
#pragma once

#include <string>
#include <vector>

#include "ProcessDbus.h"

class CPlanRequest {
public:
    enum Kind {
        KIND_APP_RESET,      // "tak_app_reset"
        KIND_SERVICE_RESET,  // "tak_service_reset"
        KIND_CORVANE_RESET,  // "corvane_reset"
        KIND_BIU_APP,        // "biu_app_reset"
        KIND_BIU_SERVICE,    // "biu_service_reset"
    };

    enum Purpose {
        PURPOSE_PLAN,    // only a request that starts a reset
        PURPOSE_LAUNCH,  // any request tak-reset serves; GetKind() means something for a reset only
    };

    explicit CPlanRequest(Purpose purpose = PURPOSE_PLAN) : m_ePurpose(purpose) {}

    // Reads "KEY=VALUE" arguments. False with `error` set (one line) on bad input.
    bool Parse(const std::vector<std::string>& arguments, std::string& error);

    Kind GetKind() const { return m_eKind; }
    bool IsBuiltIn() const { return m_eKind == KIND_BIU_APP || m_eKind == KIND_BIU_SERVICE; }
    // A service kind: the apps reset keeps the fixed apps, the built-in reset reports progress.
    bool IsService() const { return m_eKind == KIND_SERVICE_RESET || m_eKind == KIND_BIU_SERVICE; }
    const std::string& GetReset() const { return m_strReset; }
    long GetUserData() const { return m_nUserData; }
    const _CLIENT_INFO_T& GetClient() const { return m_tClient; }

private:
    bool m_SetValue(const std::string& key, const std::string& value, std::string& error);
    bool m_SetKind(const std::string& value, std::string& error);
    bool m_SetLaunchValue(const std::string& key, const std::string& value, std::string& error);
    bool m_IsLaunchKey(const std::string& key) const;
    std::string m_Kinds() const;
    std::string m_Keys() const;

    Purpose m_ePurpose;
    // A launch request that is not a reset: the key that makes it one of the others, or "".
    std::string m_strOtherRequest;

    Kind m_eKind = KIND_APP_RESET;
    std::string m_strReset;
    long m_nUserData = 0;
    _CLIENT_INFO_T m_tClient;
};

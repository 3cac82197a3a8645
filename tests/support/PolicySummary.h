#ifndef QN_TESTS_POLICYSUMMARY_H
#define QN_TESTS_POLICYSUMMARY_H

// A policy record's on/off settings by element name, with the record's getter and setter, and
// one comparable text of every getter. Free of GoogleTest, so that the fuzz targets share it.

#include <sstream>
#include <string>

#include "LocalQNPolicyInfo.h"

namespace qntest {

// An on/off setting: the element that states it, and how the record reads and sets it.
struct PolicyFlag {
    const char* element;
    bool (LocalQNPolicyInfo::*get)() const;
    void (LocalQNPolicyInfo::*set)(bool);
};

using I = LocalQNPolicyInfo;
inline const PolicyFlag kPolicyFlags[] = {
    {"FipsMode", &I::UseFIPSMode, &I::UseFIPSMode},
    {"BypassDownloader", &I::BypassDownloader, &I::BypassDownloader},
    {"BypassDefaultLocalization", &I::BypassDefaultLocalization, &I::BypassDefaultLocalization},
    {"RestrictScriptWebDeploy", &I::RestrictScriptWebDeploy, &I::RestrictScriptWebDeploy},
    {"RestrictHelpWebDeploy", &I::RestrictHelpWebDeploy, &I::RestrictHelpWebDeploy},
    {"RestrictResourceWebDeploy", &I::RestrictResourceWebDeploy, &I::RestrictResourceWebDeploy},
    {"RestrictLocalizationWebDeploy", &I::RestrictLocalizationWebDeploy,
     &I::RestrictLocalizationWebDeploy},
    {"RestrictWebLaunch", &I::RestrictWebLaunchMode, &I::RestrictWebLaunchMode},
    {"StrictCertificateTrust", &I::StrictCertTrustMode, &I::StrictCertTrustMode},
    {"EnableCRLCheck", &I::IsCRLCheckEnabled, &I::EnableCRLCheck},
    {"OCSPRevocation", &I::IsOCSPRevocationEnabled, &I::EnableOCSPRevocation},
    {"RestrictServerCertStore", &I::IsRestrictServerCertStore, &I::SetRestrictServerCertStore},
    {"AllowSoftwareUpdatesFromAnyServer", &I::IsSoftwareUpdateAllowed, &I::SetSoftwareUpdateLock},
    {"AllowComplianceModuleUpdatesFromAnyServer", &I::IsComplianceModuleSoftwareUpdateAllowed,
     &I::SetComplianceModuleSoftwareUpdateLock},
    {"AllowVPNProfileUpdatesFromAnyServer", &I::IsVPNProfileUpdateAllowed,
     &I::SetVPNProfileUpdateLock},
    {"AllowManagementVPNProfileUpdatesFromAnyServer", &I::IsMgmtVPNProfileUpdateAllowed,
     &I::SetMgmtVPNProfileUpdateLock},
    {"AllowPlexoProfileUpdatesFromAnyServer", &I::IsPlexoProfileUpdateAllowed,
     &I::SetPlexoProfileUpdateLock},
    {"AllowServiceProfileUpdatesFromAnyServer", &I::IsServiceProfileUpdateAllowed,
     &I::SetServiceProfileUpdateLock},
    {"AllowScriptUpdatesFromAnyServer", &I::IsScriptUpdateAllowed, &I::SetScriptUpdateLock},
    {"AllowHelpUpdatesFromAnyServer", &I::IsHelpUpdateAllowed, &I::SetHelpUpdateLock},
    {"AllowResourceUpdatesFromAnyServer", &I::IsResourceUpdateAllowed, &I::SetResourceUpdateLock},
    {"AllowLocalizationUpdatesFromAnyServer", &I::IsLocalizationUpdateAllowed,
     &I::SetLocalizationUpdateLock},
};

// Two records are equal for the client exactly when their summaries are.
inline std::string summarize(const LocalQNPolicyInfo& info) {
    std::ostringstream out;
    out << info.GetQNVersion().size() << ':' << info.GetQNVersion() << '|';
    for (const PolicyFlag& flag : kPolicyFlags) {
        out << (info.*flag.get)();
    }
    out << '|' << info.RestrictPrefCachingStr() << '|' << info.RestrictTunnelProtocols() << '|'
        << info.ExcludeCertStores();
    for (const std::string& server : info.GetAuthorizedServerList()) {
        out << '|' << server.size() << ':' << server;
    }
    return out.str();
}

}  // namespace qntest

#endif  // QN_TESTS_POLICYSUMMARY_H

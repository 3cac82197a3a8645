// SPDX-License-Identifier: Apache-2.0
#ifndef QN_TESTS_POLICYMODEL_H
#define QN_TESTS_POLICYMODEL_H

// The policy settings as the tests know them, written down independently of the module: each
// setting's element, abbreviation and record accessors; one comparable text of a whole record;
// the pieces of a text and a leaf element's text. Free of GoogleTest, so that the fuzz targets
// share it.

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "LocalQNPolicyInfo.h"

namespace qntest {

using I = LocalQNPolicyInfo;

// An on/off setting. Update permissions (bUpdate) default to true and apply only inside
// "UpdatePolicy"; every other flag defaults to false and applies anywhere.
struct PolicyFlag {
    const char* element;
    const char* abbreviation;
    bool (I::*get)() const;
    void (I::*set)(bool);
    bool bUpdate;
};

inline const PolicyFlag kPolicyFlags[] = {
    {"FipsMode", "fm", &I::UseFIPSMode, &I::UseFIPSMode, false},
    {"BypassDownloader", "bd", &I::BypassDownloader, &I::BypassDownloader, false},
    {"BypassDefaultLocalization", "bdl", &I::BypassDefaultLocalization,
     &I::BypassDefaultLocalization, false},
    {"RestrictScriptWebDeploy", "rswd", &I::RestrictScriptWebDeploy, &I::RestrictScriptWebDeploy,
     false},
    {"RestrictHelpWebDeploy", "rhwd", &I::RestrictHelpWebDeploy, &I::RestrictHelpWebDeploy, false},
    {"RestrictResourceWebDeploy", "rrwd", &I::RestrictResourceWebDeploy,
     &I::RestrictResourceWebDeploy, false},
    {"RestrictLocalizationWebDeploy", "rlwd", &I::RestrictLocalizationWebDeploy,
     &I::RestrictLocalizationWebDeploy, false},
    {"RestrictWebLaunch", "rwl", &I::RestrictWebLaunchMode, &I::RestrictWebLaunchMode, false},
    {"StrictCertificateTrust", "sct", &I::StrictCertTrustMode, &I::StrictCertTrustMode, false},
    {"EnableCRLCheck", "ecc", &I::IsCRLCheckEnabled, &I::EnableCRLCheck, false},
    {"OCSPRevocation", "orc", &I::IsOCSPRevocationEnabled, &I::EnableOCSPRevocation, false},
    {"RestrictServerCertStore", "rsc", &I::IsRestrictServerCertStore,
     &I::SetRestrictServerCertStore, false},
    {"AllowSoftwareUpdatesFromAnyServer", "upsu", &I::IsSoftwareUpdateAllowed,
     &I::SetSoftwareUpdateLock, true},
    {"AllowComplianceModuleUpdatesFromAnyServer", "upcu",
     &I::IsComplianceModuleSoftwareUpdateAllowed, &I::SetComplianceModuleSoftwareUpdateLock, true},
    {"AllowVPNProfileUpdatesFromAnyServer", "upvp", &I::IsVPNProfileUpdateAllowed,
     &I::SetVPNProfileUpdateLock, true},
    {"AllowManagementVPNProfileUpdatesFromAnyServer", "upmv", &I::IsMgmtVPNProfileUpdateAllowed,
     &I::SetMgmtVPNProfileUpdateLock, true},
    {"AllowPlexoProfileUpdatesFromAnyServer", "uppp", &I::IsPlexoProfileUpdateAllowed,
     &I::SetPlexoProfileUpdateLock, true},
    {"AllowServiceProfileUpdatesFromAnyServer", "upsp", &I::IsServiceProfileUpdateAllowed,
     &I::SetServiceProfileUpdateLock, true},
    {"AllowScriptUpdatesFromAnyServer", "upscr", &I::IsScriptUpdateAllowed, &I::SetScriptUpdateLock,
     true},
    {"AllowHelpUpdatesFromAnyServer", "uphlp", &I::IsHelpUpdateAllowed, &I::SetHelpUpdateLock,
     true},
    {"AllowResourceUpdatesFromAnyServer", "upres", &I::IsResourceUpdateAllowed,
     &I::SetResourceUpdateLock, true},
    {"AllowLocalizationUpdatesFromAnyServer", "uploc", &I::IsLocalizationUpdateAllowed,
     &I::SetLocalizationUpdateLock, true},
};

// A certificate-store exclusion: "true" adds its mask to the record, nothing takes it back.
struct ExcludedStore {
    const char* element;
    const char* abbreviation;
    uint32_t mask;
};

inline const ExcludedStore kExcludedStores[] = {
    {"ExcludeFirefoxNSSCertStore", "efn", 0x8},
    {"ExcludePemFileCertStore", "epf", 0xC00},
    {"ExcludeMacNativeCertStore", "emn", 0x2104},
    {"ExcludeWinNativeCertStore", "ewn", 0xC3},
};

// One comparable text of every getter: two records are equal for the client exactly when
// their summaries are.
inline std::string summarize(const I& info) {
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

// The pieces of text between separators, empty ones dropped.
inline std::vector<std::string> pieces(const std::string& text, const char* separators) {
    std::vector<std::string> found;
    for (size_t begin = 0, end = 0; begin <= text.size(); begin = end + 1) {
        end = std::min(text.find_first_of(separators, begin), text.size());
        if (end > begin) {
            found.push_back(text.substr(begin, end - begin));
        }
    }
    return found;
}

// A leaf element: <name>text</name>.
inline std::string el(const std::string& name, const std::string& text) {
    return "<" + name + ">" + text + "</" + name + ">";
}

}  // namespace qntest

#endif  // QN_TESTS_POLICYMODEL_H

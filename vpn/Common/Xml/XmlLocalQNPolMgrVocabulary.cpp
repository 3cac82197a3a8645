// The policy vocabulary: installer abbreviations, their element names and allowed values.

#include <strings.h>  // strcasecmp

#include <initializer_list>

#include "XmlLocalQNPolMgr.h"

namespace {

struct VocabularyRow {
    const char* abbreviation;
    const char* fullName;
    bool bIsUpdatePolicy;
    std::initializer_list<const char*> allowedValues;
};

// The 29 rows in the order they are entered. An empty value list accepts any value.
const VocabularyRow kVocabulary[] = {
    {"fm", "FipsMode", false, {"false", "true"}},
    {"bd", "BypassDownloader", false, {"false", "true"}},
    {"bdl", "BypassDefaultLocalization", false, {"false", "true"}},
    {"rswd", "RestrictScriptWebDeploy", false, {"false", "true"}},
    {"rhwd", "RestrictHelpWebDeploy", false, {"false", "true"}},
    {"rrwd", "RestrictResourceWebDeploy", false, {"false", "true"}},
    {"rlwd", "RestrictLocalizationWebDeploy", false, {"false", "true"}},
    {"rwl", "RestrictWebLaunch", false, {"false", "true"}},
    {"sct", "StrictCertificateTrust", false, {"false", "true"}},
    {"ecc", "EnableCRLCheck", false, {"true", "false"}},
    {"orc", "OCSPRevocation", false, {"false", "true"}},
    {"rpc", "RestrictPreferenceCaching", false, {}},
    {"rtp", "RestrictTunnelProtocols", false, {"false", "TLS", "IPSec"}},
    {"efn", "ExcludeFirefoxNSSCertStore", false, {"false", "true"}},
    {"epf", "ExcludePemFileCertStore", false, {"false", "true"}},
    {"emn", "ExcludeMacNativeCertStore", false, {"false", "true"}},
    {"ewn", "ExcludeWinNativeCertStore", false, {"false", "true"}},
    {"rsc", "RestrictServerCertStore", false, {"false", "true"}},
    {"upsu", "AllowSoftwareUpdatesFromAnyServer", true, {"true", "false"}},
    {"upcu", "AllowComplianceModuleUpdatesFromAnyServer", true, {"true", "false"}},
    {"upvp", "AllowVPNProfileUpdatesFromAnyServer", true, {"true", "false"}},
    {"upmv", "AllowManagementVPNProfileUpdatesFromAnyServer", true, {"true", "false"}},
    {"uppp", "AllowPlexoProfileUpdatesFromAnyServer", true, {"true", "false"}},
    {"upsp", "AllowServiceProfileUpdatesFromAnyServer", true, {"true", "false"}},
    {"upscr", "AllowScriptUpdatesFromAnyServer", true, {"true", "false"}},
    {"uphlp", "AllowHelpUpdatesFromAnyServer", true, {"true", "false"}},
    {"upres", "AllowResourceUpdatesFromAnyServer", true, {"true", "false"}},
    {"uploc", "AllowLocalizationUpdatesFromAnyServer", true, {"true", "false"}},
    {"upal", "AuthorizedServerList", true, {}},
};

}  // namespace

void XmlLocalQNPolMgr::initializePolicyMap() {
    for (const VocabularyRow& row : kVocabulary) {
        LocalPolicySetting& setting = m_policyTransTable[row.abbreviation];
        setting.tstrFullName = row.fullName;
        setting.bIsUpdatePolicy = row.bIsUpdatePolicy;
        for (const char* value : row.allowedValues) {
            setting.listAllowedValues.emplace_back(value);
        }
    }
}

// Accepts policyValue when the row lists no values, or when it equals a listed value
// ignoring ASCII case; in the latter case policyValue takes the listed spelling.
bool XmlLocalQNPolMgr::valueIsAllowed(const LocalPolicySetting& policy,
                                      std::string& policyValue) const {
    if (policy.listAllowedValues.empty()) {
        return true;
    }
    for (const std::string& allowedValue : policy.listAllowedValues) {
        // strcasecmp stops at a NUL: a value with an embedded NUL must not match its prefix.
        if (allowedValue.size() == policyValue.size() &&
            strcasecmp(allowedValue.c_str(), policyValue.c_str()) == 0) {
            policyValue = allowedValue;
            return true;
        }
    }
    return false;
}

// SPDX-License-Identifier: Apache-2.0
#ifndef QN_TESTS_POLICYMODEL_H
#define QN_TESTS_POLICYMODEL_H

// The policy settings as the tests know them, written down independently of the module: each
// setting's element, abbreviation and record accessors; the record a document of leaf
// settings must load to; and one comparable text of a whole record. Free of GoogleTest, so
// that the fuzz targets share it.

#include <algorithm>
#include <cstdint>
#include <map>
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

// The record a fresh manager loads from a file of version "version" that states each of these
// settings (element name to text) once, in its place; "AuthorizedServerList" holds the server
// names joined with "," or ";". FIPS mode follows the file: no earlier load is retained.
inline I expectedRecord(const std::map<std::string, std::string>& settings,
                        const std::string& version) {
    static const std::map<std::string, RestrictPrefCachingOption> kCaching = {
        {"false", RESTRICT_PREF_CACHING_FALSE},
        {"Credentials", RESTRICT_PREF_CACHING_CREDENTIALS},
        {"Thumbprints", RESTRICT_PREF_CACHING_THUMBPRINTS},
        {"CredentialsAndThumbprints", RESTRICT_PREF_CACHING_CREDENTIALS_AND_THUMBPRINTS},
        {"AutomaticServerSelection", RESTRICT_PREF_CACHING_AHS},
        {"All", RESTRICT_PREF_CACHING_ALL}};
    static const std::map<std::string, RestrictTunnelProtocolOption> kTunnel = {
        {"false", RESTRICT_TUNNEL_PROTOCOL_FALSE},
        {"tls", RESTRICT_TUNNEL_PROTOCOL_TLS},
        {"ipsec", RESTRICT_TUNNEL_PROTOCOL_IPSEC}};
    I info;
    info.QNVersion(version);
    for (const auto& [name, value] : settings) {
        for (const PolicyFlag& flag : kPolicyFlags) {
            if (name == flag.element) {
                (info.*flag.set)(value == "true");
            }
        }
        for (const ExcludedStore& store : kExcludedStores) {
            if (name == store.element && value == "true") {
                info.ExcludeCertStores(store.mask);
            }
        }
        if (name == "RestrictPreferenceCaching") {
            // An unknown token counts as "false", which clears the list and ends it.
            for (const std::string& token : pieces(value, ",")) {
                const auto found = kCaching.find(token);
                const bool bKnown = found != kCaching.end();
                info.RestrictPrefCaching(bKnown ? found->second : RESTRICT_PREF_CACHING_FALSE);
                if (!bKnown || found->second == RESTRICT_PREF_CACHING_FALSE) {
                    break;
                }
            }
        } else if (name == "RestrictTunnelProtocols" && kTunnel.count(value) != 0) {
            info.RestrictTunnelProtocols(kTunnel.at(value));
        } else if (name == "AuthorizedServerList") {
            for (const std::string& server : pieces(value, ",;")) {
                info.AddToAuthorizedServerList(server);
            }
        }
    }
    return info;
}

}  // namespace qntest

#endif  // QN_TESTS_POLICYMODEL_H

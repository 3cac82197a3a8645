#ifndef QN_FUZZ_POLICYSUMMARY_H
#define QN_FUZZ_POLICYSUMMARY_H

// One comparable text holding every getter of a policy record, for the fuzz targets' oracles.

#include <cstdlib>
#include <sstream>
#include <string>

#include "LocalQNPolicyInfo.h"

namespace qnfuzz {

// Stops the fuzzer with a crash report when an invariant does not hold.
inline void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Two records are equal for the client exactly when their summaries are.
inline std::string summarize(const LocalQNPolicyInfo& info) {
    std::ostringstream out;
    out << info.GetQNVersion() << '|' << info.UseFIPSMode() << info.BypassDownloader()
        << info.BypassDefaultLocalization() << info.RestrictScriptWebDeploy()
        << info.RestrictHelpWebDeploy() << info.RestrictResourceWebDeploy()
        << info.RestrictLocalizationWebDeploy() << info.RestrictWebLaunchMode()
        << info.StrictCertTrustMode() << info.IsCRLCheckEnabled() << info.IsOCSPRevocationEnabled()
        << '|' << info.RestrictPrefCachingStr() << '|' << info.RestrictTunnelProtocols() << '|'
        << info.ExcludeCertStores() << '|' << info.IsRestrictServerCertStore()
        << info.IsSoftwareUpdateAllowed() << info.IsComplianceModuleSoftwareUpdateAllowed()
        << info.IsVPNProfileUpdateAllowed() << info.IsMgmtVPNProfileUpdateAllowed()
        << info.IsPlexoProfileUpdateAllowed() << info.IsServiceProfileUpdateAllowed()
        << info.IsScriptUpdateAllowed() << info.IsHelpUpdateAllowed()
        << info.IsResourceUpdateAllowed() << info.IsLocalizationUpdateAllowed();
    for (const std::string& server : info.GetAuthorizedServerList()) {
        out << '|' << server.size() << ':' << server;
    }
    return out.str();
}

}  // namespace qnfuzz

#endif  // QN_FUZZ_POLICYSUMMARY_H

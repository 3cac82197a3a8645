// The installer vocabulary: its 29 rows and the value check that generation relies on.

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "XmlLocalQNPolMgrTestPeer.h"

namespace {

struct ExpectedRow {
    const char* abbreviation;
    const char* element;
    bool bIsUpdatePolicy;
    std::list<std::string> allowed;
};

const std::list<std::string> kFT = {"false", "true"};
const std::list<std::string> kTF = {"true", "false"};

TEST(PolicyVocabulary, HoldsExactlyTheTwentyNineRows) {
    const std::vector<ExpectedRow> expectedRows = {
        {"fm", "FipsMode", false, kFT},
        {"bd", "BypassDownloader", false, kFT},
        {"bdl", "BypassDefaultLocalization", false, kFT},
        {"rswd", "RestrictScriptWebDeploy", false, kFT},
        {"rhwd", "RestrictHelpWebDeploy", false, kFT},
        {"rrwd", "RestrictResourceWebDeploy", false, kFT},
        {"rlwd", "RestrictLocalizationWebDeploy", false, kFT},
        {"rwl", "RestrictWebLaunch", false, kFT},
        {"sct", "StrictCertificateTrust", false, kFT},
        {"ecc", "EnableCRLCheck", false, kTF},
        {"orc", "OCSPRevocation", false, kFT},
        {"rpc", "RestrictPreferenceCaching", false, {}},
        {"rtp", "RestrictTunnelProtocols", false, {"false", "TLS", "IPSec"}},
        {"efn", "ExcludeFirefoxNSSCertStore", false, kFT},
        {"epf", "ExcludePemFileCertStore", false, kFT},
        {"emn", "ExcludeMacNativeCertStore", false, kFT},
        {"ewn", "ExcludeWinNativeCertStore", false, kFT},
        {"rsc", "RestrictServerCertStore", false, kFT},
        {"upsu", "AllowSoftwareUpdatesFromAnyServer", true, kTF},
        {"upcu", "AllowComplianceModuleUpdatesFromAnyServer", true, kTF},
        {"upvp", "AllowVPNProfileUpdatesFromAnyServer", true, kTF},
        {"upmv", "AllowManagementVPNProfileUpdatesFromAnyServer", true, kTF},
        {"uppp", "AllowPlexoProfileUpdatesFromAnyServer", true, kTF},
        {"upsp", "AllowServiceProfileUpdatesFromAnyServer", true, kTF},
        {"upscr", "AllowScriptUpdatesFromAnyServer", true, kTF},
        {"uphlp", "AllowHelpUpdatesFromAnyServer", true, kTF},
        {"upres", "AllowResourceUpdatesFromAnyServer", true, kTF},
        {"uploc", "AllowLocalizationUpdatesFromAnyServer", true, kTF},
        {"upal", "AuthorizedServerList", true, {}}};
    const auto table = XmlLocalQNPolMgr().GetPolicyTransTable();
    ASSERT_EQ(table.size(), expectedRows.size());
    for (const ExpectedRow& expected : expectedRows) {
        SCOPED_TRACE(expected.abbreviation);
        ASSERT_EQ(table.count(expected.abbreviation), 1U);
        const LocalPolicySetting& row = table.at(expected.abbreviation);
        EXPECT_EQ(row.tstrFullName, expected.element);
        EXPECT_EQ(row.bIsUpdatePolicy, expected.bIsUpdatePolicy);
        EXPECT_EQ(row.listAllowedValues, expected.allowed);
    }
}

// A value matches an allowed one ignoring case and is rewritten to its spelling in the table;
// anything else is refused unchanged. Rows without a list accept every value as it is.
TEST(PolicyVocabulary, ValueCheckIgnoresCaseAndRewritesToTheTableSpelling) {
    const std::vector<std::vector<std::string>> cases = {
        // abbreviation, value, "allowed"/"refused", value afterwards
        {"fm", "tRuE", "allowed", "true"},
        {"fm", "FALSE", "allowed", "false"},
        {"ecc", "True", "allowed", "true"},
        {"rtp", "tls", "allowed", "TLS"},
        {"rtp", "ipsec", "allowed", "IPSec"},
        {"fm", "1", "refused", "1"},
        {"fm", "true ", "refused", "true "},
        {"fm", "", "refused", ""},
        {"fm", std::string("true\0x", 6), "refused", std::string("true\0x", 6)},
        {"rtp", "udp", "refused", "udp"},
        {"rpc", "Nonsense,x", "allowed", "Nonsense,x"},
        {"upal", "gw1, gw2;gw3", "allowed", "gw1, gw2;gw3"}};
    XmlLocalQNPolMgr mgr;
    const auto table = mgr.GetPolicyTransTable();
    for (const std::vector<std::string>& c : cases) {
        std::string value = c[1];
        const bool allowed = XmlLocalQNPolMgrTestPeer::valueIsAllowed(mgr, table.at(c[0]), value);
        EXPECT_EQ(allowed ? "allowed" : "refused", c[2]) << c[0] << "=" << c[1];
        EXPECT_EQ(value, c[3]) << c[0] << "=" << c[1];
    }
}

}  // namespace

// The installer vocabulary: its 29 rows and the value check that generation relies on.

#include <gtest/gtest.h>

#include <list>
#include <map>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "XmlLocalQNPolMgrTestPeer.h"

namespace {

struct ExpectedRow {
    const char* abbreviation;
    const char* fullName;
    bool bIsUpdatePolicy;
    std::list<std::string> allowed;
};

const std::list<std::string> kFalseTrue = {"false", "true"};
const std::list<std::string> kTrueFalse = {"true", "false"};

const std::vector<ExpectedRow> kExpectedRows = {
    {"fm", "FipsMode", false, kFalseTrue},
    {"bd", "BypassDownloader", false, kFalseTrue},
    {"bdl", "BypassDefaultLocalization", false, kFalseTrue},
    {"rswd", "RestrictScriptWebDeploy", false, kFalseTrue},
    {"rhwd", "RestrictHelpWebDeploy", false, kFalseTrue},
    {"rrwd", "RestrictResourceWebDeploy", false, kFalseTrue},
    {"rlwd", "RestrictLocalizationWebDeploy", false, kFalseTrue},
    {"rwl", "RestrictWebLaunch", false, kFalseTrue},
    {"sct", "StrictCertificateTrust", false, kFalseTrue},
    {"ecc", "EnableCRLCheck", false, kTrueFalse},
    {"orc", "OCSPRevocation", false, kFalseTrue},
    {"rpc", "RestrictPreferenceCaching", false, {}},
    {"rtp", "RestrictTunnelProtocols", false, {"false", "TLS", "IPSec"}},
    {"efn", "ExcludeFirefoxNSSCertStore", false, kFalseTrue},
    {"epf", "ExcludePemFileCertStore", false, kFalseTrue},
    {"emn", "ExcludeMacNativeCertStore", false, kFalseTrue},
    {"ewn", "ExcludeWinNativeCertStore", false, kFalseTrue},
    {"rsc", "RestrictServerCertStore", false, kFalseTrue},
    {"upsu", "AllowSoftwareUpdatesFromAnyServer", true, kTrueFalse},
    {"upcu", "AllowComplianceModuleUpdatesFromAnyServer", true, kTrueFalse},
    {"upvp", "AllowVPNProfileUpdatesFromAnyServer", true, kTrueFalse},
    {"upmv", "AllowManagementVPNProfileUpdatesFromAnyServer", true, kTrueFalse},
    {"uppp", "AllowPlexoProfileUpdatesFromAnyServer", true, kTrueFalse},
    {"upsp", "AllowServiceProfileUpdatesFromAnyServer", true, kTrueFalse},
    {"upscr", "AllowScriptUpdatesFromAnyServer", true, kTrueFalse},
    {"uphlp", "AllowHelpUpdatesFromAnyServer", true, kTrueFalse},
    {"upres", "AllowResourceUpdatesFromAnyServer", true, kTrueFalse},
    {"uploc", "AllowLocalizationUpdatesFromAnyServer", true, kTrueFalse},
    {"upal", "AuthorizedServerList", true, {}},
};

class PolicyVocabularyTest : public ::testing::Test {
  protected:
    XmlLocalQNPolMgr m_mgr;  // an unregistered manager suffices for the table
};

TEST_F(PolicyVocabularyTest, HoldsExactlyTheTwentyNineRows) {
    const std::map<std::string, LocalPolicySetting> table = m_mgr.GetPolicyTransTable();
    ASSERT_EQ(table.size(), kExpectedRows.size());
    for (const ExpectedRow& expected : kExpectedRows) {
        const auto it = table.find(expected.abbreviation);
        ASSERT_NE(it, table.end()) << expected.abbreviation;
        EXPECT_EQ(it->second.tstrFullName, expected.fullName) << expected.abbreviation;
        EXPECT_EQ(it->second.bIsUpdatePolicy, expected.bIsUpdatePolicy) << expected.abbreviation;
        EXPECT_EQ(it->second.listAllowedValues, expected.allowed) << expected.abbreviation;
    }
}

TEST_F(PolicyVocabularyTest, AbbreviationsAreCaseSensitiveExactKeys) {
    const std::map<std::string, LocalPolicySetting> table = m_mgr.GetPolicyTransTable();
    for (const char* key : {"FM", "Fm", "fm ", " fm", "UPAL", ""}) {
        EXPECT_EQ(table.count(key), 0U) << "'" << key << "'";
    }
    EXPECT_EQ(table.at("fm").tstrFullName, "FipsMode");
}

TEST_F(PolicyVocabularyTest, HandsOutACopyThatCannotChangeTheTable) {
    std::map<std::string, LocalPolicySetting> copy = m_mgr.GetPolicyTransTable();
    copy["fm"].listAllowedValues.clear();
    copy.erase("bd");
    const std::map<std::string, LocalPolicySetting> again = m_mgr.GetPolicyTransTable();
    EXPECT_EQ(again.size(), 29U);
    EXPECT_EQ(again.at("fm").listAllowedValues, kFalseTrue);
}

TEST_F(PolicyVocabularyTest, ValueCheckIgnoresCaseAndRewritesToTheTableSpelling) {
    struct Case {
        const char* abbreviation;
        std::string value;
        bool allowed;
        std::string after;
    };
    const std::vector<Case> cases = {
        {"fm", "TRUE", true, "true"},
        {"fm", "tRuE", true, "true"},
        {"fm", "false", true, "false"},
        {"fm", "1", false, "1"},
        {"fm", " true", false, " true"},
        {"fm", "true ", false, "true "},
        {"fm", "", false, ""},
        {"fm", std::string("true\0x", 6), false, std::string("true\0x", 6)},
        {"fm", "yes", false, "yes"},
        {"rtp", "tls", true, "TLS"},
        {"rtp", "IPSEC", true, "IPSec"},
        {"rtp", "ipsec", true, "IPSec"},
        {"rtp", "False", true, "false"},
        {"rtp", "udp", false, "udp"},
        {"ecc", "false", true, "false"},
        {"ecc", "TRUE", true, "true"},
        {"upsu", "FALSE", true, "false"},
        {"rpc", "Credentials,Thumbprints", true, "Credentials,Thumbprints"},
        {"rpc", "nonsense", true, "nonsense"},
        {"upal", "gw1, gw2;gw3", true, "gw1, gw2;gw3"},
        {"upal", "", true, ""},
    };
    const std::map<std::string, LocalPolicySetting> table = m_mgr.GetPolicyTransTable();
    for (const Case& c : cases) {
        std::string value = c.value;
        EXPECT_EQ(XmlLocalQNPolMgrTestPeer::valueIsAllowed(m_mgr, table.at(c.abbreviation), value),
                  c.allowed)
            << c.abbreviation << "=" << c.value;
        EXPECT_EQ(value, c.after) << c.abbreviation << "=" << c.value;
    }
}

}  // namespace

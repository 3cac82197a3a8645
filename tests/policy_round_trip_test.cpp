// What generation writes, loading reads back: every abbreviation with each of its values, and
// free text, give the record the installer arguments ask for.

#include <gtest/gtest.h>

#include <list>
#include <map>
#include <string>

#include "PolicyDocumentFixture.h"
#include "TestSupport.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace {

using Info = LocalQNPolicyInfo;

// Applies to a default record what loading a file generated from "abbreviation=value" must do.
void applyExpected(Info& info, const std::string& abbreviation, const std::string& value) {
    // clang-format off
    static const std::map<std::string, void (Info::*)(bool)> kFlags = {
        {"fm", &Info::UseFIPSMode}, {"bd", &Info::BypassDownloader},
        {"bdl", &Info::BypassDefaultLocalization}, {"rswd", &Info::RestrictScriptWebDeploy},
        {"rhwd", &Info::RestrictHelpWebDeploy}, {"rrwd", &Info::RestrictResourceWebDeploy},
        {"rlwd", &Info::RestrictLocalizationWebDeploy}, {"rwl", &Info::RestrictWebLaunchMode},
        {"sct", &Info::StrictCertTrustMode}, {"ecc", &Info::EnableCRLCheck},
        {"orc", &Info::EnableOCSPRevocation}, {"rsc", &Info::SetRestrictServerCertStore},
        {"upsu", &Info::SetSoftwareUpdateLock}, {"upvp", &Info::SetVPNProfileUpdateLock},
        {"upcu", &Info::SetComplianceModuleSoftwareUpdateLock},
        {"upmv", &Info::SetMgmtVPNProfileUpdateLock}, {"uppp", &Info::SetPlexoProfileUpdateLock},
        {"upsp", &Info::SetServiceProfileUpdateLock}, {"upscr", &Info::SetScriptUpdateLock},
        {"uphlp", &Info::SetHelpUpdateLock}, {"upres", &Info::SetResourceUpdateLock},
        {"uploc", &Info::SetLocalizationUpdateLock}};
    static const std::map<std::string, uint32_t> kExcluded = {
        {"efn", Info::kFirefoxNSSCertStoreMask}, {"epf", Info::kPemFileCertStoreMask},
        {"emn", Info::kMacNativeCertStoreMask}, {"ewn", Info::kWinNativeCertStoreMask}};
    // clang-format on
    const auto flag = kFlags.find(abbreviation);
    const auto excluded = kExcluded.find(abbreviation);
    if (flag != kFlags.end()) {
        (info.*flag->second)(value == "true");
    } else if (excluded != kExcluded.end()) {
        info.ExcludeCertStores(value == "true" ? excluded->second : 0);
    } else if (abbreviation == "upal") {
        info.AddToAuthorizedServerList(value);
    } else if (abbreviation == "rpc") {
        for (const auto& [token, option] : {std::pair{"All", RESTRICT_PREF_CACHING_ALL},
                                            {"Credentials", RESTRICT_PREF_CACHING_CREDENTIALS},
                                            {"Thumbprints", RESTRICT_PREF_CACHING_THUMBPRINTS}}) {
            if (value.find(token) != std::string::npos) {
                info.RestrictPrefCaching(option);
            }
        }
    } else if (abbreviation != "rtp") {  // "false" is the default; "TLS", "IPSec" not applied
        ADD_FAILURE() << "no expectation for " << abbreviation;
    }
}

class PolicyRoundTripTest : public ::testing::Test {
  protected:
    // Generates from one argument with a fresh manager (no FIPS mode retained from an earlier
    // load), loads the file and returns the record.
    static Info generateAndLoad(const std::string& argument) {
        qntest::ManagerScope mgr;
        std::string copy = argument;
        char* args[] = {copy.data()};
        EXPECT_TRUE(mgr->GenerateLocalPolicy(args, 1, true));
        EXPECT_EQ(mgr->LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
        return mgr->GetLocalPolicyInfo();
    }

    qntest::TempDir m_dir;
    qntest::StoragePathScope m_paths{m_dir.path()};
    qntest::LogCapture m_log;  // keeps the loads' informational lines out of the output
};

TEST_F(PolicyRoundTripTest, EveryAbbreviationAndEachOfItsValuesLoadsBack) {
    const auto table = qntest::ManagerScope()->GetPolicyTransTable();
    ASSERT_EQ(table.size(), 29U);
    for (const auto& [abbreviation, row] : table) {
        std::list<std::string> values = row.listAllowedValues;
        if (values.empty()) {  // free text: realistic samples
            values = abbreviation == "upal"
                         ? std::list<std::string>{"gw1", "vpn.example.com"}
                         : std::list<std::string>{"All", "false", "Credentials,Thumbprints"};
        }
        for (const std::string& value : values) {
            const std::string argument = std::string(abbreviation).append("=").append(value);
            SCOPED_TRACE(argument);
            Info expected;
            expected.QNVersion(qnpolicy::kClientVersion);
            applyExpected(expected, abbreviation, value);
            EXPECT_EQ(qntest::summarize(generateAndLoad(argument)), qntest::summarize(expected));
        }
    }
}

TEST_F(PolicyRoundTripTest, ServerNamesWithMarkupCarriageReturnsAndSpacesLoadBackExactly) {
    EXPECT_EQ(generateAndLoad("upal= gw1 ,a<b>&c\"d'e;line1\r\nline2\r,\ttab\t;]]>;caf\xC3\xA9")
                  .GetAuthorizedServerList(),
              (std::list<std::string>{" gw1 ", "a<b>&c\"d'e", "line1\r\nline2\r", "\ttab\t", "]]>",
                                      "caf\xC3\xA9"}));
}

}  // namespace

// The policy record: defaults, each setter reaching exactly its own getter, the exclude
// group masks, the caching options and their text, reset and copies.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LocalQNPolicyInfo.h"

namespace {

using Record = LocalQNPolicyInfo;

// Every flag's getter and setter; a setter wired to another field shows in describe().
struct Flag {
    bool (Record::*get)() const;
    void (Record::*set)(bool);
};
const std::vector<Flag> kFlags = {
    {&Record::UseFIPSMode, &Record::UseFIPSMode},
    {&Record::BypassDownloader, &Record::BypassDownloader},
    {&Record::BypassDefaultLocalization, &Record::BypassDefaultLocalization},
    {&Record::RestrictScriptWebDeploy, &Record::RestrictScriptWebDeploy},
    {&Record::RestrictHelpWebDeploy, &Record::RestrictHelpWebDeploy},
    {&Record::RestrictResourceWebDeploy, &Record::RestrictResourceWebDeploy},
    {&Record::RestrictLocalizationWebDeploy, &Record::RestrictLocalizationWebDeploy},
    {&Record::RestrictWebLaunchMode, &Record::RestrictWebLaunchMode},
    {&Record::StrictCertTrustMode, &Record::StrictCertTrustMode},
    {&Record::IsCRLCheckEnabled, &Record::EnableCRLCheck},
    {&Record::IsOCSPRevocationEnabled, &Record::EnableOCSPRevocation},
    {&Record::IsRestrictServerCertStore, &Record::SetRestrictServerCertStore},
    {&Record::IsSoftwareUpdateAllowed, &Record::SetSoftwareUpdateLock},
    {&Record::IsComplianceModuleSoftwareUpdateAllowed,
     &Record::SetComplianceModuleSoftwareUpdateLock},
    {&Record::IsVPNProfileUpdateAllowed, &Record::SetVPNProfileUpdateLock},
    {&Record::IsMgmtVPNProfileUpdateAllowed, &Record::SetMgmtVPNProfileUpdateLock},
    {&Record::IsPlexoProfileUpdateAllowed, &Record::SetPlexoProfileUpdateLock},
    {&Record::IsServiceProfileUpdateAllowed, &Record::SetServiceProfileUpdateLock},
    {&Record::IsScriptUpdateAllowed, &Record::SetScriptUpdateLock},
    {&Record::IsHelpUpdateAllowed, &Record::SetHelpUpdateLock},
    {&Record::IsResourceUpdateAllowed, &Record::SetResourceUpdateLock},
    {&Record::IsLocalizationUpdateAllowed, &Record::SetLocalizationUpdateLock}};
const std::string kDefaults = "0000000000001111111111 c=100000 false v= t=0 x=0 s=";
constexpr size_t kStrictTrust = 8;
constexpr size_t kRestrictServerStore = 11;

// Every observable value in one line: a digit per flag, then the caching bits and text,
// version, tunnel option, exclude mask and servers.
std::string describe(const Record& r) {
    std::string text;
    for (const Flag& flag : kFlags) {
        text += (r.*flag.get)() ? '1' : '0';
    }
    text += " c=";
    for (bool bit : r.RestrictPrefCaching()) {
        text += bit ? '1' : '0';
    }
    text += " " + r.RestrictPrefCachingStr() + " v=" + r.GetQNVersion() +
            " t=" + std::to_string(r.RestrictTunnelProtocols()) +
            " x=" + std::to_string(r.ExcludeCertStores()) + " s=";
    for (const std::string& server : r.GetAuthorizedServerList()) {
        text += "[" + server + "]";
    }
    return text;
}

TEST(PolicyRecord, DefaultsRestrictNothingAndEachSetterReachesOnlyItsOwnGetter) {
    EXPECT_EQ(describe(Record()), kDefaults);
    for (size_t i = 0; i < kFlags.size(); ++i) {
        Record record;
        (record.*kFlags[i].set)(kDefaults[i] == '0');
        std::string expected = kDefaults;
        expected[i] = kDefaults[i] == '0' ? '1' : '0';
        if (i == kRestrictServerStore) {
            expected[kStrictTrust] = '1';  // a restricted server store implies strict trust
        }
        EXPECT_EQ(describe(record), expected) << "setter " << i;
    }
}

TEST(PolicyRecord, ExcludeGroupsTestAnyBitOfTheirMaskAndMasksAccumulate) {
    const uint32_t groupMasks[] = {0xC3, 0x2104, 0x8, 0xC00};  // Windows, macOS, Firefox, PEM
    for (uint32_t bit = 1; bit != 0; bit <<= 1) {
        Record record;
        record.ExcludeCertStores(bit);
        const bool excluded[] = {
            record.ExcludeWinNativeCertStores(), record.ExcludeMacNativeCertStores(),
            record.ExcludeFirefoxNSSCertStores(), record.ExcludePemFileCertStores()};
        for (size_t group = 0; group < 4; ++group) {
            EXPECT_EQ(excluded[group], (groupMasks[group] & bit) != 0)
                << "bit 0x" << std::hex << bit << " group " << group;
        }
    }
    Record record;
    record.ExcludeCertStores(0x8);
    record.ExcludeCertStores(0xC00);
    EXPECT_EQ(record.ExcludeCertStores(), 0xC08U);
}

TEST(PolicyRecord, CachingOptionsAccumulateFalseClearsAndTheTextFollowsTheBits) {
    using O = RestrictPrefCachingOption;
    const std::vector<std::pair<std::vector<O>, std::string>> cases = {
        {{RESTRICT_PREF_CACHING_THUMBPRINTS, RESTRICT_PREF_CACHING_CREDENTIALS},
         "111000 false,Credentials,Thumbprints"},
        {{RESTRICT_PREF_CACHING_ALL, RESTRICT_PREF_CACHING_AHS,
          RESTRICT_PREF_CACHING_CREDENTIALS_AND_THUMBPRINTS},
         "100111 false,CredentialsAndThumbprints,AutomaticServerSelection,All"},
        {{RESTRICT_PREF_CACHING_ALL, RESTRICT_PREF_CACHING_FALSE}, "100000 false"},
        {{RESTRICT_PREF_CACHING_OPTION_COUNT, O(-1), O(100)}, "100000 false"}};
    for (const auto& [options, expected] : cases) {
        Record record;
        for (O option : options) {
            record.RestrictPrefCaching(option);
        }
        EXPECT_EQ(describe(record).substr(23, expected.size() + 3), "c=" + expected + " ");
    }
}

TEST(PolicyRecord, CopiesTakeEveryFieldAndStayIndependentAndResetRestoresTheDefaults) {
    Record source;
    for (size_t i = 0; i < kFlags.size(); ++i) {
        (source.*kFlags[i].set)(kDefaults[i] == '0');
    }
    source.QNVersion("9.9");
    source.RestrictPrefCaching(RESTRICT_PREF_CACHING_ALL);
    source.RestrictTunnelProtocols(RESTRICT_TUNNEL_PROTOCOL_IPSEC);
    source.ExcludeCertStores(0x8);
    source.AddToAuthorizedServerList("a-server-name-long-enough-for-the-heap");
    const std::string changed = describe(source);
    ASSERT_EQ(changed,
              "1111111111110000000000 c=100001 false,All v=9.9 t=2 x=8 "
              "s=[a-server-name-long-enough-for-the-heap]");
    Record copy(source);
    Record assigned;
    assigned.AddToAuthorizedServerList("old");
    assigned = source;
    Record& alias = assigned;
    assigned = alias;
    EXPECT_EQ(describe(copy), changed);
    EXPECT_EQ(describe(assigned), changed);
    EXPECT_NE(copy.GetAuthorizedServerList().front().data(),
              source.GetAuthorizedServerList().front().data());
    copy.Reset();
    EXPECT_EQ(describe(copy), kDefaults);
    EXPECT_EQ(describe(source), changed);
}

}  // namespace

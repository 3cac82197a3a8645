// The policy record: defaults, each setter reaching exactly its own getter, the exclude
// masks, the caching options and their text, reset and copy semantics.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "LocalQNPolicyInfo.h"

namespace {

// Every observable value of a record, one "name=value" line each, so that two records can
// be compared getter for getter and a difference shows by name.
std::vector<std::string> describe(const LocalQNPolicyInfo& r) {
    auto b = [](bool v) { return std::string(v ? "true" : "false"); };
    std::vector<std::string> lines = {
        "QNVersion=" + r.GetQNVersion(),
        "UseFIPSMode=" + b(r.UseFIPSMode()),
        "BypassDownloader=" + b(r.BypassDownloader()),
        "BypassDefaultLocalization=" + b(r.BypassDefaultLocalization()),
        "RestrictScriptWebDeploy=" + b(r.RestrictScriptWebDeploy()),
        "RestrictHelpWebDeploy=" + b(r.RestrictHelpWebDeploy()),
        "RestrictResourceWebDeploy=" + b(r.RestrictResourceWebDeploy()),
        "RestrictLocalizationWebDeploy=" + b(r.RestrictLocalizationWebDeploy()),
        "RestrictWebLaunchMode=" + b(r.RestrictWebLaunchMode()),
        "StrictCertTrustMode=" + b(r.StrictCertTrustMode()),
        "IsCRLCheckEnabled=" + b(r.IsCRLCheckEnabled()),
        "IsOCSPRevocationEnabled=" + b(r.IsOCSPRevocationEnabled()),
        "RestrictPrefCachingStr=" + r.RestrictPrefCachingStr(),
        "RestrictTunnelProtocols=" + std::to_string(r.RestrictTunnelProtocols()),
        "ExcludeCertStores=" + std::to_string(r.ExcludeCertStores()),
        "IsRestrictServerCertStore=" + b(r.IsRestrictServerCertStore()),
        "IsSoftwareUpdateAllowed=" + b(r.IsSoftwareUpdateAllowed()),
        "IsComplianceModuleSoftwareUpdateAllowed=" + b(r.IsComplianceModuleSoftwareUpdateAllowed()),
        "IsVPNProfileUpdateAllowed=" + b(r.IsVPNProfileUpdateAllowed()),
        "IsMgmtVPNProfileUpdateAllowed=" + b(r.IsMgmtVPNProfileUpdateAllowed()),
        "IsPlexoProfileUpdateAllowed=" + b(r.IsPlexoProfileUpdateAllowed()),
        "IsServiceProfileUpdateAllowed=" + b(r.IsServiceProfileUpdateAllowed()),
        "IsScriptUpdateAllowed=" + b(r.IsScriptUpdateAllowed()),
        "IsHelpUpdateAllowed=" + b(r.IsHelpUpdateAllowed()),
        "IsResourceUpdateAllowed=" + b(r.IsResourceUpdateAllowed()),
        "IsLocalizationUpdateAllowed=" + b(r.IsLocalizationUpdateAllowed()),
    };
    const std::vector<bool> caching = r.RestrictPrefCaching();
    std::string cachingBits;
    for (bool bit : caching) {
        cachingBits += bit ? '1' : '0';
    }
    lines.push_back("RestrictPrefCaching=" + cachingBits);
    std::string servers;
    for (const std::string& s : r.GetAuthorizedServerList()) {
        servers += "[" + s + "]";
    }
    lines.push_back("AuthorizedServers=" + servers);
    return lines;
}

// Applies every setter with a non-default value.
void changeEverything(LocalQNPolicyInfo& r) {
    r.QNVersion("9.9");
    r.UseFIPSMode(true);
    r.BypassDownloader(true);
    r.BypassDefaultLocalization(true);
    r.RestrictScriptWebDeploy(true);
    r.RestrictHelpWebDeploy(true);
    r.RestrictResourceWebDeploy(true);
    r.RestrictLocalizationWebDeploy(true);
    r.RestrictWebLaunchMode(true);
    r.StrictCertTrustMode(true);
    r.EnableCRLCheck(true);
    r.EnableOCSPRevocation(true);
    r.RestrictPrefCaching(RESTRICT_PREF_CACHING_ALL);
    r.RestrictTunnelProtocols(RESTRICT_TUNNEL_PROTOCOL_IPSEC);
    r.ExcludeCertStores(0xFFFFFFFF);
    r.SetRestrictServerCertStore(true);
    r.SetSoftwareUpdateLock(false);
    r.SetComplianceModuleSoftwareUpdateLock(false);
    r.SetVPNProfileUpdateLock(false);
    r.SetMgmtVPNProfileUpdateLock(false);
    r.SetPlexoProfileUpdateLock(false);
    r.SetServiceProfileUpdateLock(false);
    r.SetScriptUpdateLock(false);
    r.SetHelpUpdateLock(false);
    r.SetResourceUpdateLock(false);
    r.SetLocalizationUpdateLock(false);
    r.AddToAuthorizedServerList("gw1");
}

TEST(PolicyRecordDefaults, RestrictNothingAndAllowEveryUpdate) {
    const std::vector<std::string> expected = {
        "QNVersion=",
        "UseFIPSMode=false",
        "BypassDownloader=false",
        "BypassDefaultLocalization=false",
        "RestrictScriptWebDeploy=false",
        "RestrictHelpWebDeploy=false",
        "RestrictResourceWebDeploy=false",
        "RestrictLocalizationWebDeploy=false",
        "RestrictWebLaunchMode=false",
        "StrictCertTrustMode=false",
        "IsCRLCheckEnabled=false",
        "IsOCSPRevocationEnabled=false",
        "RestrictPrefCachingStr=false",
        "RestrictTunnelProtocols=0",
        "ExcludeCertStores=0",
        "IsRestrictServerCertStore=false",
        "IsSoftwareUpdateAllowed=true",
        "IsComplianceModuleSoftwareUpdateAllowed=true",
        "IsVPNProfileUpdateAllowed=true",
        "IsMgmtVPNProfileUpdateAllowed=true",
        "IsPlexoProfileUpdateAllowed=true",
        "IsServiceProfileUpdateAllowed=true",
        "IsScriptUpdateAllowed=true",
        "IsHelpUpdateAllowed=true",
        "IsResourceUpdateAllowed=true",
        "IsLocalizationUpdateAllowed=true",
        "RestrictPrefCaching=100000",
        "AuthorizedServers=",
    };
    const LocalQNPolicyInfo record;
    EXPECT_EQ(describe(record), expected);
    EXPECT_FALSE(record.ExcludeWinNativeCertStores());
    EXPECT_FALSE(record.ExcludeMacNativeCertStores());
    EXPECT_FALSE(record.ExcludeFirefoxNSSCertStores());
    EXPECT_FALSE(record.ExcludePemFileCertStores());
}

// Each flag setter, given the non-default value, changes exactly its own line.
TEST(PolicyRecordSetters, EachFlagSetterReachesOnlyItsOwnGetter) {
    struct Case {
        const char* line;
        std::function<void(LocalQNPolicyInfo&)> set;
    };
    const std::vector<Case> cases = {
        {"UseFIPSMode=true", [](LocalQNPolicyInfo& r) { r.UseFIPSMode(true); }},
        {"BypassDownloader=true", [](LocalQNPolicyInfo& r) { r.BypassDownloader(true); }},
        {"BypassDefaultLocalization=true",
         [](LocalQNPolicyInfo& r) { r.BypassDefaultLocalization(true); }},
        {"RestrictScriptWebDeploy=true",
         [](LocalQNPolicyInfo& r) { r.RestrictScriptWebDeploy(true); }},
        {"RestrictHelpWebDeploy=true", [](LocalQNPolicyInfo& r) { r.RestrictHelpWebDeploy(true); }},
        {"RestrictResourceWebDeploy=true",
         [](LocalQNPolicyInfo& r) { r.RestrictResourceWebDeploy(true); }},
        {"RestrictLocalizationWebDeploy=true",
         [](LocalQNPolicyInfo& r) { r.RestrictLocalizationWebDeploy(true); }},
        {"RestrictWebLaunchMode=true", [](LocalQNPolicyInfo& r) { r.RestrictWebLaunchMode(true); }},
        {"StrictCertTrustMode=true", [](LocalQNPolicyInfo& r) { r.StrictCertTrustMode(true); }},
        {"IsCRLCheckEnabled=true", [](LocalQNPolicyInfo& r) { r.EnableCRLCheck(true); }},
        {"IsOCSPRevocationEnabled=true",
         [](LocalQNPolicyInfo& r) { r.EnableOCSPRevocation(true); }},
        {"IsSoftwareUpdateAllowed=false",
         [](LocalQNPolicyInfo& r) { r.SetSoftwareUpdateLock(false); }},
        {"IsComplianceModuleSoftwareUpdateAllowed=false",
         [](LocalQNPolicyInfo& r) { r.SetComplianceModuleSoftwareUpdateLock(false); }},
        {"IsVPNProfileUpdateAllowed=false",
         [](LocalQNPolicyInfo& r) { r.SetVPNProfileUpdateLock(false); }},
        {"IsMgmtVPNProfileUpdateAllowed=false",
         [](LocalQNPolicyInfo& r) { r.SetMgmtVPNProfileUpdateLock(false); }},
        {"IsPlexoProfileUpdateAllowed=false",
         [](LocalQNPolicyInfo& r) { r.SetPlexoProfileUpdateLock(false); }},
        {"IsServiceProfileUpdateAllowed=false",
         [](LocalQNPolicyInfo& r) { r.SetServiceProfileUpdateLock(false); }},
        {"IsScriptUpdateAllowed=false", [](LocalQNPolicyInfo& r) { r.SetScriptUpdateLock(false); }},
        {"IsHelpUpdateAllowed=false", [](LocalQNPolicyInfo& r) { r.SetHelpUpdateLock(false); }},
        {"IsResourceUpdateAllowed=false",
         [](LocalQNPolicyInfo& r) { r.SetResourceUpdateLock(false); }},
        {"IsLocalizationUpdateAllowed=false",
         [](LocalQNPolicyInfo& r) { r.SetLocalizationUpdateLock(false); }},
        {"QNVersion=5.1", [](LocalQNPolicyInfo& r) { r.QNVersion("5.1"); }},
        {"RestrictTunnelProtocols=1",
         [](LocalQNPolicyInfo& r) { r.RestrictTunnelProtocols(RESTRICT_TUNNEL_PROTOCOL_TLS); }},
    };
    const std::vector<std::string> defaults = describe(LocalQNPolicyInfo());
    for (const Case& c : cases) {
        LocalQNPolicyInfo record;
        c.set(record);
        std::vector<std::string> changed;
        const std::vector<std::string> after = describe(record);
        for (size_t i = 0; i < after.size(); ++i) {
            if (after[i] != defaults[i]) {
                changed.push_back(after[i]);
            }
        }
        EXPECT_EQ(changed, std::vector<std::string>{c.line}) << "setter for " << c.line;
    }
}

TEST(PolicyRecordSetters, UpdateLockSettersStoreTheAllowedValueBothWays) {
    LocalQNPolicyInfo record;
    record.SetSoftwareUpdateLock(false);
    EXPECT_FALSE(record.IsSoftwareUpdateAllowed());
    record.SetSoftwareUpdateLock(true);
    EXPECT_TRUE(record.IsSoftwareUpdateAllowed());
}

TEST(PolicyRecordSetters, RestrictedServerStoreReadsAsStrictTrustWithoutChangingTheFlag) {
    LocalQNPolicyInfo record;
    record.SetRestrictServerCertStore(true);
    EXPECT_TRUE(record.StrictCertTrustMode());
    record.SetRestrictServerCertStore(false);
    EXPECT_FALSE(record.StrictCertTrustMode());
    record.StrictCertTrustMode(true);
    record.SetRestrictServerCertStore(true);
    record.SetRestrictServerCertStore(false);
    EXPECT_TRUE(record.StrictCertTrustMode());
}

TEST(PolicyRecordSetters, TunnelOptionIsStoredUnchangedEvenOutOfRange) {
    LocalQNPolicyInfo record;
    record.RestrictTunnelProtocols(RESTRICT_TUNNEL_PROTOCOL_IPSEC);
    EXPECT_EQ(record.RestrictTunnelProtocols(), RESTRICT_TUNNEL_PROTOCOL_IPSEC);
    record.RestrictTunnelProtocols(static_cast<RestrictTunnelProtocolOption>(7));
    EXPECT_EQ(static_cast<int>(record.RestrictTunnelProtocols()), 7);
    record.Reset();
    EXPECT_EQ(record.RestrictTunnelProtocols(), RESTRICT_TUNNEL_PROTOCOL_FALSE);
}

TEST(PolicyRecordExcludeMask, GroupsAreTestedByAnyBitOfTheirMaskAndMasksAccumulate) {
    struct Case {
        std::vector<uint32_t> masks;
        uint32_t expectedMask;
        bool win, mac, firefox, pem;
    };
    const std::vector<Case> cases = {
        {{0x8, 0xC00}, 0xC08, false, false, true, true},
        {{0x100}, 0x100, false, true, false, false},
        {{0x10}, 0x10, false, false, false, false},
        {{0xC3, 0x2104}, 0x21C7, true, true, false, false},
        {{0x1}, 0x1, true, false, false, false},
        {{0x80}, 0x80, true, false, false, false},
        {{0x2000}, 0x2000, false, true, false, false},
        {{0x400}, 0x400, false, false, false, true},
        {{0x1230, 0x0}, 0x1230, false, false, false, false},
        {{0xFFFF0000}, 0xFFFF0000, false, false, false, false},
        {{0x8, 0x8}, 0x8, false, false, true, false},
    };
    for (const Case& c : cases) {
        LocalQNPolicyInfo record;
        for (uint32_t mask : c.masks) {
            record.ExcludeCertStores(mask);
        }
        SCOPED_TRACE(::testing::Message() << "mask 0x" << std::hex << c.expectedMask);
        EXPECT_EQ(record.ExcludeCertStores(), c.expectedMask);
        EXPECT_EQ(record.ExcludeWinNativeCertStores(), c.win);
        EXPECT_EQ(record.ExcludeMacNativeCertStores(), c.mac);
        EXPECT_EQ(record.ExcludeFirefoxNSSCertStores(), c.firefox);
        EXPECT_EQ(record.ExcludePemFileCertStores(), c.pem);
    }
}

TEST(PolicyRecordCaching, OptionsAccumulateAndFalseClears) {
    struct Case {
        std::vector<RestrictPrefCachingOption> options;
        std::vector<bool> bits;
        std::string text;
    };
    const std::vector<Case> cases = {
        {{}, {true, false, false, false, false, false}, "false"},
        {{RESTRICT_PREF_CACHING_CREDENTIALS},
         {true, true, false, false, false, false},
         "false,Credentials"},
        {{RESTRICT_PREF_CACHING_CREDENTIALS, RESTRICT_PREF_CACHING_ALL},
         {true, true, false, false, false, true},
         "false,Credentials,All"},
        {{RESTRICT_PREF_CACHING_CREDENTIALS, RESTRICT_PREF_CACHING_ALL,
          RESTRICT_PREF_CACHING_FALSE},
         {true, false, false, false, false, false},
         "false"},
        {{RESTRICT_PREF_CACHING_ALL, RESTRICT_PREF_CACHING_THUMBPRINTS},
         {true, false, true, false, false, true},
         "false,Thumbprints,All"},
        {{RESTRICT_PREF_CACHING_CREDENTIALS_AND_THUMBPRINTS},
         {true, false, false, true, false, false},
         "false,CredentialsAndThumbprints"},
        {{RESTRICT_PREF_CACHING_AHS, RESTRICT_PREF_CACHING_AHS},
         {true, false, false, false, true, false},
         "false,AutomaticServerSelection"},
        {{RESTRICT_PREF_CACHING_ALL, RESTRICT_PREF_CACHING_AHS,
          RESTRICT_PREF_CACHING_CREDENTIALS_AND_THUMBPRINTS, RESTRICT_PREF_CACHING_THUMBPRINTS,
          RESTRICT_PREF_CACHING_CREDENTIALS},
         {true, true, true, true, true, true},
         "false,Credentials,Thumbprints,CredentialsAndThumbprints,AutomaticServerSelection,All"},
        // Values outside the option range change nothing.
        {{RESTRICT_PREF_CACHING_CREDENTIALS, RESTRICT_PREF_CACHING_OPTION_COUNT,
          static_cast<RestrictPrefCachingOption>(-1), static_cast<RestrictPrefCachingOption>(100)},
         {true, true, false, false, false, false},
         "false,Credentials"},
    };
    for (const Case& c : cases) {
        LocalQNPolicyInfo record;
        for (RestrictPrefCachingOption option : c.options) {
            record.RestrictPrefCaching(option);
        }
        EXPECT_EQ(record.RestrictPrefCaching(), c.bits) << c.text;
        EXPECT_EQ(record.RestrictPrefCachingStr(), c.text);
    }
}

TEST(PolicyRecordLifecycle, ResetAfterEverySetterEqualsANewRecord) {
    LocalQNPolicyInfo record;
    changeEverything(record);
    ASSERT_NE(describe(record), describe(LocalQNPolicyInfo()));
    record.Reset();
    EXPECT_EQ(describe(record), describe(LocalQNPolicyInfo()));
    EXPECT_EQ(record.RestrictPrefCaching().size(), 6U);
}

TEST(PolicyRecordLifecycle, CopiesAreFieldForFieldAndIndependent) {
    LocalQNPolicyInfo source;
    changeEverything(source);
    source.AddToAuthorizedServerList("a-server-name-long-enough-for-the-heap");
    source.AddToAuthorizedServerList("gw1");

    LocalQNPolicyInfo copy(source);
    EXPECT_EQ(describe(copy), describe(source));
    LocalQNPolicyInfo assigned;
    assigned = source;
    EXPECT_EQ(describe(assigned), describe(source));

    // No shared buffers, and later changes stay on their side.
    EXPECT_NE(copy.GetAuthorizedServerList().back().data(),
              source.GetAuthorizedServerList().back().data());
    copy.AddToAuthorizedServerList("only-in-copy");
    copy.RestrictPrefCaching(RESTRICT_PREF_CACHING_FALSE);
    EXPECT_EQ(source.GetAuthorizedServerList().size(), 3U);
    EXPECT_EQ(source.RestrictPrefCachingStr(), "false,All");
}

TEST(PolicyRecordLifecycle, AssignmentReplacesTheServerListAndSelfAssignmentKeepsIt) {
    LocalQNPolicyInfo target;
    target.AddToAuthorizedServerList("old");
    LocalQNPolicyInfo source;
    source.AddToAuthorizedServerList("a");
    source.AddToAuthorizedServerList("b");
    source.AddToAuthorizedServerList("a");
    target = source;
    EXPECT_EQ(target.GetAuthorizedServerList(), (std::list<std::string>{"a", "b", "a"}));

    LocalQNPolicyInfo& alias = target;
    target = alias;
    EXPECT_EQ(target.GetAuthorizedServerList(), (std::list<std::string>{"a", "b", "a"}));
}

TEST(PolicyRecordLifecycle, ServerListReferenceReflectsLaterChanges) {
    LocalQNPolicyInfo record;
    const std::list<std::string>& servers = record.GetAuthorizedServerList();
    record.AddToAuthorizedServerList("");
    record.AddToAuthorizedServerList("");
    EXPECT_EQ(servers.size(), 2U);
    record.Reset();
    EXPECT_TRUE(servers.empty());
}

}  // namespace

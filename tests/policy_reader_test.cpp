// The policy document reader: every rule that turns a policy file's elements into settings,
// driven through real files and the real parser.

#include <gtest/gtest.h>

#include <list>
#include <string>

#include "PolicyDocumentFixture.h"
#include "XmlLocalQNPolMgrTestPeer.h"

namespace {

using qntest::summarize;

constexpr char kSourceFile[] = "vpn/Common/Xml/XmlLocalQNPolMgr";
constexpr char kStructureWarning[] = "Local Policy XML structure is incorrect.";
constexpr char kNewerWarning[] =
    "The parsed Local Security Policy File version is newer than the current Quillnet Client. "
    "Unexpected behaviors can result.";

std::string element(const std::string& name, const std::string& text) {
    return "<" + name + ">" + text + "</" + name + ">\n";
}

std::string updatePolicy(const std::string& children) {
    return element("UpdatePolicy", children);
}

std::string serverList(const std::string& children) {
    return element("AuthorizedServerList", children);
}

class PolicyReader : public qntest::PolicyDocumentFixture {
  protected:
    void expectOneWarning(const char* function, const char* message) const {
        const std::vector<CAppLogRecord> warnings = logged(Logging::DBG_Warning);
        ASSERT_EQ(warnings.size(), 1U);
        EXPECT_EQ(warnings[0].function, function);
        EXPECT_EQ(warnings[0].file, kSourceFile);
        EXPECT_EQ(warnings[0].message, message);
    }
    void expectNoWarning() const { EXPECT_TRUE(logged(Logging::DBG_Warning).empty()); }
};

using Getter = bool (LocalQNPolicyInfo::*)() const;

struct FlagRow {
    const char* element;
    Getter getter;
};

// The settings that are plain booleans, false by default, applied anywhere in the document.
const FlagRow kRecordFlags[] = {
    {"BypassDownloader", &LocalQNPolicyInfo::BypassDownloader},
    {"BypassDefaultLocalization", &LocalQNPolicyInfo::BypassDefaultLocalization},
    {"RestrictScriptWebDeploy", &LocalQNPolicyInfo::RestrictScriptWebDeploy},
    {"RestrictHelpWebDeploy", &LocalQNPolicyInfo::RestrictHelpWebDeploy},
    {"RestrictResourceWebDeploy", &LocalQNPolicyInfo::RestrictResourceWebDeploy},
    {"RestrictLocalizationWebDeploy", &LocalQNPolicyInfo::RestrictLocalizationWebDeploy},
    {"RestrictWebLaunch", &LocalQNPolicyInfo::RestrictWebLaunchMode},
    {"StrictCertificateTrust", &LocalQNPolicyInfo::StrictCertTrustMode},
    {"EnableCRLCheck", &LocalQNPolicyInfo::IsCRLCheckEnabled},
    {"OCSPRevocation", &LocalQNPolicyInfo::IsOCSPRevocationEnabled},
    {"RestrictServerCertStore", &LocalQNPolicyInfo::IsRestrictServerCertStore},
};

// The update permissions: true by default, applied only inside "UpdatePolicy".
const FlagRow kUpdateFlags[] = {
    {"AllowSoftwareUpdatesFromAnyServer", &LocalQNPolicyInfo::IsSoftwareUpdateAllowed},
    {"AllowComplianceModuleUpdatesFromAnyServer",
     &LocalQNPolicyInfo::IsComplianceModuleSoftwareUpdateAllowed},
    {"AllowVPNProfileUpdatesFromAnyServer", &LocalQNPolicyInfo::IsVPNProfileUpdateAllowed},
    {"AllowManagementVPNProfileUpdatesFromAnyServer",
     &LocalQNPolicyInfo::IsMgmtVPNProfileUpdateAllowed},
    {"AllowPlexoProfileUpdatesFromAnyServer", &LocalQNPolicyInfo::IsPlexoProfileUpdateAllowed},
    {"AllowServiceProfileUpdatesFromAnyServer", &LocalQNPolicyInfo::IsServiceProfileUpdateAllowed},
    {"AllowScriptUpdatesFromAnyServer", &LocalQNPolicyInfo::IsScriptUpdateAllowed},
    {"AllowHelpUpdatesFromAnyServer", &LocalQNPolicyInfo::IsHelpUpdateAllowed},
    {"AllowResourceUpdatesFromAnyServer", &LocalQNPolicyInfo::IsResourceUpdateAllowed},
    {"AllowLocalizationUpdatesFromAnyServer", &LocalQNPolicyInfo::IsLocalizationUpdateAllowed},
};

TEST_F(PolicyReader, BooleanSettingIsTrueOnlyForTheExactTextTrueAndTheLastOccurrenceWins) {
    const std::string defaults = summarize(LocalQNPolicyInfo());
    for (const FlagRow& row : kRecordFlags) {
        SCOPED_TRACE(row.element);
        const LocalQNPolicyInfo set = load(element(row.element, "true"));
        EXPECT_TRUE((set.*row.getter)());
        EXPECT_EQ(summarize(load(element(row.element, "false"))), defaults);
        for (const char* notTrue : {"True", "TRUE", "1", " true", "true ", "yes"}) {
            EXPECT_FALSE((load(element(row.element, notTrue)).*row.getter)()) << notTrue;
        }
        EXPECT_FALSE(
            (load(element(row.element, "true") + element(row.element, "false")).*row.getter)());
        EXPECT_TRUE(
            (load(element(row.element, "false") + element(row.element, "true")).*row.getter)());
        // Ordinary settings count inside "UpdatePolicy" too, and in unknown wrappers.
        EXPECT_TRUE((load(updatePolicy(element(row.element, "true"))).*row.getter)());
        EXPECT_TRUE((load(element("Wrapper", element(row.element, "true"))).*row.getter)());
        expectNoWarning();
    }
}

TEST_F(PolicyReader, UpdatePermissionAppliesInsideUpdatePolicyAndWarnsOutside) {
    const std::string defaults = summarize(LocalQNPolicyInfo());
    for (const FlagRow& row : kUpdateFlags) {
        SCOPED_TRACE(row.element);
        EXPECT_FALSE((load(updatePolicy(element(row.element, "false"))).*row.getter)());
        EXPECT_FALSE((load(updatePolicy(element(row.element, "TRUE"))).*row.getter)());
        EXPECT_TRUE(
            (load(updatePolicy(element(row.element, "false") + element(row.element, "true"))).*
             row.getter)());
        expectNoWarning();

        EXPECT_EQ(summarize(load(element(row.element, "false"))), defaults);
        expectOneWarning("setElementValue", kStructureWarning);
        // After the section has closed, the permission is outside again.
        EXPECT_TRUE((load(updatePolicy("") + element(row.element, "false")).*row.getter)());
        expectOneWarning("setElementValue", kStructureWarning);
    }
}

TEST_F(PolicyReader, NestedUpdatePolicyClosesTheSectionAtTheInnerEnd) {
    const LocalQNPolicyInfo info =
        load(updatePolicy(updatePolicy("") + element("AllowHelpUpdatesFromAnyServer", "false")));
    EXPECT_TRUE(info.IsHelpUpdateAllowed());
    expectOneWarning("setElementValue", kStructureWarning);
}

TEST_F(PolicyReader, UpdatePolicyAsEmptyElementOpensAndClosesTheSection) {
    EXPECT_TRUE(load("<UpdatePolicy/>" + element("AllowScriptUpdatesFromAnyServer", "false"))
                    .IsScriptUpdateAllowed());
    expectOneWarning("setElementValue", kStructureWarning);
}

TEST_F(PolicyReader, CertStoreExclusionIsAddedByTrueAndNeverTakenBack) {
    struct Case {
        const char* element;
        uint32_t mask;
    };
    const Case cases[] = {
        {"ExcludeMacNativeCertStore", 0x2104},
        {"ExcludeWinNativeCertStore", 0xC3},
        {"ExcludePemFileCertStore", 0xC00},
        {"ExcludeFirefoxNSSCertStore", 0x8},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.element);
        EXPECT_EQ(load(element(c.element, "true")).ExcludeCertStores(), c.mask);
        EXPECT_EQ(load(element(c.element, "True")).ExcludeCertStores(), 0U);
        EXPECT_EQ(
            load(element(c.element, "true") + element(c.element, "false")).ExcludeCertStores(),
            c.mask);
    }
    EXPECT_EQ(load(element("ExcludeWinNativeCertStore", "true") +
                   element("ExcludeMacNativeCertStore", "true"))
                  .ExcludeCertStores(),
              0x21C7U);
}

TEST_F(PolicyReader, PreferenceCachingListAddsOptionsUntilFalseOrAnUnknownToken) {
    struct Case {
        std::string elements;
        const char* expected;  // RestrictPrefCachingStr() afterwards
    };
    const auto caching = [](const char* text) {
        return element("RestrictPreferenceCaching", text);
    };
    const Case cases[] = {
        {caching("Credentials,Thumbprints"), "false,Credentials,Thumbprints"},
        {caching("All"), "false,All"},
        {caching("CredentialsAndThumbprints,AutomaticServerSelection"),
         "false,CredentialsAndThumbprints,AutomaticServerSelection"},
        {caching("Credentials,false,All"), "false"},
        {caching("credentials"), "false"},
        {caching("Credentials, Thumbprints"), "false"},  // tokens are not trimmed
        {caching("Credentials,,Thumbprints,"), "false,Credentials,Thumbprints"},
        {caching("Credentials") + caching("Thumbprints"), "false,Credentials,Thumbprints"},
        {caching("Credentials") + caching("Thumbprints,bogus,All"), "false"},
        {caching("All") + caching(","), "false,All"},  // no token: nothing changes
        {caching("false"), "false"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.elements);
        EXPECT_EQ(load(c.elements).RestrictPrefCachingStr(), c.expected);
    }
    expectNoWarning();
}

TEST_F(PolicyReader, TunnelProtocolAppliesOnlyTheExactLowerCaseTexts) {
    struct Case {
        std::string elements;
        RestrictTunnelProtocolOption expected;
    };
    const auto tunnel = [](const char* text) { return element("RestrictTunnelProtocols", text); };
    const Case cases[] = {
        {tunnel("ipsec"), RESTRICT_TUNNEL_PROTOCOL_IPSEC},
        {tunnel("tls"), RESTRICT_TUNNEL_PROTOCOL_TLS},
        {tunnel("tls") + tunnel("false"), RESTRICT_TUNNEL_PROTOCOL_FALSE},
        {tunnel("ipsec") + tunnel("IPSec"), RESTRICT_TUNNEL_PROTOCOL_IPSEC},
        {tunnel("ipsec") + tunnel("TLS"), RESTRICT_TUNNEL_PROTOCOL_IPSEC},
        {tunnel("tls") + tunnel(" ipsec"), RESTRICT_TUNNEL_PROTOCOL_TLS},
        {tunnel("tls") + tunnel("False"), RESTRICT_TUNNEL_PROTOCOL_TLS},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.elements);
        EXPECT_EQ(load(c.elements).RestrictTunnelProtocols(), c.expected);
    }
}

TEST_F(PolicyReader, ServerNamesAccumulateOnlyInsideTheListInsideUpdatePolicy) {
    const std::string names = element("ServerName", "gw1") + element("ServerName", "gw1") +
                              element("ServerName", " gw 2 ") + element("ServerName", "a&amp;b");
    EXPECT_EQ(load(updatePolicy(serverList(names))).GetAuthorizedServerList(),
              (std::list<std::string>{"gw1", "gw1", " gw 2 ", "a&b"}));
    // Lists in two sections accumulate.
    EXPECT_EQ(load(updatePolicy(serverList(element("ServerName", "a"))) +
                   updatePolicy(serverList(element("ServerName", "b"))))
                  .GetAuthorizedServerList(),
              (std::list<std::string>{"a", "b"}));
    const std::string outside[] = {
        serverList(names),                                     // list under the root
        updatePolicy(names),                                   // names directly in the section
        names,                                                 // names under the root
        updatePolicy(serverList("") + names),                  // names after the list closed
        serverList(updatePolicy(element("ServerName", "x"))),  // section inside a stray list
    };
    for (const std::string& elements : outside) {
        SCOPED_TRACE(elements);
        EXPECT_TRUE(load(elements).GetAuthorizedServerList().empty());
    }
    expectNoWarning();
}

TEST_F(PolicyReader, EmptyServerNameElementAddsNoEntry) {
    // The parser delivers no text for an element without character data.
    EXPECT_EQ(load(updatePolicy(serverList("<ServerName/><ServerName></ServerName>" +
                                           element("ServerName", "gw"))))
                  .GetAuthorizedServerList(),
              (std::list<std::string>{"gw"}));
}

TEST_F(PolicyReader, VersionIsStoredAndANewerOneDrawsOneWarning) {
    struct Case {
        const char* version;
        bool bNewer;
    };
    const Case cases[] = {
        {"5.1.8.105", false}, {"5.1.8.104", false}, {"5.1", false},  {"", false},
        {"5.1.8.106", true},  {"6.0", true},        {"5,1,9", true}, {"5.1.8.105.1", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.version);
        writePolicy(std::string("<QuillnetLocalPolicy xmlns:xsi=\"urn:x\" qnversion=\"") +
                    c.version + "\">" + element("BypassDownloader", "true") +
                    "</QuillnetLocalPolicy>");
        const LocalQNPolicyInfo info = loadAsIs();
        EXPECT_EQ(info.GetQNVersion(), c.version);
        EXPECT_TRUE(info.BypassDownloader());  // a newer document is applied all the same
        if (c.bNewer) {
            expectOneWarning("addAttribute", kNewerWarning);
        } else {
            expectNoWarning();
        }
    }
}

TEST_F(PolicyReader, VersionCountsOnlyAsTheRootsQnversionAttribute) {
    writePolicy(
        "<QuillnetLocalPolicy version=\"9.9\"><BypassDownloader qnversion=\"9.9\">true"
        "</BypassDownloader></QuillnetLocalPolicy>");
    EXPECT_EQ(loadAsIs().GetQNVersion(), "");
    writePolicy("<OtherRoot qnversion=\"9.9\"/>");
    EXPECT_EQ(loadAsIs().GetQNVersion(), "");
    writePolicy("<quillnetlocalpolicy qnversion=\"9.9\"/>");
    EXPECT_EQ(loadAsIs().GetQNVersion(), "");
    expectNoWarning();
}

TEST_F(PolicyReader, UnknownElementsAndMisspelledNamesChangeNothing) {
    const std::string defaults = summarize(LocalQNPolicyInfo());
    const LocalQNPolicyInfo info =
        load(element("Unknown", "true") + element("bypassdownloader", "true") +
             element("BypassDownloaderX", "true") + element("UpdatePolicy", "true") +
             // Longer than every name the reader knows, and a prefix of none.
             element("UpdatePolicy",
                     element("AllowManagementVPNProfileUpdatesFromAnyServerX", "false")));
    EXPECT_EQ(summarize(info), defaults);
    EXPECT_TRUE(m_log.records().size() == 1U) << "only the loader's FIPS line";
}

TEST_F(PolicyReader, TextOfASettingWithChildrenIsNotApplied) {
    EXPECT_FALSE(load("<BypassDownloader>true<Child/></BypassDownloader>").BypassDownloader());
    EXPECT_TRUE(load("<BypassDownloader>t<!-- split -->r<![CDATA[ue]]></BypassDownloader>")
                    .BypassDownloader());
}

TEST_F(PolicyReader, CompleteDocumentLeavesTheReaderStateCleared) {
    load(updatePolicy(serverList(element("ServerName", "gw")) +
                      element("AllowHelpUpdatesFromAnyServer", "true")) +
         element("FipsMode", "true"));
    EXPECT_EQ(XmlLocalQNPolMgrTestPeer::currentElement(*m_mgr), "");
    EXPECT_FALSE(XmlLocalQNPolMgrTestPeer::inAuthorizedServerList(*m_mgr));
    EXPECT_FALSE(XmlLocalQNPolMgrTestPeer::inUpdatePolicySection(*m_mgr));
}

TEST_F(PolicyReader, FipsModeNotesTheFilesValueWithoutTouchingTheRecordItself) {
    // Driven through the callbacks alone: the loader, not the reader, sets the record's flag.
    XmlLocalQNPolMgr& mgr = *m_mgr;
    mgr.addElement("FipsMode");
    mgr.setElementValue("true");
    mgr.endElement("FipsMode");
    EXPECT_TRUE(XmlLocalQNPolMgrTestPeer::fileUseFipsMode(mgr));
    EXPECT_FALSE(mgr.GetLocalPolicyInfo().UseFIPSMode());
    mgr.addElement("FipsMode");
    mgr.setElementValue("TRUE");
    EXPECT_FALSE(XmlLocalQNPolMgrTestPeer::fileUseFipsMode(mgr));
}

TEST_F(PolicyReader, FullDocumentAsGeneratedIsReadCompletely) {
    writePolicy(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<QuillnetLocalPolicy xmlns=\"http://schemas.xmlsoap.org/encoding/\" "
        "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
        "xsi:schemaLocation=\"http://schemas.xmlsoap.org/encoding/ QuillnetLocalPolicy.xsd\" "
        "qnversion=\"5.1.8.105\">\n"
        "    <BypassDownloader>true</BypassDownloader>\n"
        "    <ExcludePemFileCertStore>true</ExcludePemFileCertStore>\n"
        "    <FipsMode>true</FipsMode>\n"
        "    <RestrictPreferenceCaching>Credentials,All</RestrictPreferenceCaching>\n"
        "    <RestrictTunnelProtocols>tls</RestrictTunnelProtocols>\n"
        "    <UpdatePolicy>\n"
        "        <AllowSoftwareUpdatesFromAnyServer>false</AllowSoftwareUpdatesFromAnyServer>\n"
        "        <AuthorizedServerList>\n"
        "            <ServerName>gw1</ServerName>\n"
        "            <ServerName>gw2</ServerName>\n"
        "        </AuthorizedServerList>\n"
        "    </UpdatePolicy>\n"
        "</QuillnetLocalPolicy>\n");
    const LocalQNPolicyInfo info = loadAsIs();
    LocalQNPolicyInfo expected;
    expected.QNVersion("5.1.8.105");
    expected.UseFIPSMode(true);
    expected.BypassDownloader(true);
    expected.ExcludeCertStores(0xC00);
    expected.RestrictPrefCaching(RESTRICT_PREF_CACHING_CREDENTIALS);
    expected.RestrictPrefCaching(RESTRICT_PREF_CACHING_ALL);
    expected.RestrictTunnelProtocols(RESTRICT_TUNNEL_PROTOCOL_TLS);
    expected.SetSoftwareUpdateLock(false);
    expected.AddToAuthorizedServerList("gw1");
    expected.AddToAuthorizedServerList("gw2");
    EXPECT_EQ(summarize(info), summarize(expected));
    expectNoWarning();
}

}  // namespace

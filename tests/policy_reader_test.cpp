// The policy document reader: every rule that turns a policy file's elements into settings,
// driven through real files and the real parser, each outcome compared as a whole record.

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "PolicyDocumentFixture.h"

namespace {

using Info = LocalQNPolicyInfo;
using Setter = void (Info::*)(bool);
using Records = std::vector<std::string>;

constexpr char kRoot[] = "QuillnetLocalPolicy";

std::string el(const std::string& name, const std::string& text) {
    return "<" + name + ">" + text + "</" + name + ">";
}
std::string section(const std::string& children) {
    return el("UpdatePolicy", children);
}
std::string serverList(const std::string& children) {
    return el("AuthorizedServerList", children);
}

Info with(Setter setter, bool bValue) {
    Info info;
    (info.*setter)(bValue);
    return info;
}

// Plain booleans of the record, false by default, applied anywhere in the document.
const std::pair<const char*, Setter> kRecordFlags[] = {
    {"BypassDownloader", &Info::BypassDownloader},
    {"BypassDefaultLocalization", &Info::BypassDefaultLocalization},
    {"RestrictScriptWebDeploy", &Info::RestrictScriptWebDeploy},
    {"RestrictHelpWebDeploy", &Info::RestrictHelpWebDeploy},
    {"RestrictResourceWebDeploy", &Info::RestrictResourceWebDeploy},
    {"RestrictLocalizationWebDeploy", &Info::RestrictLocalizationWebDeploy},
    {"RestrictWebLaunch", &Info::RestrictWebLaunchMode},
    {"StrictCertificateTrust", &Info::StrictCertTrustMode},
    {"EnableCRLCheck", &Info::EnableCRLCheck},
    {"OCSPRevocation", &Info::EnableOCSPRevocation},
    {"RestrictServerCertStore", &Info::SetRestrictServerCertStore},
};

// Update permissions: true by default, applied only inside "UpdatePolicy".
const std::pair<const char*, Setter> kUpdateFlags[] = {
    {"AllowSoftwareUpdatesFromAnyServer", &Info::SetSoftwareUpdateLock},
    {"AllowComplianceModuleUpdatesFromAnyServer", &Info::SetComplianceModuleSoftwareUpdateLock},
    {"AllowVPNProfileUpdatesFromAnyServer", &Info::SetVPNProfileUpdateLock},
    {"AllowManagementVPNProfileUpdatesFromAnyServer", &Info::SetMgmtVPNProfileUpdateLock},
    {"AllowPlexoProfileUpdatesFromAnyServer", &Info::SetPlexoProfileUpdateLock},
    {"AllowServiceProfileUpdatesFromAnyServer", &Info::SetServiceProfileUpdateLock},
    {"AllowScriptUpdatesFromAnyServer", &Info::SetScriptUpdateLock},
    {"AllowHelpUpdatesFromAnyServer", &Info::SetHelpUpdateLock},
    {"AllowResourceUpdatesFromAnyServer", &Info::SetResourceUpdateLock},
    {"AllowLocalizationUpdatesFromAnyServer", &Info::SetLocalizationUpdateLock},
};

class PolicyReader : public qntest::PolicyDocumentFixture {
  protected:
    // Loads the document and expects exactly this record, these records logged by the reader
    // and then the loader's FIPS line.
    void expectDocument(const std::string& document, const Info& expected, Records records = {}) {
        SCOPED_TRACE(document);
        writePolicy(document);
        EXPECT_EQ(qntest::summarize(loadAsIs()), qntest::summarize(expected));
        records.push_back(qntest::fipsRecord(false));
        EXPECT_EQ(logged(), records);
    }
    void expectLoad(const std::string& children, const Info& expected, Records records = {}) {
        expectDocument(el(kRoot, children), expected, std::move(records));
    }
};

TEST_F(PolicyReader, BooleanSettingIsTrueOnlyForTheExactTextTrueAndTheLastOccurrenceWins) {
    for (const auto& [name, setter] : kRecordFlags) {
        const Info set = with(setter, true);
        expectLoad(el(name, "true"), set);
        expectLoad(el(name, "false") + el(name, "true"), set);
        expectLoad(section(el(name, "true")), set);
        expectLoad(el("Wrapper", el(name, "true")), set);
        expectLoad(el(name, "true") + el(name, "false"), Info());
        for (const char* notTrue : {"True", " true", "1"}) {
            expectLoad(el(name, "true") + el(name, notTrue), Info());
        }
    }
}

TEST_F(PolicyReader, UpdatePermissionAppliesInsideUpdatePolicyAndWarnsOutside) {
    for (const auto& [name, setter] : kUpdateFlags) {
        const std::string locked = el(name, "false");
        expectLoad(section(locked), with(setter, false));
        expectLoad(section(el(name, "TRUE")), with(setter, false));
        expectLoad(section(locked + el(name, "true")), Info());
        // Outside: under the root, after the section closed, after an inner section closed it.
        for (const std::string& outside : {locked, section("") + locked, "<UpdatePolicy/>" + locked,
                                           section(section("") + locked)}) {
            expectLoad(outside, Info(), {qntest::structureWarning()});
        }
    }
}

TEST_F(PolicyReader, CertStoreExclusionIsAddedByTrueAndNeverTakenBack) {
    const std::pair<const char*, uint32_t> rows[] = {{"ExcludeMacNativeCertStore", 0x2104},
                                                     {"ExcludeWinNativeCertStore", 0xC3},
                                                     {"ExcludePemFileCertStore", 0xC00},
                                                     {"ExcludeFirefoxNSSCertStore", 0x8}};
    Info all;
    std::string allTrue;
    for (const auto& [name, mask] : rows) {
        Info excluded;
        excluded.ExcludeCertStores(mask);
        expectLoad(el(name, "true") + el(name, "false"), excluded);
        expectLoad(el(name, "True"), Info());
        all.ExcludeCertStores(mask);
        allTrue += el(name, "true");
    }
    expectLoad(allTrue, all);
}

TEST_F(PolicyReader, PreferenceCachingListAddsOptionsUntilFalseOrAnUnknownToken) {
    const auto caching = [](const char* text) { return el("RestrictPreferenceCaching", text); };
    const std::pair<std::string, const char*> cases[] = {
        {caching("Credentials,Thumbprints"), "false,Credentials,Thumbprints"},
        {caching("CredentialsAndThumbprints,AutomaticServerSelection"),
         "false,CredentialsAndThumbprints,AutomaticServerSelection"},
        {caching("All") + caching(","), "false,All"},
        {caching("Credentials,,Thumbprints,"), "false,Credentials,Thumbprints"},
        {caching("Credentials") + caching("Thumbprints"), "false,Credentials,Thumbprints"},
        {caching("Credentials,false,All"), "false"},
        {caching("All,credentials,Thumbprints"), "false"},
        {caching("All,Credentials, Thumbprints"), "false"},  // tokens are not trimmed
        {caching("Credentials") + caching("Thumbprints,bogus,All"), "false"},
    };
    for (const auto& [children, expected] : cases) {
        SCOPED_TRACE(children);
        EXPECT_EQ(load(children).RestrictPrefCachingStr(), expected);
    }
}

TEST_F(PolicyReader, TunnelProtocolAppliesOnlyTheExactLowerCaseTexts) {
    const auto tunnel = [](const char* text) { return el("RestrictTunnelProtocols", text); };
    const std::pair<std::string, RestrictTunnelProtocolOption> cases[] = {
        {tunnel("ipsec"), RESTRICT_TUNNEL_PROTOCOL_IPSEC},
        {tunnel("tls"), RESTRICT_TUNNEL_PROTOCOL_TLS},
        {tunnel("tls") + tunnel("false"), RESTRICT_TUNNEL_PROTOCOL_FALSE},
        {tunnel("ipsec") + tunnel("IPSec") + tunnel("TLS"), RESTRICT_TUNNEL_PROTOCOL_IPSEC},
        {tunnel("tls") + tunnel(" ipsec") + tunnel("False"), RESTRICT_TUNNEL_PROTOCOL_TLS},
    };
    for (const auto& [children, expected] : cases) {
        SCOPED_TRACE(children);
        EXPECT_EQ(load(children).RestrictTunnelProtocols(), expected);
    }
}

TEST_F(PolicyReader, ServerNamesCountOnlyInsideTheListInsideUpdatePolicy) {
    const std::string names =
        el("ServerName", "gw1") + el("ServerName", "gw1") + el("ServerName", " gw 2 ") +
        "<ServerName/><ServerName></ServerName>" + el("ServerName", "a&amp;b");
    EXPECT_EQ(load(section(serverList(names)) + section(serverList(el("ServerName", "c"))))
                  .GetAuthorizedServerList(),
              (std::list<std::string>{"gw1", "gw1", " gw 2 ", "a&b", "c"}));
    for (const std::string& outside :
         {serverList(names), section(names), names, section(serverList("") + names),
          serverList(section(names))}) {
        expectLoad(outside, Info());
    }
}

TEST_F(PolicyReader, VersionIsTheRootsQnversionAndANewerOneDrawsOneWarning) {
    const std::string newer = qntest::managerRecord(
        "addAttribute", Logging::DBG_Warning,
        "The parsed Local Security Policy File version is newer than the current Quillnet "
        "Client. Unexpected behaviors can result.");
    const std::pair<const char*, bool> cases[] = {
        {"5.1.8.105", false}, {"5.1.8.104", false}, {"5.1", false},  {"", false},
        {"5.1.8.106", true},  {"6.0", true},        {"5,1,9", true}, {"5.1.8.105.1", true},
    };
    for (const auto& [version, bNewer] : cases) {
        Info expected = with(&Info::BypassDownloader, true);  // a newer document applies as well
        expected.QNVersion(version);
        expectDocument(std::string("<QuillnetLocalPolicy xmlns:xsi=\"urn:x\" qnversion=\"") +
                           version + "\">" + el("BypassDownloader", "true") + "</" + kRoot + ">",
                       expected, bNewer ? Records{newer} : Records{});
    }
}

TEST_F(PolicyReader, DocumentsTheReaderDoesNotRecogniseChangeNothing) {
    for (const std::string& document :
         {el(kRoot,
             el("Unknown", "true") + el("bypassdownloader", "true") +
                 el("BypassDownloaderX", "true") + el("UpdatePolicy", "true") +
                 // longer than every known name, and a prefix of none
                 el("UpdatePolicy", el("AllowManagementVPNProfileUpdatesFromAnyServerX", "false"))),
          el(kRoot, "<BypassDownloader>true<Child/></BypassDownloader>"),
          "<QuillnetLocalPolicy version=\"9\"><BypassDownloader qnversion=\"9\"/></" +
              std::string(kRoot) + ">",
          std::string("<OtherRoot qnversion=\"9\"/>"),
          std::string("<quillnetlocalpolicy qnversion=\"9\"/>")}) {
        expectDocument(document, Info());
    }
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// The effective policy with its origins, in-process: hand-written documents with known
// positions give each setting's value, the element it comes from (or its default) and every
// element that contributed; the linter's findings say what the client ignores; two policies
// compare by what the client reads, not by their bytes.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "MessageText.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "origin/EffectivePolicy.h"

namespace {

using qnpolicy::tool::ContributingElement;
using qnpolicy::tool::EffectivePolicy;
using qnpolicy::tool::ReadEffectivePolicyBytes;
using qnpolicy::tool::SettingOrigin;
using qnpolicy::tool::SourcePosition;

std::string positionText(const SourcePosition& position) {
    return position.Known() ? std::to_string(position.line) + ":" + std::to_string(position.column)
                            : "default";
}

// "VALUE@ORIGIN", then " CONTRIBUTION@POSITION" for each contributing element, the element's
// name in parentheses where it is another setting's.
std::string originOf(const EffectivePolicy& policy, const std::string& element) {
    const SettingOrigin& setting = policy.Of(*FindLocalPolicySetting(element));
    std::string text = qnpolicy::Join(setting.value, ",") + "@" + positionText(setting.origin);
    for (const ContributingElement& contributor : setting.contributors) {
        text += std::string(" ") + ContributionText(contributor.eContribution);
        if (contributor.element != element) {
            text += "(" + contributor.element + ")";
        }
        text += "@" + positionText(contributor.position);
    }
    return text;
}

std::string document(const std::string& children) {
    return "<QuillnetLocalPolicy qnversion=\"" + std::string(qnpolicy::kClientVersion) + "\">\n" +
           children + "\n</QuillnetLocalPolicy>\n";
}

// Each document gives each named setting exactly this value, origin and contributors.
TEST(EffectivePolicy, GivesEachSettingItsValueOriginAndContributingElements) {
    // The children of the root (from line 2 on), each setting named and what it is given.
    const std::vector<std::pair<std::string, std::map<std::string, std::string>>> cases = {
        // A later duplicate wins; what the document does not state is the default.
        {"<EnableCRLCheck>true</EnableCRLCheck>\n  <EnableCRLCheck>false</EnableCRLCheck>",
         {{"EnableCRLCheck", "false@3:3 overridden@2:1 sets@3:3"}, {"FipsMode", "false@default"}}},
        // A restricted server store raises strict trust, over what the file says or with it.
        {"<StrictCertificateTrust>false</StrictCertificateTrust>\n"
         "<RestrictServerCertStore>true</RestrictServerCertStore>",
         {{"StrictCertificateTrust",
           "true@3:1 overridden@2:1 forces(RestrictServerCertStore)@3:1"}}},
        {"<RestrictServerCertStore>true</RestrictServerCertStore>",
         {{"StrictCertificateTrust", "true@2:1 forces(RestrictServerCertStore)@2:1"}}},
        {"<StrictCertificateTrust>false</StrictCertificateTrust>\n"
         "<RestrictServerCertStore>false</RestrictServerCertStore>",
         {{"StrictCertificateTrust", "false@2:1 sets@2:1"}}},
        // Caching options add up; false clears the lists before it.
        {"<RestrictPreferenceCaching>Credentials</RestrictPreferenceCaching>\n"
         "<RestrictPreferenceCaching>Thumbprints</RestrictPreferenceCaching>",
         {{"RestrictPreferenceCaching", "Credentials,Thumbprints@3:1 sets@2:1 adds@3:1"}}},
        {"<RestrictPreferenceCaching>Credentials</RestrictPreferenceCaching>\n"
         "<RestrictPreferenceCaching>All</RestrictPreferenceCaching>\n"
         "<RestrictPreferenceCaching>Thumbprints,false</RestrictPreferenceCaching>",
         {{"RestrictPreferenceCaching", "none@4:1 overridden@2:1 overridden@3:1 sets@4:1"}}},
        // What the reader reads but does not apply changes nothing.
        {"<ExcludePemFileCertStore>true</ExcludePemFileCertStore>\n"
         "<ExcludePemFileCertStore>false</ExcludePemFileCertStore>\n"
         "<RestrictTunnelProtocols>ipsec</RestrictTunnelProtocols>\n"
         "<RestrictTunnelProtocols>TLS</RestrictTunnelProtocols>",
         {{"ExcludePemFileCertStore", "true@2:1 sets@2:1 unchanged@3:1"},
          {"RestrictTunnelProtocols", "ipsec@4:1 sets@4:1 unchanged@5:1"}}},
        // An update permission counts only inside its section; each list that counts adds its
        // servers.
        {"<AllowHelpUpdatesFromAnyServer>false</AllowHelpUpdatesFromAnyServer>\n"
         "<UpdatePolicy><AllowScriptUpdatesFromAnyServer>false</AllowScriptUpdatesFromAnyServer>"
         "<AuthorizedServerList><ServerName>a</ServerName></AuthorizedServerList>\n"
         "<AuthorizedServerList><ServerName>b</ServerName></AuthorizedServerList></UpdatePolicy>",
         {{"AllowHelpUpdatesFromAnyServer", "true@default"},
          {"AllowScriptUpdatesFromAnyServer", "false@3:15 sets@3:15"},
          {"AuthorizedServerList", "@4:1 sets@3:87 adds@4:1"}}},
    };
    for (const auto& [children, settings] : cases) {
        const std::string text = document(children);
        const EffectivePolicy policy = ReadEffectivePolicyBytes(text, "p.xml", false);
        for (const auto& [element, expected] : settings) {
            EXPECT_EQ(originOf(policy, element), expected) << element << " in\n" << text;
        }
    }
}

// Each server has its own element; the version has the root's; a cut document is incomplete
// and keeps what was read before the cut.
TEST(EffectivePolicy, GivesEachServerAndTheVersionTheirElements) {
    const EffectivePolicy policy = ReadEffectivePolicyBytes(
        document("<UpdatePolicy>\n  <AuthorizedServerList>\n    <ServerName>gw1</ServerName>\n"
                 "    <ServerName> gw2</ServerName><ServerName>gw1</ServerName>\n"
                 "  </AuthorizedServerList>\n</UpdatePolicy>"),
        "p.xml", false);
    EXPECT_TRUE(policy.Complete());
    std::string servers;
    size_t index = 0;
    for (const std::string& server : policy.Servers()) {
        servers += server + "@" + positionText(policy.serverOrigins.at(index++)) + ";";
    }
    EXPECT_EQ(servers, "gw1@4:5; gw2@5:5;gw1@5:34;");
    EXPECT_EQ(positionText(policy.versionOrigin), "1:1");

    const EffectivePolicy cut = ReadEffectivePolicyBytes(
        "<QuillnetLocalPolicy><UpdatePolicy><AuthorizedServerList><ServerName>gw1</ServerName>"
        "<ServerName>gw2</Ser",
        "cut.xml", false);
    EXPECT_FALSE(cut.Complete());
    EXPECT_EQ(cut.Servers().size(), 1U);
    EXPECT_EQ(positionText(cut.serverOrigins.at(0)), "1:58");
    EXPECT_EQ(positionText(cut.versionOrigin), "default");
}

// Linted, the findings about what the client ignores are flagged, and only those: an unknown
// element, an attribute, a text it does not apply, a setting without text, a misplaced one.
TEST(EffectivePolicy, FlagsTheFindingsAboutWhatTheClientIgnores) {
    const EffectivePolicy policy = ReadEffectivePolicyBytes(
        document(
            "<FipMode>true</FipMode>\n<BypassDownloader value=\"true\">true</BypassDownloader>\n"
            "<EnableCRLCheck>TRUE</EnableCRLCheck>\n"
            "<ExcludeMacNativeCertStore>TRUE</ExcludeMacNativeCertStore>\n"
            "<RestrictTunnelProtocols>TLS</RestrictTunnelProtocols>\n<OCSPRevocation/>\n"
            "<AllowHelpUpdatesFromAnyServer>true</AllowHelpUpdatesFromAnyServer>\n"
            "<FipsMode>true</FipsMode><FipsMode>false</FipsMode>\n"
            "<UpdatePolicy><AuthorizedServerList><ServerName> a</ServerName>"
            "</AuthorizedServerList></UpdatePolicy>"),
        "p.xml", true);
    std::string ignored;
    std::string applied;
    for (const qnpolicy::tool::LintFinding& finding : policy.lint.findings) {
        (finding.bIgnored ? ignored : applied) +=
            finding.kind + ":" + std::to_string(finding.line) + " ";
    }
    EXPECT_EQ(ignored,
              "unknown-element:2 ignored-attribute:3 non-boolean-value:5 "
              "tunnel-value-not-applied:6 empty-value:7 update-permission-outside-section:8 ");
    EXPECT_EQ(applied, "non-boolean-value:4 duplicate-setting:9 padded-server-name:10 ");
}

// Two documents are the same policy when the client reads the same values from them, whatever
// their order, indentation, comments, version or spelling of the caching list; server lists
// compare in order.
TEST(EffectivePolicy, ComparesWhatTheClientReadsNotTheBytes) {
    const std::string base = document(
        "  <FipsMode>true</FipsMode>\n"
        "  <RestrictPreferenceCaching>Credentials,Thumbprints</RestrictPreferenceCaching>\n"
        "  <UpdatePolicy><AuthorizedServerList><ServerName>gw1</ServerName>"
        "<ServerName>gw2</ServerName></AuthorizedServerList></UpdatePolicy>");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<QuillnetLocalPolicy qnversion=\"6.0\"><!-- moved --><UpdatePolicy>"
         "<AuthorizedServerList><ServerName>gw1</ServerName><ServerName>gw2</ServerName>"
         "</AuthorizedServerList></UpdatePolicy><RestrictPreferenceCaching>Thumbprints,Credentials"
         "</RestrictPreferenceCaching><FipsMode>true</FipsMode><FipsMode>true</FipsMode>"
         "</QuillnetLocalPolicy>",
         ""},
        {document("<FipsMode>false</FipsMode><RestrictPreferenceCaching>Credentials,Thumbprints"
                  "</RestrictPreferenceCaching><UpdatePolicy><AuthorizedServerList>"
                  "<ServerName>gw2</ServerName><ServerName>gw1</ServerName>"
                  "</AuthorizedServerList></UpdatePolicy>"),
         "FipsMode AuthorizedServerList#0"},
        {document("<FipsMode>true</FipsMode><StrictCertificateTrust>false</StrictCertificateTrust>"
                  "<RestrictServerCertStore>true</RestrictServerCertStore>"
                  "<RestrictPreferenceCaching>Credentials,Thumbprints</RestrictPreferenceCaching>"
                  "<UpdatePolicy><AuthorizedServerList><ServerName>gw1</ServerName>"
                  "<ServerName>gw2</ServerName><ServerName>gw3</ServerName>"
                  "</AuthorizedServerList></UpdatePolicy>"),
         "StrictCertificateTrust RestrictServerCertStore AuthorizedServerList#2"},
    };
    const EffectivePolicy oldPolicy = ReadEffectivePolicyBytes(base, "old.xml", false);
    for (const auto& [text, expected] : cases) {
        const EffectivePolicy newPolicy = ReadEffectivePolicyBytes(text, "new.xml", false);
        std::string changes;
        for (const qnpolicy::tool::SettingChange& change : ComparePolicies(oldPolicy, newPolicy)) {
            changes += (changes.empty() ? "" : " ") + change.pOld->pRow->element;
            if (change.pOld->pRow->element == "AuthorizedServerList") {
                changes += "#" + std::to_string(change.firstDifference);
            }
        }
        EXPECT_EQ(changes, expected) << text;
    }
}

// Settings are named by element or abbreviation, exactly or ignoring case; a server name
// names the server list.
TEST(EffectivePolicy, FindsASettingByElementOrAbbreviation) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"FipsMode", "FipsMode"},
        {"fm", "FipsMode"},
        {"fipsmode", "FipsMode"},
        {"UPAL", "AuthorizedServerList"},
        {"ServerName", "AuthorizedServerList"},
        {"FipMode", ""},
        {"p.xml", ""},
    };
    for (const auto& [word, expected] : cases) {
        const LocalPolicySettingInfo* pRow = qnpolicy::tool::FindSettingByName(word);
        EXPECT_EQ(pRow == nullptr ? std::string() : pRow->element, expected) << word;
    }
}

}  // namespace

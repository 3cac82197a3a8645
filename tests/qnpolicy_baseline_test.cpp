// SPDX-License-Identifier: Apache-2.0
// Baselines in-process: every class of malformed baseline is refused at its line and column
// with its reason, and known policies get known verdicts against the README's example baseline
// (compliant, drifted, waived on the hosts a waiver names until its last day, expiring soon).

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MessageText.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "baseline/Baseline.h"

namespace {

using qnpolicy::tool::CalendarDay;
using qnpolicy::tool::ComplianceVerdicts;
using qnpolicy::tool::JudgePolicy;
using qnpolicy::tool::ParseBaseline;
using qnpolicy::tool::ReadEffectivePolicyBytes;
using qnpolicy::tool::RuleVerdict;
using qnpolicy::tool::VerdictStateText;

// The example of the README and the manual page.
constexpr char kExampleBaseline[] = R"(version: 1
settings:                       # element names, as `qnpolicy show` prints them
  FipsMode: true                # the effective value must equal this
  StrictCertificateTrust: true
  RestrictTunnelProtocols: {one_of: [tls, ipsec]}
  AllowSoftwareUpdatesFromAnyServer: false
  AuthorizedServerList: {subset_of: [gw1.example.com, gw2.example.com]}   # also: equals, superset_of
severity:                       # optional, per setting: low, medium (default), high
  FipsMode: high
rationale:                      # optional, per setting; shown in reports and SCAP content
  FipsMode: Government customers require FIPS 140 validated cryptography.
waivers:
  - setting: StrictCertificateTrust
    hosts: [lab-*]              # optional; glob patterns of host names; absent: every host
    reason: lab machines, ticket SEC-142
    expires: 2027-03-31         # the last day it holds, UTC; an expired waiver no longer waives
)";

// "LINE:COLUMN: message" of a baseline's refusal, or "accepted".
std::string refusalOf(const std::string& text) {
    const auto parse = ParseBaseline(text, "b.yml");
    if (parse.error.empty()) {
        return "accepted";
    }
    return std::to_string(parse.error.position.line) + ":" +
           std::to_string(parse.error.position.column) + ": " + parse.error.message;
}

TEST(Baseline, RefusesEachClassOfMalformedBaselineAtItsLineAndColumn) {
    // The start of a baseline, then that of one with a waiver of FipsMode.
    const std::string s = "version: 1\nsettings:\n  ";
    const std::string w = s + "FipsMode: true\nwaivers:\n  - setting: FipsMode\n    reason: r\n";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {s + "FipsMode: true\nsetings: {}\n", "4:1: unknown key \"setings\""},
        {s + "FipMode: true\n",
         "3:3: unknown setting \"FipMode\" (settings are named by their element, as `qnpolicy "
         "show` prints them). Did you mean \"FipsMode\"?"},
        {s + "fm: true\n", "3:3: unknown setting \"fm\""},
        {s + "ServerName: a\n", "3:3: unknown setting \"ServerName\""},
        // Booleans are exactly true or false, unquoted; YAML 1.1's other spellings are refused.
        {s + "FipsMode: off\n", "3:13: FipsMode takes true or false, not off"},
        {s + "FipsMode: True\n", "3:13: FipsMode takes true or false"},
        {s + "FipsMode: \"true\"\n",
         "3:13: FipsMode takes true or false, not \"true\" (a boolean is written without quotes)"},
        {s + "FipsMode: [true]\n", "3:13: FipsMode takes true or false"},
        // The tunnel is text: "false" quoted, tls or ipsec exactly.
        {s + "RestrictTunnelProtocols: false\n",
         "3:28: RestrictTunnelProtocols takes \"false\", \"tls\", \"ipsec\", not false (the text"},
        {s + "RestrictTunnelProtocols: TLS\n",
         "3:28: RestrictTunnelProtocols takes \"false\", \"tls\", \"ipsec\", not TLS. Did you "
         "mean \"tls\"?"},
        {s + "RestrictPreferenceCaching: Credentials,Passwords\n",
         "3:30: RestrictPreferenceCaching has no option \"Passwords\""},
        {s + "AuthorizedServerList: gw1.example.com\n",
         "3:25: AuthorizedServerList's entries must be a list, not a single value"},
        {s + "AuthorizedServerList: {one_of: [a]}\n",
         "3:25: one_of does not apply to AuthorizedServerList"},
        {s + "FipsMode: {subset_of: [true]}\n", "3:13: subset_of does not apply to FipsMode"},
        {s + "FipsMode: {same_as: true}\n", "3:14: unknown key \"same_as\""},
        {s + "FipsMode: true\n  FipsMode: false\n",
         "4:3: duplicate key \"FipsMode\" (first at line 3)"},
        {"version: 1\nversion: 1\nsettings: {}\n", "2:1: duplicate key \"version\""},
        {"version: 2\nsettings: {}\n", "1:10: version must be 1"},
        {"version: \"1\"\nsettings: {}\n", "1:10: version must be 1"},
        {"settings: {}\n", "1:1: a baseline starts with version: 1 and has settings:"},
        {s + "FipsMode: true\nseverity:\n  FipsMode: critical\n",
         "5:13: a severity is low, medium or high, not \"critical\""},
        {s + "FipsMode: true\nseverity:\n  BypassDownloader: low\n",
         "5:3: severity of BypassDownloader, which the baseline's settings do not name"},
        {s + "FipsMode: true\nwaivers:\n  - reason: r\n    expires: 2027-03-31\n",
         "5:5: a waiver needs setting"},
        {s + "FipsMode: true\nwaivers:\n  - setting: FipsMode\n    expires: 2027-03-31\n",
         "5:5: a waiver needs reason"},
        {w, "5:5: a waiver needs expires"},
        {w + "    expires: 2027-02-29\n",
         "7:14: expires must be a date, YYYY-MM-DD (the last day the waiver holds, UTC), not "
         "\"2027-02-29\""},
        {w + "    expires: next week\n", "7:14: expires must be a date"},
        {w + "    expires: 2027-03-31\n    until: 2027-04-01\n",
         "8:5: unknown key \"until\" in a waiver"},
        {s + "FipsMode: true\nwaivers:\n  - setting: EnableCRLCheck\n    reason: r\n    expires: "
             "2027-03-31\n",
         "5:14: the waiver names EnableCRLCheck, which the baseline's settings do not"},
        {s + "FipsMode: true\nwaivers:\n  - setting: file-safety\n    reason: r\n    expires: "
             "2027-03-31\n",
         "5:14: file-safety cannot be waived"},
        {"version: 1\nsettings: [FipsMode\n", "3:1: not valid YAML"},
        {s + "FipsMode: &on true\n  StrictCertificateTrust: *on\n",
         "3:13: anchors are not accepted"},
        {s + "FipsMode: !!bool true\n", "3:13: tags are not accepted"},
        {"", "1:1: the baseline is empty"},
        {"version: 1\nsettings: {}\n---\nversion: 1\n", "1:1: a baseline is one YAML document"},
        {s + "RestrictPreferenceCaching: Thumbprints,Credentials\n  AuthorizedServerList: {equals: "
             "[gw1, gw2]}\n  RestrictTunnelProtocols: \"false\"\n",
         "accepted"},
        {kExampleBaseline, "accepted"},
        {std::string(qnpolicy::tool::kMaxBaselineBytes + 1, '#'),
         "0:0: a baseline holds at most 1048576 bytes"},
    };
    for (const auto& [text, refusal] : cases) {
        EXPECT_EQ(refusalOf(text).substr(0, refusal.size()), refusal) << text;
    }
}

std::string policy(const std::string& children) {
    return "<QuillnetLocalPolicy qnversion=\"" + std::string(qnpolicy::kClientVersion) + "\">\n" +
           children + "\n</QuillnetLocalPolicy>\n";
}

// "RULE=STATE" for each verdict but a pass, a failure with its actual value (the server list's is
// the policy's own) and origin, a waived one with its waiver's last day.
std::string verdictsText(const ComplianceVerdicts& verdicts,
                         const qnpolicy::tool::EffectivePolicy& policy) {
    std::string text;
    for (const RuleVerdict& verdict : verdicts.verdicts) {
        if (verdict.eState == qnpolicy::tool::VerdictState::PASS) {
            continue;
        }
        text += (text.empty() ? "" : " ") + verdict.rule + "=" + VerdictStateText(verdict.eState);
        if (verdict.eState == qnpolicy::tool::VerdictState::FAIL) {
            const bool bServers = verdict.rule == "AuthorizedServerList";
            text += "(" +
                    (bServers ? qnpolicy::Join(policy.Servers(), ",")
                              : qnpolicy::Join(verdict.actual, ",")) +
                    "@" +
                    (verdict.origin.Known() ? std::to_string(verdict.origin.line) : "default");
            for (const auto& entry : verdict.offending) {
                text += (entry.bMissing ? " missing " : " unexpected ") + entry.value;
                text += entry.origin.Known() ? "@" + std::to_string(entry.origin.line) : "";
            }
            text += ")";
        }
        if (verdict.pWaiver != nullptr) {
            text += "(until " + verdict.pWaiver->expires.Text() + ")";
        }
    }
    return text;
}

TEST(Baseline, JudgesTheEffectivePolicyWithOriginsAndWaiversAndAnnouncesTheirEnd) {
    const std::string compliant = policy(
        "<FipsMode>true</FipsMode>\n<StrictCertificateTrust>true</StrictCertificateTrust>\n"
        "<RestrictTunnelProtocols>ipsec</RestrictTunnelProtocols>\n<UpdatePolicy>\n"
        "<AllowSoftwareUpdatesFromAnyServer>false</AllowSoftwareUpdatesFromAnyServer>\n"
        "<AuthorizedServerList><ServerName>gw2.example.com</ServerName></AuthorizedServerList>\n"
        "</UpdatePolicy>");
    // FIPS mode duplicated off, a TLS the client does not apply, a server of its own.
    const std::string drifted = policy(
        "<FipsMode>true</FipsMode>\n<FipsMode>false</FipsMode>\n"
        "<RestrictServerCertStore>true</RestrictServerCertStore>\n"
        "<RestrictTunnelProtocols>TLS</RestrictTunnelProtocols>\n<UpdatePolicy>\n"
        "<AllowSoftwareUpdatesFromAnyServer>false</AllowSoftwareUpdatesFromAnyServer>\n"
        "<AuthorizedServerList><ServerName>gw1.example.com</ServerName>\n"
        "<ServerName>rogue.example.net</ServerName></AuthorizedServerList>\n</UpdatePolicy>");
    // Only strict trust off, which the example waives on lab hosts until 2027-03-31.
    const std::string trustOff = policy(
        "<FipsMode>true</FipsMode>\n<StrictCertificateTrust>false</StrictCertificateTrust>\n"
        "<RestrictTunnelProtocols>tls</RestrictTunnelProtocols>\n<UpdatePolicy>\n"
        "<AllowSoftwareUpdatesFromAnyServer>false</AllowSoftwareUpdatesFromAnyServer>\n"
        "</UpdatePolicy>");
    // The verdicts but passes, whether compliant, and how many waivers of the host are announced
    // as ending within 14 days (used or not).
    struct Case {
        std::string document;
        std::string host;
        CalendarDay today;
        std::string verdicts;
        bool bCompliant;
        size_t announced;
    };
    const CalendarDay before{2027, 1, 10};
    const std::vector<Case> cases = {
        {compliant, "web-1", before, "", true, 0},
        // Strict trust is read on, forced by the restricted server store (line 4); the TLS is not
        // applied, so the default stands.
        {drifted, "web-1", before,
         "FipsMode=fail(false@3) RestrictTunnelProtocols=fail(false@default) "
         "AuthorizedServerList=fail(gw1.example.com,rogue.example.net@8 unexpected "
         "rogue.example.net@9)",
         false, 0},
        {trustOff, "web-1", CalendarDay{2027, 3, 20}, "StrictCertificateTrust=fail(false@3)", false,
         0},
        // The host-scoped waiver: on a lab host, through its last day, and not after it;
        // announced from 14 days before.
        {trustOff, "LAB-7", CalendarDay{2027, 3, 16},
         "StrictCertificateTrust=waived(until 2027-03-31)", true, 0},
        {compliant, "lab-7", CalendarDay{2027, 3, 17}, "", true, 1},
        {trustOff, "lab-7", CalendarDay{2027, 3, 31},
         "StrictCertificateTrust=waived(until 2027-03-31)", true, 1},
        {trustOff, "lab-7", CalendarDay{2027, 4, 1}, "StrictCertificateTrust=fail(false@3)", false,
         0},
        // No file: the defaults.
        {policy(""), "web-1", before,
         "FipsMode=fail(false@default) StrictCertificateTrust=fail(false@default) "
         "RestrictTunnelProtocols=fail(false@default) "
         "AllowSoftwareUpdatesFromAnyServer=fail(true@default)",
         false, 0},
    };
    const auto parse = ParseBaseline(kExampleBaseline, "example.yml");
    ASSERT_TRUE(parse.error.empty()) << parse.error.message;
    for (const Case& c : cases) {
        const auto effective = ReadEffectivePolicyBytes(c.document, "p.xml", false);
        ASSERT_TRUE(effective.Complete()) << c.document;
        const ComplianceVerdicts verdicts =
            JudgePolicy(parse.baseline, effective, {}, c.host, c.today);
        SCOPED_TRACE(c.document + " on " + c.host + " " + c.today.Text());
        EXPECT_EQ(verdictsText(verdicts, effective), c.verdicts);
        EXPECT_EQ(verdicts.verdicts.size(), 6U);  // file-safety and each of the five settings
        EXPECT_EQ(verdicts.Compliant(), c.bCompliant);
        EXPECT_EQ(verdicts.expiringSoon.size(), c.announced);
    }
}

// Server lists compare as sets of exact strings, except equals, which keeps the order; the
// caching options compare as sets whatever order they are written in.
TEST(Baseline, ComparesListsAsSetsAndEqualsInOrder) {
    const std::string servers = policy(
        "<UpdatePolicy><AuthorizedServerList><ServerName>b</ServerName>"
        "<ServerName>a</ServerName></AuthorizedServerList></UpdatePolicy>\n"
        "<RestrictPreferenceCaching>Thumbprints,Credentials</RestrictPreferenceCaching>");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"AuthorizedServerList: [b, a]", ""},  // a pass
        {"AuthorizedServerList: {equals: [a, b]}", "fail(b,a@2 unexpected b@2)"},
        {"AuthorizedServerList: {equals: [b, a, c]}", "fail(b,a@2 missing c)"},
        {"AuthorizedServerList: {subset_of: [a, b, c]}", ""},
        {"AuthorizedServerList: {subset_of: [a, B]}", "fail(b,a@2 unexpected b@2)"},
        {"AuthorizedServerList: {superset_of: [a]}", ""},
        {"AuthorizedServerList: {superset_of: [a, c]}", "fail(b,a@2 missing c)"},
        {"RestrictPreferenceCaching: Credentials,Thumbprints", ""},
        {"RestrictPreferenceCaching: {one_of: [none, Credentials]}",
         "fail(Credentials,Thumbprints@3)"},
        {"RestrictPreferenceCaching: {superset_of: [Thumbprints]}", ""},
        {"RestrictPreferenceCaching: {subset_of: [Thumbprints]}",
         "fail(Credentials,Thumbprints@3)"},
    };
    const auto effective = ReadEffectivePolicyBytes(servers, "p.xml", false);
    for (const auto& [rule, verdict] : cases) {
        const auto parse = ParseBaseline("version: 1\nsettings:\n  " + rule + "\n", "b.yml");
        ASSERT_TRUE(parse.error.empty()) << rule << ": " << parse.error.message;
        const ComplianceVerdicts verdicts =
            JudgePolicy(parse.baseline, effective, {}, "h", CalendarDay{2027, 1, 1});
        const std::string text = verdictsText(verdicts, effective);
        EXPECT_EQ(text.substr(text.find('=') + 1), verdict) << rule;
    }
}

}  // namespace

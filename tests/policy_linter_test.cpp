// The linter of `qnpolicy check`: each flawed document yields exactly the findings, kinds and
// lines, that describe how the module's reader will treat it.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "LintFinding.h"
#include "PolicyFileAttributes.h"
#include "PolicyLinter.h"
#include "TestSupport.h"
#include "XmlParser.h"

namespace {

using qnpolicy::tool::findingkind::kFileOwner;
using qnpolicy::tool::findingkind::kFilePermissions;

// The root opens on line 2, so a body's first line is line 3.
std::string document(const std::string& body) {
    return "<?xml version=\"1.0\"?>\n<QuillnetLocalPolicy qnversion=\"5.1.8.105\">\n" + body +
           "</QuillnetLocalPolicy>\n";
}

// The findings of a readable file as "kind:line", space-separated.
std::string lint(qnpolicy::tool::CPolicyLinter& linter, const std::string& path) {
    const qnpolicy::tool::LintResult result = linter.LintFile(path);
    EXPECT_EQ(result.parseStatus, XMLPARSER_SUCCESS) << path;
    std::string found;
    for (const qnpolicy::tool::LintFinding& finding : result.findings) {
        found += (found.empty() ? "" : " ") + finding.kind + ":" + std::to_string(finding.line);
    }
    return found;
}

TEST(PolicyLinter, FlawedDocumentsYieldExactlyTheFindingsOfTheirFlaws) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {document("<BypassDownloader>true</BypassDownloader>\n"  // 3: the generated layout
                  "<RestrictPreferenceCaching>Credentials,Thumbprints</RestrictPreferenceCaching>\n"
                  "<RestrictTunnelProtocols>ipsec</RestrictTunnelProtocols>\n"
                  "<UpdatePolicy><AllowSoftwareUpdatesFromAnyServer>false"
                  "</AllowSoftwareUpdatesFromAnyServer><AuthorizedServerList>\n"
                  "<ServerName>gw1</ServerName><ServerName>gw2</ServerName>\n"
                  "</AuthorizedServerList><FipsMode>true</FipsMode></UpdatePolicy>\n"),
         ""},
        {document("<FipMode>true</FipMode>\n"                                      // 3
                  "<FipsMode>TRUE</FipsMode><EnableCRLCheck>1</EnableCRLCheck>\n"  // 4
                  "<BypassDownloader/>\n"                                          // 5
                  "<RestrictWebLaunch value=\"true\"/>\n"                          // 6
                  "<AllowSoftwareUpdatesFromAnyServer>true</AllowSoftwareUpdatesFromAnyServer>\n"
                  "<AuthorizedServerList><ServerName>a</ServerName></AuthorizedServerList>\n"
                  "<ServerName>gw3</ServerName>\n"  // 9
                  "<RestrictPreferenceCaching>Credentials,credentials,All"
                  "</RestrictPreferenceCaching>\n"                            // 10
                  "<RestrictTunnelProtocols>TLS</RestrictTunnelProtocols>\n"  // 11
                  "<FipsMode>false</FipsMode>\n"                              // 12
                  "<UpdatePolicy><AllowHelpUpdatesFromAnyServer>False"
                  "</AllowHelpUpdatesFromAnyServer>\n"                      // 13
                  "<AuthorizedServerList>gw1,gw2</AuthorizedServerList>\n"  // 14
                  "<UpdatePolicy></UpdatePolicy>\n"                         // 15
                  "<AllowScriptUpdatesFromAnyServer>true</AllowScriptUpdatesFromAnyServer>\n"
                  "</UpdatePolicy>\n"),
         "unknown-element:3 non-boolean-value:4 non-boolean-value:4 empty-value:5 "
         "ignored-attribute:6 empty-value:6 update-permission-outside-section:7 "
         "server-list-outside-section:8 server-name-outside-list:9 unknown-caching-token:10 "
         "ignored-caching-token:10 tunnel-value-not-applied:11 duplicate-setting:12 "
         "non-boolean-value:13 server-list-text:14 nested-update-policy:15 "
         "update-permission-outside-section:16"},
        {document("<UpdatePolicy><AuthorizedServerList>\n"
                  "<ServerName>gw1</ServerName><ServerName> gw2 </ServerName>\n"  // 4
                  "<ServerName>gw1</ServerName><ServerName></ServerName>\n"       // 5
                  "</AuthorizedServerList></UpdatePolicy>\n"
                  "<RestrictPreferenceCaching>Credentials,false,All</RestrictPreferenceCaching>\n"
                  "<RestrictPreferenceCaching>,,</RestrictPreferenceCaching>\n"  // 8
                  "<RestrictTunnelProtocols>udp</RestrictTunnelProtocols>\n"),   // 9
         "padded-server-name:4 duplicate-server-name:5 empty-value:5 "
         "caching-restrictions-cleared:7 ignored-caching-token:7 duplicate-setting:8 "
         "empty-value:8 tunnel-value-not-applied:9"},
        {"<?xml version=\"1.0\"?>\n<QuilnetLocalPolicy qnversion=\"6.0\"/>\n", "unknown-element:2"},
        {"<QuillnetLocalPolicy qnversion=\"5.1.8.106\"><QuillnetLocalPolicy qnversion=\"5.1\"/>"
         "</QuillnetLocalPolicy>\n",
         "newer-version:1"},
        {"<?xml version=\"1.0\"?>\n<!DOCTYPE QuillnetLocalPolicy [ <!ENTITY t \"true\"> ]>\n"
         "<QuillnetLocalPolicy>\n<FipsMode>TRUE</FipsMode>\n</QuillnetLocalPolicy>\n",
         "doctype:2 non-boolean-value:4"},
        // The shipped sample keeps one flaw of each common kind at a known line.
        {qntest::readFile(QN_FLAWED_SAMPLE),
         "newer-version:4 non-boolean-value:5 unknown-element:6 unknown-caching-token:7 "
         "ignored-caching-token:7 tunnel-value-not-applied:8 duplicate-setting:10 "
         "update-permission-outside-section:11 server-list-text:14 "
         "server-list-outside-section:16"},
    };
    qntest::TempDir dir;
    XmlLocalQNPolMgr manager;
    qnpolicy::tool::CPolicyLinter linter(manager.GetPolicyTransTable());
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(cases[i].first);
        // Each document after one cut off inside the update section: no state is carried over.
        EXPECT_NE(linter.LintFile(dir.write("cut.xml", "<QuillnetLocalPolicy><UpdatePolicy>"))
                      .parseStatus,
                  XMLPARSER_SUCCESS);
        EXPECT_EQ(lint(linter, dir.write(std::to_string(i) + ".xml", cases[i].first)),
                  cases[i].second);
    }
}

TEST(PolicyLinter, FlagsOwnersOtherThanRootAndGroupOrOtherWrite) {
    qntest::TempDir dir;
    const std::string path = dir.write("QuillnetLocalPolicy.xml", document(""));
    const bool bRoot = ::geteuid() == 0;
    for (const mode_t mode : {0644, 0664, 0646, 0666}) {
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
        std::vector<std::string> kinds;
        for (const auto& finding : qnpolicy::tool::CheckPolicyFileAttributes(path)) {
            kinds.push_back(finding.kind);
        }
        std::vector<std::string> expected;
        if (!bRoot) {
            expected.emplace_back(kFileOwner);
        }
        if ((mode & 022) != 0) {
            expected.emplace_back(kFilePermissions);
        }
        EXPECT_EQ(kinds, expected) << std::oct << mode;
    }
    if (bRoot) {  // a file owned by someone else draws the owner finding, naming the owner
        ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
        ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
        const auto findings = qnpolicy::tool::CheckPolicyFileAttributes(path);
        ASSERT_EQ(findings.size(), 1U);
        EXPECT_EQ(findings[0].kind, kFileOwner);
        EXPECT_NE(findings[0].message.find("65534"), std::string::npos);
    }
    EXPECT_TRUE(qnpolicy::tool::CheckPolicyFileAttributes(dir.path() + "missing.xml").empty());
}

}  // namespace

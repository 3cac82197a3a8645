// qnpolicy end to end: the built binary is run as an administrator would run it, and its
// exit status, standard output (text and JSON) and standard error are checked. The linter's
// findings, kinds and lines, are checked here as `check --json` reports them.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "PolicyModel.h"
#include "TestSupport.h"

namespace {

using Json = nlohmann::json;

// One run of the tool with these shell words: its exit status, standard output and error.
struct ToolRun {
    explicit ToolRun(const std::string& words) {
        const qntest::TempDir capture;
        const std::string redirect = " >" + capture.path() + "o 2>" + capture.path() + "e";
        status = WEXITSTATUS(std::system((QNPOLICY_BINARY " " + words + redirect).c_str()));
        out = qntest::readFile(capture.path() + "o");
        err = qntest::readFile(capture.path() + "e");
    }
    bool has(const std::string& part) const { return (out + err).find(part) != std::string::npos; }
    Json json() const { return Json::parse(out); }

    int status;
    std::string out;
    std::string err;
};

// Files the tests write belong to the test's user: a finding unless that is root.
const std::string kOwnerFinding = ::geteuid() == 0 ? "" : "file-owner:0 ";

// Every --help ends with the exit-code table; a usage error prints only on standard error.
TEST(QnpolicyTool, HelpVersionUsageErrorsAndVocabulary) {
    for (const std::string words :
         {"--help", "generate --help", "show --help", "check --help", "vocabulary --help", "",
          "frobnicate", "show --colour", "show --install-dir ''", "check a.xml b.xml"}) {
        const bool bHelp = words.find("--help") != std::string::npos;
        const ToolRun run(words);
        EXPECT_EQ(run.status, bHelp ? 0 : 64) << words;
        EXPECT_EQ(run.has("\nExit codes:\n") && run.has("\n  64  usage error"), bHelp) << words;
        EXPECT_EQ(run.out.empty() && !run.err.empty(), !bHelp) << words;
    }
    EXPECT_EQ(ToolRun("--version").out, "qnpolicy 5.1.8.105\n");
    const Json rows = ToolRun("vocabulary --json").json();  // in abbreviation order
    ASSERT_EQ(rows.size(), 29U);
    EXPECT_EQ(rows[15], Json::parse(R"({"abbreviation": "rtp", "element": "RestrictTunnelProtocols",
        "section": "root", "allowedValues": ["false", "TLS", "IPSec"]})"));
    EXPECT_TRUE(ToolRun("vocabulary").has("\necc    EnableCRLCheck"));
}

// What generate writes, show reads back and check finds clean: each on/off setting under its
// element name (a flag is on in the runs of the set bits of its row, so no two rows can swap
// unseen), the exclude mask and the servers. Then the generate warnings and failures.
TEST(QnpolicyTool, GenerateWritesWhatShowReadsBackAndCheckFindsClean) {
    qntest::TempDir dir;
    const std::string path = dir.path() + "QuillnetLocalPolicy.xml";
    // Without its trailing separator, which the tool adds.
    const std::string install = " --install-dir " + dir.path().substr(0, dir.path().size() - 1);
    for (unsigned int bit = 0; bit < 5; ++bit) {
        std::map<std::string, std::string> settings;
        std::string args = "generate --overwrite ewn=true 'upal=gw 1;gw2'";
        unsigned int row = 0;
        for (const qntest::PolicyFlag& flag : qntest::kPolicyFlags) {
            settings[flag.element] = ((row++ >> bit) & 1U) != 0 ? "true" : "false";
            args += std::string(" ") + flag.abbreviation + "=" + settings[flag.element];
        }
        EXPECT_EQ(ToolRun(args + install).out, "Wrote the policy file " + path + ".\n");
        const Json shown = ToolRun("show --json" + install).json();
        const LocalQNPolicyInfo expected = qntest::expectedRecord(settings, "");
        for (const qntest::PolicyFlag& flag : qntest::kPolicyFlags) {
            EXPECT_EQ(shown.at("settings").at(flag.element), (expected.*flag.get)()) << bit;
        }
        EXPECT_EQ(shown.at("excludeCertStoreMask"), "0x000000C3");
        EXPECT_EQ(shown.at("settings").at("AuthorizedServerList"), Json({"gw 1", "gw2"}));
        EXPECT_EQ(ToolRun("check" + install).status, kOwnerFinding.empty() ? 0 : 1);
    }
    EXPECT_TRUE(ToolRun("show" + install).has("\n      \"gw 1\"\n"));
    EXPECT_EQ(ToolRun("generate rtp=tls" + install).out,
              "Kept the existing policy file " + path + " (use --overwrite to replace it).\n");
    // The warning follows the first accepted "rtp" value, which generation writes.
    for (const std::string args : {"rtp=IPSEC", "rtp=udp rtp=tls", "rtp=false rtp=tls"}) {
        EXPECT_EQ(ToolRun("generate --overwrite " + std::string(args) + install)
                      .has("qnpolicy generate: warning: the tunnel restriction is written as"),
                  args != "rtp=false rtp=tls");
    }
    const ToolRun failed("generate fm=true --install-dir " + path + "/sub");
    EXPECT_EQ(failed.status, 1);
    EXPECT_TRUE(failed.out.empty() && failed.has("was not written") && failed.has("E "));
    dir.write("QuillnetLocalPolicy.xml", "<QuillnetLocalPolicy><FipsMode>true</Fips");
    const ToolRun unloadable("show --json" + install);
    EXPECT_EQ(unloadable.status, 1);
    EXPECT_TRUE(unloadable.out.empty() && unloadable.has("E LoadLocalQuillnetPolicy ") &&
                unloadable.has("qnpolicy show: cannot load " + path));
}

// Each document yields exactly the findings, kinds and lines, of its flaws; the files are
// writable by their group, a finding of its own. The shipped sample keeps one flaw of each
// common kind at a known line; the documents here add the kinds it lacks.
TEST(QnpolicyTool, CheckFindsExactlyTheFlawsOfEachDocument) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<?xml version=\"1.0\"?>\n<!DOCTYPE QuillnetLocalPolicy [ <!ENTITY t \"true\"> ]>\n"
         "<QuillnetLocalPolicy qnversion=\"5.1.8.106\">\n<BypassDownloader/>\n"
         "<RestrictWebLaunch value=\"true\"/>\n<EnableCRLCheck>True</EnableCRLCheck>\n"
         "<ServerName>gw3</ServerName>\n"
         "<RestrictPreferenceCaching>Credentials,false,All</RestrictPreferenceCaching>\n"
         "<RestrictPreferenceCaching>,,</RestrictPreferenceCaching>\n"
         "<RestrictTunnelProtocols>udp</RestrictTunnelProtocols>\n<UpdatePolicy>"
         "<AllowHelpUpdatesFromAnyServer>False</AllowHelpUpdatesFromAnyServer>\n"
         "<AuthorizedServerList><ServerName>gw1</ServerName>\n<ServerName> gw2 </ServerName>"
         "<ServerName>gw1</ServerName>\n<ServerName></ServerName>\n"
         "</AuthorizedServerList><UpdatePolicy></UpdatePolicy>\n"
         // The nested section's end ended the outer one too, as for the reader.
         "<AllowScriptUpdatesFromAnyServer>true</AllowScriptUpdatesFromAnyServer>\n"
         "</UpdatePolicy></QuillnetLocalPolicy>\n",
         "file-permissions:0 doctype:2 newer-version:3 empty-value:4 ignored-attribute:5 "
         "empty-value:5 non-boolean-value:6 server-name-outside-list:7 "
         "caching-restrictions-cleared:8 ignored-caching-token:8 duplicate-setting:9 empty-value:9 "
         "tunnel-value-not-applied:10 non-boolean-value:11 padded-server-name:13 "
         "duplicate-server-name:13 empty-value:14 nested-update-policy:15 "
         "update-permission-outside-section:16"},
        {qntest::readFile(QN_FLAWED_SAMPLE),
         "file-permissions:0 newer-version:4 non-boolean-value:5 unknown-element:6 "
         "unknown-caching-token:7 ignored-caching-token:7 tunnel-value-not-applied:8 "
         "duplicate-setting:10 update-permission-outside-section:11 server-list-text:14 "
         "server-list-outside-section:16"},
    };
    qntest::TempDir dir;
    for (const auto& [content, expected] : cases) {
        const std::string path = dir.write("p.xml", content);
        ASSERT_EQ(::chmod(path.c_str(), 0620), 0);
        const Json report = ToolRun("check --json " + path).json();
        std::string found;
        for (const Json& finding : report.at("findings")) {
            found += (found.empty() ? "" : " ") + finding.at("kind").get<std::string>() + ":" +
                     finding.at("line").dump();
        }
        EXPECT_EQ(found, kOwnerFinding + expected) << content;
    }
}

// Findings print as FILE[:LINE:COLUMN]: kind: message, the owner if not root and write access
// for others among them; findings exit with 1, a file that cannot be read with 2.
TEST(QnpolicyTool, CheckPrintsFindingsAndExitsWith2OnUnreadableFiles) {
    qntest::TempDir dir;
    const std::string path = dir.write("f.xml", qntest::readFile(QN_FLAWED_SAMPLE));
    const uid_t owner = ::geteuid() == 0 ? 65534 : ::geteuid();
    ASSERT_EQ(::chown(path.c_str(), owner, static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0602), 0);
    const ToolRun text("check " + path);
    EXPECT_EQ(text.status, 1);
    for (const std::string& line : std::vector<std::string>{
             ": file-owner: The file is owned by user id " + std::to_string(owner) + ", not by",
             ": file-permissions: The file's mode is 0602: its group or others can change",
             ":6:5: unknown-element: Unknown element \"BypassDownloder\"", ": 12 findings\n"}) {
        EXPECT_TRUE(text.has(path + line)) << line << "\n" << text.out;
    }
    for (const std::string& bad : {dir.write("bad.xml", "<x><y>"), dir.path() + "none.xml"}) {
        const ToolRun json("check --json " + bad);
        EXPECT_TRUE(json.status == 2 && json.json().at("readable") == false) << json.out;
        EXPECT_TRUE(json.has("\nqnpolicy check: " + bad + " is missing, unreadable or not well-"));
    }
}

}  // namespace

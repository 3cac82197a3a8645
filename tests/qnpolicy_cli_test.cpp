// qnpolicy end to end: the built binary is run as an administrator would run it, and its
// exit status, standard output (text and JSON) and standard error are checked.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using Json = nlohmann::json;

struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
    bool has(const std::string& part) const { return (out + err).find(part) != std::string::npos; }
    Json json() const { return Json::parse(out); }
};

// Runs the tool with these shell words, its streams in files.
ToolRun tool(const std::string& words) {
    qntest::TempDir capture;
    const std::string command = std::string(QNPOLICY_BINARY) + " " + words + " >" + capture.path() +
                                "o 2>" + capture.path() + "e";
    const int status = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(status)) << command;
    return {WEXITSTATUS(status), qntest::readFile(capture.path() + "o"),
            qntest::readFile(capture.path() + "e")};
}

std::string document(const std::string& body) {
    return "<?xml version=\"1.0\"?>\n<QuillnetLocalPolicy qnversion=\"5.1.8.105\">\n" + body +
           "</QuillnetLocalPolicy>\n";
}

// A test's files belong to the test's user: a finding unless that is root.
const size_t kOwnerFindings = ::geteuid() == 0 ? 0 : 1;

TEST(QnpolicyTool, HelpVersionAndUsageErrors) {
    for (const char* words :
         {"--help", "generate --help", "show --help", "check --help", "vocabulary --help"}) {
        const ToolRun help = tool(words);
        EXPECT_EQ(help.status, 0) << words;
        EXPECT_TRUE(help.has("Exit codes:") && help.has("64  usage error")) << help.out;
    }
    EXPECT_EQ(tool("--version").out, "qnpolicy 5.1.8.105\n");
    for (const char* words :
         {"", "frobnicate", "show --colour", "show --install-dir ''", "check a.xml b.xml"}) {
        const ToolRun run = tool(words);
        EXPECT_EQ(run.status, 64) << words;
        EXPECT_TRUE(run.out.empty() && !run.err.empty()) << run.out;
    }
}

TEST(QnpolicyTool, VocabularyListsThe29AbbreviationsInOrder) {
    const Json rows = tool("vocabulary --json").json();
    ASSERT_EQ(rows.size(), 29U);
    size_t updateRows = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_TRUE(i == 0 || rows[i - 1].at("abbreviation") < rows[i].at("abbreviation"));
        updateRows += rows[i].at("section") == "UpdatePolicy" ? 1 : 0;
    }
    EXPECT_EQ(updateRows, 11U);
    EXPECT_EQ(rows[15], Json::parse(R"({"abbreviation": "rtp", "element": "RestrictTunnelProtocols",
        "section": "root", "allowedValues": ["false", "TLS", "IPSec"]})"));
    EXPECT_TRUE(tool("vocabulary").has("ecc    EnableCRLCheck"));
}

TEST(QnpolicyTool, GenerateWritesKeepsOrOverwritesAndWarns) {
    qntest::TempDir dir;
    const std::string path = dir.path() + "QuillnetLocalPolicy.xml";
    // Without its trailing separator, which the tool adds.
    const std::string install = " --install-dir " + dir.path().substr(0, dir.path().size() - 1);
    const ToolRun wrote = tool("generate fm=TRUE xx=1" + install);
    EXPECT_EQ(wrote.status, 0);
    EXPECT_EQ(wrote.out, "Wrote the policy file " + path + ".\n");
    EXPECT_TRUE(wrote.has("W GenerateLocalPolicy vpn/Common/Xml/XmlLocalQNPolMgr:") &&
                wrote.has("ignoring undefined abbreviation xx\n"));
    const std::string written = qntest::readFile(path);
    EXPECT_NE(written.find("<FipsMode>true</FipsMode>"), std::string::npos);

    const ToolRun kept = tool("generate rtp=tls" + install);
    EXPECT_EQ(kept.status, 0);
    EXPECT_TRUE(kept.has("Kept the existing policy file") && kept.has("already exists"));
    EXPECT_FALSE(kept.has("warning: the tunnel restriction"));
    EXPECT_EQ(qntest::readFile(path), written);

    // The tunnel warning follows the first accepted "rtp" value, which generation writes.
    for (const auto& [args, bWarn] : {std::pair{"rtp=IPSEC", true},
                                      {"rtp=udp rtp=tls", true},
                                      {"rtp=false", false},
                                      {"rtp=false rtp=tls", false}}) {
        const ToolRun run = tool(std::string("generate --overwrite ") + args + install);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.has("qnpolicy generate: warning: the tunnel restriction is written as"),
                  bWarn)
            << args;
        EXPECT_EQ(qntest::readFile(path).find("FipsMode"), std::string::npos);
    }
    const ToolRun failed = tool("generate fm=true --install-dir " + path + "/sub");
    EXPECT_EQ(failed.status, 1);
    EXPECT_TRUE(failed.out.empty() && failed.has("was not written") && failed.has("E "));
}

TEST(QnpolicyTool, ShowPrintsTheEffectivePolicyOrTheLoadError) {
    qntest::TempDir dir;
    const std::string show = "show --json --install-dir " + dir.path();
    const Json defaults = tool(show).json();
    EXPECT_EQ(defaults.at("policyFile"), dir.path() + "QuillnetLocalPolicy.xml");
    EXPECT_EQ(defaults.at("exists"), false);
    EXPECT_EQ(defaults.at("settings").size(), 29U);
    EXPECT_EQ(defaults.at("settings").at("AllowSoftwareUpdatesFromAnyServer"), true);

    dir.write("QuillnetLocalPolicy.xml",
              document("<FipsMode>true</FipsMode><BypassDownloader>TRUE</BypassDownloader>\n"
                       "<RestrictServerCertStore>true</RestrictServerCertStore>\n"
                       "<ExcludeWinNativeCertStore>true</ExcludeWinNativeCertStore>\n"
                       "<RestrictPreferenceCaching>All,Credentials</RestrictPreferenceCaching>\n"
                       "<UpdatePolicy><AuthorizedServerList><ServerName>gw 1</ServerName>"
                       "<ServerName>gw2</ServerName></AuthorizedServerList></UpdatePolicy>\n"));
    const Json shown = tool(show).json();
    EXPECT_EQ(shown.at("version"), "5.1.8.105");
    EXPECT_EQ(shown.at("excludeCertStoreMask"), "0x000000C3");
    const Json& settings = shown.at("settings");
    EXPECT_EQ(settings.at("FipsMode"), true);
    EXPECT_EQ(settings.at("BypassDownloader"), false);
    EXPECT_EQ(settings.at("StrictCertificateTrust"), true);  // implied by the server store
    EXPECT_EQ(settings.at("RestrictPreferenceCaching"), "false,Credentials,All");
    EXPECT_EQ(settings.at("AuthorizedServerList"), Json({"gw 1", "gw2"}));
    EXPECT_TRUE(tool("show --install-dir " + dir.path()).has("\"gw 1\""));

    dir.write("QuillnetLocalPolicy.xml", "<QuillnetLocalPolicy><FipsMode>true</Fips");
    const ToolRun failed = tool(show);
    EXPECT_EQ(failed.status, 1);
    EXPECT_TRUE(failed.out.empty() && failed.has("E LoadLocalQuillnetPolicy ") &&
                failed.has("qnpolicy show: cannot load " + dir.path() + "QuillnetLocalPolicy.xml"));
}

TEST(QnpolicyTool, CheckReportsFindingsAsTextAndJsonAndExitsWith2OnUnreadableFiles) {
    qntest::TempDir dir;
    const std::string path =
        dir.write("flawed.xml", document("  <FipMode>true</FipMode>\n<FipsMode>TRUE</FipsMode>\n"));
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
    const ToolRun text = tool("check " + path);
    EXPECT_EQ(text.status, 1);
    for (const std::string& line :
         std::vector<std::string>{": file-permissions: The file's mode is 0666",
                                  ":3:3: unknown-element: ", ":4:1: non-boolean-value: ",
                                  ": " + std::to_string(3 + kOwnerFindings) + " findings\n"}) {
        EXPECT_TRUE(text.has(path + line)) << line << "\n" << text.out;
    }
    EXPECT_TRUE(text.has("Did you mean \"FipsMode\"?"));
    const Json report = tool("check --json " + path).json();
    EXPECT_EQ(report.at("file"), path);
    EXPECT_EQ(report.at("readable"), true);
    const Json unknown = report.at("findings").at(report.at("findings").size() - 2);
    EXPECT_EQ(unknown.at("kind"), "unknown-element");
    EXPECT_EQ(unknown.at("line"), 3);
    EXPECT_EQ(unknown.at("column"), 3);

    // A DTD is a finding, not a parse error: the parser's refusal is not printed.
    const ToolRun dtd =
        tool("check --json " + dir.write("d.xml", "<!DOCTYPE x>\n<QuillnetLocalPolicy/>\n"));
    EXPECT_EQ(dtd.status, 1);
    EXPECT_EQ(dtd.json().at("findings").back().at("kind"), "doctype");
    EXPECT_EQ(dtd.err.find("E "), std::string::npos) << dtd.err;

    for (const std::string& bad : {dir.write("bad.xml", "<x><y>"), dir.path() + "none.xml"}) {
        const ToolRun run = tool("check " + bad);
        EXPECT_EQ(run.status, 2);
        EXPECT_TRUE(run.has("qnpolicy check: " + bad + " is missing, unreadable or not well-"));
        const ToolRun json = tool("check --json " + bad);
        EXPECT_EQ(json.status, 2);
        EXPECT_EQ(json.json().at("readable"), false);
    }
    dir.write("QuillnetLocalPolicy.xml", document(""));
    EXPECT_EQ(tool("check --install-dir " + dir.path()).status, kOwnerFindings);
}

}  // namespace

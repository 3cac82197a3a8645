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

// Runs the tool through the shell with its streams in files (no argument holds a quote).
ToolRun tool(const std::vector<std::string>& args) {
    qntest::TempDir capture;
    std::string command = QNPOLICY_BINARY;
    for (const std::string& arg : args) {
        command += " '" + arg + "'";
    }
    const int status =
        std::system((command + " >" + capture.path() + "o 2>" + capture.path() + "e").c_str());
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
    for (const char* subcommand : {"generate", "show", "check", "vocabulary", "--help"}) {
        const ToolRun help = tool({subcommand, "--help"});
        EXPECT_EQ(help.status, 0) << subcommand;
        EXPECT_TRUE(help.has("Exit codes:") && help.has("64  usage error")) << help.out;
    }
    EXPECT_EQ(tool({"--version"}).out, "qnpolicy 5.1.8.105\n");
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{},
                                               {"frobnicate"},
                                               {"show", "--colour"},
                                               {"show", "--install-dir", ""},
                                               {"check", "a.xml", "b.xml"}}) {
        const ToolRun run = tool(args);
        EXPECT_EQ(run.status, 64) << run.err;
        EXPECT_TRUE(run.out.empty() && !run.err.empty()) << run.out;
    }
}

TEST(QnpolicyTool, VocabularyListsThe29AbbreviationsInOrder) {
    const Json rows = tool({"vocabulary", "--json"}).json();
    ASSERT_EQ(rows.size(), 29U);
    size_t updateRows = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_TRUE(i == 0 || rows[i - 1].at("abbreviation") < rows[i].at("abbreviation"));
        updateRows += rows[i].at("section") == "UpdatePolicy" ? 1 : 0;
    }
    EXPECT_EQ(updateRows, 11U);
    EXPECT_EQ(rows[15], Json::parse(R"({"abbreviation": "rtp", "element": "RestrictTunnelProtocols",
        "section": "root", "allowedValues": ["false", "TLS", "IPSec"]})"));
    EXPECT_TRUE(tool({"vocabulary"}).has("ecc    EnableCRLCheck"));
}

TEST(QnpolicyTool, GenerateWritesKeepsOrOverwritesAndWarns) {
    qntest::TempDir dir;
    const std::string path = dir.path() + "QuillnetLocalPolicy.xml";
    std::string install = dir.path();
    install.pop_back();  // the tool adds the separator
    const ToolRun wrote = tool({"generate", "--install-dir", install, "fm=TRUE", "xx=1"});
    EXPECT_EQ(wrote.status, 0);
    EXPECT_EQ(wrote.out, "Wrote the policy file " + path + ".\n");
    EXPECT_TRUE(wrote.has("W GenerateLocalPolicy vpn/Common/Xml/XmlLocalQNPolMgr:"));
    EXPECT_TRUE(wrote.has("ignoring undefined abbreviation xx\n"));
    const std::string written = qntest::readFile(path);
    EXPECT_NE(written.find("<FipsMode>true</FipsMode>"), std::string::npos);

    const ToolRun kept = tool({"generate", "--install-dir", install, "rtp=tls"});
    EXPECT_EQ(kept.status, 0);
    EXPECT_TRUE(kept.has("Kept the existing policy file") && kept.has("already exists"));
    EXPECT_FALSE(kept.has("warning: the tunnel restriction"));
    EXPECT_EQ(qntest::readFile(path), written);

    // The tunnel warning follows the first accepted "rtp" value that generation writes.
    for (const auto& [args, bWarn] : std::vector<std::pair<std::vector<std::string>, bool>>{
             {{"rtp=IPSEC"}, true},
             {{"rtp=udp", "rtp=tls"}, true},
             {{"rtp=false"}, false},
             {{"rtp=false", "rtp=tls"}, false}}) {
        std::vector<std::string> command = {"generate", "--overwrite", "--install-dir", install};
        command.insert(command.end(), args.begin(), args.end());
        const ToolRun run = tool(command);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.has("qnpolicy generate: warning: the tunnel restriction is written as"),
                  bWarn)
            << args.back();
        EXPECT_EQ(qntest::readFile(path).find("FipsMode"), std::string::npos);
    }
    const ToolRun failed = tool({"generate", "--install-dir", path + "/sub", "fm=true"});
    EXPECT_EQ(failed.status, 1);
    EXPECT_TRUE(failed.out.empty() && failed.has("was not written") && failed.has("E "));
}

TEST(QnpolicyTool, ShowPrintsTheEffectivePolicyOrTheLoadError) {
    qntest::TempDir dir;
    const Json defaults = tool({"show", "--json", "--install-dir", dir.path()}).json();
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
    const ToolRun run = tool({"show", "--json", "--install-dir", dir.path()});
    EXPECT_TRUE(run.has("FIPS mode is enabled."));
    const Json shown = run.json();
    EXPECT_EQ(shown.at("version"), "5.1.8.105");
    EXPECT_EQ(shown.at("excludeCertStoreMask"), "0x000000C3");
    const Json& settings = shown.at("settings");
    EXPECT_EQ(settings.at("FipsMode"), true);
    EXPECT_EQ(settings.at("BypassDownloader"), false);
    EXPECT_EQ(settings.at("StrictCertificateTrust"), true);  // implied by the server store
    EXPECT_EQ(settings.at("RestrictPreferenceCaching"), "false,Credentials,All");
    EXPECT_EQ(settings.at("AuthorizedServerList"), Json({"gw 1", "gw2"}));
    EXPECT_TRUE(tool({"show", "--install-dir", dir.path()}).has("\"gw 1\""));

    dir.write("QuillnetLocalPolicy.xml", "<QuillnetLocalPolicy><FipsMode>true</Fips");
    const ToolRun failed = tool({"show", "--json", "--install-dir", dir.path()});
    EXPECT_EQ(failed.status, 1);
    EXPECT_TRUE(failed.out.empty() && failed.has("E LoadLocalQuillnetPolicy ") &&
                failed.has("qnpolicy show: cannot load " + dir.path() + "QuillnetLocalPolicy.xml"));
}

TEST(QnpolicyTool, CheckReportsFindingsAsTextAndJsonAndExitsWith2OnUnreadableFiles) {
    qntest::TempDir dir;
    const std::string path =
        dir.write("flawed.xml", document("  <FipMode>true</FipMode>\n<FipsMode>TRUE</FipsMode>\n"));
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
    const ToolRun text = tool({"check", path});
    EXPECT_EQ(text.status, 1);
    for (const std::string& line :
         std::vector<std::string>{": file-permissions: The file's mode is 0666",
                                  ":3:3: unknown-element: ", ":4:1: non-boolean-value: ",
                                  ": " + std::to_string(3 + kOwnerFindings) + " findings\n"}) {
        EXPECT_TRUE(text.has(path + line)) << line << "\n" << text.out;
    }
    EXPECT_TRUE(text.has("Did you mean \"FipsMode\"?"));
    const Json report = tool({"check", "--json", path}).json();
    EXPECT_EQ(report.at("file"), path);
    EXPECT_EQ(report.at("readable"), true);
    const Json unknown = report.at("findings").at(report.at("findings").size() - 2);
    EXPECT_EQ(unknown.at("kind"), "unknown-element");
    EXPECT_EQ(unknown.at("line"), 3);
    EXPECT_EQ(unknown.at("column"), 3);

    const ToolRun dtd =
        tool({"check", "--json",
              dir.write("d.xml", "<!DOCTYPE QuillnetLocalPolicy>\n<QuillnetLocalPolicy/>\n")});
    EXPECT_EQ(dtd.status, 1);
    EXPECT_EQ(dtd.json().at("findings").back().at("kind"), "doctype");
    EXPECT_EQ(dtd.err.find("E "), std::string::npos)
        << dtd.err;  // the finding replaces the parser's refusal

    for (const std::string& bad : {dir.write("bad.xml", "<x><y>"), dir.path() + "none.xml"}) {
        const ToolRun run = tool({"check", bad});
        EXPECT_EQ(run.status, 2);
        EXPECT_TRUE(run.has("qnpolicy check: " + bad + " is missing, unreadable or not well-"));
        const ToolRun json = tool({"check", "--json", bad});
        EXPECT_EQ(json.status, 2);
        EXPECT_EQ(json.json().at("readable"), false);
    }
    dir.write("QuillnetLocalPolicy.xml", document(""));
    EXPECT_EQ(tool({"check", "--install-dir", dir.path()}).status, kOwnerFindings);
}

}  // namespace

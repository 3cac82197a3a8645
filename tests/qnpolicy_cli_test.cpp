// qnpolicy end to end: the built binary is run as an administrator would run it, and its
// exit status, standard output (text and JSON) and standard error are checked.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using Json = nlohmann::json;

constexpr char kPolicyFile[] = "QuillnetLocalPolicy.xml";
constexpr int kExitFindings = 1;
constexpr int kExitUnreadable = 2;
constexpr int kExitUsage = 64;

struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs the tool with args; its output goes through files so that neither stream can block.
ToolRun runTool(const std::vector<std::string>& args) {
    qntest::TempDir capture;
    const std::string outPath = capture.path() + "stdout";
    const std::string errPath = capture.path() + "stderr";
    std::vector<std::string> argvText = {QNPOLICY_BINARY};
    argvText.insert(argvText.end(), args.begin(), args.end());
    std::vector<char*> argv;
    argv.reserve(argvText.size() + 1);
    for (std::string& arg : argvText) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);

    const pid_t pid = ::fork();
    if (pid == 0) {
        const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (out < 0 || err < 0 || ::dup2(out, STDOUT_FILENO) < 0 ||
            ::dup2(err, STDERR_FILENO) < 0) {
            ::_exit(127);
        }
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ToolRun run;
    int waitStatus = 0;
    if (pid < 0 || ::waitpid(pid, &waitStatus, 0) != pid || !WIFEXITED(waitStatus)) {
        ADD_FAILURE() << "qnpolicy did not run to its end";
        return run;
    }
    run.status = WEXITSTATUS(waitStatus);
    run.out = qntest::readFile(outPath);
    run.err = qntest::readFile(errPath);
    return run;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

Json parseJson(const ToolRun& run) {
    Json parsed = Json::parse(run.out, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << run.out;
    return parsed;
}

std::string document(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<QuillnetLocalPolicy qnversion=\"5.1.8.105\">\n" +
           body + "</QuillnetLocalPolicy>\n";
}

// The file findings a freshly written test file draws: none as root, its owner otherwise.
size_t ownershipFindings() {
    return ::geteuid() == 0 ? 0 : 1;
}

TEST(ToolUsage, HelpOnEveryLevelDocumentsTheExitCodes) {
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"--help"},
                                               {"generate", "--help"},
                                               {"show", "--help"},
                                               {"check", "--help"},
                                               {"vocabulary", "--help"}}) {
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.status, 0) << args[0];
        EXPECT_TRUE(contains(run.out, "Exit codes:")) << args[0] << run.out;
        EXPECT_TRUE(contains(run.out, "64  usage error")) << args[0];
        if (args.size() > 1) {
            EXPECT_TRUE(contains(run.out, "--install-dir DIR")) << args[0] << run.out;
        }
    }
    const ToolRun top = runTool({"--help"});
    for (const char* subcommand : {"generate", "show", "check", "vocabulary"}) {
        EXPECT_TRUE(contains(top.out, subcommand)) << subcommand;
    }
}

TEST(ToolUsage, VersionIsTheClientVersion) {
    const ToolRun run = runTool({"--version"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "qnpolicy 5.1.8.105\n");
}

TEST(ToolUsage, UsageErrorsExitWith64AndSayWhy) {
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{},
                                               {"frobnicate"},
                                               {"show", "--colour"},
                                               {"show", "--install-dir"},
                                               {"show", "--install-dir", ""},
                                               {"check", "a.xml", "b.xml"}}) {
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.status, kExitUsage) << (args.empty() ? "(none)" : args.back());
        EXPECT_FALSE(run.err.empty());
        EXPECT_TRUE(run.out.empty()) << run.out;
    }
}

TEST(ToolVocabulary, ListsThe29AbbreviationsWithSectionAndValues) {
    const ToolRun run = runTool({"vocabulary", "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    const Json rows = parseJson(run);
    ASSERT_TRUE(rows.is_array());
    ASSERT_EQ(rows.size(), 29U);
    size_t updateRows = 0;
    std::string previous;
    for (const Json& row : rows) {
        EXPECT_LT(previous, row.at("abbreviation").get<std::string>());
        previous = row.at("abbreviation").get<std::string>();
        updateRows += row.at("section") == "UpdatePolicy" ? 1 : 0;
        if (row.at("abbreviation") == "rtp") {
            EXPECT_EQ(row.at("element"), "RestrictTunnelProtocols");
            EXPECT_EQ(row.at("section"), "root");
            EXPECT_EQ(row.at("allowedValues"), Json({"false", "TLS", "IPSec"}));
        }
        if (row.at("abbreviation") == "upal") {
            EXPECT_EQ(row.at("element"), "AuthorizedServerList");
            EXPECT_TRUE(row.at("allowedValues").empty());
        }
    }
    EXPECT_EQ(updateRows, 11U);

    const ToolRun text = runTool({"vocabulary"});
    ASSERT_EQ(text.status, 0);
    EXPECT_TRUE(contains(text.out, "ecc    EnableCRLCheck"));
    EXPECT_TRUE(contains(text.out, "true, false"));
    EXPECT_TRUE(contains(text.out, "(any text)"));
}

TEST(ToolGenerate, WritesKeepsAndOverwritesThePolicyFile) {
    qntest::TempDir install;
    const std::string path = install.path() + kPolicyFile;
    // The install directory without its trailing separator: the tool adds it.
    std::string dir = install.path();
    dir.pop_back();

    const ToolRun first = runTool({"generate", "--install-dir", dir, "fm=TRUE", "bd=true"});
    ASSERT_EQ(first.status, 0) << first.err;
    EXPECT_TRUE(contains(first.out, "Wrote the policy file " + path));
    const std::string written = qntest::readFile(path);
    EXPECT_TRUE(contains(written, "<FipsMode>true</FipsMode>")) << written;

    const ToolRun kept = runTool({"generate", "--install-dir", dir, "fm=false"});
    EXPECT_EQ(kept.status, 0) << kept.err;
    EXPECT_TRUE(contains(kept.out, "Kept the existing policy file"));
    EXPECT_TRUE(contains(kept.err, "W GenerateLocalPolicy vpn/Common/Xml/XmlLocalQNPolMgr:"));
    EXPECT_TRUE(contains(kept.err, "already exists"));
    EXPECT_EQ(qntest::readFile(path), written);

    const ToolRun replaced = runTool({"generate", "--overwrite", "--install-dir", dir, "fm=false"});
    EXPECT_EQ(replaced.status, 0) << replaced.err;
    EXPECT_TRUE(contains(qntest::readFile(path), "<FipsMode>false</FipsMode>"));
    EXPECT_FALSE(contains(qntest::readFile(path), "BypassDownloader"));
}

TEST(ToolGenerate, PrintsTheModuleWarningsForUnusableArgumentsOneLineEach) {
    qntest::TempDir install;
    const ToolRun run =
        runTool({"generate", "--install-dir", install.path(), "xx=1", "fm=maybe", "novalue"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(contains(run.err, "ignoring undefined abbreviation xx\n"));
    EXPECT_TRUE(contains(run.err, "maybe is not an allowed value for policy FipsMode\n"));
    EXPECT_TRUE(contains(run.err, "ignoring invalid argument novalue."));
    for (size_t start = 0; start < run.err.size();) {
        const size_t end = run.err.find('\n', start);
        ASSERT_NE(end, std::string::npos) << "unterminated line";
        EXPECT_EQ(run.err[start + 1], ' ') << run.err.substr(start, end - start);
        start = end + 1;
    }
}

TEST(ToolGenerate, WarnsWhenTheTunnelRestrictionWillNotBeApplied) {
    struct Case {
        std::vector<std::string> args;
        bool bWarn;
    };
    const Case cases[] = {
        {{"rtp=tls"}, true},
        {{"rtp=IPSEC"}, true},
        {{"rtp=false"}, false},
        {{"rtp=udp", "rtp=TLS"}, true},     // the refused value does not count
        {{"rtp=false", "rtp=tls"}, false},  // the first accepted value is written
        {{"fm=true"}, false},
    };
    for (const Case& test : cases) {
        qntest::TempDir install;
        std::vector<std::string> args = {"generate", "--install-dir", install.path()};
        args.insert(args.end(), test.args.begin(), test.args.end());
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(contains(run.err, "qnpolicy generate: warning: the tunnel restriction"),
                  test.bWarn)
            << test.args.back() << "\n"
            << run.err;
    }
    // Nothing is written when the file is kept, so there is nothing to warn about.
    qntest::TempDir install;
    install.write(kPolicyFile, document(""));
    const ToolRun kept = runTool({"generate", "--install-dir", install.path(), "rtp=tls"});
    EXPECT_EQ(kept.status, 0);
    EXPECT_FALSE(contains(kept.err, "warning: the tunnel restriction"));
}

TEST(ToolGenerate, FailsWhenTheFileCannotBeWritten) {
    qntest::TempDir install;
    const ToolRun run =
        runTool({"generate", "--install-dir", install.path() + "missing/dir", "fm=true"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.err, "was not written"));
    EXPECT_TRUE(contains(run.err, "E ")) << run.err;
    EXPECT_TRUE(run.out.empty());
}

TEST(ToolShow, PrintsDefaultsForAMissingFile) {
    qntest::TempDir install;
    const ToolRun run = runTool({"show", "--json", "--install-dir", install.path()});
    ASSERT_EQ(run.status, 0) << run.err;
    const Json shown = parseJson(run);
    EXPECT_EQ(shown.at("policyFile"), install.path() + kPolicyFile);
    EXPECT_EQ(shown.at("exists"), false);
    EXPECT_TRUE(shown.at("version").is_null());
    EXPECT_EQ(shown.at("fipsModeModifiedOnDisk"), false);
    EXPECT_EQ(shown.at("excludeCertStoreMask"), "0x00000000");
    const Json& settings = shown.at("settings");
    // One entry per element of the vocabulary, named as in the file.
    const ToolRun vocabulary = runTool({"vocabulary", "--json"});
    std::set<std::string> elements;
    for (const Json& row : parseJson(vocabulary)) {
        elements.insert(row.at("element").get<std::string>());
    }
    std::set<std::string> keys;
    for (const auto& entry : settings.items()) {
        keys.insert(entry.key());
    }
    EXPECT_EQ(keys, elements);
    EXPECT_EQ(settings.at("FipsMode"), false);
    EXPECT_EQ(settings.at("AllowSoftwareUpdatesFromAnyServer"), true);
    EXPECT_EQ(settings.at("RestrictPreferenceCaching"), "false");
    EXPECT_EQ(settings.at("RestrictTunnelProtocols"), "false");
    EXPECT_TRUE(settings.at("AuthorizedServerList").empty());

    const ToolRun text = runTool({"show", "--install-dir", install.path()});
    ASSERT_EQ(text.status, 0);
    EXPECT_TRUE(contains(text.out, "(absent: defaults apply)"));
    EXPECT_TRUE(contains(text.out, "Version:     (none)"));
}

TEST(ToolShow, PrintsTheEffectivePolicyOfAFile) {
    qntest::TempDir install;
    install.write(
        kPolicyFile,
        document("<FipsMode>true</FipsMode>\n"
                 "<BypassDownloader>TRUE</BypassDownloader>\n"
                 "<RestrictServerCertStore>true</RestrictServerCertStore>\n"
                 "<ExcludeWinNativeCertStore>true</ExcludeWinNativeCertStore>\n"
                 "<ExcludeMacNativeCertStore>true</ExcludeMacNativeCertStore>\n"
                 "<RestrictPreferenceCaching>All,Credentials</RestrictPreferenceCaching>\n"
                 "<RestrictTunnelProtocols>ipsec</RestrictTunnelProtocols>\n"
                 "<UpdatePolicy>\n"
                 "<AllowHelpUpdatesFromAnyServer>false</AllowHelpUpdatesFromAnyServer>\n"
                 "<AuthorizedServerList><ServerName>gw 1</ServerName>"
                 "<ServerName>gw2</ServerName></AuthorizedServerList>\n"
                 "</UpdatePolicy>\n"));
    const ToolRun run = runTool({"show", "--json", "--install-dir", install.path()});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(contains(run.err, "FIPS mode is enabled.")) << run.err;
    const Json shown = parseJson(run);
    EXPECT_EQ(shown.at("exists"), true);
    EXPECT_EQ(shown.at("version"), "5.1.8.105");
    EXPECT_EQ(shown.at("excludeCertStoreMask"), "0x000021C7");
    const Json& settings = shown.at("settings");
    EXPECT_EQ(settings.at("FipsMode"), true);
    EXPECT_EQ(settings.at("BypassDownloader"), false);
    EXPECT_EQ(settings.at("StrictCertificateTrust"), true);  // implied by the server store
    EXPECT_EQ(settings.at("ExcludeWinNativeCertStore"), true);
    EXPECT_EQ(settings.at("ExcludeMacNativeCertStore"), true);
    EXPECT_EQ(settings.at("ExcludePemFileCertStore"), false);
    EXPECT_EQ(settings.at("RestrictPreferenceCaching"), "false,Credentials,All");
    EXPECT_EQ(settings.at("RestrictTunnelProtocols"), "ipsec");
    EXPECT_EQ(settings.at("AllowHelpUpdatesFromAnyServer"), false);
    EXPECT_EQ(settings.at("AllowSoftwareUpdatesFromAnyServer"), true);
    EXPECT_EQ(settings.at("AuthorizedServerList"), Json({"gw 1", "gw2"}));

    const ToolRun text = runTool({"show", "--install-dir", install.path()});
    ASSERT_EQ(text.status, 0);
    EXPECT_TRUE(contains(text.out, "(present)"));
    EXPECT_TRUE(contains(text.out, "0x000021C7"));
    EXPECT_TRUE(contains(text.out, "\"gw 1\""));
}

TEST(ToolShow, FailsWithTheErrorWhenTheFileCannotBeLoaded) {
    qntest::TempDir install;
    install.write(kPolicyFile, "<QuillnetLocalPolicy><FipsMode>true</Fips");
    const ToolRun run = runTool({"show", "--json", "--install-dir", install.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.out.empty()) << run.out;
    EXPECT_TRUE(contains(run.err, "qnpolicy show: cannot load " + install.path() + kPolicyFile));
    EXPECT_TRUE(contains(run.err, "E LoadLocalQuillnetPolicy ")) << run.err;
}

TEST(ToolRoundTrip, GeneratedPolicyIsShownAndCheckedAsGenerated) {
    qntest::TempDir install;
    const ToolRun generated = runTool({"generate", "--install-dir", install.path(), "fm=true",
                                       "upsu=false", "upal=gw1;gw2", "rpc=Credentials"});
    ASSERT_EQ(generated.status, 0) << generated.err;

    const ToolRun shown = runTool({"show", "--json", "--install-dir", install.path()});
    ASSERT_EQ(shown.status, 0) << shown.err;
    const Json settings = parseJson(shown).at("settings");
    EXPECT_EQ(settings.at("FipsMode"), true);
    EXPECT_EQ(settings.at("AllowSoftwareUpdatesFromAnyServer"), false);
    EXPECT_EQ(settings.at("AuthorizedServerList"), Json({"gw1", "gw2"}));
    EXPECT_EQ(settings.at("RestrictPreferenceCaching"), "false,Credentials");

    const ToolRun checked = runTool({"check", "--install-dir", install.path()});
    EXPECT_EQ(checked.status, ownershipFindings() == 0 ? 0 : kExitFindings) << checked.out;
    if (ownershipFindings() == 0) {
        EXPECT_EQ(checked.out, install.path() + kPolicyFile + ": no findings\n");
    }

    // A generated tunnel restriction is flagged by check as well.
    ASSERT_EQ(
        runTool({"generate", "--overwrite", "--install-dir", install.path(), "rtp=tls"}).status, 0);
    const ToolRun tunnel = runTool({"check", "--json", "--install-dir", install.path()});
    EXPECT_EQ(tunnel.status, kExitFindings);
    const Json findings = parseJson(tunnel).at("findings");
    ASSERT_EQ(findings.size(), 1U + ownershipFindings()) << tunnel.out;
    EXPECT_EQ(findings.back().at("kind"), "tunnel-value-not-applied");
}

TEST(ToolCheck, ReportsFindingsWithPositionsAsTextAndJson) {
    qntest::TempDir dir;
    const std::string path =
        dir.write("flawed.xml", document("  <FipMode>true</FipMode>\n"
                                         "<BypassDownloader>TRUE</BypassDownloader>\n"));
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);

    const ToolRun text = runTool({"check", path});
    EXPECT_EQ(text.status, kExitFindings);
    EXPECT_TRUE(contains(text.out, path + ": file-permissions: The file's mode is 0666"))
        << text.out;
    EXPECT_TRUE(contains(text.out, path + ":3:3: unknown-element: "));
    EXPECT_TRUE(contains(text.out, "Did you mean \"FipsMode\"?"));
    EXPECT_TRUE(contains(text.out, path + ":4:1: non-boolean-value: "));
    EXPECT_TRUE(
        contains(text.out, path + ": " + std::to_string(3 + ownershipFindings()) + " findings\n"));

    const ToolRun json = runTool({"check", "--json", path});
    EXPECT_EQ(json.status, kExitFindings);
    const Json report = parseJson(json);
    EXPECT_EQ(report.at("file"), path);
    EXPECT_EQ(report.at("readable"), true);
    const Json& findings = report.at("findings");
    ASSERT_EQ(findings.size(), 3U + ownershipFindings());
    const Json& unknown = findings.at(findings.size() - 2);
    EXPECT_EQ(unknown.at("kind"), "unknown-element");
    EXPECT_EQ(unknown.at("line"), 3);
    EXPECT_EQ(unknown.at("column"), 3);
    EXPECT_TRUE(unknown.at("message").is_string());
    EXPECT_EQ(findings.back().at("kind"), "non-boolean-value");
    EXPECT_EQ(findings.front().at("kind"), ::geteuid() == 0 ? "file-permissions" : "file-owner");
    EXPECT_EQ(findings.front().at("line"), 0);
}

TEST(ToolCheck, DtdIsAFindingAndNotAParseError) {
    qntest::TempDir dir;
    const std::string path =
        dir.write("dtd.xml",
                  "<?xml version=\"1.0\"?>\n<!DOCTYPE QuillnetLocalPolicy>\n"
                  "<QuillnetLocalPolicy qnversion=\"5.1.8.105\"></QuillnetLocalPolicy>\n");
    const ToolRun run = runTool({"check", "--json", path});
    EXPECT_EQ(run.status, kExitFindings);
    const Json findings = parseJson(run).at("findings");
    ASSERT_EQ(findings.size(), 1U + ownershipFindings()) << run.out;
    EXPECT_EQ(findings.back().at("kind"), "doctype");
    EXPECT_EQ(findings.back().at("line"), 2);
    // The parser's refusal is replaced by the finding, not printed as an error.
    EXPECT_FALSE(contains(run.err, "E ")) << run.err;
}

TEST(ToolCheck, UnreadableOrMalformedFilesExitWith2) {
    qntest::TempDir dir;
    const std::string malformed = dir.write("bad.xml", "<QuillnetLocalPolicy><FipsMode>");
    for (const std::string& path : {malformed, dir.path() + "missing.xml"}) {
        const ToolRun text = runTool({"check", path});
        EXPECT_EQ(text.status, kExitUnreadable) << path;
        EXPECT_TRUE(text.out.empty()) << text.out;
        EXPECT_TRUE(contains(text.err, "qnpolicy check: " + path +
                                           " is missing, unreadable or not well-formed XML"));
        const ToolRun json = runTool({"check", "--json", path});
        EXPECT_EQ(json.status, kExitUnreadable);
        const Json report = parseJson(json);
        EXPECT_EQ(report.at("readable"), false);
        EXPECT_TRUE(report.at("status").get<std::string>().rfind("0xFEA1", 0) == 0)
            << report.at("status");
    }
    // Without FILE the policy of the install directory is checked: here there is none.
    const ToolRun absent = runTool({"check", "--install-dir", dir.path()});
    EXPECT_EQ(absent.status, kExitUnreadable);
    EXPECT_TRUE(contains(absent.err, dir.path() + kPolicyFile));
}

}  // namespace

// qnpolicy end to end: the built binary is run as an installer script, an administrator and a
// configuration-management run would run it, and its exit status, standard output (text and
// JSON) and standard error are checked. The linter's findings, kinds and lines, are checked
// here as `check --json` reports them.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "LocalPolicyDocument.h"
#include "PolicyModel.h"
#include "TestSupport.h"

namespace {

using Json = nlohmann::json;

// One run of the tool through the shell: "$Q" stands for the binary in words, which are run
// as they are when they mention it or bRaw is given, else after it. Exit status, standard
// output and error.
struct ToolRun {
    explicit ToolRun(const std::string& words, bool bRaw = false) {
        const qntest::TempDir capture;
        const std::string command =
            bRaw || words.find("$Q") != std::string::npos ? words : "$Q " + words;
        const std::string script = "Q='" QNPOLICY_BINARY "'; " + command;
        const std::string shell = "sh -c '" + escapeQuotes(script) + "' >" + capture.path() +
                                  "o 2>" + capture.path() + "e";
        status = WEXITSTATUS(std::system(shell.c_str()));
        out = qntest::readFile(capture.path() + "o");
        err = qntest::readFile(capture.path() + "e");
    }
    bool has(const std::string& part) const { return (out + err).find(part) != std::string::npos; }
    Json json() const { return Json::parse(out); }
    static std::string escapeQuotes(const std::string& text) {
        std::string escaped;
        for (const char c : text) {
            escaped += c == '\'' ? std::string("'\\''") : std::string(1, c);
        }
        return escaped;
    }

    int status;
    std::string out;
    std::string err;
};

// The kinds of a JSON list of findings or skipped arguments, space-separated, with
// ":argument" where one is given.
std::string kindsOf(const Json& items) {
    std::string kinds;
    for (const Json& item : items) {
        kinds += (kinds.empty() ? "" : " ") + item.at("kind").get<std::string>();
        if (item.contains("argument") && item.at("argument").is_string()) {
            kinds += ":" + item.at("argument").get<std::string>();
        }
    }
    return kinds;
}

struct stat statOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status;
}

bool exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

constexpr char kPolicyFile[] = "QuillnetLocalPolicy.xml";

// Usage errors (64) print only on standard error and say what was wrong; --help ends with the
// exit-code table; shared options go on either side of the subcommand; a missing install
// directory is 66.
TEST(QnpolicyTool, DispatchesEachCommandLineToItsExitCodeWithAReason) {
    qntest::TempDir dir;
    const std::string file = dir.write("plain", "x");
    const std::string d = " --install-dir " + dir.path();
    const std::vector<std::tuple<std::string, int, std::string>> cases = {
        {"--help", 0, "\n  65  generate: arguments refused"},
        {"check --help", 0, "\n  74  I/O error"},
        {"", 64, "a subcommand is required"},
        {"bogus", 64, "unknown subcommand 'bogus'; the subcommands are generate, show,"},
        {"SHOW", 64, "unknown subcommand 'SHOW'; did you mean 'show'?"},
        {"--verison", 64, "unknown option '--verison'; did you mean '--version'?"},
        {"show --colour", 64, "--colour"},
        {"show --install-dir ''", 64, "must not be empty"},
        {"generate" + d, 64, "no arguments"},
        {"generate --dry-run --diff fm=true" + d, 64, "excludes"},
        {"check --ignore file-owners", 64, "did you mean file-owner?"},
        {"--quiet -v vocabulary", 64, "excludes"},
        {d + " show --json", 0, "\"exists\": false"},
        {"show --json" + d, 0, "\"exists\": false"},
        {"show --install-dir /opt/quilnet", 66, "\"/opt/quilnet\": no such directory"},
        {"show --install-dir " + file, 66, "no such directory (not a directory)"},
        {"check --install-dir /opt/quilnet", 66, "no such directory"},
        {"generate fm=true --install-dir /opt/quilnet", 66, "no such directory"},
        {"show " + dir.path() + "none.xml", 66, "none.xml\": no such file"},
    };
    for (const auto& [words, status, part] : cases) {
        const ToolRun run(words);
        EXPECT_EQ(run.status, status) << words << "\n" << run.err;
        EXPECT_TRUE(run.has(part)) << words << "\n" << run.out << run.err;
        if (status == 64 || status == 66) {
            EXPECT_TRUE(run.out.empty()) << words;
        }
    }
    EXPECT_EQ(ToolRun("--version").out, "qnpolicy 5.1.8.105\n");
    EXPECT_EQ(ToolRun("check" + d).status, 2);  // an existing directory without the file
}

// vocabulary: every row in abbreviation order, each with its meaning and default.
TEST(QnpolicyTool, VocabularyListsEveryRowWithItsMeaning) {
    const Json vocabulary = ToolRun("vocabulary --json").json();
    EXPECT_EQ(vocabulary.at("formatVersion"), 1);
    const Json& rows = vocabulary.at("vocabulary");
    ASSERT_EQ(rows.size(), qnpolicy::LocalPolicyVocabulary().size());
    for (const Json& row : rows) {
        EXPECT_FALSE(row.at("description").get<std::string>().empty()) << row;
        EXPECT_TRUE(row.at("default").is_string()) << row;
    }
    EXPECT_EQ(rows[15].at("abbreviation"), "rtp");
    EXPECT_EQ(rows[15].at("allowedValues"), Json({"false", "TLS", "IPSec"}));
    EXPECT_EQ(rows[27].at("default"), "true");  // upsu: updates from any server by default
    EXPECT_TRUE(ToolRun("vocabulary").has("\necc    EnableCRLCheck"));
}

// generate fails closed: each unusable argument and each finding of the would-be document
// refuses the run (65) and names its argument; nothing is written. --lenient writes the rest.
TEST(QnpolicyTool, GenerateRefusesWhatTheClientWouldNotApply) {
    qntest::TempDir dir;
    const std::string d = " --json --install-dir " + dir.path();
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {"fm true", "invalid-argument:fm invalid-argument:true", ""},
        {"fmm=true FM=TRUE sct=yes",
         "unknown-abbreviation:fmm=true unknown-abbreviation:FM=TRUE value-not-allowed:sct=yes",
         ""},
        {"ecc= upal=", "empty-value:ecc= empty-value:upal=", ""},
        {"fm=true fm=false", "duplicate-argument:fm=false", ""},
        {"rpc=credentials,Thumbprints", "",
         "unknown-caching-token:rpc=credentials,Thumbprints "
         "ignored-caching-token:rpc=credentials,Thumbprints"},
        {"'upal=a; gw2.example.com ' fm=true", "", "padded-server-name:upal=a; gw2.example.com "},
        {"rtp=tls", "", "tunnel-value-not-applied:rtp=tls"},
    };
    for (const auto& [args, skipped, findings] : cases) {
        const ToolRun run("generate " + args + d);
        EXPECT_EQ(run.status, 65) << args;
        const Json report = run.json();
        EXPECT_EQ(report.at("result"), "refused") << args;
        EXPECT_EQ(kindsOf(report.at("skipped")), skipped) << args;
        EXPECT_EQ(kindsOf(report.at("findings")), findings) << args;
        EXPECT_FALSE(exists(dir.path() + kPolicyFile)) << args;
    }
    const ToolRun text("generate fmm=true --install-dir " + dir.path());
    EXPECT_TRUE(text.out.empty() &&
                text.has("qnpolicy generate: error: \"fmm=true\": unknown abbreviation \"fmm\"; "
                         "did you mean \"fm\"?"))
        << text.err;

    // Any bytes of an argument come back as valid JSON: controls escaped, invalid UTF-8
    // replaced.
    const ToolRun binary("generate \"$(printf 'x\\001=\\377')\"" + d);
    EXPECT_EQ(binary.json().at("skipped").at(0).at("argument"), "x\x01=\xEF\xBF\xBD");

    const ToolRun lenient("generate --lenient fmm=true fm=true rtp=IPSEC" + d);
    EXPECT_EQ(lenient.status, 0);
    EXPECT_EQ(lenient.json().at("result"), "written");
    EXPECT_EQ(kindsOf(lenient.json().at("findings")), "tunnel-value-not-applied:rtp=IPSEC");
    EXPECT_EQ(ToolRun("show --json" + d).json().at("settings").at("FipsMode"), true);
}

// What generate writes, show reads back and check finds clean: each on/off setting under its
// element name (a flag is on in the runs of the set bits of its code, so no two rows can swap
// unseen), the exclude mask, the caching options and the servers. Each row's code is its index,
// but strict certificate trust is on wherever the restricted server store is: beside it, a
// false would be overridden, which check reports.
TEST(QnpolicyTool, GenerateShowAndCheckAgreeOnEverySetting) {
    qntest::TempDir dir;
    // Without its trailing separator, which the tool adds.
    const std::string install = " --install-dir " + dir.path().substr(0, dir.path().size() - 1);
    for (unsigned int bit = 0; bit < 5; ++bit) {
        std::map<std::string, std::string> settings;
        std::string args = "generate --overwrite ewn=true rpc=Credentials,All 'upal=gw1;gw2'";
        unsigned int row = 0;
        for (const qntest::PolicyFlag& flag : qntest::kPolicyFlags) {
            // 27 (11011) holds the bits of RestrictServerCertStore's index 11 (01011) and is no
            // row's index.
            const unsigned int code =
                std::string(flag.element) == "StrictCertificateTrust" ? 27U : row;
            ++row;
            settings[flag.element] = ((code >> bit) & 1U) != 0 ? "true" : "false";
            args += std::string(" ") + flag.abbreviation + "=" + settings[flag.element];
        }
        EXPECT_EQ(ToolRun(args + install).out,
                  "Wrote the policy file " + dir.path() + kPolicyFile + ".\n");
        const Json shown = ToolRun("show --json" + install).json();
        const LocalQNPolicyInfo expected = qntest::expectedRecord(settings, "");
        for (const qntest::PolicyFlag& flag : qntest::kPolicyFlags) {
            EXPECT_EQ(shown.at("settings").at(flag.element), (expected.*flag.get)()) << bit;
        }
        EXPECT_EQ(shown.at("excludeCertStoreMask"), "0x000000C3");
        EXPECT_EQ(shown.at("settings").at("RestrictPreferenceCaching"),
                  Json({"false", "Credentials", "All"}));
        EXPECT_EQ(shown.at("settings").at("AuthorizedServerList"), Json({"gw1", "gw2"}));
        EXPECT_FALSE(shown.at("descriptions").at("FipsMode").get<std::string>().empty());
        EXPECT_EQ(ToolRun("check" + install).status, 0);
    }
    EXPECT_TRUE(ToolRun("show" + install).has("\n      \"gw1\"\n"));
}

// Idempotence, dry run and diff: a file that already holds the document is left untouched
// (same inode, same time stamp); --dry-run and --diff write nothing; --diff exits 1 on a
// difference, 0 without one.
TEST(QnpolicyTool, GenerateLeavesTheFileUntouchedUnlessItWritesADifferentDocument) {
    qntest::TempDir dir;
    const std::string path = dir.path() + kPolicyFile;
    const std::string d = " --install-dir " + dir.path();

    const ToolRun diffAbsent("generate --diff fm=true" + d);
    EXPECT_EQ(diffAbsent.status, 1);
    EXPECT_TRUE(diffAbsent.has("--- /dev/null\n+++ " + path + " (generated)\n@@ -0,0 +1,4 @@\n"));
    const ToolRun dryRun("generate --dry-run fm=true" + d);
    EXPECT_EQ(dryRun.status, 0);
    EXPECT_EQ(dryRun.out.rfind("<?xml", 0), 0U);
    EXPECT_FALSE(exists(path));

    ASSERT_EQ(ToolRun("generate fm=true" + d + " --json").json().at("result"), "written");
    EXPECT_EQ(qntest::readFile(path), dryRun.out);
    const struct stat before = statOf(path);
    const std::vector<std::tuple<std::string, std::string, int>> cases = {
        {"--overwrite fm=true", "unchanged", 0},
        {"fm=false", "kept", 0},
        {"--diff --overwrite fm=true", "unchanged", 0},
        {"--diff --overwrite fm=false", "written", 1},
        {"--dry-run --overwrite fm=false", "written", 0},
    };
    for (const auto& [args, result, status] : cases) {
        const ToolRun run("generate --json " + args + d);
        EXPECT_EQ(run.status, status) << args;
        EXPECT_EQ(run.json().at("result"), result) << args;
        EXPECT_EQ(run.json().at("dryRun"), args.find("--d") != std::string::npos) << args;
    }
    const struct stat after = statOf(path);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_TRUE(ToolRun("generate --diff --overwrite fm=false" + d)
                    .has("@@ -1,4 +1,4 @@\n <?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"));
    EXPECT_TRUE(ToolRun("generate --diff --overwrite fm=false" + d)
                    .has("\n-    <FipsMode>true</FipsMode>\n+    <FipsMode>false</FipsMode>\n"));
}

// show FILE reads a file elsewhere as the client would; a failed load still prints one JSON
// object, with the parser's reason and position, and exits 1.
TEST(QnpolicyTool, ShowReportsAFailedLoadInItsJson) {
    qntest::TempDir dir;
    const std::vector<std::tuple<std::string, std::string, unsigned long>> cases = {
        {"<QuillnetLocalPolicy><FipsMode>true</Fips", "unclosed token", 1},
        {"<?xml version=\"1.0\"?>\n<!DOCTYPE QuillnetLocalPolicy>\n<QuillnetLocalPolicy/>",
         "document type declaration", 2},
    };
    for (const auto& [content, message, line] : cases) {
        const std::string file = dir.write("elsewhere.xml", content);
        const ToolRun run("show --json " + file);
        EXPECT_EQ(run.status, 1) << content;
        const Json shown = run.json();
        EXPECT_EQ(shown.at("loaded"), false);
        EXPECT_EQ(shown.at("policyFile"), file);
        EXPECT_NE(shown.at("error").at("message").get<std::string>().find(message),
                  std::string::npos)
            << shown;
        EXPECT_EQ(shown.at("error").at("line"), line);
        EXPECT_TRUE(run.has("qnpolicy show: cannot load " + file + ":" + std::to_string(line)));
        EXPECT_TRUE(run.has(qnpolicy::kUnreadableFileConsequence));
    }
    const std::string file = dir.write(
        "elsewhere.xml", "<QuillnetLocalPolicy><FipsMode>true</FipsMode></QuillnetLocalPolicy>");
    const Json shown = ToolRun("show --json " + file).json();
    EXPECT_EQ(shown.at("loaded"), true);
    EXPECT_EQ(shown.at("exists"), true);
    EXPECT_EQ(shown.at("settings").at("FipsMode"), true);
    EXPECT_EQ(shown.at("fipsModeModifiedOnDisk"), false);
    EXPECT_FALSE(shown.at("settings").contains("FipsModeModifiedOnDisk"));
}

// check over several files and standard input: findings print as FILE[:LINE:COLUMN]: kind:
// message, with a severity in JSON; a file that cannot be read or parsed is reported in the
// same form with the parser's reason, and makes the exit status 2; --ignore drops a kind; the
// directories above a file are audited too.
TEST(QnpolicyTool, CheckReportsEveryInputItIsGivenReadableOrNot) {
    qntest::TempDir dir;
    const std::string open = dir.path() + "open/";
    ASSERT_EQ(::mkdir(open.c_str(), 0777), 0);
    ASSERT_EQ(::chmod(open.c_str(), 0777), 0);  // whatever the umask
    const std::string flawed = dir.write("open/f.xml", qntest::readFile(QN_FLAWED_SAMPLE));
    const uid_t owner = ::geteuid() == 0 ? 65534 : ::geteuid();
    ASSERT_EQ(::chown(flawed.c_str(), owner, static_cast<gid_t>(-1)), 0);
    const std::string bad = dir.write("bad.xml", "<x>\n<y>");
    const std::string none = dir.path() + "none.xml";

    const ToolRun text("check " + flawed + " " + bad + " " + none);
    EXPECT_EQ(text.status, 2);
    for (const std::string& line : std::vector<std::string>{
             flawed + ": file-owner: The file is owned by user id " + std::to_string(owner),
             flawed + ": file-permissions: The directory " + dir.path() + "open's mode is 0777",
             flawed + ":6:5: unknown-element: Unknown element \"BypassDownloder\"",
             flawed + (::geteuid() == 0 ? ": 12 findings\n" : ": 14 findings\n"),
             bad + ":2:4: unreadable: no element found. " + qnpolicy::kUnreadableFileConsequence +
                 "\n",
             none + ": unreadable: no such file. " + qnpolicy::kMissingFileConsequence + "\n"}) {
        EXPECT_TRUE(text.has(line)) << line << "\n" << text.out;
    }
    const ToolRun ignoring("check --json --ignore file-owner --ignore file-permissions " + flawed);
    EXPECT_EQ(ignoring.status, 1);
    const Json ignored = ignoring.json();
    const Json& findings = ignored.at("files").at(0).at("findings");
    EXPECT_EQ(findings.size(), 10U);
    EXPECT_EQ(findings.at(0).at("severity"), "warning");  // newer-version
    EXPECT_EQ(findings.at(1).at("severity"), "error");    // non-boolean-value

    const ToolRun stdinRun("check --json - < " + bad);
    EXPECT_EQ(stdinRun.status, 2);
    const Json unreadable = stdinRun.json().at("files").at(0);
    EXPECT_EQ(unreadable.at("file"), "<stdin>");
    EXPECT_EQ(unreadable.at("readable"), false);
    EXPECT_EQ(unreadable.at("error"),
              Json({{"message", "no element found"},
                    {"line", 2},
                    {"column", 4},
                    {"consequence", qnpolicy::kUnreadableFileConsequence}}));
    EXPECT_EQ(ToolRun("check --json " + none).json().at("files").at(0).at("error").at("message"),
              "no such file");
    ASSERT_EQ(ToolRun("generate fm=true --install-dir " + dir.path()).status, 0);
    EXPECT_EQ(ToolRun("check - < " + dir.path() + kPolicyFile).status, 0);
}

// Two files that read differently from how they look: a caching list with a blank after its
// comma restricts nothing, and strict trust stated false beside a restricted server store is
// on. show prints what the client holds; check reports each file, exit 1.
TEST(QnpolicyTool, CheckReportsWhatShowReadsDifferentlyFromTheFile) {
    qntest::TempDir dir;
    const auto policy = [](const std::string& children) {
        return "<QuillnetLocalPolicy qnversion=\"5.1.8.105\">\n" + children +
               "\n</QuillnetLocalPolicy>\n";
    };
    const std::vector<std::tuple<std::string, std::string, Json, std::string>> cases = {
        {policy("<RestrictPreferenceCaching>Credentials, Thumbprints</RestrictPreferenceCaching>"),
         "RestrictPreferenceCaching", Json({"false"}), ":2:1: unknown-caching-token: "},
        {policy("<StrictCertificateTrust>false</StrictCertificateTrust>\n"
                "<RestrictServerCertStore>true</RestrictServerCertStore>"),
         "StrictCertificateTrust", Json(true), ":2:1: overridden-setting: "},
    };
    for (const auto& [content, element, shown, finding] : cases) {
        const std::string file = dir.write("p.xml", content);
        EXPECT_EQ(ToolRun("show --json " + file).json().at("settings").at(element), shown);
        const ToolRun check("check --ignore file-owner --ignore file-permissions " + file);
        EXPECT_EQ(check.status, 1) << check.out;
        EXPECT_TRUE(check.has(file + finding)) << check.out;
        EXPECT_TRUE(check.has(file + ": 1 finding\n")) << check.out;
    }
}

// Output that cannot be written is an I/O error (74); a reader that goes away ends the run
// quietly; a file-size limit ends generation with "File too large" instead of a signal.
TEST(QnpolicyTool, EveryFailedWriteEndsWithAnIoError) {
    qntest::TempDir dir;
    const std::string d = " --install-dir " + dir.path();
    for (const std::string& words :
         std::vector<std::string>{"show --json" + d, "vocabulary", "generate fm=true" + d}) {
        const ToolRun full(words + " >/dev/full");
        EXPECT_EQ(full.status, 74) << words;
        EXPECT_TRUE(full.has("cannot write to standard output: No space left on device")) << words;
    }
    std::string servers = "upal=";
    for (int i = 0; i < 12000; ++i) {
        servers += "gw" + std::to_string(i) + ";";
    }
    const ToolRun limited("ulimit -f 100; $Q generate --overwrite '" + servers + "'" + d);
    EXPECT_EQ(limited.status, 74);
    EXPECT_TRUE(limited.has("File too large"));
    EXPECT_EQ(qntest::readFile(dir.path() + kPolicyFile).find("gw11999"), std::string::npos);

    ASSERT_EQ(ToolRun("generate --overwrite '" + servers.substr(0, 60000) + "gw'" + d).status, 0);
    const ToolRun piped("{ $Q show --quiet --json" + d +
                        "; echo \"status $?\" >&2; } | head -c 10");
    EXPECT_TRUE(piped.has("status 74")) << piped.err;
    EXPECT_EQ(piped.err, "status 74\n");
}

}  // namespace

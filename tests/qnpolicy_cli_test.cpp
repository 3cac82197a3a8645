// SPDX-License-Identifier: Apache-2.0
// qnpolicy end to end: the built binary is run as an installer script, an administrator and a
// configuration-management run would run it, and its exit status, standard output (text and
// JSON, validated by ShellRun against the published schemas) and standard error are checked;
// the README's table of exit codes is provoked cell by cell.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "LocalPolicyDocument.h"
#include "PolicyModel.h"
#include "ShellRun.h"
#include "TestSupport.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "lint/PolicyTexts.h"

namespace {

using Json = nlohmann::json;

constexpr char kPolicyFile[] = "QuillnetLocalPolicy.xml";
// Runs what follows as nobody, whom a root-owned file or a closed directory keeps out.
const std::string kAsNobody = "setpriv --reuid=65534 --regid=65534 --clear-groups ";

// One run of the tool: "$Q" stands for the binary in words, which are run as they are when
// they mention it or bRaw is given, else after it.
struct ToolRun : qntest::ShellRun {
    explicit ToolRun(const std::string& words, bool bRaw = false)
        : ShellRun(bRaw || words.find("$Q") != std::string::npos ? words : "$Q " + words) {}
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

// The README's table of exit codes: each numbered cell is provoked by the scenario below for
// its condition and subcommand, and every scenario has its cell. $D is a safe install
// directory holding a clean policy file, $U an unsafe one (mode 0777), $F a flawed policy
// file, $B one that is not well-formed, $N a path where nothing is, $G a baseline that $D meets.
TEST(QnpolicyTool, ExitsWithTheCodeTheReadmeTableGivesForEachConditionAndSubcommand) {
    const std::map<std::pair<std::string, std::string>, std::string> scenarios = {
        {{"success", "generate"}, "generate --overwrite fm=true --install-dir $D"},
        {{"success", "show"}, "show --install-dir $D"},
        {{"success", "check"}, "check --ignore file-owner $D/" + std::string(kPolicyFile)},
        {{"success", "diff"}, "diff $F $F"},
        {{"success", "vocabulary"}, "vocabulary"},
        {{"success", "schema"}, "schema --json-schema check"},
        {{"findings", "generate"}, "generate --diff --overwrite fm=false --install-dir $D"},
        {{"findings", "check"}, "check --ignore file-owner $F"},
        {{"no such file", "generate"}, "generate --args-from $N --install-dir $D"},
        {{"findings", "diff"}, "diff --install-dir $D $F"},
        {{"no such file", "diff"}, "diff $F $N"},
        {{"no such install directory", "diff"}, "diff --install-dir $N $F"},
        {{"a file exists but cannot be read", "diff"}, "diff $F $B"},
        {{"usage error", "diff"}, "diff - -"},
        {{"I/O error", "diff"}, "diff $F $F >/dev/full"},
        {{"no such file", "show"}, "show $N"},
        {{"no such file", "check"}, "check $N"},
        {{"no such install directory", "generate"}, "generate fm=true --install-dir $N"},
        {{"no such install directory", "show"}, "show --install-dir $F"},
        {{"no such install directory", "check"}, "check --install-dir $N"},
        // Root reads any file: the tool runs as nobody to meet one it cannot read.
        {{"a file exists but cannot be read", "generate"},
         kAsNobody + "$Q generate --overwrite fm=true --install-dir $R"},
        {{"a file exists but cannot be read", "show"}, "show $B"},
        {{"a file exists but cannot be read", "check"}, "check $F $B"},
        {{"refused input", "generate"}, "generate fmm=true --install-dir $D"},
        {{"usage error", "generate"}, "generate --install-dir $D"},
        {{"usage error", "show"}, "show $F $B"},
        {{"usage error", "check"}, "check --ignore file-owners $F"},
        {{"usage error", "vocabulary"}, "--install-dir $D vocabulary"},
        {{"usage error", "schema"}, "schema --json"},
        {{"the policy file cannot be created", "generate"}, "generate fm=true --install-dir $U"},
        // A POSIX record lock held by another process conflicts with the writers' lock.
        {{"another writer holds the lock", "generate"},
         "/usr/bin/python3 -c \"import fcntl, subprocess, sys; f = open(sys.argv[1], 'a'); "
         "fcntl.lockf(f, fcntl.LOCK_EX); sys.exit(subprocess.call(sys.argv[2:]))\" "
         "$D/.QuillnetLocalPolicy.lock $Q generate --overwrite fm=true --install-dir $D"},
        {{"I/O error", "generate"}, "generate --dry-run fm=true --install-dir $D >/dev/full"},
        {{"I/O error", "show"}, "show --install-dir $D >/dev/full"},
        {{"I/O error", "check"}, "check --ignore file-owner $F >/dev/full"},
        {{"I/O error", "vocabulary"}, "vocabulary >/dev/full"},
        {{"I/O error", "schema"}, "schema >/dev/full"},
        {{"success", "comply"}, "comply --baseline $G --install-dir $D"},
        {{"findings", "comply"}, "comply --baseline $G --install-dir $U"},
        {{"no such file", "comply"}, "comply --baseline $G $N"},
        {{"no such install directory", "comply"}, "comply --baseline $G --install-dir $N"},
        {{"a file exists but cannot be read", "comply"}, "comply --baseline $G $B"},
        {{"refused input", "comply"}, "comply --baseline $F --install-dir $D"},
        {{"usage error", "comply"}, "comply --install-dir $D"},
        {{"I/O error", "comply"}, "comply --baseline $G --install-dir $D >/dev/full"},
    };
    qntest::TempDir dir;
    const std::string safe = dir.path() + "safe";
    const std::string unsafe = dir.path() + "unsafe";
    const std::string unreadable = dir.path() + "unreadable";
    for (const std::string& made : {safe, unsafe, unreadable}) {
        ASSERT_EQ(::mkdir(made.c_str(), 0755), 0);
    }
    ASSERT_EQ(::chmod(unsafe.c_str(), 0777), 0);
    ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);  // nobody may pass through it
    ASSERT_EQ(ToolRun("generate fm=true --install-dir " + safe).status, 0);
    ASSERT_EQ(ToolRun("generate fm=true --install-dir " + unreadable).status, 0);
    ASSERT_EQ(::chmod((unreadable + "/" + kPolicyFile).c_str(), 0), 0);
    const std::string flawed = dir.write("flawed.xml", qntest::readFile(QN_FLAWED_SAMPLE));
    const std::string broken = dir.write("broken.xml", "<QuillnetLocalPolicy>");
    const std::string baseline =
        dir.write("baseline.yml", "version: 1\nsettings:\n  FipsMode: true\n");
    const std::string variables = "D=" + safe + " U=" + unsafe + " R=" + unreadable +
                                  " F=" + flawed + " B=" + broken + " G=" + baseline +
                                  " N=" + dir.path() + "none; ";

    // The table's header names the subcommands; the last cells of each row are its exit codes.
    std::ifstream readme(QN_README);
    std::string line;
    while (std::getline(readme, line) && line.rfind("| condition |", 0) != 0) {
    }
    const std::vector<std::string> header = qntest::pieces(line, "| ");
    std::map<std::pair<std::string, std::string>, std::string> cells;  // {row, subcommand}: code
    for (std::getline(readme, line); std::getline(readme, line) && line.rfind('|', 0) == 0;) {
        const std::vector<std::string> row = qntest::pieces(line, "| ");
        for (size_t column = 1; column < header.size(); ++column) {
            const std::string& code = row.at(row.size() - header.size() + column);
            if (code != "-") {
                cells[{line, header[column]}] = code;
            }
        }
    }
    ASSERT_FALSE(cells.empty());
    for (const auto& [key, words] : scenarios) {
        const auto cell = std::find_if(cells.begin(), cells.end(), [&key = key](const auto& c) {
            return c.first.second == key.second &&
                   c.first.first.find(key.first) != std::string::npos;
        });
        if (cell == cells.end()) {
            ADD_FAILURE() << "no numbered cell in the README for " << key.first << " / "
                          << key.second;
            continue;
        }
        const ToolRun run(variables + (words.find("$Q") == std::string::npos ? "$Q " : "") + words);
        EXPECT_EQ(std::to_string(run.status), cell->second) << words << "\n" << run.err;
        cells.erase(cell);
    }
    for (const auto& [cell, code] : cells) {
        ADD_FAILURE() << "no scenario for " << cell.first << " / " << cell.second;
    }
}

// Usage errors (64) print only on standard error and say what was wrong; --help ends with the
// exit-code table; shared options go on either side of the subcommand, and a subcommand
// refuses those it does not take; with --json whatever ends the run prints one JSON object, the
// option parser's refusals too.
TEST(QnpolicyTool, DispatchesEachCommandLineWithAReason) {
    qntest::TempDir dir;
    const std::string file = dir.write("plain", "x");
    const std::string d = " --install-dir " + dir.path();
    const std::string usage = "\"kind\": \"usage\"";
    const std::vector<std::tuple<std::string, int, std::string>> cases = {
        {"--help", 0, "\n  65  generate, set, unset: arguments refused"},
        {"check --help", 0, "\n  74  I/O error"},
        {"", 64, "a subcommand is required"},
        {"bogus", 64, "unknown subcommand 'bogus'; the subcommands are generate, set,"},
        {"SHOW", 64, "unknown subcommand 'SHOW'; did you mean 'show'?"},
        {"--verison", 64, "unknown option '--verison'; did you mean '--version'?"},
        {"show --colour", 64, "--colour"},
        {"show --install-dir ''", 64, "must not be empty"},
        {"generate" + d, 64, "no arguments"},
        {"generate --all-defaults fm=true" + d, 64, "--all-defaults takes no ABBREV=VALUE"},
        {"generate --dry-run --diff fm=true" + d, 64, "excludes"},
        {"check --ignore file-owners", 64, "did you mean file-owner?"},
        {"check --ignore doctype", 64, "unknown finding kind \"doctype\""},
        {"--quiet -v vocabulary", 64, "excludes"},
        {"vocabulary --install-dir /tmp", 64, "--install-dir"},
        {"--install-dir /tmp vocabulary", 64, "--install-dir does not apply to vocabulary"},
        {"--json schema", 64, "--json does not apply to schema"},
        {"schema --json-schema schema", 64, "schema"},
        {d + " show --json", 0, "\"exists\": false"},
        {"show --json" + d, 0, "\"result\": \"defaults\""},
        {"show --install-dir /opt/quilnet", 66, "\"/opt/quilnet\": no such directory"},
        {"show --install-dir " + file, 66, "no such directory (not a directory)"},
        {"show " + dir.path() + "none.xml", 66, "none.xml\": no such file"},
        {"show --origin FipMode" + d, 64, "Did you mean \"FipsMode\"?"},
        {"show " + file + " fm", 64, "one FILE at most"},
        {"show --origin --format=flat " + file, 64, "--origin does not apply to --format=flat"},
        {"show --json --format=text " + file, 64, "exclude each other"},
        {"generate --json" + d, 64, usage},
        {"show --json --bogus", 64, usage},
        {"check --json --ignore nonsense", 64, usage},
        {"generate --json --dry-run --diff fm=true" + d, 64, usage},
        {"show --json a b", 64, usage},
        {"--json generate --install-dir /nodir fm=true", 66, "\"kind\": \"no-such-directory\""},
        {"show --json " + dir.path() + "none.xml", 66, "\"kind\": \"no-such-file\""},
    };
    for (const auto& [words, status, part] : cases) {
        const ToolRun run(words);
        EXPECT_EQ(run.status, status) << words << "\n" << run.err;
        EXPECT_TRUE(run.has(part)) << words << "\n" << run.out << run.err;
        if ((status == 64 || status == 66) && words.find("--json") == std::string::npos) {
            EXPECT_TRUE(run.out.empty()) << words;
        }
    }
    EXPECT_EQ(ToolRun("--version").out, "qnpolicy " + std::string(qnpolicy::kClientVersion) + "\n");
#if !defined(__SANITIZE_ADDRESS__)
    // An internal error (here memory running out while the arguments are read) too.
    const std::string huge = dir.path() + "huge";
    ASSERT_EQ(ToolRun("head -c 60000000 /dev/zero | tr '\\0' a >" + huge, true).status, 0);
    const ToolRun internal("ulimit -v 150000; $Q generate --json --dry-run --args-from " + huge +
                           d);
    EXPECT_EQ(internal.status, 70);
    EXPECT_EQ(internal.json().at("error").at("kind"), "internal");
#endif
}

// vocabulary: every row in abbreviation order, each with its meaning, default, the values it
// accepts and those generate writes (the client's spelling of the tunnel values), shown whole
// for the tunnel row.
TEST(QnpolicyTool, VocabularyListsEveryRowWithItsMeaning) {
    const Json rows = ToolRun("vocabulary --json").json().at("vocabulary");
    ASSERT_EQ(rows.size(), qnpolicy::LocalPolicyVocabulary().size());
    std::vector<std::string> order;
    for (const Json& row : rows) {
        order.push_back(row.at("abbreviation"));
    }
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_EQ(rows.at(15), Json::parse(R"({"abbreviation": "rtp",
        "element": "RestrictTunnelProtocols", "section": "root", "default": "false",
        "allowedValues": ["false", "TLS", "IPSec"], "writtenValues": ["false", "tls", "ipsec"],
        "description": "Restricts the client to one tunnel protocol; the client applies only )"
                                       R"(the texts false, tls and ipsec."})"));
    EXPECT_EQ(rows.at(27).at("default"), "true");  // upsu: updates from any server
    const ToolRun text("vocabulary");
    EXPECT_TRUE(text.has("\necc    EnableCRLCheck") && text.has("false, tls, ipsec\n")) << text.out;
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
        {"'upal=;' 'upal=, ;'", "empty-value:upal=; server-name:upal=, ;", ""},
        {"fm=true fm=false", "duplicate-argument:fm=false", ""},
        {"rpc=credentials,Thumbprints", "",
         "unknown-caching-token:rpc=credentials,Thumbprints "
         "ignored-caching-token:rpc=credentials,Thumbprints"},
        {"'upal=a; gw2.example.com ' fm=true", "server-name:upal=a; gw2.example.com ", ""},
        {"'upal=gw1 gw2' \"$(printf 'upal=gw1\\ngw2')\"",
         "server-name:upal=gw1 gw2 server-name:upal=gw1\ngw2", ""},
    };
    for (const auto& [args, skipped, findings] : cases) {
        const ToolRun run("generate " + args + d);
        EXPECT_EQ(run.status, 65) << args;
        const Json report = run.json();
        EXPECT_EQ(report.at("result"), "refused") << args;
        EXPECT_EQ(kindsOf(report.at("skipped")), skipped) << args;
        EXPECT_EQ(kindsOf(report.at("findings")), findings) << args;
        EXPECT_FALSE(std::filesystem::exists(dir.path() + kPolicyFile)) << args;
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

    // --lenient is the installer's behaviour: the library's spelling of the tunnel value,
    // which the client does not apply, with a warning.
    const ToolRun lenient("generate --lenient fmm=true fm=true rtp=IPSEC 'upal=;' 'upal=gw1 gw2'" +
                          d);
    EXPECT_EQ(lenient.status, 0);
    EXPECT_EQ(lenient.json().at("result"), "written");
    EXPECT_EQ(kindsOf(lenient.json().at("skipped")),
              "unknown-abbreviation:fmm=true empty-value:upal=;");
    EXPECT_EQ(kindsOf(lenient.json().at("findings")),
              "tunnel-value-not-applied:rtp=IPSEC blank-in-server-name:upal=gw1 gw2");
    const Json shown = ToolRun("show --json" + d).json();
    EXPECT_EQ(shown.at("settings").at("FipsMode"), true);
    EXPECT_EQ(shown.at("settings").at("RestrictTunnelProtocols"), "false");
}

// What generate does with what is at the policy path: each row prepares the install directory
// $I, which holds the document of fm=true ($P, root's, 0644), runs generate fm=true with its
// options (as root, or as nobody with "N"), and gives the exit status with the result or error
// kind and the attributes repaired, then the file's "uid:gid mode links" afterwards. A repair
// is a rewrite; a run that is not root's never repairs a root-owned safe file; nothing is kept,
// written or confirmed over anything unusable or unsafe.
TEST(QnpolicyTool, GenerateRewritesAnUnsafeFileAndRefusesWhatIsUnusableOrUnsafe) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to give files away";
    }
    const char* const acl =
        "/usr/bin/python3 -c \"import os, struct, sys; os.setxattr(sys.argv[1], "
        "'system.posix_acl_access', struct.pack('<I' + 'HHI' * 5, 2, 1, 6, 2**32 - 1, 2, 6, "
        "65534, 4, 4, 2**32 - 1, 16, 6, 2**32 - 1, 32, 4, 2**32 - 1))\" $P";
    const std::vector<std::tuple<std::string, std::string, std::string, std::string>> cases = {
        {"chown 65534:65534 $P; chmod 666 $P", "--overwrite", "0 repaired owner,group,mode",
         "0:0 0644 1"},
        {"chown 65534:65534 $P; chmod 666 $P", "", "73 unsafe-file", "65534:65534 0666 1"},
        {"chgrp 65534 $P", "--overwrite --dry-run", "0 repaired group", "0:65534 0644 1"},
        {acl, "--overwrite", "0 repaired mode,acl", "0:0 0644 1"},
        {"ln $P $I/other", "--overwrite", "0 repaired links", "0:0 0644 1"},
        {"rm $P; mkdir $P", "--overwrite --diff", "73 not-regular-file", ""},
        {"rm $P; mkfifo $P", "", "73 not-regular-file", ""},
        {"rm $P; mkfifo $P", "--overwrite", "0 written", "0:0 0644 1"},
        {"rm $P; ln -s none $P", "", "73 not-regular-file", ""},
        {"chmod 777 $I", "--overwrite", "73 unsafe-directory", ""},
        {"chmod 777 $I", "--overwrite --allow-unsafe-directory", "0 unchanged", "0:0 0644 1"},
        {"chmod 1777 $I", "", "73 unsafe-directory", ""},
        {"mv $I $I.real; ln -s $I.real $I; chown -h 65534 $I", "", "73 unsafe-directory", ""},
        {"chown 65534 $I $L", "N --overwrite", "0 unchanged", "0:0 0644 1"},
        {"chown 65534 $I $L; chmod 666 $P", "N --overwrite", "0 repaired mode",
         "65534:65534 0644 1"},
        {"chown 65534 $I $L; rm $P", "N", "0 written", "65534:65534 0644 1"},
        {"chown 65534 $I", "N --overwrite", "73 cannot-create", "0:0 0644 1"},
    };
    for (const auto& [setup, options, expected, attributes] : cases) {
        SCOPED_TRACE(setup + " | " + options);
        const qntest::TempDir dir;
        ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
        const std::string install = dir.path() + "i";
        const std::string path = install + "/" + kPolicyFile;
        ASSERT_EQ(::mkdir(install.c_str(), 0755), 0);
        ASSERT_EQ(ToolRun("generate fm=true --install-dir " + install).status, 0);
        std::string script =
            "I=" + install + "; P=" + path + "; L=$I/.QuillnetLocalPolicy.lock; " + setup;
        ASSERT_EQ(ToolRun(script, true).status, 0);
        const bool bNobody = options.rfind("N", 0) == 0;
        const ToolRun run((bNobody ? kAsNobody + "$Q " : "") + std::string("generate --json ") +
                          options.substr(bNobody ? 1 : 0) + " fm=true --install-dir " + install);
        const Json report = run.json();
        std::string outcome =
            std::to_string(run.status) + " " +
            (report.contains("result") ? report.at("result").get<std::string>()
                                       : report.at("error").at("kind").get<std::string>());
        std::string repaired;
        for (const Json& repair : report.value("repaired", Json::array())) {
            repaired += (repaired.empty() ? "" : ",") + repair.at("attribute").get<std::string>();
        }
        EXPECT_EQ(outcome + (repaired.empty() ? "" : " " + repaired), expected) << run.err;
        if (!attributes.empty()) {
            EXPECT_EQ(ToolRun("stat -c '%u:%g %04a %h' " + path, true).out, attributes + "\n");
        }
    }
}

// What generate writes, show reads back and check finds clean: each on/off setting under its
// element name (a flag is on in the runs of the set bits of its code, so no two rows can swap
// unseen), the exclude mask, what the caching options restrict, the tunnel restriction in the
// spelling the client applies (whatever case it was given in) and the servers. Each row's code
// is its index, but strict certificate trust is on wherever the restricted server store is:
// beside it, a false would be overridden, which check reports. Its code is the store's index
// plus one bit above every row's index, so it is no row's code either.
TEST(QnpolicyTool, GenerateShowAndCheckAgreeOnEverySetting) {
    qntest::TempDir dir;
    // Without its trailing separator, which the tool adds.
    const std::string install = " --install-dir " + dir.path().substr(0, dir.path().size() - 1);
    // Five bits number the 22 rows; the restricted server store is row 11.
    constexpr unsigned int kIndexBits = 5;
    constexpr unsigned int kStrictTrustCode = (1U << kIndexBits) | 11U;
    for (unsigned int bit = 0; bit <= kIndexBits; ++bit) {
        std::map<std::string, std::string> settings;
        std::string args =
            "generate --overwrite ewn=true rpc=Credentials,All rtp=IPSec 'upal=gw1;gw2'";
        unsigned int row = 0;
        for (const qntest::PolicyFlag& flag : qntest::kPolicyFlags) {
            const unsigned int code =
                std::string(flag.element) == "StrictCertificateTrust" ? kStrictTrustCode : row;
            ++row;
            settings[flag.element] = ((code >> bit) & 1U) != 0 ? "true" : "false";
            args += std::string(" ") + flag.abbreviation + "=" + settings[flag.element];
        }
        EXPECT_EQ(ToolRun(args + install).out,
                  "Wrote the policy file " + dir.path() + kPolicyFile + ".\n");
        const Json shown = ToolRun("show --json" + install).json();
        // StrictCertificateTrust always equals RestrictServerCertStore: nothing overrides.
        for (const qntest::PolicyFlag& flag : qntest::kPolicyFlags) {
            EXPECT_EQ(shown.at("settings").at(flag.element), settings[flag.element] == "true")
                << flag.element << " " << bit;
        }
        EXPECT_EQ(shown.at("excludeCertStoreMask"), "0x000000C3");
        EXPECT_EQ(shown.at("settings").at("RestrictPreferenceCaching"), "Credentials,All");
        EXPECT_EQ(shown.at("settings").at("RestrictTunnelProtocols"), "ipsec");
        EXPECT_EQ(shown.at("cachingOptions"), Json({"false", "Credentials", "All"}));
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
    EXPECT_EQ(dryRun.out.rfind("<?xml", 0), 0U);
    EXPECT_FALSE(std::filesystem::exists(path));

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
        EXPECT_EQ(run.json().contains("changes"), args.find("--d") != std::string::npos) << args;
    }
    const struct stat after = statOf(path);
    EXPECT_EQ(std::tie(after.st_ino, after.st_mtim.tv_sec, after.st_mtim.tv_nsec),
              std::tie(before.st_ino, before.st_mtim.tv_sec, before.st_mtim.tv_nsec));
    const ToolRun patch("generate --diff --overwrite fm=false" + d);
    EXPECT_TRUE(patch.has("@@ -1,4 +1,4 @@\n <?xml version=\"1.0\" encoding=\"UTF-8\"?>\n") &&
                patch.has("\n-    <FipsMode>true</FipsMode>\n+    <FipsMode>false</FipsMode>\n"))
        << patch.out;
    // Beside the patch, what the client would read differently, which changes no exit status.
    EXPECT_TRUE(
        patch.has("qnpolicy generate: with the new document the client would read 1 "
                  "setting differently:\n  FipsMode: true (" +
                  path + ":3:5) -> false (" + path + " (generated):3:5)\n"))
        << patch.err;
    const ToolRun same("generate --diff --overwrite fm=true" + d);
    EXPECT_TRUE(same.has("with the new document the client would read the same policy\n"));
}

// check over several files and standard input: findings print as FILE[:LINE:COLUMN]: kind:
// message, with a severity in JSON; a file that cannot be read or parsed is reported in the
// same form with the parser's reason; the gravest condition decides the exit status; --ignore
// drops a kind; the directories above a file are audited too.
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
    EXPECT_EQ(text.status, 66);
    for (const std::string& line : std::vector<std::string>{
             flawed + ": file-owner: The file \"" + flawed + "\" is owned by user id " +
                 std::to_string(owner),
             flawed + ": unsafe-path: The directory \"" + dir.path() + "open\" has mode 0777",
             flawed + ":6:5: unknown-element: Unknown element \"BypassDownloder\"",
             flawed + (::geteuid() == 0 ? ": 12 findings\n" : ": 14 findings\n"),
             bad + ":2:4: unreadable: no element found. " +
                 qnpolicy::tool::kUnreadableFileConsequence + "\n",
             none + ": unreadable: no such file. " + qnpolicy::tool::kMissingFileConsequence +
                 "\n"}) {
        EXPECT_TRUE(text.has(line)) << line << "\n" << text.out;
    }
    const ToolRun ignoring("check --json --ignore file-owner --ignore unsafe-path " + flawed);
    const Json ignored = ignoring.json();
    EXPECT_EQ(ignored.at("result"), "findings");
    const Json& findings = ignored.at("files").at(0).at("findings");
    EXPECT_EQ(findings.size(), 10U);
    EXPECT_EQ(findings.at(0).at("severity"), "warning");  // newer-version
    EXPECT_EQ(findings.at(1).at("severity"), "error");    // non-boolean-value

    const ToolRun stdinRun("check --json - < " + bad);
    const Json unreadable = stdinRun.json().at("files").at(0);
    EXPECT_EQ(unreadable.at("file"), "<stdin>");
    EXPECT_EQ(unreadable.at("readable"), false);
    EXPECT_EQ(unreadable.at("error"),
              Json({{"kind", "unreadable"},
                    {"message", "no element found"},
                    {"line", 2},
                    {"column", 4},
                    {"consequence", qnpolicy::tool::kUnreadableFileConsequence}}));
    EXPECT_EQ(ToolRun("check --json " + none).json().at("result"), "no-such-file");
    ASSERT_EQ(ToolRun("generate fm=true --install-dir " + dir.path()).status, 0);
    EXPECT_EQ(ToolRun("check --json - < " + dir.path() + kPolicyFile).json().at("result"), "clean");
}

// One condition, one exit status, in show as in check: beyond the README table's cells,
// something there that cannot be opened (a link to nothing, a directory, a file in a directory
// the caller may not search) or read to its end (a stream beyond 64 MiB) is 2.
TEST(QnpolicyTool, ShowAndCheckGiveEachConditionTheSameExitStatus) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to drop to nobody";
    }
    // The setup, then the run with $C the subcommand, and what it says besides.
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {"ln -s none $T/link", "$Q $C $T/link", ""},
        {"mkdir -m 755 $T/j; ln -s none $T/j/QuillnetLocalPolicy.xml", "$Q $C --install-dir $T/j",
         ""},
        {"mkdir $T/dir", "$Q $C $T/dir", ""},
        {"printf '<!DOCTYPE x>\\n<QuillnetLocalPolicy/>' >$T/dtd", "$Q $C $T/dtd", ""},
        {"mkdir -m 700 $T/c; echo '<QuillnetLocalPolicy/>' > $T/c/p", kAsNobody + "$Q $C $T/c/p",
         ""},
        {"mkdir -m 700 $T/c; mkdir $T/c/i", kAsNobody + "$Q $C --install-dir $T/c/i", ""},
        {"", "{ echo '<QuillnetLocalPolicy>'; yes '<a/>'; } | $Q $C -",
         "more than 67108864 bytes of input, the most a stream may hold"},
    };
    for (const auto& [setup, command, said] : cases) {
        const qntest::TempDir dir;
        ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
        const std::string t = "T=" + dir.path().substr(0, dir.path().size() - 1) + "; ";
        ASSERT_EQ(ToolRun(t + setup, true).status, 0);
        for (const char* subcommand : {"show", "check"}) {
            const ToolRun run(t + "C=" + subcommand + "; " + command);
            EXPECT_EQ(run.status, 2) << subcommand << " " << command << "\n" << run.out << run.err;
            EXPECT_TRUE(run.has(said)) << subcommand << " " << command;
        }
    }
}

// Text that cannot lie: a value from the file is printed quoted with its controls escaped, so
// a version cannot forge a setting line, and so is a file name that needs it; no message is
// printed twice.
TEST(QnpolicyTool, PrintsWhatComesFromTheFileSoThatItCannotForgeALine) {
    qntest::TempDir dir;
    const std::string forged =
        dir.write("a\nb.xml", "<QuillnetLocalPolicy qnversion=\"9.1&#10;  FipsMode   true\"/>");
    const ToolRun shown("show '" + forged + "'");
    EXPECT_TRUE(shown.has("\nVersion:     \"9.1\\n  FipsMode   true\"\n")) << shown.out;
    EXPECT_TRUE(shown.has("Policy file: \"" + dir.path() + "a\\nb.xml\" (present)\n"));
    EXPECT_TRUE(ToolRun("check '" + forged + "'")
                    .has("\"" + dir.path() +
                         "a\\nb.xml\":1:1: newer-version: The file's version "
                         "\"9.1\\n  FipsMode   true\" is newer"));
    ASSERT_EQ(::chmod(dir.path().c_str(), 0777), 0);
    const ToolRun unsafe("generate fm=true --install-dir " + dir.path());
    EXPECT_EQ(unsafe.status, 73);
    EXPECT_EQ(unsafe.err.find("unsafe-path"), unsafe.err.rfind("unsafe-path")) << unsafe.err;
}

// --args-from: one argument per line from a file or standard input, nothing trimmed, empty
// lines skipped; a CRLF line end or a NUL byte refuses the run with its line, and so does more
// than 64 MiB; a missing file is 66.
TEST(QnpolicyTool, GenerateReadsArgumentsFromAFileOrStandardInput) {
    qntest::TempDir dir;
    const std::string d = " --install-dir " + dir.path();
    // Each script runs with $F a file that is not there yet and $D the install directory option.
    const std::vector<std::tuple<std::string, int, std::string>> cases = {
        {"printf 'fm=true\\n\\nupal=gw 1\\n' >$F; $Q generate --lenient --json --args-from $F $D",
         0, "\"written\""},
        {"printf 'fm=true\\r\\nsct=true\\r\\n' >$F; $Q generate --args-from $F $D", 65,
         "line 1 ends with a carriage return"},
        {"printf 'fm=true\\nupal=gw\\0x\\n' >$F; $Q generate --args-from $F $D", 65,
         "line 2 holds a NUL byte"},
        {"printf '\\n\\n' >$F; $Q generate --args-from $F $D", 64, "no arguments"},
        {"$Q generate --args-from $F $D", 66, "no such file"},
        {"$Q generate --all-defaults --args-from $F $D", 64, "excludes"},
        {"printf 'sct=true' | $Q generate --json --overwrite --args-from - fm=true $D", 0,
         "\"written\""},
        {"yes fm=true | head -c 67108865 | $Q generate --args-from - $D", 65,
         "more than 67108864 bytes"},
    };
    for (const auto& [script, status, part] : cases) {
        const ToolRun run("F=" + dir.path() + "arguments; rm -f $F; D='" + d + "'; " + script);
        EXPECT_EQ(run.status, status) << script << "\n" << run.err;
        EXPECT_TRUE(run.has(part)) << script << "\n" << run.out << run.err;
    }
    EXPECT_EQ(ToolRun("show --json" + d).json().at("settings").at("StrictCertificateTrust"), true);
}

// 100,000 servers, far more than a command line can carry, given on one upal= line through
// --args-from, are written and load back with every name; among as many, check finds the one
// name listed twice.
TEST(QnpolicyTool, GeneratesAHundredThousandServersThatLoadBackWithEveryName) {
    qntest::TempDir dir;
    std::string line = "upal=";
    std::string listed = "<QuillnetLocalPolicy><UpdatePolicy><AuthorizedServerList>\n";
    Json expected = Json::array();
    for (int i = 0; i < 100000; ++i) {
        const std::string server = "gw" + std::to_string(i) + ".example.com";
        line += server + ";";
        listed += "<ServerName>" + server + "</ServerName>\n";
        expected.push_back(server);
    }
    const std::string file = dir.write("arguments", "fm=true\n" + line + "\n");
    const std::string d = " --install-dir " + dir.path();
    ASSERT_EQ(ToolRun("generate --args-from " + file + d).status, 0);
    EXPECT_EQ(ToolRun("show --json" + d).json().at("settings").at("AuthorizedServerList"),
              expected);
    // The same names and the second once more: check finds that one repetition among them all.
    const std::string repeated = dir.write(
        "repeated.xml", listed +
                            "<ServerName>gw1.example.com</ServerName>\n"
                            "</AuthorizedServerList></UpdatePolicy></QuillnetLocalPolicy>\n");
    const Json findings = ToolRun("check --json --ignore file-owner " + repeated)
                              .json()
                              .at("files")
                              .at(0)
                              .at("findings");
    ASSERT_EQ(findings.size(), 1U) << findings.dump();
    EXPECT_EQ(findings.at(0).at("kind"), "duplicate-server-name");
    EXPECT_EQ(findings.at(0).at("line"), 100002);
    EXPECT_EQ(findings.at(0).at("message"),
              "Server name \"gw1.example.com\" is listed again (first at line 3).");
}

#if !defined(__SANITIZE_ADDRESS__)
// Comparing with the file on disk reads no more than the document's size plus one byte, and
// --diff no more than 1 MiB: a 1 GiB file is replaced, or said to differ, within an address
// space far smaller than the file (a sanitizer's own reservations do not fit in it).
TEST(QnpolicyTool, ComparesWithAHugeFileWithoutReadingItWhole) {
    qntest::TempDir dir;
    const std::string path = dir.path() + kPolicyFile;
    const std::string d = " --install-dir " + dir.path();
    ASSERT_EQ(::truncate(dir.write(kPolicyFile, "x").c_str(), off_t{1} << 30), 0);
    const ToolRun diff("ulimit -v 300000; $Q generate --diff --overwrite fm=true" + d);
    EXPECT_EQ(diff.status, 1) << diff.err;
    EXPECT_EQ(diff.out, "Files " + path + " and " + path +
                            " (generated) differ: the file on disk is larger than 1048576 bytes "
                            "and is not shown\n");
    EXPECT_EQ(ToolRun("ulimit -v 300000; $Q generate --overwrite fm=true" + d).status, 0);
    EXPECT_LT(statOf(path).st_size, 1000);
}
#endif

// Output that cannot be written is an I/O error (74); a reader that goes away ends the run
// quietly; a file-size limit ends generation with "File too large" instead of a signal, and
// the old file stays whole.
TEST(QnpolicyTool, EveryFailedWriteEndsWithAnIoError) {
    qntest::TempDir dir;
    const std::string d = " --install-dir " + dir.path();
    // The status of each subcommand is the README table's; here, the reason.
    EXPECT_TRUE(ToolRun("generate fm=true" + d + " >/dev/full")
                    .has("cannot write to standard output: No space left on device"));
    std::string servers = "upal=";
    for (int i = 0; i < 12000; ++i) {
        servers += "gw" + std::to_string(i) + ";";
    }
    const ToolRun limited("ulimit -f 100; $Q generate --overwrite '" + servers + "'" + d);
    EXPECT_EQ(limited.status, 74);
    EXPECT_TRUE(limited.has("not written: write failed: File too large.\n"));
    EXPECT_FALSE(limited.has("log lines")) << "no message refers to log lines not printed";
    EXPECT_EQ(qntest::readFile(dir.path() + kPolicyFile).find("gw"), std::string::npos)
        << "the old file, which names no server, is kept whole";

    ASSERT_EQ(ToolRun("generate --overwrite '" + servers.substr(0, 60000) + "gw'" + d).status, 0);
    const ToolRun piped("{ $Q show --quiet --json" + d +
                        "; echo \"status $?\" >&2; } | head -c 10");
    EXPECT_EQ(piped.err, "status 74\n");
}

// show: a document elsewhere (FILE or -) read as the client would; --origin tells where each
// value comes from, for the settings named (by element or abbreviation) or all; --format=flat
// prints one "ElementName value" line per setting and per server in catalogue order, a value
// that could pass for something else quoted. A cut file exits 2 with one JSON object holding
// the parser's reason and position, says what the client holds and lists what was read before
// the cut.
TEST(QnpolicyTool, ShowReadsADocumentAsTheClientWouldAndTellsWhereEachValueComesFrom) {
    qntest::TempDir dir;
    const std::string file = dir.write(
        "p.xml",
        "<QuillnetLocalPolicy qnversion=\"" + std::string(qnpolicy::kClientVersion) +
            "\">\n  <FipsMode>true</FipsMode><FipMode>false</FipMode>"
            "<RestrictPreferenceCaching>Thumbprints,Credentials"
            "</RestrictPreferenceCaching><RestrictTunnelProtocols>ipsec"
            "</RestrictTunnelProtocols>\n"
            "  <UpdatePolicy><AuthorizedServerList>\n"
            "    <ServerName>gw1</ServerName><ServerName>gw 2\nFipsMode true</ServerName>\n"
            "  </AuthorizedServerList></UpdatePolicy>\n</QuillnetLocalPolicy>\n");
    for (const auto& [source, policyFile] : std::vector<std::pair<std::string, std::string>>{
             {file, file}, {"- < " + file, "<stdin>"}}) {
        const Json shown = ToolRun("show --json " + source).json();
        EXPECT_EQ(shown.at("result"), "loaded");
        EXPECT_EQ(shown.at("exists"), true);
        EXPECT_EQ(shown.at("policyFile"), policyFile);
        EXPECT_EQ(shown.at("settings").at("RestrictPreferenceCaching"), "Credentials,Thumbprints");
        EXPECT_EQ(shown.at("fipsModeModifiedOnDisk"), false);
        EXPECT_FALSE(shown.at("settings").contains("FipsModeModifiedOnDisk"));
    }
    const ToolRun run("show --origin --json " + file + " upal fm");
    EXPECT_EQ(run.status, 0) << run.err;
    const Json shown = run.json();
    EXPECT_EQ(shown.at("settings"), Json::parse(R"({
        "AuthorizedServerList": {"value": ["gw1", "gw 2\nFipsMode true"],
            "origin": {"line": 3, "column": 17}, "takesEffect": "next-load",
            "valueOrigins": [{"line": 4, "column": 5}, {"line": 4, "column": 33}],
            "contributors": [{"element": "AuthorizedServerList", "line": 3, "column": 17,
                              "text": "", "contribution": "sets"}]},
        "FipsMode": {"value": true, "origin": {"line": 2, "column": 3},
            "takesEffect": "next-start",
            "contributors": [{"element": "FipsMode", "line": 2, "column": 3, "text": "true",
                              "contribution": "sets"}]}})"));
    // The misspelt element names no selected setting.
    EXPECT_EQ(shown.at("ignored"), Json::array());
    EXPECT_EQ(ToolRun("show --origin --json " + file).json().at("ignored").at(0).at("kind"),
              "unknown-element");
    EXPECT_TRUE(ToolRun("show --origin " + file + " FipsMode")
                    .has("FipsMode                                            true  " + file +
                         ":2:3 (a change takes effect at the client's next start)\n"));
    const std::vector<std::string> flat =
        qntest::pieces(ToolRun("show --format=flat " + file).out, "\n");
    ASSERT_EQ(flat.size(), 30U);
    EXPECT_EQ(flat.front(), "FipsMode true");
    EXPECT_EQ(flat.at(11), "RestrictPreferenceCaching Credentials,Thumbprints");
    EXPECT_EQ(flat.at(12), "RestrictTunnelProtocols ipsec");
    EXPECT_EQ(flat.at(28), "AuthorizedServerList gw1");
    EXPECT_EQ(flat.back(), "AuthorizedServerList \"gw 2\\nFipsMode true\"");

    const std::string cut = dir.write("cut.xml",
                                      "<QuillnetLocalPolicy>\n<FipsMode>true</FipsMode>\n"
                                      "<BypassDownloader>true</BypassDownloader>\n<Fips");
    const ToolRun plain("show --json " + cut);
    EXPECT_EQ(plain.status, 2);
    EXPECT_EQ(plain.json().at("loaded"), false);
    EXPECT_EQ(plain.json().at("policyFile"), cut);
    EXPECT_EQ(plain.json().at("error"),
              Json::parse(R"({"kind": "unreadable", "line": 4, "column": 1,
        "message": "unclosed token", "consequence": ")" +
                          std::string(qnpolicy::tool::kUnreadableFileConsequence) + "\"}"));
    EXPECT_TRUE(plain.has("qnpolicy show: cannot load \"" + cut + "\" at line 4"));
    EXPECT_EQ(plain.json().at("settings").at("BypassDownloader"), true);
    EXPECT_EQ(plain.json().at("settings").at("FipsMode"), false);
    const ToolRun origin("show --origin --json " + cut + " fm bd");
    EXPECT_EQ(
        origin.json().at("settings").at("FipsMode").at("contributors").at(0).at("contribution"),
        "overridden");
    const ToolRun text("show " + cut);
    EXPECT_TRUE(text.has("  BypassDownloader                                  true\n")) << text.out;
    EXPECT_TRUE(text.has("FipsModeModifiedOnDisk: false (read as a client's first load"))
        << text.out;
}

// diff: the same policy for a reordered, re-indented, commented file with another version;
// otherwise one line per differing setting with both values and both origins; with one FILE,
// the install directory's file (the defaults when missing) is the old one.
TEST(QnpolicyTool, DiffReportsWhatTheClientReadsDifferently) {
    qntest::TempDir dir;
    const std::string a = dir.write(
        "a.xml", "<QuillnetLocalPolicy qnversion=\"" + std::string(qnpolicy::kClientVersion) +
                     "\">\n  <FipsMode>true</FipsMode>\n"
                     "  <EnableCRLCheck>false</EnableCRLCheck>\n</QuillnetLocalPolicy>\n");
    const std::string b =
        dir.write("b.xml",
                  "<QuillnetLocalPolicy qnversion=\"5.1.9\"><!-- same -->"
                  "<EnableCRLCheck>false</EnableCRLCheck><FipsMode>true</FipsMode>"
                  "</QuillnetLocalPolicy>");
    const std::string c = dir.write("c.xml",
                                    "<QuillnetLocalPolicy>\n<EnableCRLCheck>true</EnableCRLCheck>\n"
                                    "</QuillnetLocalPolicy>\n");
    const ToolRun same("diff " + a + " " + b);
    EXPECT_EQ(same.out, "qnversion: \"" + std::string(qnpolicy::kClientVersion) +
                            "\" -> \"5.1.9\" (no difference: the client reads "
                            "both alike)\n" +
                            a + " and " + b + ": the client reads the same policy\n");
    const ToolRun different("diff " + a + " - < " + c);
    EXPECT_EQ(different.status, 1);
    EXPECT_EQ(different.out.substr(0, different.out.find("qnversion")),
              "FipsMode: true (" + a +
                  ":2:3) -> false (default)\n"
                  "EnableCRLCheck: false (" +
                  a + ":3:3) -> true (<stdin>:2:1)\n");
    const Json changes = ToolRun("diff --json " + a + " " + c).json();
    EXPECT_EQ(changes.at("result"), "different");
    EXPECT_EQ(changes.at("changes").at(0), Json::parse(R"({"setting": "FipsMode",
        "old": {"value": true, "origin": {"line": 2, "column": 3}},
        "new": {"value": false, "origin": null}})"));
    const ToolRun installed("diff --quiet --install-dir " + dir.path() + " " + c);
    EXPECT_EQ(installed.out, "EnableCRLCheck: false (default) -> true (" + c + ":2:1)\n");
}

// comply: each file's verdicts with the actual value's origin, file-safety failing where the
// path audit finds others can change the policy (each way it can: PathAudit's suite), the gravest
// condition across files, a malformed baseline refused where it is (standard input too), and a
// waiver of this host that ends soon announced.
TEST(QnpolicyTool, ComplyJudgesEachFileAgainstTheBaseline) {
    qntest::TempDir dir;
    ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
    const std::string fipsOn =
        "<QuillnetLocalPolicy>\n  <FipsMode>true</FipsMode>\n</QuillnetLocalPolicy>\n";
    const std::string good = dir.write("good.xml", fipsOn);
    const std::string drifted =
        dir.write("drifted.xml",
                  "<QuillnetLocalPolicy>\n  <FipsMode>false</FipsMode>\n</QuillnetLocalPolicy>\n");
    const std::string broken = dir.write("broken.xml", "<QuillnetLocalPolicy>");
    // The good policy below a directory everyone may write, without the sticky bit.
    ASSERT_EQ(::mkdir((dir.path() + "open").c_str(), 0777), 0);
    ASSERT_EQ(::chmod((dir.path() + "open").c_str(), 0777), 0);  // whatever the umask
    ASSERT_EQ(::mkdir((dir.path() + "open/in").c_str(), 0755), 0);
    const std::string exposed = dir.write("open/in/good.xml", fipsOn);
    // A waiver of FipsMode on host lab-1 whose last day is three days from now.
    const std::time_t soon = std::time(nullptr) + 3 * 24 * 3600;
    std::tm day{};
    ::gmtime_r(&soon, &day);
    char expires[16];
    std::strftime(expires, sizeof expires, "%Y-%m-%d", &day);
    const std::string baseline =
        dir.write("b.yml", std::string("version: 1\nsettings:\n  FipsMode: true  # on\n"
                                       "waivers:\n  - setting: FipsMode\n    hosts: [lab-*]\n"
                                       "    reason: SEC-1\n    expires: ") +
                               expires + "\n");
    // The words, the exit status, what standard output or error shows.
    const std::vector<std::tuple<std::string, int, std::string>> cases = {
        {"comply --baseline " + baseline + " " + good, 0,
         good + ": compliant with " + baseline + " (host "},
        {"comply --host web-1 --baseline " + baseline + " " + good + " " + drifted, 1,
         "  fail FipsMode [medium]: expected true, actual false from " + drifted + ":2:3\n"},
        {"comply --host lab-1 --baseline " + baseline + " " + drifted, 0,
         ": the waiver of FipsMode at " + baseline + ":5:5 holds until " + expires},
        {"comply --host lab-1 --baseline " + baseline + " " + drifted, 0,
         "  waived FipsMode [medium]: expected true, actual false from " + drifted +
             ":2:3; waived until " + expires + ": SEC-1\n"},
        {"comply --baseline " + baseline + " " + exposed, 1,
         "  fail file-safety [high]\n    unsafe-path: The directory \"" + dir.path() +
             "open\" has mode 0777"},
        {"comply --baseline " + baseline + " " + drifted + " " + broken, 2,
         "cannot load \"" + broken + "\" at line 1, column 22: no element found"},
        {"comply --baseline " + baseline + " " + broken + " " + dir.path() + "none", 66,
         dir.path() + "none: no such file"},
        {"comply --baseline - " + good + " <<'EOF'\nversion: 1\nsettings:\n  FipsMode: yes\nEOF",
         65, "qnpolicy comply: <stdin>:3:13: FipsMode takes true or false, not yes"},
        {"comply --baseline " + dir.path() + "none.yml " + good, 66, "no such file"},
        {"comply --baseline - -", 64, "FILE is a path"},
    };
    for (const auto& [words, status, shown] : cases) {
        const ToolRun run(words);
        EXPECT_EQ(run.status, status) << words << "\n" << run.out << run.err;
        EXPECT_TRUE(run.has(shown)) << words << "\n" << run.out << run.err;
    }
    // JSON: the actual value typed as show --json types it, with its origin; a refusal with its
    // position. Both are validated against the published schema when the suite ends.
    const Json verdicts =
        ToolRun("comply --json --host web-1 --baseline " + baseline + " " + drifted).json();
    EXPECT_EQ(verdicts.at("result"), "not-compliant");
    EXPECT_EQ(verdicts.at("files").at(0).at("verdicts").at(1), Json::parse(R"({"rule": "FipsMode",
        "state": "fail", "severity": "medium", "comparison": "equals", "expected": [true],
        "actual": false, "origin": {"line": 2, "column": 3}})"));
    const Json refused = ToolRun("comply --json --baseline " + good + " " + good).json();
    EXPECT_EQ(refused.at("error").at("kind"), "refused");
    EXPECT_EQ(refused.at("error").at("line"), 1);
}

// The usage --help prints from the command table is the one main.cpp's header and the README
// show.
TEST(QnpolicyTool, UsageTextIsTheOneTheSourcesAndTheReadmeShow) {
    const ToolRun help("--help");
    const size_t start = help.out.find("Usage:\n");
    ASSERT_NE(start, std::string::npos);
    std::string usage;
    std::istringstream lines(help.out.substr(start + 7));
    for (std::string line; std::getline(lines, line) && !line.empty();) {
        usage += line.substr(2) + "\n";
    }
    // The first code block of the README's section on the tool.
    const std::string readme = qntest::readFile(QN_README);
    const size_t block = readme.find("```\n", readme.find("\n## The qnpolicy tool\n")) + 4;
    EXPECT_EQ(readme.substr(block, readme.find("```", block) - block), usage);
    // The indented lines of the comment that heads the source.
    std::string header;
    std::ifstream source(QN_TOOL_MAIN);
    for (std::string line; std::getline(source, line) && line.rfind("//", 0) == 0;) {
        header += line.rfind("//   ", 0) == 0 ? line.substr(5) + "\n" : std::string();
    }
    EXPECT_EQ(header, usage);
}

}  // namespace

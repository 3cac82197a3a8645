// SPDX-License-Identifier: Apache-2.0
// qnpolicy's writers end to end: set and unset change the named settings and nothing else,
// every writer honours the one lock and refuses a file changed behind its back, and edit is
// driven through a pseudo-terminal (script from util-linux) as an administrator would drive it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "ShellRun.h"
#include "TestSupport.h"

namespace {

using Json = nlohmann::json;

constexpr char kPolicyFile[] = "QuillnetLocalPolicy.xml";

// One run through the shell with $Q the tool and $D the install directory.
struct ToolRun : qntest::ShellRun {
    ToolRun(const std::string& command, const std::string& directory)
        : ShellRun(command, "export D='" + quoted(directory) + "'; ") {}
};

// A document as generate writes it, with body between the root's tags.
std::string document(const std::string& body) {
    return qntest::kPolicyRootOpen + ">\n" + body + "</QuillnetLocalPolicy>\n";
}

// Each case: the file before (empty: none), the command, its exit status, and the file after.
TEST(QnpolicyWriters, SetAndUnsetChangeTheNamedSettingsAndKeepEverythingElse) {
    const std::string servers =
        "        <AuthorizedServerList>\n            <ServerName>gw1</ServerName>\n"
        "        </AuthorizedServerList>\n    </UpdatePolicy>\n";
    const std::string generated = document(
        "    <BypassDownloader>true</BypassDownloader>\n"
        "    <StrictCertificateTrust>false</StrictCertificateTrust>\n    <UpdatePolicy>\n" +
        servers);
    const std::string handOrdered = document(
        "    <UpdatePolicy>\n        <AllowScriptUpdatesFromAnyServer>false"
        "</AllowScriptUpdatesFromAnyServer>\n    </UpdatePolicy>\n"
        "    <StrictCertificateTrust>false</StrictCertificateTrust>\n"
        "    <BypassDownloader>true</BypassDownloader>\n");
    const std::string commented = document(
        "    <!-- pinned by ticket 42 -->\n    <BypassDownloader>true</BypassDownloader>\n");
    const std::vector<std::tuple<std::string, std::string, int, std::string>> cases = {
        {generated, "set sct=true", 0,
         document(
             "    <BypassDownloader>true</BypassDownloader>\n"
             "    <StrictCertificateTrust>true</StrictCertificateTrust>\n    <UpdatePolicy>\n" +
             servers)},
        {generated, "unset sct upal", 0,
         document("    <BypassDownloader>true</BypassDownloader>\n")},
        {generated, "set fm=TRUE upsu=false", 0,
         document("    <BypassDownloader>true</BypassDownloader>\n"
                  "    <FipsMode>true</FipsMode>\n"
                  "    <StrictCertificateTrust>false</StrictCertificateTrust>\n"
                  "    <UpdatePolicy>\n        <AllowSoftwareUpdatesFromAnyServer>false"
                  "</AllowSoftwareUpdatesFromAnyServer>\n" +
                  servers)},
        {handOrdered, "set sct=true upscr=true", 0,
         document("    <UpdatePolicy>\n        <AllowScriptUpdatesFromAnyServer>true"
                  "</AllowScriptUpdatesFromAnyServer>\n    </UpdatePolicy>\n"
                  "    <StrictCertificateTrust>true</StrictCertificateTrust>\n"
                  "    <BypassDownloader>true</BypassDownloader>\n")},
        {commented, "set sct=true", 65, commented},
        {commented, "set --force sct=true", 0,
         document("    <BypassDownloader>true</BypassDownloader>\n"
                  "    <StrictCertificateTrust>true</StrictCertificateTrust>\n")},
        {"", "unset sct", 0, qntest::kPolicyRootOpen + "/>\n"},
        {"<!DOCTYPE x><QuillnetLocalPolicy/>", "set sct=true", 2,
         "<!DOCTYPE x><QuillnetLocalPolicy/>"},
        {"<QuillnetLocalPolicy>", "unset sct", 2, "<QuillnetLocalPolicy>"},
        {generated, "set sctt=true", 65, generated},
        {generated, "unset sct=false", 65, generated},
        {generated, "set rtp=sstp", 65, generated},
    };
    for (const auto& [before, command, status, after] : cases) {
        SCOPED_TRACE(command + " on " + before.substr(0, 120));
        const qntest::TempDir dir;
        if (!before.empty()) {
            dir.write(kPolicyFile, before);
        }
        const ToolRun run("$Q " + command + " --install-dir $D", dir.path());
        EXPECT_EQ(run.status, status) << run.err;
        EXPECT_EQ(qntest::readFile(dir.path() + kPolicyFile), after);
    }
}

// The summary names every setting the client reads differently, an overridden one included;
// a second identical run changes nothing; the JSON lists what a forced run dropped.
TEST(QnpolicyWriters, ReportTheEffectiveChangesAndStayIdempotent) {
    const qntest::TempDir dir;
    dir.write(kPolicyFile,
              document("    <RestrictServerCertStore>true</RestrictServerCertStore>\n"
                       "    <StrictCertificateTrust>false</StrictCertificateTrust>\n"
                       "    <ExcludePemFileCertStore>TRUE</ExcludePemFileCertStore>\n"));
    const ToolRun refused("$Q unset rsc --json --install-dir $D", dir.path());
    EXPECT_EQ(refused.status, 65);
    EXPECT_EQ(refused.json().at("dropped").at(0).at("line"), 5) << refused.out;
    const ToolRun unset("$Q unset rsc --force --json --install-dir $D", dir.path());
    ASSERT_EQ(unset.status, 0) << unset.err;
    const Json report = unset.json();
    EXPECT_EQ(report.at("result"), "written");
    ASSERT_EQ(report.at("changes").size(), 2U);
    EXPECT_EQ(report.at("changes").at(0).at("setting"), "StrictCertificateTrust");
    EXPECT_EQ(report.at("changes").at(1).at("setting"), "RestrictServerCertStore");
    EXPECT_EQ(report.at("dropped").size(), 1U);
    const ToolRun again("$Q unset rsc --json --install-dir $D", dir.path());
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.json().at("result"), "unchanged");
    EXPECT_FALSE(again.json().contains("audit"));
    const ToolRun created(
        "rm $D/" + std::string(kPolicyFile) + "; $Q set fm=true --json --install-dir $D",
        dir.path());
    EXPECT_EQ(created.json().at("result"), "created") << created.out;
}

// Twenty runs at once, each setting a different one; a run that gives up on the lock (75) runs
// again. Every change is in the file, which is the document generate writes for all twenty.
TEST(QnpolicyWriters, ConcurrentSetsLoseNoChange) {
    const std::vector<std::string> arguments = {
        "bd=true",    "bdl=true",    "ecc=true",    "efn=true",   "emn=true",
        "epf=true",   "ewn=true",    "fm=true",     "orc=true",   "rhwd=true",
        "rlwd=true",  "rrwd=true",   "rswd=true",   "rwl=true",   "sct=true",
        "upcu=false", "uphlp=false", "uploc=false", "upmv=false", "uppp=false"};
    const qntest::TempDir dir;
    ASSERT_EQ(ToolRun("$Q generate --all-defaults --install-dir $D", dir.path()).status, 0);
    std::string script;
    std::string all;
    for (const std::string& argument : arguments) {
        // At most ten tries each: every try but the last gave up after waiting 5 s.
        script += "(for i in 1 2 3 4 5 6 7 8 9 10; do $Q set -q " + argument +
                  " --install-dir $D; s=$?; [ $s -ne 75 ] && break; done; echo $s >>$D/s) & ";
        all += " " + argument;
    }
    const ToolRun runs(script + "wait; sort -u $D/s", dir.path());
    EXPECT_EQ(runs.out, "0\n") << runs.err;
    const ToolRun expected("$Q generate --dry-run" + all + " --install-dir $D", dir.path());
    EXPECT_EQ(qntest::readFile(dir.path() + kPolicyFile), expected.out);
}

// edit through a pseudo-terminal: the editor is a command run on the working copy, and the
// answers to the question are typed into the terminal. Each case: the editor, what is typed,
// the exit status, what standard output and error show, and the file's setting afterwards.
TEST(QnpolicyWriters, EditBehavesLikeVisudoThroughATerminal) {
    // The editor of the first session runs a second edit, which must give up on the lock.
    const std::string second = "sh $D/second.sh";
    const std::vector<std::tuple<std::string, std::string, int, std::string, std::string>> cases = {
        {"true", "", 0, "left untouched", "false"},
        {"sed -i s/false/true/", "", 0, "StrictCertificateTrust: false", "true"},
        {"sed -i s/false/TRUE/", "x\n", 1, "(e)dit again, (x) exit without saving", "false"},
        {"sed -i s/false/TRUE/", "e\nQ\n", 0, "non-boolean-value", "TRUE"},
        {"stat -c %a >$D/mode", "", 0, "left untouched", "false"},
        {second, "", 0, "left untouched", "false"},
        {"echo >>$D/" + std::string(kPolicyFile) + "; sed -i s/false/true/", "", 75,
         "changed while this run read it", "false"},
    };
    for (const auto& [editor, typed, status, shown, value] : cases) {
        SCOPED_TRACE(editor);
        const qntest::TempDir dir;
        dir.write(kPolicyFile,
                  document("    <StrictCertificateTrust>false</StrictCertificateTrust>\n"));
        dir.write("second.sh",
                  "EDITOR=true \"$Q\" edit --install-dir \"$D\" >\"$D/second\" 2>&1\n"
                  "echo $? >>\"$D/second\"\n");
        const ToolRun run("printf '" + typed + "' | EDITOR='" + ToolRun::quoted(editor) +
                              "' script -qec \"$Q edit --install-dir $D\" /dev/null",
                          dir.path());
        EXPECT_EQ(run.status, status) << run.out;
        EXPECT_NE(run.out.find(shown), std::string::npos) << run.out;
        const std::string after = qntest::readFile(dir.path() + kPolicyFile);
        EXPECT_NE(after.find("<StrictCertificateTrust>" + value), std::string::npos) << after;
        EXPECT_NE(::access((dir.path() + ".QuillnetLocalPolicy.edit.xml").c_str(), F_OK), 0);
        if (editor.rfind("stat", 0) == 0) {
            EXPECT_EQ(qntest::readFile(dir.path() + "mode"), "600\n");
        }
        if (editor == second) {
            const std::string nested = qntest::readFile(dir.path() + "second");
            EXPECT_NE(nested.find("(pid "), std::string::npos) << nested;
            EXPECT_EQ(nested.substr(nested.size() - 3), "75\n") << nested;
        }
    }
    const ToolRun noTerminal("$Q edit --install-dir /tmp", "/tmp");
    EXPECT_EQ(noTerminal.status, 64);
}

}  // namespace

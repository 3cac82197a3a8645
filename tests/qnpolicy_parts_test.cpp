// SPDX-License-Identifier: Apache-2.0
// The parts of qnpolicy in-process: the linter (documents to the findings they must give, and
// the cap on findings of one kind), the audit of who can change a file, the unified diff
// against diff -u, the JSON writer against a JSON parser, and the "did you mean" suggestions.
// What only the binary shows (dispatch, exit codes, output streams) is qnpolicy_cli_test's.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "MessageText.h"
#include "PolicyModel.h"
#include "TestSupport.h"
#include "lint/PolicyLinter.h"
#include "output/Output.h"
#include "output/UnifiedDiff.h"
#include "safety/PathAudit.h"

namespace {

using qnpolicy::tool::LintFinding;
using qnpolicy::tool::LintPolicyBytes;
using qnpolicy::tool::LintResult;

// "kind:line" of each finding, in order.
std::string kindsAndLines(const LintResult& result) {
    std::string found;
    for (const LintFinding& finding : result.findings) {
        found += (found.empty() ? "" : " ") + finding.kind + ":" + std::to_string(finding.line);
    }
    return found;
}

// Each document yields exactly the findings, kinds and lines, of its flaws. The shipped sample
// keeps one flaw of each common kind at a known line; the documents here add the kinds it
// lacks.
TEST(PolicyLinter, FindsExactlyTheFlawsOfEachDocument) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<?xml version=\"1.0\"?>\n<!-- no DTD: the client refuses a file with one -->\n"
         "<QuillnetLocalPolicy qnversion=\"9.1\">\n<BypassDownloader/>\n"
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
         "newer-version:3 empty-value:4 ignored-attribute:5 "
         "empty-value:5 non-boolean-value:6 server-name-outside-list:7 "
         "caching-restrictions-cleared:8 ignored-caching-token:8 duplicate-setting:9 empty-value:9 "
         "tunnel-value-not-applied:10 non-boolean-value:11 padded-server-name:13 "
         "duplicate-server-name:13 empty-value:14 nested-update-policy:15 "
         "update-permission-outside-section:16"},
        {qntest::readFile(QN_FLAWED_SAMPLE),
         "newer-version:4 non-boolean-value:5 unknown-element:6 "
         "unknown-caching-token:7 ignored-caching-token:7 tunnel-value-not-applied:8 "
         "duplicate-setting:10 update-permission-outside-section:11 server-list-text:14 "
         "server-list-outside-section:16"},
        // A root of another name, an unknown element inside a list, a list outside the section
        // whose names are not reported again, a setting with child elements.
        {"<Policy><UpdatePolicy><AuthorizedServerList><Name>x</Name></AuthorizedServerList>"
         "</UpdatePolicy>\n<AuthorizedServerList><ServerName>a</ServerName>"
         "</AuthorizedServerList>\n<FipsMode><x/></FipsMode></Policy>",
         "unknown-element:1 unknown-element:1 server-list-outside-section:2 empty-value:3 "
         "unknown-element:3"},
        // A blank after a comma makes an unknown caching option; a setting that another one
        // overrides is reported where the file last states it, and not where it does not
        // count or agrees.
        {"<QuillnetLocalPolicy>\n"
         "<RestrictPreferenceCaching>Credentials, Thumbprints</RestrictPreferenceCaching>\n"
         "<StrictCertificateTrust>true</StrictCertificateTrust>\n"
         "<StrictCertificateTrust>false</StrictCertificateTrust>\n"
         "<RestrictServerCertStore>true</RestrictServerCertStore>\n</QuillnetLocalPolicy>",
         "unknown-caching-token:2 duplicate-setting:4 overridden-setting:4"},
        {"<QuillnetLocalPolicy><RestrictServerCertStore>true</RestrictServerCertStore>\n"
         "<StrictCertificateTrust>TRUE</StrictCertificateTrust>\n</QuillnetLocalPolicy>",
         "non-boolean-value:2 overridden-setting:2"},
        // A root inside the root is read like the root, its version included; a server name
        // with a blank inside is kept as one name.
        {"<QuillnetLocalPolicy>\n<QuillnetLocalPolicy qnversion=\"9\">\n<UpdatePolicy>"
         "<AuthorizedServerList><ServerName>gw1 gw2</ServerName><ServerName>gw&#x85;</ServerName>"
         "</AuthorizedServerList></UpdatePolicy>\n</QuillnetLocalPolicy></QuillnetLocalPolicy>",
         "nested-root-element:2 newer-version:2 blank-in-server-name:3 blank-in-server-name:3"},
        // Clean documents give nothing.
        {"<QuillnetLocalPolicy><FipsMode>true</FipsMode>"
         "<RestrictPreferenceCaching>Credentials,Thumbprints</RestrictPreferenceCaching>"
         "<RestrictTunnelProtocols>ipsec</RestrictTunnelProtocols></QuillnetLocalPolicy>",
         ""},
    };
    for (const auto& [content, expected] : cases) {
        const LintResult result = LintPolicyBytes(content, "p.xml");
        EXPECT_TRUE(result.bReadable) << content;
        EXPECT_EQ(kindsAndLines(result), expected) << content;
    }
}

// A document that cannot be read is unreadable with the parser's reason and position; the
// findings before the failure stay. A DTD makes the client refuse the whole file, so it is
// unreadable before anything is read.
TEST(PolicyLinter, ReportsWhereAnUnreadableDocumentStops) {
    const std::vector<
        std::tuple<std::string, std::string, unsigned long, unsigned long, std::string>>
        cases = {
            {"<QuillnetLocalPolicy>\n<FipsMode>yes</FipsMode>\n<a>", "no element found", 3, 4,
             "non-boolean-value:2 unknown-element:3"},
            {"<?xml version=\"1.0\"?>\n<!DOCTYPE QuillnetLocalPolicy>\n<QuillnetLocalPolicy>"
             "<StrictCertificateTrust>false</StrictCertificateTrust>"
             "<RestrictServerCertStore>true</RestrictServerCertStore></QuillnetLocalPolicy>",
             "document type declaration \"QuillnetLocalPolicy\" (a secure parse accepts no DTD)", 2,
             30, ""},
        };
    for (const auto& [content, reason, line, column, findings] : cases) {
        const LintResult result = LintPolicyBytes(content, "p.xml");
        EXPECT_FALSE(result.bReadable);
        EXPECT_EQ(result.failureReason, reason);
        EXPECT_EQ(result.failureLine, line);
        EXPECT_EQ(result.failureColumn, column);
        EXPECT_EQ(kindsAndLines(result), findings);
    }
}

// The override finding names both settings and is a warning: the client is stricter than the
// file says. A file cut short is read as far as it goes, so an override before the cut counts.
TEST(PolicyLinter, NamesTheSettingThatOverridesAnother) {
    const LintResult result = LintPolicyBytes(
        "<QuillnetLocalPolicy><StrictCertificateTrust>false</StrictCertificateTrust>\n"
        "<RestrictServerCertStore>true</RestrictServerCertStore>\n<Fips",
        "p.xml");
    EXPECT_FALSE(result.bReadable);
    ASSERT_EQ(kindsAndLines(result), "overridden-setting:1");
    const LintFinding& finding = result.findings[0];
    EXPECT_EQ(finding.eSeverity, qnpolicy::tool::Severity::WARNING);
    EXPECT_EQ(finding.column, 22U);
    EXPECT_EQ(finding.message,
              "\"StrictCertificateTrust\" is false here, but the client reads it as true: "
              "\"RestrictServerCertStore\" is true, which overrides it.");
    EXPECT_NE(LintPolicyBytes("<QuillnetLocalPolicy><RestrictPreferenceCaching>All, Thumbprints"
                              "</RestrictPreferenceCaching></QuillnetLocalPolicy>",
                              "p.xml")
                  .findings.at(0)
                  .message.find("does not trim blanks: write \"Thumbprints\""),
              std::string::npos);
}

// At most kMaxFindingsPerKind findings of one kind are kept; the rest are counted, and other
// kinds keep theirs.
TEST(PolicyLinter, KeepsAHundredFindingsOfAKindAndCountsTheRest) {
    std::string document = "<QuillnetLocalPolicy>";
    for (int i = 0; i < 250; ++i) {
        document += "<FipMode>true</FipMode>";
    }
    document += "<FipsMode>TRUE</FipsMode></QuillnetLocalPolicy>";
    const LintResult result = LintPolicyBytes(document, "p.xml");
    ASSERT_EQ(result.findings.size(), qnpolicy::tool::kMaxFindingsPerKind + 1);
    EXPECT_EQ(result.findings.back().kind, "non-boolean-value");
    EXPECT_EQ(result.omitted, (std::map<std::string, unsigned long>{{"unknown-element", 150}}));
    EXPECT_EQ(result.Count(), 251U);
}

// The scratch tree of one path-audit case, under T (root's, 0755): steps separated by ",",
// "d NAME MODE [UID]" a directory, "f NAME MODE [UID]" a file, "l NAME TARGET [UID]" a link,
// "h NAME TARGET" a hard link.
void makeTree(const std::string& root, const std::string& steps) {
    for (const std::string& step : qntest::pieces(steps, ",")) {
        std::istringstream words(step);
        std::string kind, name, second;
        long owner = -1;
        words >> kind >> name >> second >> owner;
        const std::string path = root + name;
        if (kind == "d") {
            ASSERT_EQ(::mkdir(path.c_str(), 0), 0) << path;
        } else if (kind == "f") {
            std::ofstream(path) << "<QuillnetLocalPolicy/>";
        } else if (kind == "l") {
            ASSERT_EQ(::symlink(second.c_str(), path.c_str()), 0) << path;
        } else {
            ASSERT_EQ(::link((root + second).c_str(), path.c_str()), 0) << path;
        }
        if (kind == "d" || kind == "f") {
            ASSERT_EQ(::chmod(path.c_str(), std::stoul(second, nullptr, 8)), 0);
        }
        if (owner >= 0) {
            ASSERT_EQ(::lchown(path.c_str(), static_cast<uid_t>(owner), static_cast<gid_t>(-1)), 0);
        }
    }
}

// What an audit found: each problem's kind and the component it names (the first quoted
// text of its message, with T for the scratch root), for check the file's own problems after
// them when it is a regular file, then "=" and the error, and "!" when something is there.
std::string audited(const std::string& root, const std::string& path,
                    qnpolicy::tool::Trust eTrust) {
    const qnpolicy::tool::PathAudit audit = qnpolicy::tool::AuditPolicyPath(path, eTrust);
    std::vector<qnpolicy::tool::PathProblem> problems = audit.problems;
    if (eTrust == qnpolicy::tool::Trust::CLIENT && audit.bExamined &&
        S_ISREG(audit.entry.st_mode)) {
        const auto file = qnpolicy::tool::FileProblems(audit.entry, audit.Path());
        problems.insert(problems.end(), file.begin(), file.end());
    }
    std::string text;
    for (const qnpolicy::tool::PathProblem& problem : problems) {
        const size_t open = problem.message.find('"');
        std::string component =
            problem.message.substr(open + 1, problem.message.find('"', open + 1) - open - 1);
        if (component.rfind(root, 0) == 0) {
            component = "T/" + component.substr(root.size());
        }
        text += std::string(problem.kind) + ":" + component + " ";
    }
    return text + "=" + std::to_string(audit.error) + (audit.bExists ? "!" : "");
}

// Each way someone other than root could change the policy, and each thing that is not one,
// audited as check (root trusted) or as a writer run by nobody (nobody trusted too), by root or
// by nobody: directories, links (their owner and directory, never their own mode), the sticky
// bit above the policy's directory but not on it, hard links, what cannot be examined.
TEST(PathAudit, FindsEveryComponentThroughWhichOthersCouldChangeThePolicy) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to give files away and drop to nobody";
    }
    using qnpolicy::tool::Trust;
    struct Case {
        const char* tree;
        const char* path;  // below T; relative to T when it starts with '.'
        const char* expected;
        Trust eTrust = Trust::CLIENT;
        bool bAsNobody = false;
    };
    const Case cases[] = {
        {"d d 755, f d/p 644", "d/p", "=0!"},
        {"d d 755", "d/p", "=0"},
        {"d d 755, f d/p 666 65534", "d/p", "file-owner:T/d/p file-permissions:T/d/p =0!"},
        {"d d 755, f d/p 644, h d/q d/p", "d/p", "unsafe-path:T/d/p =0!"},
        {"d d 777, f d/p 644", "d/p", "unsafe-path:T/d =0!"},
        {"d d 755 65534, f d/p 644", "d/p", "unsafe-path:T/d =0!"},
        {"d d 1777", "d/p", "unsafe-path:T/d =0"},
        {"d s 1777, d s/d 755, f s/d/p 644", "s/d/p", "=0!"},
        {"d s 1777 65534, d s/d 755, f s/d/p 644", "s/d/p", "unsafe-path:T/s =0!"},
        // A link in a world-writable directory, and one that nobody owns, to a safe file.
        {"d safe 755, f safe/p 644, d u 777, l u/p ../safe/p", "u/p", "unsafe-path:T/u =0!"},
        {"d safe 755, f safe/p 644, d u 755, l u/p ../safe/p 65534", "u/p",
         "unsafe-path:T/u/p =0!"},
        {"d safe 777, f safe/p 644, d u 755, l u/p ../safe/p", "u/p", "unsafe-path:T/safe =0!"},
        {"d safe 755, f safe/p 644, l dir safe 65534", "dir/p", "unsafe-path:T/dir =0!"},
        {"l loop loop", "loop/p", "unsafe-path:T/loop =40"},
        {"d d 755, l d/p ../none/p", "d/p", "=2"},
        {"d d 755, f d/p 644", "./d/p", "=0!"},
        // The writer trusts the user running it, the client only root.
        {"d d 755 65534, f d/p 644 65534", "d/p", "=0!", Trust::WRITER, true},
        {"d d 755 65534, f d/p 644 65534", "d/p", "unsafe-path:T/d file-owner:T/d/p =0!",
         Trust::CLIENT, true},
        {"d d 700, f d/p 644", "d/p", "unsafe-path:T/d/p =13!", Trust::WRITER, true},
    };
    const std::filesystem::path previous = std::filesystem::current_path();
    for (const Case& row : cases) {
        SCOPED_TRACE(std::string(row.tree) + " | " + row.path);
        const qntest::TempDir dir;
        ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
        makeTree(dir.path(), row.tree);
        std::filesystem::current_path(dir.path());  // where a relative path starts
        const auto audit = [&row, &dir] {
            const std::string path = (row.path[0] == '.' ? "" : dir.path()) + row.path;
            return audited(dir.path(), path, row.eTrust);
        };
        EXPECT_EQ(row.bAsNobody ? qntest::asNobody(audit) : audit(), row.expected);
    }
    std::filesystem::current_path(previous);
}

// The diff turns before into after exactly as diff -u prints it, hunks and "no newline"
// markers included.
TEST(UnifiedDiff, PrintsTheHunksDiffUPrints) {
    qntest::TempDir dir;
    std::string lines;
    for (int i = 0; i < 20; ++i) {
        lines += "line " + std::to_string(i) + "\n";
    }
    std::string middle = lines;
    middle.replace(middle.find("line 9\n"), 7, "line nine\n");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", lines},
        {lines, middle},
        {lines, "head\n" + lines + "tail"},
        {lines.substr(0, 40), lines.substr(20)},
        {"a", "b"},
        {lines, lines},
    };
    for (const auto& [before, after] : cases) {
        const std::string ours = qnpolicy::tool::UnifiedDiff(before, after, "old", "new");
        const std::string oldPath = dir.write("old", before);
        const std::string newPath = dir.write("new", after);
        const std::string output = dir.path() + "expected";
        // diff exits 0 for equal texts, 1 for different ones.
        const int status =
            std::system(("diff -u '" + oldPath + "' '" + newPath + "' > '" + output + "'").c_str());
        ASSERT_EQ(WEXITSTATUS(status), before == after ? 0 : 1);
        std::string expected = qntest::readFile(output);
        // diff -u's headers carry paths and times; the hunks must be the same.
        const auto hunks = [](const std::string& diff) {
            const size_t at = diff.find("\n@@");
            return at == std::string::npos ? std::string() : diff.substr(at + 1);
        };
        EXPECT_EQ(hunks(ours), hunks(expected)) << before << "|" << after;
        EXPECT_EQ(ours.empty() ? 0U : ours.rfind("--- old\n+++ new\n@@", 0), 0U) << ours;
        EXPECT_EQ(ours.empty(), before == after);
    }
}

// Whatever bytes a string holds, the JSON parses and gives them back: escapes for quotes,
// backslashes and controls, valid UTF-8 kept, invalid bytes replaced by U+FFFD.
TEST(JsonWriter, WritesJsonThatParsesBackToTheTextsGiven) {
    const std::vector<std::pair<std::string, std::string>> texts = {
        {"plain", "plain"},
        {"q\"b\\s/", "q\"b\\s/"},
        {"\n\t\r\x01\x1f", "\n\t\r\x01\x1f"},
        {"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {"\xFF", "\xEF\xBF\xBD"},
        {"\xC0\xAF", "\xEF\xBF\xBD\xEF\xBF\xBD"},                  // overlong
        {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},  // a surrogate
        {"\xE2\x82", "\xEF\xBF\xBD\xEF\xBF\xBD"},                  // cut short
    };
    std::ostringstream out;
    {
        qnpolicy::tool::CJsonWriter json(out);
        json.BeginObject().Key("texts").BeginArray();
        for (const auto& text : texts) {
            json.String(text.first);
        }
        json.EndArray().Key("empty").BeginArray().EndArray().Key("n").Number(7);
        json.Key("t").Bool(true).Key("none").Null().EndObject().Finish();
    }
    nlohmann::json expected = {
        {"empty", nlohmann::json::array()}, {"n", 7}, {"t", true}, {"none", nullptr}};
    for (const auto& text : texts) {
        expected["texts"].push_back(text.second);
    }
    EXPECT_EQ(nlohmann::json::parse(out.str()), expected);
    EXPECT_EQ(out.str().back(), '\n');
}

// "Did you mean" ignores case and surrounding blanks, tolerates two edits or a quarter of the
// longer text, and prefers the closest candidate, then the earlier one.
TEST(NameSuggestion, SuggestsTheClosestCandidateWithinItsTolerance) {
    const std::vector<std::string> names = {"FipsMode", "BypassDownloader", "EnableCRLCheck", "fm",
                                            "rtp"};
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"FipMode", "FipsMode"},
        {" fipsmode ", "FipsMode"},
        {"BypasDownloder", "BypassDownloader"},
        {"EnableCrlCheck", "EnableCRLCheck"},
        {"FM", "fm"},
        {"fmm", "fm"},
        {"xyz", ""},
        {"Unrelated", ""},
        {"", "fm"},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(qnpolicy::SuggestName(text, names), expected) << text;
    }
    EXPECT_EQ(qnpolicy::EditDistance("kitten", "sitting"), 3U);
}

}  // namespace

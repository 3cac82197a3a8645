// SPDX-License-Identifier: Apache-2.0
// comply --format=prometheus end to end: the samples of a compliant, a drifted and an unreadable
// file and of an unusable baseline, promtool's lint of each, --output's atomic store and exit
// status, and the options it excludes.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "PolicyModel.h"
#include "TestSupport.h"
#include "output/ComplianceMetrics.h"

namespace {

constexpr char kBaseline[] = "version: 1\nsettings: {FipsMode: true}\nseverity: {FipsMode: high}\n";

std::string policy(const std::string& fipsMode, const char* end = "</QuillnetLocalPolicy>") {
    return "<QuillnetLocalPolicy><FipsMode>" + fipsMode + "</FipsMode>" + end;
}

// Runs the tool with words in dir: its exit status; standard output is left in dir's "out".
int runTool(const qntest::TempDir& dir, const std::string& words) {
    const std::string command =
        "cd '" + dir.path() + "' && '" QNPOLICY_BINARY "' " + words + " >out 2>/dev/null";
    return WEXITSTATUS(std::system(command.c_str()));
}

TEST(ComplianceMetrics, EscapesLabelValuesAsTheExpositionFormatRequires) {
    EXPECT_EQ(qnpolicy::tool::EscapedLabelValue("a\"b\\c\nd"), "a\\\"b\\\\c\\nd");
}

TEST(ComplianceMetrics, SamplesTellTheVerdictOfEachKindOfFile) {
    // The policy, the baseline, the exit status and lines the output holds.
    const std::vector<std::tuple<std::string, std::string, int, std::string>> cases = {
        {policy("true"), kBaseline, 0,
         "qnpolicy_check_success 1\nqnpolicy_file_present 1\nqnpolicy_compliant 1\n"
         "qnpolicy_findings{severity=\"high\"} 0\n"
         "qnpolicy_baseline_rule{rule=\"FipsMode\",status=\"pass\"} 1\n"
         "qnpolicy_setting{name=\"FipsMode\"} 1\n"},
        {policy("false"), kBaseline, 1,
         "qnpolicy_check_success 1\nqnpolicy_compliant 0\nqnpolicy_findings{severity=\"high\"} 1\n"
         "qnpolicy_baseline_rule{rule=\"FipsMode\",status=\"fail\"} 1\n"
         "qnpolicy_setting{name=\"FipsMode\"} 0\n"},
        // An unreadable file leaves the client without FIPS mode.
        {policy("true", ""), kBaseline, 2,
         "qnpolicy_check_success 0\nqnpolicy_compliant 0\nqnpolicy_setting{name=\"FipsMode\"} 0\n"},
        {policy("true"), "version: 1\nsettings: {FipsMode: yes}\n", 65,
         "qnpolicy_check_success 0\nqnpolicy_setting{name=\"FipsMode\"} 1\n"},
    };
    // A sample is a name, labels perhaps, and a value: no timestamp, which node_exporter refuses.
    const std::regex line(R"((# (HELP|TYPE) .*|qnpolicy_[a-z_]+(\{[^}]*\})? [0-9.]+)\n)");
    for (const auto& [policyText, baseline, status, samples] : cases) {
        SCOPED_TRACE(policyText + "\n" + baseline);
        const qntest::TempDir dir;
        dir.write("policy.xml", policyText);
        dir.write("baseline.yml", baseline);
        EXPECT_EQ(runTool(dir, "comply --format=prometheus --baseline baseline.yml policy.xml"),
                  status);
        const std::string out = qntest::readFile(dir.path() + "out");
        for (const std::string& sample : qntest::pieces(samples, "\n")) {
            EXPECT_NE(out.find("\n" + sample + "\n"), std::string::npos) << sample;
        }
        EXPECT_EQ(std::regex_replace(out, line, ""), "");
        EXPECT_EQ(std::system(("promtool check metrics <" + dir.path() + "out").c_str()), 0);
    }
}

TEST(ComplianceMetrics, OutputIsStoredWholeReadableByAllAndExitsZeroWhateverTheVerdict) {
    const qntest::TempDir dir;
    dir.write("policy.xml", policy("false"));
    dir.write("baseline.yml", kBaseline);
    dir.write("m.prom", "stale");
    const std::string words = "comply --format=prometheus --baseline baseline.yml policy.xml ";
    EXPECT_EQ(runTool(dir, words + "--output m.prom"), 0);
    const std::string stored = qntest::readFile(dir.path() + "m.prom");
    EXPECT_EQ(stored.rfind("# HELP qnpolicy_check_success ", 0), 0U);
    EXPECT_NE(stored.find("\nqnpolicy_compliant 0\n"), std::string::npos);
    struct stat status {};
    ASSERT_EQ(::stat((dir.path() + "m.prom").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
    EXPECT_EQ(runTool(dir, words + "--output none/m.prom"), 74);
    for (const char* refused : {"--json", "b.xml", "--format=text"}) {
        EXPECT_EQ(runTool(dir, words + "--output m.prom " + refused), 64) << refused;
    }
}

}  // namespace

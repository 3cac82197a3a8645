// SPDX-License-Identifier: Apache-2.0
// comply --format=prometheus end to end: the samples of a compliant, a drifted and an unreadable
// file and of an unusable baseline, promtool's lint of the exposition, --output's atomic store
// and exit status, and the options it excludes.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "output/ComplianceMetrics.h"

namespace {

constexpr char kBaseline[] = "version: 1\nsettings:\n  FipsMode: true\nseverity:\n  FipsMode: high\n";
constexpr char kPolicyHead[] = "<QuillnetLocalPolicy xmlns=\"http://schemas.xmlsoap.org/soap/encoding/\">";

struct Run {
    int status;
    std::string out;
};

// Runs the tool with words through the shell in dir, standard error discarded.
Run runTool(const qntest::TempDir& dir, const std::string& words) {
    const std::string command = "cd '" + dir.path() + "' && '" QNPOLICY_BINARY "' " + words +
                                " >" + dir.path() + "out 2>/dev/null";
    const int status = WEXITSTATUS(std::system(command.c_str()));
    return {status, qntest::readFile(dir.path() + "out")};
}

TEST(ComplianceMetrics, EscapesLabelValuesAsTheExpositionFormatRequires) {
    EXPECT_EQ(qnpolicy::tool::EscapedLabelValue("plain-Name_1"), "plain-Name_1");
    EXPECT_EQ(qnpolicy::tool::EscapedLabelValue("a\"b\\c\nd"), "a\\\"b\\\\c\\nd");
}

TEST(ComplianceMetrics, SamplesTellTheVerdictOfEachKindOfFile) {
    struct Case {
        const char* name;
        const char* policy;     // written to policy.xml and judged as FILE
        const char* baseline;   // written to baseline.yml
        int status;
        std::vector<const char*> samples;  // lines the output holds
    };
    const std::string fipsOn = std::string(kPolicyHead) + "<FipsMode>true</FipsMode></QuillnetLocalPolicy>";
    const std::string fipsOff = std::string(kPolicyHead) + "<FipsMode>false</FipsMode></QuillnetLocalPolicy>";
    const std::string broken = std::string(kPolicyHead) + "<FipsMode>true</FipsMode>";
    const std::vector<Case> cases = {
        {"compliant", fipsOn.c_str(), kBaseline, 0,
         {"qnpolicy_check_success 1", "qnpolicy_file_present 1", "qnpolicy_compliant 1",
          "qnpolicy_findings{severity=\"high\"} 0",
          "qnpolicy_baseline_rule{rule=\"FipsMode\",status=\"pass\"} 1",
          "qnpolicy_baseline_rule{rule=\"FipsMode\",status=\"fail\"} 0",
          "qnpolicy_setting{name=\"FipsMode\"} 1"}},
        {"drifted", fipsOff.c_str(), kBaseline, 1,
         {"qnpolicy_check_success 1", "qnpolicy_compliant 0", "qnpolicy_findings{severity=\"high\"} 1",
          "qnpolicy_baseline_rule{rule=\"FipsMode\",status=\"fail\"} 1",
          "qnpolicy_setting{name=\"FipsMode\"} 0"}},
        // What the client holds after a failed read: FIPS mode off.
        {"unreadable", broken.c_str(), kBaseline, 2,
         {"qnpolicy_check_success 0", "qnpolicy_file_present 1", "qnpolicy_compliant 0",
          "qnpolicy_setting{name=\"FipsMode\"} 0"}},
        {"malformed baseline", fipsOn.c_str(), "version: 1\nsettings:\n  FipsMode: yes\n", 65,
         {"qnpolicy_check_success 0", "qnpolicy_file_present 1",
          "qnpolicy_setting{name=\"FipsMode\"} 1"}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        const qntest::TempDir dir;
        dir.write("policy.xml", test.policy);
        dir.write("baseline.yml", test.baseline);
        const Run run = runTool(dir, "comply --format=prometheus --baseline baseline.yml policy.xml");
        EXPECT_EQ(run.status, test.status);
        for (const char* sample : test.samples) {
            EXPECT_NE(run.out.find(std::string("\n") + sample + "\n"), std::string::npos)
                << sample << " not in\n" << run.out;
        }
        // Every sample is a name and a value: no timestamp, which node_exporter refuses.
        std::istringstream lines(run.out);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_TRUE(line[0] == '#' || line.find(' ') == line.rfind(' ')) << line;
        }
        EXPECT_EQ(std::system(("promtool check metrics <" + dir.path() + "out").c_str()), 0);
    }
}

TEST(ComplianceMetrics, OutputIsStoredWholeReadableByAllAndExitsZeroWhateverTheVerdict) {
    const qntest::TempDir dir;
    dir.write("policy.xml", std::string(kPolicyHead) + "<FipsMode>false</FipsMode></QuillnetLocalPolicy>");
    dir.write("baseline.yml", kBaseline);
    dir.write("qnpolicy.prom", "stale");
    const Run run = runTool(
        dir, "comply --format=prometheus --baseline baseline.yml --output qnpolicy.prom policy.xml");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    const std::string stored = qntest::readFile(dir.path() + "qnpolicy.prom");
    EXPECT_EQ(stored.rfind("# HELP qnpolicy_check_success ", 0), 0U) << stored;
    EXPECT_NE(stored.find("\nqnpolicy_compliant 0\n"), std::string::npos);
    struct stat status {};
    ASSERT_EQ(::stat((dir.path() + "qnpolicy.prom").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
    // A directory that is not there: nothing stored, an I/O error.
    EXPECT_EQ(runTool(dir, "comply --format=prometheus --baseline baseline.yml --output no/x.prom "
                           "policy.xml").status,
              74);
}

TEST(ComplianceMetrics, RefusesWhatItCannotExpress) {
    const qntest::TempDir dir;
    dir.write("baseline.yml", kBaseline);
    for (const char* words : {"comply --json --format=prometheus --baseline baseline.yml",
                              "--json comply --format=prometheus --baseline baseline.yml",
                              "comply --output x.prom --baseline baseline.yml",
                              "comply --format=prometheus --baseline baseline.yml a.xml b.xml"}) {
        EXPECT_EQ(runTool(dir, words).status, 64) << words;
    }
    EXPECT_FALSE(qntest::readFile(dir.path() + "x.prom").size() > 0);
}

}  // namespace

// The linter of `qnpolicy check`: each flawed document yields exactly the findings, kinds and
// lines, that describe how the module's reader will treat it.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "LintFinding.h"
#include "NameSuggestion.h"
#include "PolicyFileAttributes.h"
#include "PolicyLinter.h"
#include "TestSupport.h"
#include "XmlParser.h"

namespace {

using qnpolicy::tool::CheckPolicyFileAttributes;
using qnpolicy::tool::CPolicyLinter;
using qnpolicy::tool::LintFinding;
using qnpolicy::tool::LintResult;
using qnpolicy::tool::SuggestName;
namespace kind = qnpolicy::tool::findingkind;

using KindAtLine = std::pair<std::string, unsigned long>;

const char kHeader[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<QuillnetLocalPolicy qnversion=\"5.1.8.105\">\n";
const char kFooter[] = "</QuillnetLocalPolicy>\n";

// A document whose settings start on line 3 and end before the closing root tag.
std::string document(const std::string& body) {
    return kHeader + body + kFooter;
}

LintResult lint(const std::string& content) {
    qntest::TempDir dir;
    const std::string path = dir.write("QuillnetLocalPolicy.xml", content);
    XmlLocalQNPolMgr manager;
    CPolicyLinter linter(manager.GetPolicyTransTable());
    return linter.LintFile(path);
}

std::vector<KindAtLine> kindsAndLines(const LintResult& result) {
    std::vector<KindAtLine> found;
    for (const LintFinding& finding : result.findings) {
        found.emplace_back(finding.kind, finding.line);
    }
    return found;
}

std::string describe(const LintResult& result) {
    std::string text;
    for (const LintFinding& finding : result.findings) {
        text += std::to_string(finding.line) + ":" + std::to_string(finding.column) + " " +
                finding.kind + " " + finding.message + "\n";
    }
    return text;
}

struct LintCase {
    const char* name;
    std::string content;
    std::vector<KindAtLine> expected;
};

// Names the case in gtest's messages instead of dumping its bytes.
void PrintTo(const LintCase& lintCase, std::ostream* os) {
    *os << lintCase.name;
}

class FlawedDocument : public ::testing::TestWithParam<LintCase> {};

TEST_P(FlawedDocument, YieldsExactlyTheFindingsOfItsFlaws) {
    const LintCase& param = GetParam();
    const LintResult result = lint(param.content);
    ASSERT_EQ(result.parseStatus, XMLPARSER_SUCCESS);
    EXPECT_EQ(kindsAndLines(result), param.expected) << describe(result);
}

const LintCase kLintCases[] = {
    {"CleanGeneratedLayout",
     document(
         "    <BypassDownloader>true</BypassDownloader>\n"
         "    <FipsMode>false</FipsMode>\n"
         "    <RestrictPreferenceCaching>Credentials,Thumbprints</RestrictPreferenceCaching>\n"
         "    <RestrictTunnelProtocols>ipsec</RestrictTunnelProtocols>\n"
         "    <UpdatePolicy>\n"
         "        <AllowSoftwareUpdatesFromAnyServer>false</AllowSoftwareUpdatesFromAnyServer>\n"
         "        <AuthorizedServerList>\n"
         "            <ServerName>gw1</ServerName>\n"
         "            <ServerName>gw2</ServerName>\n"
         "        </AuthorizedServerList>\n"
         "    </UpdatePolicy>\n"),
     {}},
    {"OrdinarySettingInsideUpdatePolicyStillCounts",
     document("<UpdatePolicy><BypassDownloader>true</BypassDownloader></UpdatePolicy>\n"),
     {}},
    {"UnknownElement", document("<FipMode>true</FipMode>\n"), {{kind::kUnknownElement, 3}}},
    {"MisnamedRoot",
     "<?xml version=\"1.0\"?>\n<QuilnetLocalPolicy>\n<FipsMode>true</FipsMode>\n"
     "</QuilnetLocalPolicy>\n",
     {{kind::kUnknownElement, 2}}},
    {"BooleanTexts",
     document("<FipsMode>TRUE</FipsMode>\n"
              "<BypassDownloader> true</BypassDownloader>\n"
              "<EnableCRLCheck>1</EnableCRLCheck>\n"
              "<OCSPRevocation>false</OCSPRevocation>\n"
              "<ExcludePemFileCertStore>yes</ExcludePemFileCertStore>\n"
              "<UpdatePolicy><AllowHelpUpdatesFromAnyServer>False"
              "</AllowHelpUpdatesFromAnyServer></UpdatePolicy>\n"),
     {{kind::kNonBooleanValue, 3},
      {kind::kNonBooleanValue, 4},
      {kind::kNonBooleanValue, 5},
      {kind::kNonBooleanValue, 7},
      {kind::kNonBooleanValue, 8}}},
    {"EmptySettingsAndAttributesInsteadOfText",
     document("<FipsMode/>\n"
              "<RestrictWebLaunch value=\"true\"/>\n"
              "<UpdatePolicy><AuthorizedServerList><ServerName></ServerName>"
              "</AuthorizedServerList></UpdatePolicy>\n"),
     {{kind::kEmptyValue, 3},
      {kind::kIgnoredAttribute, 4},
      {kind::kEmptyValue, 4},
      {kind::kEmptyValue, 5}}},
    {"UpdatePermissionOutsideItsSection",
     document("<AllowSoftwareUpdatesFromAnyServer>true</AllowSoftwareUpdatesFromAnyServer>\n"
              "<UpdatePolicy>\n"
              "<AllowScriptUpdatesFromAnyServer>true</AllowScriptUpdatesFromAnyServer>\n"
              "</UpdatePolicy>\n"),
     {{kind::kUpdatePermissionOutsideSection, 3}}},
    {"ServerListAndNamesOutsideTheirSections",
     document("<AuthorizedServerList>\n"
              "<ServerName>gw1</ServerName>\n"
              "</AuthorizedServerList>\n"
              "<UpdatePolicy>\n"
              "<ServerName>gw2</ServerName>\n"
              "</UpdatePolicy>\n"
              "<ServerName>gw3</ServerName>\n"),
     {{kind::kServerListOutsideSection, 3},
      {kind::kServerNameOutsideList, 7},
      {kind::kServerNameOutsideList, 9}}},
    {"ServerListAsText",
     document("<UpdatePolicy><AuthorizedServerList>gw1,gw2</AuthorizedServerList>"
              "</UpdatePolicy>\n"),
     {{kind::kServerListText, 3}}},
    {"ServerNamesPaddedAndRepeated",
     document("<UpdatePolicy><AuthorizedServerList>\n"
              "<ServerName>gw1</ServerName>\n"
              "<ServerName> gw2 </ServerName>\n"
              "<ServerName>gw1</ServerName>\n"
              "</AuthorizedServerList></UpdatePolicy>\n"),
     {{kind::kPaddedServerName, 5}, {kind::kDuplicateServerName, 6}}},
    {"NestedUpdatePolicyClosesTheSectionEarly",
     document("<UpdatePolicy>\n"
              "<UpdatePolicy></UpdatePolicy>\n"
              "<AllowHelpUpdatesFromAnyServer>true</AllowHelpUpdatesFromAnyServer>\n"
              "</UpdatePolicy>\n"),
     {{kind::kNestedUpdatePolicy, 4}, {kind::kUpdatePermissionOutsideSection, 5}}},
    {"UnknownCachingTokenAndTheTokensAfterIt",
     document("<RestrictPreferenceCaching>Credentials,credentials,All"
              "</RestrictPreferenceCaching>\n"),
     {{kind::kUnknownCachingToken, 3}, {kind::kIgnoredCachingToken, 3}}},
    {"UnknownLastCachingTokenIgnoresNothingElse",
     document("<RestrictPreferenceCaching>Credentials, Thumbprints"
              "</RestrictPreferenceCaching>\n"),
     {{kind::kUnknownCachingToken, 3}}},
    {"FalseAmongCachingTokens",
     document("<RestrictPreferenceCaching>Credentials,false,All</RestrictPreferenceCaching>\n"),
     {{kind::kCachingRestrictionsCleared, 3}, {kind::kIgnoredCachingToken, 3}}},
    {"CachingListWithoutTokens",
     document("<RestrictPreferenceCaching>,,</RestrictPreferenceCaching>\n"
              "<RestrictPreferenceCaching>false</RestrictPreferenceCaching>\n"),
     {{kind::kEmptyValue, 3}, {kind::kDuplicateSetting, 4}}},
    {"TunnelTextsTheReaderDoesNotApply",
     document("<RestrictTunnelProtocols>TLS</RestrictTunnelProtocols>\n"
              "<RestrictTunnelProtocols>IPSec</RestrictTunnelProtocols>\n"
              "<RestrictTunnelProtocols>udp</RestrictTunnelProtocols>\n"
              "<RestrictTunnelProtocols>tls</RestrictTunnelProtocols>\n"),
     {{kind::kTunnelValueNotApplied, 3},
      {kind::kDuplicateSetting, 4},
      {kind::kTunnelValueNotApplied, 4},
      {kind::kDuplicateSetting, 5},
      {kind::kTunnelValueNotApplied, 5},
      {kind::kDuplicateSetting, 6}}},
    {"SettingsGivenTwice",
     document("<FipsMode>true</FipsMode>\n"
              "<ExcludePemFileCertStore>true</ExcludePemFileCertStore>\n"
              "<FipsMode>false</FipsMode>\n"
              "<ExcludePemFileCertStore>false</ExcludePemFileCertStore>\n"
              "<UpdatePolicy>\n"
              "<AllowHelpUpdatesFromAnyServer>true</AllowHelpUpdatesFromAnyServer>\n"
              "</UpdatePolicy>\n"
              "<UpdatePolicy>\n"
              "<AllowHelpUpdatesFromAnyServer>false</AllowHelpUpdatesFromAnyServer>\n"
              "</UpdatePolicy>\n"),
     {{kind::kDuplicateSetting, 5}, {kind::kDuplicateSetting, 6}, {kind::kDuplicateSetting, 11}}},
    {"NewerVersion",
     "<?xml version=\"1.0\"?>\n<QuillnetLocalPolicy qnversion=\"5.1.8.106\">\n"
     "<FipsMode>true</FipsMode>\n</QuillnetLocalPolicy>\n",
     {{kind::kNewerVersion, 2}}},
    {"NewerMajorVersion",
     "<QuillnetLocalPolicy qnversion=\"6.0\"></QuillnetLocalPolicy>\n",
     {{kind::kNewerVersion, 1}}},
    {"OlderVersionAndMissingVersionAreFine",
     "<QuillnetLocalPolicy qnversion=\"5.1\"><QuillnetLocalPolicy/></QuillnetLocalPolicy>\n",
     {}},
    {"DoctypeIsReportedAndTheRestStillLinted",
     "<?xml version=\"1.0\"?>\n"
     "<!DOCTYPE QuillnetLocalPolicy [ <!ENTITY t \"true\"> ]>\n"
     "<QuillnetLocalPolicy>\n"
     "<FipsMode>TRUE</FipsMode>\n"
     "</QuillnetLocalPolicy>\n",
     {{kind::kDoctype, 2}, {kind::kNonBooleanValue, 4}}},
};

INSTANTIATE_TEST_SUITE_P(Linter, FlawedDocument, ::testing::ValuesIn(kLintCases),
                         [](const ::testing::TestParamInfo<LintCase>& info) {
                             return std::string(info.param.name);
                         });

// The sample that `make run` checks keeps one flaw of each common kind at a known line.
TEST(LinterSample, ShippedFlawedPolicyShowsTheCommonMistakes) {
    XmlLocalQNPolMgr manager;
    CPolicyLinter linter(manager.GetPolicyTransTable());
    const LintResult result = linter.LintFile(QN_FLAWED_SAMPLE);
    ASSERT_EQ(result.parseStatus, XMLPARSER_SUCCESS);
    EXPECT_EQ(kindsAndLines(result),
              (std::vector<KindAtLine>{{kind::kNewerVersion, 4},
                                       {kind::kNonBooleanValue, 5},
                                       {kind::kUnknownElement, 6},
                                       {kind::kUnknownCachingToken, 7},
                                       {kind::kIgnoredCachingToken, 7},
                                       {kind::kTunnelValueNotApplied, 8},
                                       {kind::kDuplicateSetting, 10},
                                       {kind::kUpdatePermissionOutsideSection, 11},
                                       {kind::kServerListText, 14},
                                       {kind::kServerListOutsideSection, 16}}))
        << describe(result);
}

TEST(LinterPositions, ReportLineAndColumnOfTheStartTag) {
    const LintResult result = lint(document("    <FipMode>true</FipMode>\n"));
    ASSERT_EQ(result.findings.size(), 1U) << describe(result);
    EXPECT_EQ(result.findings[0].line, 3U);
    EXPECT_EQ(result.findings[0].column, 5U);

    const LintResult doctype = lint("<?xml version=\"1.0\"?>\n  <!DOCTYPE x>\n<x/>\n");
    ASSERT_FALSE(doctype.findings.empty());
    EXPECT_EQ(doctype.findings[0].kind, kind::kDoctype);
    EXPECT_EQ(doctype.findings[0].line, 2U);
    EXPECT_EQ(doctype.findings[0].column, 3U);
}

TEST(LinterMessages, SuggestTheNameOrValueTheAuthorProbablyMeant) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<AllowSoftwareUpdateFromAnyServer>true</AllowSoftwareUpdateFromAnyServer>",
         "Did you mean \"AllowSoftwareUpdatesFromAnyServer\"?"},
        {"<fipsmode>true</fipsmode>", "Did you mean \"FipsMode\"?"},
        {"<FipsMode>TRUE</FipsMode>", "Write \"true\" exactly."},
        {"<RestrictPreferenceCaching>Credentials,thumbprints</RestrictPreferenceCaching>",
         "Did you mean \"Thumbprints\"?"},
        {"<RestrictTunnelProtocols>IPSec</RestrictTunnelProtocols>", "Write \"ipsec\"."},
    };
    for (const auto& entry : cases) {
        const LintResult result = lint(document(entry.first + "\n"));
        ASSERT_EQ(result.findings.size(), 1U) << entry.first << "\n" << describe(result);
        EXPECT_NE(result.findings[0].message.find(entry.second), std::string::npos)
            << result.findings[0].message;
    }
    const LintResult unrelated = lint(document("<Colour>blue</Colour>\n"));
    ASSERT_EQ(unrelated.findings.size(), 1U);
    EXPECT_EQ(unrelated.findings[0].message.find("Did you mean"), std::string::npos);
}

TEST(LinterParse, ReportsDocumentsItCannotReadInsteadOfFindings) {
    EXPECT_NE(lint(document("<FipsMode>true</FipsMod>\n")).parseStatus, XMLPARSER_SUCCESS);
    EXPECT_NE(lint("").parseStatus, XMLPARSER_SUCCESS);

    XmlLocalQNPolMgr manager;
    CPolicyLinter linter(manager.GetPolicyTransTable());
    qntest::TempDir dir;
    EXPECT_NE(linter.LintFile(dir.path() + "missing.xml").parseStatus, XMLPARSER_SUCCESS);

    // A document cut off inside the update section leaves no state behind: in the next
    // document an update permission under the root is still reported.
    EXPECT_NE(
        linter.LintFile(dir.write("cut.xml", "<QuillnetLocalPolicy><UpdatePolicy>")).parseStatus,
        XMLPARSER_SUCCESS);
    const LintResult next = linter.LintFile(dir.write(
        "next.xml",
        document("<AllowHelpUpdatesFromAnyServer>true</AllowHelpUpdatesFromAnyServer>\n")));
    EXPECT_EQ(next.parseStatus, XMLPARSER_SUCCESS);
    EXPECT_EQ(kindsAndLines(next),
              (std::vector<KindAtLine>{{kind::kUpdatePermissionOutsideSection, 3}}));
}

TEST(LinterParse, DoesNotChangeHowTheModuleReadsTheFile) {
    qntest::TempDir dir;
    dir.write("QuillnetLocalPolicy.xml",
              document("<FipsMode>TRUE</FipsMode><BypassDownloader>true</BypassDownloader>\n"));
    qntest::StoragePathScope storagePath(dir.path());
    qntest::ManagerScope manager;
    CPolicyLinter linter(manager->GetPolicyTransTable());
    ASSERT_EQ(linter.LintFile(dir.path() + "QuillnetLocalPolicy.xml").findings.size(), 1U);
    ASSERT_EQ(manager->LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
    EXPECT_FALSE(manager->GetLocalPolicyInfo().UseFIPSMode());
    EXPECT_TRUE(manager->GetLocalPolicyInfo().BypassDownloader());
}

TEST(NameSuggestion, RanksByEditDistanceIgnoringCaseAndBlanks) {
    const std::vector<std::string> names = {"BypassDownloader", "FipsMode", "ServerName"};
    EXPECT_EQ(SuggestName("FipMode", names), "FipsMode");
    EXPECT_EQ(SuggestName(" FIPSMODE ", names), "FipsMode");
    EXPECT_EQ(SuggestName("BypasDownloadr", names), "BypassDownloader");
    EXPECT_EQ(SuggestName("Servers", names), "");
    EXPECT_EQ(SuggestName("", names), "");
    EXPECT_EQ(SuggestName("FipsMode", {}), "");
}

TEST(PolicyFileAttributes, FlagOwnersOtherThanRootAndGroupOrOtherWrite) {
    qntest::TempDir dir;
    const std::string path = dir.write("QuillnetLocalPolicy.xml", document(""));
    ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
    const bool bRoot = ::geteuid() == 0;
    std::vector<std::string> kinds;
    for (const LintFinding& finding : CheckPolicyFileAttributes(path)) {
        kinds.push_back(finding.kind);
    }
    EXPECT_EQ(kinds,
              bRoot ? std::vector<std::string>{} : std::vector<std::string>{kind::kFileOwner});

    for (const mode_t mode : {0664, 0646, 0666}) {
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
        const std::vector<LintFinding> findings = CheckPolicyFileAttributes(path);
        ASSERT_FALSE(findings.empty());
        EXPECT_EQ(findings.back().kind, kind::kFilePermissions) << std::oct << mode;
    }

    if (bRoot) {
        constexpr uid_t kNobody = 65534;
        ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
        ASSERT_EQ(::chown(path.c_str(), kNobody, kNobody), 0);
        const std::vector<LintFinding> findings = CheckPolicyFileAttributes(path);
        ASSERT_EQ(findings.size(), 1U);
        EXPECT_EQ(findings[0].kind, kind::kFileOwner);
        EXPECT_NE(findings[0].message.find("65534"), std::string::npos);
    }
    EXPECT_TRUE(CheckPolicyFileAttributes(dir.path() + "missing.xml").empty());
}

}  // namespace

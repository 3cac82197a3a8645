// Policy generation from installer arguments and the policy document it writes.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "QNCSaxWriter.h"
#include "TestSupport.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlLocalQNPolMgrTestPeer.h"

namespace {

using StringMap = std::map<std::string, std::string>;

const std::string kRootStartTag =
    "<QuillnetLocalPolicy xmlns=\"http://schemas.xmlsoap.org/encoding/\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xsi:schemaLocation=\"http://schemas.xmlsoap.org/encoding/ QuillnetLocalPolicy.xsd\" "
    "qnversion=\"5.1.8.105\"";

// The whole policy file for the given lines between the root's tags (each without its
// newline); no lines give the root as an empty-element tag.
std::string policyDocument(const std::vector<std::string>& children) {
    std::string document = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + kRootStartTag;
    if (children.empty()) {
        return document + "/>\n";
    }
    document += ">\n";
    for (const std::string& line : children) {
        document += line + "\n";
    }
    return document + "</QuillnetLocalPolicy>\n";
}

// One line of the document: an element with its text at the given nesting depth.
std::string leaf(size_t depth, const std::string& name, const std::string& text) {
    return std::string(depth * 4, ' ') + "<" + name + ">" + text + "</" + name + ">";
}

// Owns argument strings and hands them out as the char** the installer passes.
class Arguments {
  public:
    explicit Arguments(const std::vector<const char*>& args) {
        for (const char* arg : args) {
            m_storage.emplace_back(arg != nullptr ? arg : "");
            m_bNull.push_back(arg == nullptr);
        }
        for (size_t i = 0; i < m_storage.size(); ++i) {
            m_pointers.push_back(m_bNull[i] ? nullptr : m_storage[i].data());
        }
    }
    char** data() { return m_pointers.data(); }
    int count() const { return static_cast<int>(m_pointers.size()); }

  private:
    std::vector<std::string> m_storage;
    std::vector<bool> m_bNull;
    std::vector<char*> m_pointers;
};

struct Expected {
    Logging::DebugImportance importance;
    std::string message;
};

class PolicyGenerationTest : public ::testing::Test {
  protected:
    std::string policyPath() const { return m_dir.path() + qnpolicy::kPolicyFileName; }

    bool generate(const std::vector<const char*>& args, bool overwrite = false) {
        Arguments arguments(args);
        return m_mgr->GenerateLocalPolicy(arguments.data(), arguments.count(), overwrite);
    }

    bool write(const StringMap& policies, const StringMap& updatePolicies) {
        return XmlLocalQNPolMgrTestPeer::writeLocalPolicy(*m_mgr, policies, updatePolicies);
    }

    void expectRecords(const std::vector<Expected>& expected) const {
        const std::vector<CAppLogRecord> records = m_log.records();
        ASSERT_EQ(records.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i) {
            SCOPED_TRACE(i);
            EXPECT_EQ(records[i].function, "GenerateLocalPolicy");
            EXPECT_EQ(records[i].file, qnpolicy::kSourceFile);
            EXPECT_EQ(records[i].importance, expected[i].importance);
            EXPECT_EQ(records[i].message, expected[i].message);
        }
    }

    qntest::TempDir m_dir;
    qntest::StoragePathScope m_paths{m_dir.path()};
    qntest::ManagerScope m_mgr;
    qntest::LogCapture m_log;
};

TEST_F(PolicyGenerationTest, WritesTheExampleDocument) {
    ASSERT_TRUE(generate({"bd=true", "fm=true", "rtp=false", "upsu=false", "upal=gw1,gw2"}));
    EXPECT_EQ(qntest::readFile(policyPath()),
              policyDocument({
                  "    <BypassDownloader>true</BypassDownloader>",
                  "    <FipsMode>true</FipsMode>",
                  "    <RestrictTunnelProtocols>false</RestrictTunnelProtocols>",
                  "    <UpdatePolicy>",
                  leaf(2, "AllowSoftwareUpdatesFromAnyServer", "false"),
                  "        <AuthorizedServerList>",
                  "            <ServerName>gw1</ServerName>",
                  "            <ServerName>gw2</ServerName>",
                  "        </AuthorizedServerList>",
                  "    </UpdatePolicy>",
              }));
    EXPECT_TRUE(m_log.records().empty());
}

struct ArgumentCase {
    const char* name;
    std::vector<const char*> args;
    std::vector<Expected> records;
    std::vector<std::string> children;
};

TEST_F(PolicyGenerationTest, WarnsAboutEachUnusableArgumentAndWritesTheRest) {
    const std::string kInvalid = ". Arguments in the form policy_abbreviation=value expected";
    const std::vector<ArgumentCase> cases = {
        {"no equals sign",
         {"fm"},
         {{Logging::DBG_Warning, "ignoring invalid argument fm" + kInvalid}},
         {}},
        {"empty value is skipped silently", {"fm="}, {}, {}},
        {"empty abbreviation",
         {"=true"},
         {{Logging::DBG_Warning, "ignoring undefined abbreviation "}},
         {}},
        {"abbreviations are case-sensitive",
         {"FM=true"},
         {{Logging::DBG_Warning, "ignoring undefined abbreviation FM"}},
         {}},
        {"value matched ignoring case, written in the table's spelling",
         {"fm=TRUE", "rtp=ipsec", "upsu=False"},
         {},
         {"    <FipsMode>true</FipsMode>",
          "    <RestrictTunnelProtocols>IPSec</RestrictTunnelProtocols>", "    <UpdatePolicy>",
          "        <AllowSoftwareUpdatesFromAnyServer>false</AllowSoftwareUpdatesFromAnyServer>",
          "    </UpdatePolicy>"}},
        {"duplicate keeps the first value",
         {"fm=true", "fm=false"},
         {{Logging::DBG_Warning,
           "ignoring duplicate policy arg FipsMode. The first value will be used"}},
         {"    <FipsMode>true</FipsMode>"}},
        {"duplicate in the update section",
         {"upal=gw1", "upal=gw2"},
         {{Logging::DBG_Warning,
           "ignoring duplicate policy arg AuthorizedServerList. The first value will be used"}},
         {"    <UpdatePolicy>", "        <AuthorizedServerList>",
          "            <ServerName>gw1</ServerName>", "        </AuthorizedServerList>",
          "    </UpdatePolicy>"}},
        {"refused value does not block a later one",
         {"fm=maybe", "fm=false"},
         {{Logging::DBG_Warning, "maybe is not an allowed value for policy FipsMode"}},
         {"    <FipsMode>false</FipsMode>"}},
        {"only the first equals sign splits",
         {"fm=a=b"},
         {{Logging::DBG_Warning, "a=b is not an allowed value for policy FipsMode"}},
         {}},
        {"free text keeps further equals signs",
         {"rpc=a=b"},
         {},
         {"    <RestrictPreferenceCaching>a=b</RestrictPreferenceCaching>"}},
        {"null entries are skipped silently",
         {"bd=true", nullptr, "fm=false"},
         {},
         {"    <BypassDownloader>true</BypassDownloader>", "    <FipsMode>false</FipsMode>"}},
        {"missing equals is checked before the abbreviation",
         {"nosuchthing"},
         {{Logging::DBG_Warning, "ignoring invalid argument nosuchthing" + kInvalid}},
         {}},
        {"empty value is checked before the abbreviation", {"nosuch="}, {}, {}},
        {"abbreviation is checked before the value",
         {"nosuch=maybe"},
         {{Logging::DBG_Warning, "ignoring undefined abbreviation nosuch"}},
         {}},
        {"value is checked before the duplicate test",
         {"fm=true", "fm=maybe"},
         {{Logging::DBG_Warning, "maybe is not an allowed value for policy FipsMode"}},
         {"    <FipsMode>true</FipsMode>"}},
        {"warnings come in argument order",
         {"x", "fm=no", "zz=1", "bd=true", "bd=false"},
         {{Logging::DBG_Warning, "ignoring invalid argument x" + kInvalid},
          {Logging::DBG_Warning, "no is not an allowed value for policy FipsMode"},
          {Logging::DBG_Warning, "ignoring undefined abbreviation zz"},
          {Logging::DBG_Warning,
           "ignoring duplicate policy arg BypassDownloader. The first value will be used"}},
         {"    <BypassDownloader>true</BypassDownloader>"}},
        {"percent signs are quoted, not interpreted",
         {"%s%n=1"},
         {{Logging::DBG_Warning, "ignoring undefined abbreviation %s%n"}},
         {}},
    };
    for (const ArgumentCase& c : cases) {
        SCOPED_TRACE(c.name);
        m_log.clear();
        EXPECT_TRUE(generate(c.args, true));
        expectRecords(c.records);
        EXPECT_EQ(qntest::readFile(policyPath()), policyDocument(c.children));
    }
}

TEST_F(PolicyGenerationTest, NullArrayOrNegativeCountFailsWithoutWriting) {
    EXPECT_FALSE(m_mgr->GenerateLocalPolicy(nullptr, 0, true));
    expectRecords({{Logging::DBG_Error, "Invalid Arguments"}});
    m_log.clear();
    Arguments arguments({"fm=true"});
    EXPECT_FALSE(m_mgr->GenerateLocalPolicy(arguments.data(), -1, true));
    expectRecords({{Logging::DBG_Error, "Invalid Arguments"}});
    EXPECT_FALSE(std::filesystem::exists(policyPath()));
}

TEST_F(PolicyGenerationTest, ExistingFileIsKeptUnlessOverwriteIsAsked) {
    const std::string old = "not even XML";
    m_dir.write(qnpolicy::kPolicyFileName, old);
    EXPECT_TRUE(generate({"fm=true", "bogus", "FM=x"}, false));
    expectRecords({{Logging::DBG_Warning,
                    "Local Security Policy file already exists and therefore will not be "
                    "generated"}});
    EXPECT_EQ(qntest::readFile(policyPath()), old);

    m_log.clear();
    EXPECT_TRUE(generate({"fm=true"}, true));
    expectRecords({});
    EXPECT_EQ(qntest::readFile(policyPath()), policyDocument({"    <FipsMode>true</FipsMode>"}));
}

TEST_F(PolicyGenerationTest, NoArgumentsWriteTheRootAlone) {
    std::vector<char*> none(1, nullptr);
    EXPECT_TRUE(m_mgr->GenerateLocalPolicy(none.data(), 0, false));
    EXPECT_EQ(qntest::readFile(policyPath()), policyDocument({}));
    expectRecords({});
}

TEST_F(PolicyGenerationTest, GenerationLeavesTheLoadedRecordAlone) {
    const LocalQNPolicyInfo before = m_mgr->GetLocalPolicyInfo();
    ASSERT_TRUE(generate({"fm=true", "bd=true", "upal=gw1"}));
    const LocalQNPolicyInfo after = m_mgr->GetLocalPolicyInfo();
    EXPECT_EQ(after.UseFIPSMode(), before.UseFIPSMode());
    EXPECT_EQ(after.GetAuthorizedServerList(), before.GetAuthorizedServerList());
}

TEST_F(PolicyGenerationTest, OrdinarySettingsComeInByteOrderBeforeTheUpdateSection) {
    ASSERT_TRUE(write({{"RestrictTunnelProtocols", "false"},
                       {"FipsMode", "true"},
                       {"BypassDownloader", "false"},
                       {"Fips", "short"},
                       {"alpha", "lower"}},
                      {{"AuthorizedServerList", "gw"},
                       {"AllowVPNProfileUpdatesFromAnyServer", "true"},
                       {"AllowComplianceModuleUpdatesFromAnyServer", "false"}}));
    EXPECT_EQ(qntest::readFile(policyPath()),
              policyDocument({
                  "    <BypassDownloader>false</BypassDownloader>",
                  "    <Fips>short</Fips>",
                  "    <FipsMode>true</FipsMode>",
                  "    <RestrictTunnelProtocols>false</RestrictTunnelProtocols>",
                  "    <alpha>lower</alpha>",
                  "    <UpdatePolicy>",
                  leaf(2, "AllowComplianceModuleUpdatesFromAnyServer", "false"),
                  leaf(2, "AllowVPNProfileUpdatesFromAnyServer", "true"),
                  "        <AuthorizedServerList>",
                  "            <ServerName>gw</ServerName>",
                  "        </AuthorizedServerList>",
                  "    </UpdatePolicy>",
              }));
}

TEST_F(PolicyGenerationTest, UpdateSectionAloneIsTheRootsOnlyChild) {
    ASSERT_TRUE(write({}, {{"AllowHelpUpdatesFromAnyServer", "true"}}));
    EXPECT_EQ(
        qntest::readFile(policyPath()),
        policyDocument({"    <UpdatePolicy>", leaf(2, "AllowHelpUpdatesFromAnyServer", "true"),
                        "    </UpdatePolicy>"}));
}

struct SplitCase {
    std::string value;
    std::vector<std::string> servers;
};

TEST_F(PolicyGenerationTest, ServerListIsSplitAtCommasAndSemicolonsDroppingEmptyPieces) {
    const std::vector<SplitCase> cases = {
        {"gw1", {"gw1"}},
        {"gw1,gw2;gw3", {"gw1", "gw2", "gw3"}},
        {",,gw1;;gw2,", {"gw1", "gw2"}},
        {";,", {}},
        {" gw1 , gw2", {" gw1 ", " gw2"}},
        {"gw1,gw1", {"gw1", "gw1"}},
        {"a&b;<c>", {"a&amp;b", "&lt;c&gt;"}},
    };
    for (const SplitCase& c : cases) {
        SCOPED_TRACE(c.value);
        ASSERT_TRUE(write({}, {{"AuthorizedServerList", c.value}}));
        std::vector<std::string> lines = {"    <UpdatePolicy>"};
        if (c.servers.empty()) {
            lines.emplace_back("        <AuthorizedServerList/>");
        } else {
            lines.emplace_back("        <AuthorizedServerList>");
            for (const std::string& server : c.servers) {
                lines.push_back("            <ServerName>" + server + "</ServerName>");
            }
            lines.emplace_back("        </AuthorizedServerList>");
        }
        lines.emplace_back("    </UpdatePolicy>");
        EXPECT_EQ(qntest::readFile(policyPath()), policyDocument(lines));
    }
}

TEST_F(PolicyGenerationTest, OnlyTheExactServerListNameInTheUpdateSectionIsSplit) {
    ASSERT_TRUE(write({{"AuthorizedServerList", "a,b"}}, {{"authorizedserverlist", "c;d"}}));
    EXPECT_EQ(
        qntest::readFile(policyPath()),
        policyDocument(
            {"    <AuthorizedServerList>a,b</AuthorizedServerList>", "    <UpdatePolicy>",
             "        <authorizedserverlist>c;d</authorizedserverlist>", "    </UpdatePolicy>"}));
}

TEST_F(PolicyGenerationTest, FreeTextWithCarriageReturnsAndMarkupIsEscaped) {
    ASSERT_TRUE(generate({"rpc=a<b>&c\r\n d "}));
    EXPECT_EQ(qntest::readFile(policyPath()),
              policyDocument({"    <RestrictPreferenceCaching>a&lt;b&gt;&amp;c&#13;\n d "
                              "</RestrictPreferenceCaching>"}));
}

// The one failure this layer reports: the writer's status, unchanged, under writeLocalPolicy.
void expectOneWriteDocumentFailure(const std::vector<CAppLogRecord>& records,
                                   STATUSCODE expectedStatus) {
    int found = 0;
    for (const CAppLogRecord& record : records) {
        if (record.function != "writeLocalPolicy") {
            continue;
        }
        ++found;
        EXPECT_EQ(record.file, qnpolicy::kSourceFile);
        EXPECT_EQ(record.importance, Logging::DBG_Error);
        EXPECT_EQ(record.callee, "QNCSaxWriter::writeDocument");
        EXPECT_EQ(record.code, static_cast<uint32_t>(expectedStatus));
        EXPECT_EQ(record.message, "");
    }
    EXPECT_EQ(found, 1);
}

TEST_F(PolicyGenerationTest, InvalidTextFailsTheWriteAndKeepsTheOldFile) {
    const std::string old = "old policy bytes\r\n";
    m_dir.write(qnpolicy::kPolicyFileName, old);
    EXPECT_FALSE(generate({"rpc=bad\x01text"}, true));
    expectOneWriteDocumentFailure(m_log.records(), QNCSAXWRITER_ERROR_INVALID_TEXT);
    EXPECT_EQ(qntest::readFile(policyPath()), old);
}

TEST(PolicyGenerationTargetTest, WriteIntoAMissingDirectoryFailsWithOneErrorRecord) {
    qntest::TempDir dir;
    const std::string missing = dir.path() + "missing/";
    qntest::StoragePathScope paths(missing);
    qntest::ManagerScope mgr;
    qntest::LogCapture log;
    Arguments arguments({"fm=true"});
    EXPECT_FALSE(mgr->GenerateLocalPolicy(arguments.data(), arguments.count(), true));
    expectOneWriteDocumentFailure(log.records(), QNCSAXWRITER_ERROR_FILE_WRITE);
    EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST(PolicyGenerationTargetTest, WritesNothingWhenTheInstallationPathIsUnknown) {
    qntest::ManagerScope mgr;
    qntest::LogCapture log;
    Arguments arguments({"fm=true"});
    EXPECT_FALSE(mgr->GenerateLocalPolicy(arguments.data(), arguments.count(), true));
    expectOneWriteDocumentFailure(log.records(), QNCSAXWRITER_ERROR_BAD_PARAMETER);
    EXPECT_FALSE(std::filesystem::exists(qnpolicy::kPolicyFileName));
}

}  // namespace

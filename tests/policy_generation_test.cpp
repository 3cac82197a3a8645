// Policy generation from installer arguments: the warnings, in order, and the exact document.

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "QNCSaxWriter.h"
#include "TestSupport.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlLocalQNPolMgrTestPeer.h"

namespace {

using Lines = std::vector<std::string>;
using Record = std::pair<Logging::DebugImportance, std::string>;

const std::string kInvalid = ". Arguments in the form policy_abbreviation=value expected";

// The whole policy file with these children of the root, one a line, written compactly:
// "Name=text" a leaf, "+Name" and "-Name" a start and an end tag, "Name/" an empty element.
std::string policyDocument(const Lines& children) {
    std::ostringstream doc;
    doc << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<QuillnetLocalPolicy "
           "xmlns=\"http://schemas.xmlsoap.org/encoding/\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xsi:schemaLocation=\"http://schemas.xmlsoap.org/encoding/ QuillnetLocalPolicy.xsd\" "
           "qnversion=\"5.1.8.105\""
        << (children.empty() ? "/>\n" : ">\n");
    size_t depth = 1;
    for (const std::string& child : children) {
        const size_t equals = child.find('=');
        depth -= child[0] == '-' ? 1 : 0;
        doc << std::string(depth * 4, ' ');
        if (equals != std::string::npos) {
            const std::string name = child.substr(0, equals);
            doc << '<' << name << '>' << child.substr(equals + 1) << "</" << name << ">\n";
        } else {
            doc << (child[0] == '-' ? "</" : "<")
                << child.substr(child[0] == '+' || child[0] == '-' ? 1 : 0) << ">\n";
        }
        depth += child[0] == '+' ? 1 : 0;
    }
    doc << (children.empty() ? "" : "</QuillnetLocalPolicy>\n");
    return doc.str();
}

class PolicyGenerationTest : public ::testing::Test {
  protected:
    std::string policyPath() const { return m_dir.path() + qnpolicy::kPolicyFileName; }

    // Passes args as the installer does: a null entry stays null.
    bool generate(const std::vector<const char*>& args, bool overwrite = true) {
        std::vector<std::string> copies;
        copies.reserve(args.size());
        std::vector<char*> argv;
        for (const char* arg : args) {
            copies.emplace_back(arg != nullptr ? arg : "");
            argv.push_back(arg != nullptr ? copies.back().data() : nullptr);
        }
        argv.push_back(nullptr);  // a non-null array even without arguments
        return m_mgr->GenerateLocalPolicy(argv.data(), static_cast<int>(args.size()), overwrite);
    }

    // Every record since the last check came from GenerateLocalPolicy; they are exactly these.
    void expectRecords(const std::vector<Record>& expected) {
        std::vector<Record> got;
        for (const CAppLogRecord& record : m_log.records()) {
            EXPECT_EQ(record.function, "GenerateLocalPolicy");
            EXPECT_EQ(record.file, qnpolicy::kSourceFile);
            got.emplace_back(record.importance, record.message);
        }
        EXPECT_EQ(got, expected);
        m_log.clear();
    }

    qntest::TempDir m_dir;
    qntest::StoragePathScope m_paths{m_dir.path()};
    qntest::ManagerScope m_mgr;
    qntest::LogCapture m_log;
};

struct GenerationCase {
    std::vector<const char*> args;
    std::vector<Record> warnings;
    Lines children;
};

TEST_F(PolicyGenerationTest, WarnsAboutEachUnusableArgumentInOrderAndWritesTheRestSorted) {
    const auto warn = [](const std::string& text) { return Record{Logging::DBG_Warning, text}; };
    const std::vector<GenerationCase> cases = {
        {{"bd=true", "fm=true", "rtp=false", "upsu=false", "upal=gw1,gw2"},
         {},
         {"BypassDownloader=true", "FipsMode=true", "RestrictTunnelProtocols=false",
          "+UpdatePolicy", "AllowSoftwareUpdatesFromAnyServer=false", "+AuthorizedServerList",
          "ServerName=gw1", "ServerName=gw2", "-AuthorizedServerList", "-UpdatePolicy"}},
        // Each check in turn: "=", empty value (silent), abbreviation, value, duplicate.
        {{"nosuch", "nosuch=", "nosuch=maybe", "=true", "FM=true", "%s%n=1", "fm=true", "fm=maybe",
          "fm=false", "upal=gw1", nullptr, "upal=gw2", "fm=a=b"},
         {warn("ignoring invalid argument nosuch" + kInvalid),
          warn("ignoring undefined abbreviation nosuch"), warn("ignoring undefined abbreviation "),
          warn("ignoring undefined abbreviation FM"), warn("ignoring undefined abbreviation %s%n"),
          warn("maybe is not an allowed value for policy FipsMode"),
          warn("ignoring duplicate policy arg FipsMode. The first value will be used"),
          warn("ignoring duplicate policy arg AuthorizedServerList. The first value will be used"),
          warn("a=b is not an allowed value for policy FipsMode")},
         {"FipsMode=true", "+UpdatePolicy", "+AuthorizedServerList", "ServerName=gw1",
          "-AuthorizedServerList", "-UpdatePolicy"}},
        // Refused values block nothing; accepted ones take the table's spelling; the elements
        // come in byte order, the update section last and the server list last in it.
        {{"upal=gw", "upvp=true", "upcu=FALSE", "rtp=ipsec", "fm=no", "fm=TRUE", "rpc=a=b"},
         {warn("no is not an allowed value for policy FipsMode")},
         {"FipsMode=true", "RestrictPreferenceCaching=a=b", "RestrictTunnelProtocols=IPSec",
          "+UpdatePolicy", "AllowComplianceModuleUpdatesFromAnyServer=false",
          "AllowVPNProfileUpdatesFromAnyServer=true", "+AuthorizedServerList", "ServerName=gw",
          "-AuthorizedServerList", "-UpdatePolicy"}},
        {{"upal=,,gw1;;gw2,"},
         {},
         {"+UpdatePolicy", "+AuthorizedServerList", "ServerName=gw1", "ServerName=gw2",
          "-AuthorizedServerList", "-UpdatePolicy"}},
        {{"upal=;,"}, {}, {"+UpdatePolicy", "AuthorizedServerList/", "-UpdatePolicy"}},
        {{"upal= gw1 , gw2"},
         {},
         {"+UpdatePolicy", "+AuthorizedServerList", "ServerName= gw1 ", "ServerName= gw2",
          "-AuthorizedServerList", "-UpdatePolicy"}},
        {{"rpc=a<b>&c\r\n d "}, {}, {"RestrictPreferenceCaching=a&lt;b&gt;&amp;c&#13;\n d "}},
        {{}, {}, {}},
    };
    for (const GenerationCase& c : cases) {
        SCOPED_TRACE(c.args.empty() || c.args[0] == nullptr ? "" : c.args[0]);
        EXPECT_TRUE(generate(c.args));
        expectRecords(c.warnings);
        EXPECT_EQ(qntest::readFile(policyPath()), policyDocument(c.children));
    }
    // Generation writes a file; it does not change the loaded record.
    EXPECT_FALSE(m_mgr->GetLocalPolicyInfo().UseFIPSMode());
    EXPECT_TRUE(m_mgr->GetLocalPolicyInfo().GetAuthorizedServerList().empty());
}

TEST_F(PolicyGenerationTest, SettingNamesAreOrderedByBytesNotIgnoringCase) {
    ASSERT_TRUE(XmlLocalQNPolMgrTestPeer::writeLocalPolicy(
        *m_mgr, {{"alpha", "1"}, {"FipsMode", "2"}, {"Fips", "3"}}, {}));
    EXPECT_EQ(qntest::readFile(policyPath()), policyDocument({"Fips=3", "FipsMode=2", "alpha=1"}));
}

TEST_F(PolicyGenerationTest, RefusesANullArrayOrNegativeCountAndKeepsAnExistingFile) {
    char* none[] = {nullptr};
    EXPECT_FALSE(m_mgr->GenerateLocalPolicy(nullptr, 0, true));
    expectRecords({{Logging::DBG_Error, "Invalid Arguments"}});
    EXPECT_FALSE(m_mgr->GenerateLocalPolicy(none, -1, true));
    expectRecords({{Logging::DBG_Error, "Invalid Arguments"}});
    EXPECT_FALSE(std::filesystem::exists(policyPath()));

    m_dir.write(qnpolicy::kPolicyFileName, "not even XML");
    EXPECT_TRUE(generate({"fm=true", "bogus"}, false));
    expectRecords({{Logging::DBG_Warning,
                    "Local Security Policy file already exists and therefore will not be "
                    "generated"}});
    EXPECT_EQ(qntest::readFile(policyPath()), "not even XML");
}

TEST_F(PolicyGenerationTest, FailedWriteLogsTheWritersStatusOnceAndKeepsTheOldFile) {
    m_dir.write(qnpolicy::kPolicyFileName, "old\r\n");
    EXPECT_FALSE(generate({"rpc=bad\x01text"}));
    // The writer logs its own cause; this layer adds exactly one record with its status.
    std::vector<CAppLogRecord> records;
    for (const CAppLogRecord& record : m_log.records()) {
        if (record.function == "writeLocalPolicy") {
            records.push_back(record);
        }
    }
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].importance, Logging::DBG_Error);
    EXPECT_EQ(records[0].callee, "QNCSaxWriter::writeDocument");
    EXPECT_EQ(records[0].code, static_cast<uint32_t>(QNCSAXWRITER_ERROR_INVALID_TEXT));
    EXPECT_EQ(qntest::readFile(policyPath()), "old\r\n");
}

}  // namespace

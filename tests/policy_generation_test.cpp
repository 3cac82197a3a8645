// SPDX-License-Identifier: Apache-2.0
// Policy generation from installer arguments: the warnings, in order, the exact document, and
// what loading then reads back.

#include <gtest/gtest.h>

#include <filesystem>
#include <list>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "PolicyDocumentFixture.h"
#include "QNCSaxWriter.h"
#include "XmlLocalQNPolMgrTestPeer.h"

namespace {

using Lines = std::vector<std::string>;

// The whole policy file with these children of the root, one a line, written compactly:
// "Name=text" a leaf, "+Name" and "-Name" a start and an end tag, "Name/" an empty element.
std::string policyDocument(const Lines& children) {
    std::ostringstream doc;
    doc << qntest::kPolicyRootOpen << (children.empty() ? "/>\n" : ">\n");
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

using PolicyGeneration = qntest::PolicyDocumentFixture;

std::string warn(const std::string& text) {
    return qntest::managerRecord("GenerateLocalPolicy", Logging::DBG_Warning, text);
}

TEST_F(PolicyGeneration, WritesEachUsableArgumentInByteOrderWarningAboutTheOthers) {
    const std::string kInvalid = ". Arguments in the form policy_abbreviation=value expected";
    const std::string kDuplicate = ". The first value will be used";
    const struct {
        std::vector<const char*> args;
        Lines warnings;
        Lines children;
    } cases[] = {
        // Each check in turn: "=", empty value (silent), abbreviation, value, duplicate.
        {{"nosuch", "nosuch=", "nosuch=maybe", "=true", "FM=true", "%s%n=1", "fm=true", "fm=maybe",
          "fm=false", "upal=gw1", nullptr, "upal=gw2", "fm=a=b"},
         {warn("ignoring invalid argument nosuch" + kInvalid),
          warn("ignoring undefined abbreviation nosuch"), warn("ignoring undefined abbreviation "),
          warn("ignoring undefined abbreviation FM"), warn("ignoring undefined abbreviation %s%n"),
          warn("maybe is not an allowed value for policy FipsMode"),
          warn("ignoring duplicate policy arg FipsMode" + kDuplicate),
          warn("ignoring duplicate policy arg AuthorizedServerList" + kDuplicate),
          warn("a=b is not an allowed value for policy FipsMode")},
         {"FipsMode=true", "+UpdatePolicy", "+AuthorizedServerList", "ServerName=gw1",
          "-AuthorizedServerList", "-UpdatePolicy"}},
        // Refused values block nothing; accepted ones take the table's spelling; the elements
        // come in byte order, the update section last and the server list last in it.
        {{"upal=,,gw1;;gw2,", "upvp=true", "upcu=FALSE", "rtp=ipsec", "fm=no", "fm=TRUE",
          "rpc=a<b>&c\r\n d "},
         {warn("no is not an allowed value for policy FipsMode")},
         {"FipsMode=true", "RestrictPreferenceCaching=a&lt;b&gt;&amp;c&#13;\n d ",
          "RestrictTunnelProtocols=IPSec", "+UpdatePolicy",
          "AllowComplianceModuleUpdatesFromAnyServer=false",
          "AllowVPNProfileUpdatesFromAnyServer=true", "+AuthorizedServerList", "ServerName=gw1",
          "ServerName=gw2", "-AuthorizedServerList", "-UpdatePolicy"}},
        {{"upal=;,"}, {}, {"+UpdatePolicy", "AuthorizedServerList/", "-UpdatePolicy"}},
        {{}, {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args.empty() || c.args[0] == nullptr ? "" : c.args[0]);
        m_log.clear();
        EXPECT_TRUE(qntest::generate(*m_mgr, c.args));
        EXPECT_EQ(logged(), c.warnings);
        EXPECT_EQ(qntest::readFile(policyPath()), policyDocument(c.children));
    }
    // Generation writes a file; it does not change the loaded record.
    EXPECT_TRUE(m_mgr->GetLocalPolicyInfo().GetAuthorizedServerList().empty());
    // Names are ordered by bytes, not ignoring case.
    ASSERT_TRUE(XmlLocalQNPolMgrTestPeer::writeLocalPolicy(
        *m_mgr, {{"alpha", "1"}, {"FipsMode", "2"}, {"Fips", "3"}}, {}));
    EXPECT_EQ(qntest::readFile(policyPath()), policyDocument({"Fips=3", "FipsMode=2", "alpha=1"}));
}

TEST_F(PolicyGeneration, RefusesAMissingOrNegativeArgumentList) {
    char* none[] = {nullptr};
    EXPECT_FALSE(m_mgr->GenerateLocalPolicy(nullptr, 0, true));
    EXPECT_FALSE(m_mgr->GenerateLocalPolicy(none, -1, true));
    EXPECT_EQ(logged(), Lines(2, qntest::managerRecord("GenerateLocalPolicy", Logging::DBG_Error,
                                                       "Invalid Arguments")));
    EXPECT_FALSE(std::filesystem::exists(policyPath()));
}

TEST_F(PolicyGeneration, WithoutOverwriteKeepsAnExistingFile) {
    EXPECT_TRUE(qntest::generate(*m_mgr, {}, false));  // nothing to keep: written
    EXPECT_TRUE(std::filesystem::exists(policyPath()));

    writePolicy("not even XML");
    m_log.clear();
    EXPECT_TRUE(qntest::generate(*m_mgr, {"fm=true", "bogus"}, false));
    EXPECT_EQ(logged(), Lines{warn("Local Security Policy file already exists and therefore "
                                   "will not be generated")});
}

// The writer logs its own cause; this layer adds exactly one record with its status.
TEST_F(PolicyGeneration, AFailedWriteIsReportedOnceWithTheWritersStatus) {
    writePolicy("not even XML");
    EXPECT_FALSE(qntest::generate(*m_mgr, {"rpc=bad\x01text"}));
    ASSERT_EQ(logged().size(), 2U);
    EXPECT_EQ(logged()[1], qntest::managerRecord("writeLocalPolicy", Logging::DBG_Error, "",
                                                 "QNCSaxWriter::writeDocument",
                                                 QNCSAXWRITER_ERROR_INVALID_TEXT));
    EXPECT_EQ(qntest::readFile(policyPath()), "not even XML");
}

// Generation writes every server name exactly as given, whatever XML must escape in it (every
// allowed value's round trip is the document layer's test). A fresh manager loads it back: no
// FIPS mode retained from an earlier load.
TEST_F(PolicyGeneration, EveryServerNameLoadsBackAsGiven) {
    XmlLocalQNPolMgr mgr;
    EXPECT_TRUE(
        qntest::generate(mgr, {"upal= gw1 ,a<b>&c\"d'e;line1\r\nline2\r,\ttab\t;]]>;caf\xC3\xA9"}));
    EXPECT_EQ(mgr.LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
    EXPECT_EQ(mgr.GetLocalPolicyInfo().GetAuthorizedServerList(),
              (std::list<std::string>{" gw1 ", "a<b>&c\"d'e", "line1\r\nline2\r", "\ttab\t", "]]>",
                                      "caf\xC3\xA9"}));
}

}  // namespace

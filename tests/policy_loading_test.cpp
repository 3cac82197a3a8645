// Loading the policy file: the record reset, the FIPS-mode retention over successive loads,
// the missing file, and parse failures that must leave the retention alone.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "PolicyDocumentFixture.h"
#include "XmlLocalQNPolMgrTestPeer.h"
#include "XmlParser.h"

namespace {

using qntest::summarize;
using Peer = XmlLocalQNPolMgrTestPeer;

constexpr char kSourceFile[] = "vpn/Common/Xml/XmlLocalQNPolMgr";

std::string fipsDocument(const std::string& fipsText) {
    return std::string("<QuillnetLocalPolicy qnversion=\"5.1.8.105\">") + "<FipsMode>" + fipsText +
           "</FipsMode></QuillnetLocalPolicy>";
}

class PolicyLoading : public qntest::PolicyDocumentFixture {
  protected:
    // Loads a file whose FipsMode is "true" or "false" and checks the whole outcome of a
    // successful load: retained mode, record flag, the on-disk flag and the single log line.
    void loadAndExpect(bool bFileFips, XmlLocalQNPolMgr::RETAINED_FIPS_MODE retained,
                       bool bRecordFips, bool bModifiedOnDisk) {
        writePolicy(fipsDocument(bFileFips ? "true" : "false"));
        const LocalQNPolicyInfo info = loadAsIs();
        EXPECT_EQ(Peer::retainedFipsMode(*m_mgr), retained);
        EXPECT_EQ(info.UseFIPSMode(), bRecordFips);
        EXPECT_EQ(m_mgr->FipsModeModifiedOnDisk(), bModifiedOnDisk);
        const std::vector<CAppLogRecord> records = m_log.records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].function, "LoadLocalQuillnetPolicy");
        EXPECT_EQ(records[0].file, kSourceFile);
        EXPECT_EQ(records[0].importance, Logging::DBG_Informational);
        EXPECT_EQ(records[0].message,
                  bRecordFips ? "FIPS mode is enabled." : "FIPS mode is disabled.");
    }
};

TEST_F(PolicyLoading, FipsModeFromTheFirstSuccessfulLoadIsRetainedWhenEnabled) {
    EXPECT_EQ(Peer::retainedFipsMode(*m_mgr), XmlLocalQNPolMgr::NONE);
    loadAndExpect(true, XmlLocalQNPolMgr::ENABLED, true, false);  // NONE, true
    loadAndExpect(true, XmlLocalQNPolMgr::ENABLED, true, false);  // ENABLED, true
    loadAndExpect(false, XmlLocalQNPolMgr::ENABLED, true, true);  // ENABLED, false
    loadAndExpect(true, XmlLocalQNPolMgr::ENABLED, true, false);  // back in agreement
}

TEST_F(PolicyLoading, FipsModeFromTheFirstSuccessfulLoadIsRetainedWhenDisabled) {
    loadAndExpect(false, XmlLocalQNPolMgr::DISABLED, false, false);  // NONE, false
    loadAndExpect(true, XmlLocalQNPolMgr::DISABLED, false, true);    // DISABLED, true
    loadAndExpect(false, XmlLocalQNPolMgr::DISABLED, false, false);  // DISABLED, false
}

TEST_F(PolicyLoading, OnlyTheExactTextTrueStatesFipsMode) {
    for (const char* text : {"TRUE", "True", "1", " true", ""}) {
        SCOPED_TRACE(text);
        writePolicy(fipsDocument(text));
        XmlLocalQNPolMgr mgr;  // a fresh retention for each text
        EXPECT_EQ(mgr.LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
        EXPECT_EQ(Peer::retainedFipsMode(mgr), XmlLocalQNPolMgr::DISABLED);
        EXPECT_FALSE(mgr.GetLocalPolicyInfo().UseFIPSMode());
    }
    writePolicy("<QuillnetLocalPolicy/>");
    loadAsIs();
    EXPECT_EQ(Peer::retainedFipsMode(*m_mgr), XmlLocalQNPolMgr::DISABLED);
}

TEST_F(PolicyLoading, MissingFileGivesDefaultsAndKeepsTheRetention) {
    loadAndExpect(true, XmlLocalQNPolMgr::ENABLED, true, false);
    loadAndExpect(false, XmlLocalQNPolMgr::ENABLED, true, true);
    ASSERT_EQ(::unlink(policyPath().c_str()), 0);
    const LocalQNPolicyInfo info = loadAsIs();
    EXPECT_EQ(summarize(info), summarize(LocalQNPolicyInfo()));  // FIPS flag false included
    EXPECT_EQ(Peer::retainedFipsMode(*m_mgr), XmlLocalQNPolMgr::ENABLED);
    EXPECT_TRUE(m_mgr->FipsModeModifiedOnDisk());
    EXPECT_TRUE(m_log.records().empty());
}

TEST_F(PolicyLoading, EachLoadStartsFromTheDefaults) {
    load(
        "<BypassDownloader>true</BypassDownloader><UpdatePolicy><AuthorizedServerList>"
        "<ServerName>gw</ServerName></AuthorizedServerList></UpdatePolicy>");
    const LocalQNPolicyInfo second = load("<EnableCRLCheck>true</EnableCRLCheck>");
    LocalQNPolicyInfo expected;
    expected.EnableCRLCheck(true);
    EXPECT_EQ(summarize(second), summarize(expected));
}

// Resetting gives the defaults (FIPS flag included) but keeps what the manager has learnt:
// the retained FIPS mode applies again at the next load.
TEST_F(PolicyLoading, ResetGivesTheDefaultsAndKeepsTheRetention) {
    loadAndExpect(true, XmlLocalQNPolMgr::ENABLED, true, false);
    writePolicy(kRootOpen + std::string("<BypassDownloader>true</BypassDownloader>") + kRootClose);
    ASSERT_TRUE(loadAsIs().BypassDownloader());
    ASSERT_TRUE(m_mgr->FipsModeModifiedOnDisk());
    m_mgr->ResetLocalPolicyInfo();
    EXPECT_EQ(summarize(m_mgr->GetLocalPolicyInfo()), summarize(LocalQNPolicyInfo()));
    EXPECT_EQ(Peer::retainedFipsMode(*m_mgr), XmlLocalQNPolMgr::ENABLED);
    EXPECT_TRUE(m_mgr->FipsModeModifiedOnDisk());
    loadAndExpect(false, XmlLocalQNPolMgr::ENABLED, true, true);
}

TEST_F(PolicyLoading, LoadingTwiceWithoutChangesGivesEqualRecords) {
    const std::string children =
        "<FipsMode>true</FipsMode><RestrictPreferenceCaching>Credentials</"
        "RestrictPreferenceCaching>"
        "<UpdatePolicy><AllowHelpUpdatesFromAnyServer>false</AllowHelpUpdatesFromAnyServer>"
        "<AuthorizedServerList><ServerName>gw</ServerName></AuthorizedServerList></UpdatePolicy>";
    const std::string first = summarize(load(children));
    EXPECT_EQ(summarize(loadAsIs()), first);
    EXPECT_NE(first, summarize(LocalQNPolicyInfo()));
}

// Each unusable policy file fails the load with the parser's status, logged once by the
// loader, and leaves the retention and the on-disk flag exactly as they were.
TEST_F(PolicyLoading, ParseFailureReturnsTheParsersStatusAndLeavesTheRetentionAlone) {
    std::string bomb = "<!DOCTYPE q [<!ENTITY a \"aaaaaaaaaa\">";
    for (int i = 1; i <= 9; ++i) {
        bomb += "<!ENTITY " + std::string(static_cast<size_t>(i) + 1, 'a') + " \"";
        for (int j = 0; j < 10; ++j) {
            bomb += "&" + std::string(static_cast<size_t>(i), 'a') + ";";
        }
        bomb += "\">";
    }
    bomb += "]><QuillnetLocalPolicy>&aaaaaaaaaa;</QuillnetLocalPolicy>";
    struct Case {
        const char* name;
        std::string content;
        STATUSCODE status;
    };
    const Case cases[] = {
        {"truncated", "<QuillnetLocalPolicy><FipsMode>false</FipsMode><Bypass",
         XMLPARSER_ERROR_NOT_WELL_FORMED},
        {"not well-formed", "<QuillnetLocalPolicy><FipsMode>false</fipsmode></QuillnetLocalPolicy>",
         XMLPARSER_ERROR_NOT_WELL_FORMED},
        {"empty file", "", XMLPARSER_ERROR_NOT_WELL_FORMED},
        {"doctype", "<!DOCTYPE QuillnetLocalPolicy><QuillnetLocalPolicy/>",
         XMLPARSER_ERROR_DOCTYPE_REFUSED},
        {"entity bomb", bomb, XMLPARSER_ERROR_DOCTYPE_REFUSED},
        {"external entity",
         "<!DOCTYPE q [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><QuillnetLocalPolicy>&e;"
         "</QuillnetLocalPolicy>",
         XMLPARSER_ERROR_DOCTYPE_REFUSED},
    };
    loadAndExpect(true, XmlLocalQNPolMgr::ENABLED, true, false);
    loadAndExpect(false, XmlLocalQNPolMgr::ENABLED, true, true);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        writePolicy(c.content);
        m_log.clear();
        EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), c.status);
        EXPECT_FALSE(m_mgr->GetLocalPolicyInfo().UseFIPSMode());
        EXPECT_EQ(Peer::retainedFipsMode(*m_mgr), XmlLocalQNPolMgr::ENABLED);
        EXPECT_TRUE(m_mgr->FipsModeModifiedOnDisk());
        const std::vector<CAppLogRecord> records = m_log.records();
        ASSERT_EQ(records.size(), 2U);  // the parser's reason, then the loader's line
        EXPECT_EQ(records[0].function, "parseFile");
        EXPECT_EQ(records[1].function, "LoadLocalQuillnetPolicy");
        EXPECT_EQ(records[1].file, kSourceFile);
        EXPECT_EQ(records[1].importance, Logging::DBG_Error);
        EXPECT_EQ(records[1].callee, "XmlParser::parseFile");
        EXPECT_EQ(records[1].code, static_cast<uint32_t>(c.status));
    }
}

TEST_F(PolicyLoading, PolicyPathThatIsNotARegularFileFailsTheLoad) {
    const std::string targets[] = {"/dev/null", "/dev/zero", dir()};
    for (const std::string& target : targets) {
        SCOPED_TRACE(target);
        ::unlink(policyPath().c_str());
        ASSERT_EQ(::symlink(target.c_str(), policyPath().c_str()), 0);
        m_log.clear();
        EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), XMLPARSER_ERROR_FILE_OPEN);
        EXPECT_EQ(Peer::retainedFipsMode(*m_mgr), XmlLocalQNPolMgr::NONE);
        ASSERT_EQ(m_log.records().size(), 2U);
        EXPECT_EQ(m_log.records()[1].code, static_cast<uint32_t>(XMLPARSER_ERROR_FILE_OPEN));
    }
}

TEST_F(PolicyLoading, FailedFirstLoadLeavesTheRetentionOpenForTheNextSuccess) {
    writePolicy("<QuillnetLocalPolicy><FipsMode>true</FipsMode>");
    m_log.clear();
    EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), XMLPARSER_ERROR_NOT_WELL_FORMED);
    EXPECT_EQ(Peer::retainedFipsMode(*m_mgr), XmlLocalQNPolMgr::NONE);
    EXPECT_TRUE(Peer::fileUseFipsMode(*m_mgr));  // as far as the parse got
    loadAndExpect(false, XmlLocalQNPolMgr::DISABLED, false, false);
}

TEST_F(PolicyLoading, FailedParseKeepsWhatWasReadBeforeTheError) {
    writePolicy("<QuillnetLocalPolicy><BypassDownloader>true</BypassDownloader><Broken>");
    EXPECT_NE(m_mgr->LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
    EXPECT_TRUE(m_mgr->GetLocalPolicyInfo().BypassDownloader());
}

TEST_F(PolicyLoading, FailedParseInsideTheUpdateSectionDoesNotChangeHowTheNextFileIsRead) {
    writePolicy(
        "<QuillnetLocalPolicy><UpdatePolicy><AuthorizedServerList><ServerName>gw</ServerName>");
    EXPECT_NE(m_mgr->LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
    // Outside any section now: the permission draws the warning and the names are not added.
    const LocalQNPolicyInfo info = load(
        "<AllowHelpUpdatesFromAnyServer>false</AllowHelpUpdatesFromAnyServer>"
        "<ServerName>stray</ServerName>");
    EXPECT_TRUE(info.IsHelpUpdateAllowed());
    EXPECT_TRUE(info.GetAuthorizedServerList().empty());
    EXPECT_EQ(logged(Logging::DBG_Warning).size(), 1U);
}

}  // namespace

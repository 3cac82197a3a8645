// Loading the policy file: the record reset, the FIPS-mode retention over successive loads,
// the missing file, and failed parses that must leave the retention alone.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "PolicyDocumentFixture.h"
#include "XmlLocalQNPolMgrTestPeer.h"
#include "XmlParser.h"

namespace {

using Peer = XmlLocalQNPolMgrTestPeer;
using Mgr = XmlLocalQNPolMgr;

void expectFips(Mgr& mgr, Mgr::RETAINED_FIPS_MODE retained, bool bRecord, bool bModified) {
    EXPECT_EQ(Peer::retainedFipsMode(mgr), retained);
    EXPECT_EQ(mgr.GetLocalPolicyInfo().UseFIPSMode(), bRecord);
    EXPECT_EQ(mgr.FipsModeModifiedOnDisk(), bModified);
}

using PolicyLoading = qntest::PolicyDocumentFixture;

TEST_F(PolicyLoading, FirstSuccessfulLoadFixesFipsModeAndLaterFilesOnlyMarkADifference) {
    using Step = std::tuple<const char*, Mgr::RETAINED_FIPS_MODE, bool, bool>;
    const std::vector<Step> sequences[] = {
        // file's text, then the retained mode, the record's mode, the modified-on-disk flag
        {{"true", Mgr::ENABLED, true, false},  // NONE, true
         {"true", Mgr::ENABLED, true, false},  // ENABLED, true
         {"false", Mgr::ENABLED, true, true}},
        {{"TRUE", Mgr::DISABLED, false, false},  // NONE, false: only "true" is true
         {"true", Mgr::DISABLED, false, true},
         {"false", Mgr::DISABLED, false, false}}};
    for (const std::vector<Step>& sequence : sequences) {
        Mgr mgr;  // a fresh retention for each sequence
        for (const auto& [fileText, retained, bRecord, bModified] : sequence) {
            SCOPED_TRACE(fileText);
            writePolicy("<QuillnetLocalPolicy><FipsMode>" + std::string(fileText) +
                        "</FipsMode></QuillnetLocalPolicy>");
            m_log.clear();
            ASSERT_EQ(mgr.LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
            expectFips(mgr, retained, bRecord, bModified);
            EXPECT_EQ(logged(), std::vector<std::string>{qntest::fipsRecord(bRecord)});
        }
    }
}

TEST_F(PolicyLoading, FailedOrMissingFileLeavesTheRetentionAsItWas) {
    // A failed first load fixes nothing, though the record keeps what was read before the error.
    writePolicy(
        "<QuillnetLocalPolicy><FipsMode>true</FipsMode><BypassDownloader>true</BypassDownloader><");
    EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), XMLPARSER_ERROR_NOT_WELL_FORMED);
    expectFips(*m_mgr, Mgr::NONE, false, false);
    EXPECT_TRUE(m_mgr->GetLocalPolicyInfo().BypassDownloader());
    load("<FipsMode>false</FipsMode>");
    load("<FipsMode>true</FipsMode>");
    expectFips(*m_mgr, Mgr::DISABLED, false, true);

    const std::pair<std::string, STATUSCODE> cases[] = {
        {"<QuillnetLocalPolicy><FipsMode>false</FipsMode><Bypass", XMLPARSER_ERROR_NOT_WELL_FORMED},
        {"<QuillnetLocalPolicy><FipsMode>false</fipsmode>", XMLPARSER_ERROR_NOT_WELL_FORMED},
        {"<!DOCTYPE QuillnetLocalPolicy><QuillnetLocalPolicy><FipsMode>false</FipsMode>"
         "</QuillnetLocalPolicy>",
         XMLPARSER_ERROR_DOCTYPE_REFUSED},
        {"<!DOCTYPE q [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><q>&e;</q>",
         XMLPARSER_ERROR_DOCTYPE_REFUSED},
        {"", XMLPARSER_ERROR_FILE_OPEN},  // a directory at the policy path
    };
    for (const auto& [content, status] : cases) {
        SCOPED_TRACE(content);
        if (status == XMLPARSER_ERROR_FILE_OPEN) {
            std::filesystem::remove(policyPath());
            std::filesystem::create_directory(policyPath());
        } else {
            writePolicy(content);
        }
        m_log.clear();
        EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), status);
        expectFips(*m_mgr, Mgr::DISABLED, false, true);
        const std::vector<CAppLogRecord> records = m_log.records();
        ASSERT_EQ(records.size(), 2U);  // the parser's reason, then the loader's line
        EXPECT_EQ(records[0].function, "parseFile");
        EXPECT_EQ(qntest::describe(records[1]),
                  qntest::managerRecord("LoadLocalQuillnetPolicy", Logging::DBG_Error, "",
                                        "XmlParser::parseFile", static_cast<uint32_t>(status)));
    }

    std::filesystem::remove(policyPath());
    EXPECT_EQ(qntest::summarize(loadAsIs()), qntest::summarize(LocalQNPolicyInfo()));
    expectFips(*m_mgr, Mgr::DISABLED, false, true);
    EXPECT_TRUE(logged().empty());

    // Resetting the record gives the defaults but keeps what the manager has learnt.
    load("<BypassDownloader>true</BypassDownloader><FipsMode>true</FipsMode>");
    m_mgr->ResetLocalPolicyInfo();
    EXPECT_EQ(qntest::summarize(m_mgr->GetLocalPolicyInfo()),
              qntest::summarize(LocalQNPolicyInfo()));
    EXPECT_EQ(Peer::retainedFipsMode(*m_mgr), Mgr::DISABLED);
    EXPECT_TRUE(m_mgr->FipsModeModifiedOnDisk());
}

TEST_F(PolicyLoading, EachLoadStartsFromDefaultsAndFromOutsideEverySection) {
    // The first file stops inside the server list, inside the update section.
    writePolicy(
        "<QuillnetLocalPolicy><EnableCRLCheck>true</EnableCRLCheck><UpdatePolicy>"
        "<AuthorizedServerList><ServerName>gw</ServerName>");
    EXPECT_NE(m_mgr->LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
    const LocalQNPolicyInfo info = load(
        "<AllowHelpUpdatesFromAnyServer>false</AllowHelpUpdatesFromAnyServer>"
        "<ServerName>stray</ServerName>");
    EXPECT_EQ(qntest::summarize(info), qntest::summarize(LocalQNPolicyInfo()));
    EXPECT_EQ(logged(),
              (std::vector<std::string>{qntest::structureWarning(), qntest::fipsRecord(false)}));
}

}  // namespace

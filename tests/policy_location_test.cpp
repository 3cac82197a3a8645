// Where the policy file lives: the directory from the installation-path service, the
// file name appended without a separator, and the log records of a missing service.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "XmlLocalQNPolMgrTestPeer.h"

namespace {

constexpr uint32_t kNoStoragePath = 0xFE9E000A;
constexpr char kSource[] = "vpn/Common/Xml/XmlLocalQNPolMgr";

struct ExpectedRecord {
    const char* function;
    const char* callee;
};

void expectNoServiceRecords(const std::vector<CAppLogRecord>& records,
                            const std::vector<ExpectedRecord>& expected) {
    ASSERT_EQ(records.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(records[i].function, expected[i].function);
        EXPECT_EQ(records[i].callee, expected[i].callee);
        EXPECT_EQ(records[i].code, kNoStoragePath);
        EXPECT_EQ(records[i].importance, Logging::DBG_Error);
        EXPECT_EQ(records[i].file, kSource);
        EXPECT_GT(records[i].line, 0);
        EXPECT_EQ(records[i].message, "");
    }
}

// Runs the test body with the working directory switched to dir.
class WorkingDirectory {
  public:
    explicit WorkingDirectory(const std::string& dir) {
        char buffer[4096];
        m_previous = ::getcwd(buffer, sizeof buffer) != nullptr ? buffer : "/";
        EXPECT_EQ(::chdir(dir.c_str()), 0);
    }
    ~WorkingDirectory() { EXPECT_EQ(::chdir(m_previous.c_str()), 0); }

  private:
    std::string m_previous;
};

TEST(PolicyLocation, IsTheMainDirectoryFollowedByTheFileName) {
    qntest::StoragePathScope storage("/opt/client/");
    qntest::LogCapture log;
    XmlLocalQNPolMgr mgr;
    std::string dir = "stale";
    std::string name = "stale";
    EXPECT_EQ(mgr.GetLocalPolicyLocation(dir, name), XMLLOCALQNPOLMGR_SUCCESS);
    EXPECT_EQ(dir, "/opt/client/");
    EXPECT_EQ(name, "QuillnetLocalPolicy.xml");
    EXPECT_EQ(XmlLocalQNPolMgrTestPeer::policyDir(mgr), "/opt/client/");
    EXPECT_TRUE(log.records().empty());
}

TEST(PolicyLocation, ADirectoryWithoutTrailingSeparatorIsNotCorrected) {
    qntest::TempDir tmp;
    tmp.write("clientQuillnetLocalPolicy.xml", "<QuillnetLocalPolicy/>");
    qntest::StoragePathScope storage(tmp.path() + "client");
    XmlLocalQNPolMgr mgr;
    EXPECT_TRUE(mgr.LocalPolicyFileExists());
}

TEST(PolicyLocation, FileExistenceFollowsTheFileSystem) {
    qntest::TempDir tmp;
    qntest::StoragePathScope storage(tmp.path());
    XmlLocalQNPolMgr mgr;
    qntest::LogCapture log;
    EXPECT_FALSE(mgr.LocalPolicyFileExists());
    tmp.write("QuillnetLocalPolicy.xml", "");
    EXPECT_TRUE(mgr.LocalPolicyFileExists());
    EXPECT_TRUE(log.records().empty());
}

TEST(PolicyLocation, EveryLookupReleasesTheServiceExactlyOnce) {
    qntest::StoragePathScope storage("/opt/client/");
    XmlLocalQNPolMgr mgr;
    std::string dir;
    std::string name;
    for (int i = 0; i < 3; ++i) {
        mgr.GetLocalPolicyLocation(dir, name);
        mgr.LocalPolicyFileExists();
        XmlLocalQNPolMgrTestPeer::policyDir(mgr, dir);
    }
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 1U);
}

TEST(PolicyLocationWithoutService, LocationFailsWithTwoRecordsAndKeepsTheFileName) {
    qntest::LogCapture log;
    XmlLocalQNPolMgr mgr;
    std::string dir = "stale";
    std::string name = "caller's";
    EXPECT_EQ(mgr.GetLocalPolicyLocation(dir, name), static_cast<STATUSCODE>(kNoStoragePath));
    EXPECT_EQ(dir, "");
    EXPECT_EQ(name, "caller's");
    expectNoServiceRecords(
        log.records(), {{"getLocalSecurityPolicyDir", "CInstanceSmartPtr<StoragePath>"},
                        {"GetLocalPolicyLocation", "XmlLocalQNPolMgr::getLocalSecurityPolicyDir"}});
}

TEST(PolicyLocationWithoutService, DirectoryLookupFailsWithItsOwnStatus) {
    qntest::LogCapture log;
    XmlLocalQNPolMgr mgr;
    std::string dir = "stale";
    EXPECT_EQ(XmlLocalQNPolMgrTestPeer::policyDir(mgr, dir),
              static_cast<STATUSCODE>(kNoStoragePath));
    EXPECT_EQ(dir, "");
    expectNoServiceRecords(log.records(),
                           {{"getLocalSecurityPolicyDir", "CInstanceSmartPtr<StoragePath>"}});
}

TEST(PolicyLocationWithoutService, FileExistenceFallsBackToTheWorkingDirectory) {
    qntest::TempDir tmp;
    WorkingDirectory cwd(tmp.path());
    XmlLocalQNPolMgr mgr;
    qntest::LogCapture log;
    EXPECT_FALSE(mgr.LocalPolicyFileExists());
    tmp.write("QuillnetLocalPolicy.xml", "");
    EXPECT_TRUE(mgr.LocalPolicyFileExists());
    const std::vector<CAppLogRecord> records = log.records();
    ASSERT_EQ(records.size(), 4U);
    expectNoServiceRecords(
        {records[0], records[1]},
        {{"getLocalSecurityPolicyDir", "CInstanceSmartPtr<StoragePath>"},
         {"getLocalSecurityPolicyDir", "XmlLocalQNPolMgr::getLocalSecurityPolicyDir"}});
}

}  // namespace

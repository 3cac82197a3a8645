// Where the policy file lives: the directory from the installation-path service, the
// file name appended without a separator, and the log records of a missing service.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

// Expects records of a missing installation-path service, as "function|callee" each.
void expectNoServiceRecords(const std::vector<CAppLogRecord>& records,
                            const std::vector<std::string>& functionAndCallee) {
    ASSERT_EQ(records.size(), functionAndCallee.size());
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].function + "|" + records[i].callee, functionAndCallee[i]);
        EXPECT_EQ(records[i].code, 0xFE9E000AU);
        EXPECT_EQ(records[i].importance, Logging::DBG_Error);
        EXPECT_EQ(records[i].file, "vpn/Common/Xml/XmlLocalQNPolMgr");
        EXPECT_EQ(records[i].message, "");
    }
}

TEST(PolicyLocation, IsTheMainDirectoryFollowedByTheFileNameAndReleasesTheService) {
    qntest::TempDir tmp;
    tmp.write("clientQuillnetLocalPolicy.xml", "<QuillnetLocalPolicy/>");
    qntest::StoragePathScope storage(tmp.path() + "client");  // no separator is added
    qntest::LogCapture log;
    XmlLocalQNPolMgr mgr;
    std::string dir = "stale";
    std::string name = "stale";
    EXPECT_EQ(mgr.GetLocalPolicyLocation(dir, name), XMLLOCALQNPOLMGR_SUCCESS);
    EXPECT_EQ(dir, tmp.path() + "client");
    EXPECT_EQ(name, "QuillnetLocalPolicy.xml");
    EXPECT_TRUE(mgr.LocalPolicyFileExists());
    std::filesystem::remove(tmp.path() + "clientQuillnetLocalPolicy.xml");
    EXPECT_FALSE(mgr.LocalPolicyFileExists());
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 1U);
    EXPECT_TRUE(log.records().empty());
}

TEST(PolicyLocation, WithoutTheServiceFailsWithItsCodeAndFallsBackToTheWorkingDirectory) {
    qntest::LogCapture log;
    XmlLocalQNPolMgr mgr;
    std::string dir = "stale";
    std::string name = "caller's";
    EXPECT_EQ(mgr.GetLocalPolicyLocation(dir, name), static_cast<STATUSCODE>(0xFE9E000A));
    EXPECT_EQ(dir, "");
    EXPECT_EQ(name, "caller's");
    expectNoServiceRecords(log.records(),
                           {"getLocalSecurityPolicyDir|CInstanceSmartPtr<StoragePath>",
                            "GetLocalPolicyLocation|XmlLocalQNPolMgr::getLocalSecurityPolicyDir"});

    qntest::TempDir tmp;
    const std::filesystem::path previous = std::filesystem::current_path();
    std::filesystem::current_path(tmp.path());
    tmp.write("QuillnetLocalPolicy.xml", "");
    log.clear();
    const bool exists = mgr.LocalPolicyFileExists();
    std::filesystem::current_path(previous);
    EXPECT_TRUE(exists);
    expectNoServiceRecords(
        log.records(), {"getLocalSecurityPolicyDir|CInstanceSmartPtr<StoragePath>",
                        "getLocalSecurityPolicyDir|XmlLocalQNPolMgr::getLocalSecurityPolicyDir"});
}

}  // namespace

// The process-wide manager: creation, counting and destruction, alone and under threads.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "XmlLocalQNPolMgrTestPeer.h"

namespace {

// A manager that counts its destructions, to observe what releaseInstance destroys.
class CountingMgr : public XmlLocalQNPolMgr {
  public:
    static std::atomic<int> destroyed;
    ~CountingMgr() override { ++destroyed; }
};
std::atomic<int> CountingMgr::destroyed{0};

TEST(ManagerLifecycle, AcquireBeforeCreationReturnsNullAndCountsNothing) {
    EXPECT_EQ(XmlLocalQNPolMgr::acquireInstance(), nullptr);
    EXPECT_EQ(XmlLocalQNPolMgr::GetAcquisitionCount(), 0U);
}

TEST(ManagerLifecycle, CountsEveryAcquisitionAndTheLastReleaseUnregisters) {
    XmlLocalQNPolMgr* pCreated = nullptr;
    ASSERT_EQ(XmlLocalQNPolMgr::createSingletonInstance(pCreated), XMLLOCALQNPOLMGR_SUCCESS);
    ASSERT_NE(pCreated, nullptr);
    EXPECT_EQ(XmlLocalQNPolMgr::GetAcquisitionCount(), 1U);
    EXPECT_EQ(XmlLocalQNPolMgr::acquireInstance(), pCreated);
    EXPECT_EQ(XmlLocalQNPolMgr::acquireInstance(), pCreated);
    EXPECT_EQ(XmlLocalQNPolMgr::GetAcquisitionCount(), 3U);

    pCreated->releaseInstance();
    pCreated->releaseInstance();
    EXPECT_EQ(XmlLocalQNPolMgr::GetAcquisitionCount(), 1U);
    EXPECT_EQ(XmlLocalQNPolMgr::acquireInstance(), pCreated);
    pCreated->releaseInstance();
    pCreated->releaseInstance();

    EXPECT_EQ(XmlLocalQNPolMgr::acquireInstance(), nullptr);
    EXPECT_EQ(XmlLocalQNPolMgr::GetAcquisitionCount(), 0U);
}

TEST(ManagerLifecycle, SecondCreationFailsWithoutHandingOutTheManager) {
    qntest::ManagerScope registered;
    XmlLocalQNPolMgr* pSecond = registered.get();  // non-null on entry
    EXPECT_EQ(XmlLocalQNPolMgr::createSingletonInstance(pSecond),
              XMLLOCALQNPOLMGR_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(pSecond, nullptr);
    EXPECT_EQ(XmlLocalQNPolMgr::GetAcquisitionCount(), 1U);
    XmlLocalQNPolMgr* pAcquired = XmlLocalQNPolMgr::acquireInstance();
    EXPECT_EQ(pAcquired, registered.get());
    pAcquired->releaseInstance();
}

TEST(ManagerLifecycle, ANewManagerAfterTheLastReleaseStartsFresh) {
    {
        qntest::ManagerScope first;
        first->addElement("ExcludePemFileCertStore");
        first->setElementValue("true");
    }
    qntest::ManagerScope second;
    EXPECT_FALSE(second->FipsModeModifiedOnDisk());
    EXPECT_EQ(XmlLocalQNPolMgrTestPeer::retainedFipsMode(*second), XmlLocalQNPolMgr::NONE);
    EXPECT_EQ(second->GetPolicyTransTable().size(), 29U);
    EXPECT_EQ(second->GetLocalPolicyInfo().ExcludeCertStores(), 0U);
}

TEST(ManagerLifecycle, HandsOutRecordCopiesThatCannotChangeTheManager) {
    qntest::ManagerScope mgr;
    LocalQNPolicyInfo copy = mgr->GetLocalPolicyInfo();
    copy.AddToAuthorizedServerList("gw1");
    copy.UseFIPSMode(true);
    copy.ExcludeCertStores(0x8);
    const LocalQNPolicyInfo again = mgr->GetLocalPolicyInfo();
    EXPECT_TRUE(again.GetAuthorizedServerList().empty());
    EXPECT_FALSE(again.UseFIPSMode());
    EXPECT_EQ(again.ExcludeCertStores(), 0U);
}

TEST(ManagerLifecycle, ReleasingAnUnregisteredManagerDestroysOnlyIt) {
    qntest::ManagerScope registered;
    const int destroyedBefore = CountingMgr::destroyed;
    XmlLocalQNPolMgr* pLoose = new CountingMgr();
    pLoose->releaseInstance();
    EXPECT_EQ(CountingMgr::destroyed, destroyedBefore + 1);
    EXPECT_EQ(XmlLocalQNPolMgr::GetAcquisitionCount(), 1U);
    XmlLocalQNPolMgr* pAcquired = XmlLocalQNPolMgr::acquireInstance();
    EXPECT_EQ(pAcquired, registered.get());
    pAcquired->releaseInstance();
}

TEST(ManagerLifecycle, StatusCodesOccupyTheManagersBlock) {
    const std::vector<std::pair<STATUSCODE, STATUSCODE>> codes = {
        {XMLLOCALQNPOLMGR_SUCCESS, 0},
        {XMLLOCALQNPOLMGR_NOTERROR_BASEVALUE_XmlLocalQNPolMgr, 0xFEB60000},
        {XMLLOCALQNPOLMGR_ERROR_NOT_IMPLEMENTED, 0xFEB60001},
        {XMLLOCALQNPOLMGR_ERROR_BAD_PARAMETER, 0xFEB60002},
        {XMLLOCALQNPOLMGR_ERROR_BAD_HANDLE, 0xFEB60003},
        {XMLLOCALQNPOLMGR_ERROR_MEMALLOC_FAILED, 0xFEB60004},
        {XMLLOCALQNPOLMGR_ERROR_NULL_POINTER, 0xFEB60005},
        {XMLLOCALQNPOLMGR_ERROR_INSUFFICIENT_BUFFER, 0xFEB60006},
        {XMLLOCALQNPOLMGR_ERROR_NOT_INITIALIZED, 0xFEB60007},
        {XMLLOCALQNPOLMGR_ERROR_ALREADY_INITIALIZED, 0xFEB60008},
        {XMLLOCALQNPOLMGR_ERROR_UNEXPECTED, 0xFEB60009},
        {XMLLOCALQNPOLMGR_ERROR_NO_INSTANCE, 0xFEB6000A},
        {XMLLOCALQNPOLMGR_ERROR_UNKNOWN, 0xFEB6000B},
    };
    for (const auto& [actual, expected] : codes) {
        EXPECT_EQ(actual, expected) << std::hex << expected;
    }
    EXPECT_EQ(sizeof(XmlLocalQNPolMgr::RETAINED_FIPS_MODE), 4U);
    EXPECT_EQ(XmlLocalQNPolMgr::ENABLED, 1);
    EXPECT_EQ(XmlLocalQNPolMgr::DISABLED, 2);
}

// Many threads acquire and release while the creator holds its own acquisition: the count
// must come back to exactly 1 and the manager must survive throughout.
TEST(ManagerLifecycleStress, CountDoesNotDriftUnderConcurrentAcquireAndRelease) {
    XmlLocalQNPolMgr* pCreated = nullptr;
    ASSERT_EQ(XmlLocalQNPolMgr::createSingletonInstance(pCreated), XMLLOCALQNPOLMGR_SUCCESS);
    constexpr int kThreads = 8;
    constexpr int kRounds = 20000;
    std::atomic<int> misses{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&misses] {
            for (int i = 0; i < kRounds; ++i) {
                XmlLocalQNPolMgr* p = XmlLocalQNPolMgr::acquireInstance();
                if (p == nullptr) {
                    ++misses;
                    continue;
                }
                if (XmlLocalQNPolMgr::GetAcquisitionCount() < 2) {
                    ++misses;
                }
                p->releaseInstance();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(misses, 0);
    EXPECT_EQ(XmlLocalQNPolMgr::GetAcquisitionCount(), 1U);
    pCreated->releaseInstance();
    EXPECT_EQ(XmlLocalQNPolMgr::GetAcquisitionCount(), 0U);
}

// Threads race to create, use and destroy the manager over and over: at every moment at
// most one manager is registered, each creation is matched by exactly one destruction, and
// nothing is left registered at the end.
TEST(ManagerLifecycleStress, CreationRacesRegisterOneManagerAtATime) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 3000;
    std::atomic<int> created{0};
    std::atomic<int> refused{0};
    std::atomic<int> violations{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                XmlLocalQNPolMgr* p = nullptr;
                const STATUSCODE status = XmlLocalQNPolMgr::createSingletonInstance(p);
                if (status == XMLLOCALQNPOLMGR_ERROR_ALREADY_INITIALIZED) {
                    ++refused;
                    if (p != nullptr) {
                        ++violations;
                    }
                    XmlLocalQNPolMgr* pOther = XmlLocalQNPolMgr::acquireInstance();
                    if (pOther != nullptr) {
                        pOther->releaseInstance();
                    }
                    continue;
                }
                ++created;
                if (status != XMLLOCALQNPOLMGR_SUCCESS || p == nullptr ||
                    XmlLocalQNPolMgr::GetAcquisitionCount() == 0) {
                    ++violations;
                    continue;
                }
                p->releaseInstance();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(violations, 0);
    EXPECT_GT(created, 0);
    EXPECT_EQ(created + refused, kThreads * kRounds);
    EXPECT_EQ(XmlLocalQNPolMgr::acquireInstance(), nullptr);
    EXPECT_EQ(XmlLocalQNPolMgr::GetAcquisitionCount(), 0U);
}

}  // namespace

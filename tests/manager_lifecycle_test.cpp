// The process-wide manager: creation, counting and destruction, alone and under threads.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "XmlLocalQNPolMgr.h"

namespace {

using Mgr = XmlLocalQNPolMgr;

void onThreads(int threads, const std::function<void()>& work) {
    std::vector<std::thread> running;
    running.reserve(static_cast<size_t>(threads));
    for (int t = 0; t < threads; ++t) {
        running.emplace_back(work);
    }
    for (std::thread& thread : running) {
        thread.join();
    }
}

TEST(ManagerLifecycle, CountsAcquisitionsRefusesASecondCreationAndTheLastReleaseUnregisters) {
    EXPECT_EQ(Mgr::acquireInstance(), nullptr);
    Mgr* pCreated = nullptr;
    ASSERT_EQ(Mgr::createSingletonInstance(pCreated), XMLLOCALQNPOLMGR_SUCCESS);
    ASSERT_NE(pCreated, nullptr);
    Mgr* pSecond = pCreated;  // non-null on entry: must come back null
    EXPECT_EQ(Mgr::createSingletonInstance(pSecond), XMLLOCALQNPOLMGR_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(pSecond, nullptr);
    EXPECT_EQ(Mgr::acquireInstance(), pCreated);
    EXPECT_EQ(Mgr::GetAcquisitionCount(), 2U);
    pCreated->releaseInstance();
    EXPECT_EQ(Mgr::GetAcquisitionCount(), 1U);
    EXPECT_EQ(Mgr::acquireInstance(), pCreated);
    pCreated->releaseInstance();
    pCreated->releaseInstance();
    EXPECT_EQ(Mgr::acquireInstance(), nullptr);
    EXPECT_EQ(Mgr::GetAcquisitionCount(), 0U);
}

// Threads acquire and release while the creator holds its own acquisition: the count must
// come back to exactly 1 and the manager must stay registered throughout.
TEST(ManagerLifecycleStress, CountDoesNotDriftUnderConcurrentAcquireAndRelease) {
    Mgr* pCreated = nullptr;
    ASSERT_EQ(Mgr::createSingletonInstance(pCreated), XMLLOCALQNPOLMGR_SUCCESS);
    std::atomic<int> misses{0};
    onThreads(8, [&misses] {
        for (int i = 0; i < 20000; ++i) {
            Mgr* p = Mgr::acquireInstance();
            misses += p == nullptr || Mgr::GetAcquisitionCount() < 2 ? 1 : 0;
            if (p != nullptr) {
                p->releaseInstance();
            }
        }
    });
    EXPECT_EQ(misses, 0);
    EXPECT_EQ(Mgr::GetAcquisitionCount(), 1U);
    pCreated->releaseInstance();
    EXPECT_EQ(Mgr::GetAcquisitionCount(), 0U);
}

// Threads race to create and destroy the manager: a refused creation hands out nothing, a
// successful one is registered until its release, and nothing is left at the end.
TEST(ManagerLifecycleStress, CreationRacesRegisterOneManagerAtATime) {
    std::atomic<int> created{0};
    std::atomic<int> violations{0};
    onThreads(4, [&] {
        for (int i = 0; i < 3000; ++i) {
            Mgr* p = nullptr;
            const STATUSCODE status = Mgr::createSingletonInstance(p);
            if (status == XMLLOCALQNPOLMGR_ERROR_ALREADY_INITIALIZED && p == nullptr) {
                if (Mgr* pOther = Mgr::acquireInstance(); pOther != nullptr) {
                    pOther->releaseInstance();
                }
            } else if (status != XMLLOCALQNPOLMGR_SUCCESS || p == nullptr ||
                       Mgr::GetAcquisitionCount() == 0) {
                ++violations;
            } else {
                ++created;
                p->releaseInstance();
            }
        }
    });
    EXPECT_EQ(violations, 0);
    EXPECT_GT(created, 0);
    EXPECT_EQ(Mgr::acquireInstance(), nullptr);
    EXPECT_EQ(Mgr::GetAcquisitionCount(), 0U);
}

}  // namespace

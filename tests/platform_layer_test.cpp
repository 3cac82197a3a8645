// The platform layer that the policy module stands on: the lock and its guard, the instance
// holder, the installation-path service, the file-system test, logging, version ordering and
// the two tokenizers.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <climits>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <type_traits>
#include <vector>

#include "AppLog.h"
#include "GlobalStatuscodes.h"
#include "InstanceSmartPtr.h"
#include "Locks.h"
#include "StoragePath.h"
#include "StringUtils.h"
#include "TestSupport.h"
#include "TokenParser.h"
#include "VersionCompare.h"
#include "sysutils.h"

namespace {

// ---------------------------------------------------------------------------------------
// CManualLock and CAutoLockT

// A lock that only counts, to watch what the guard does to the object it was given.
struct CountingLock {
    int locks = 0;
    int unlocks = 0;
    void Lock() { ++locks; }
    void Unlock() { ++unlocks; }
};

TEST(AutoLock, LocksTheGivenLockForItsScopeOnly) {
    CountingLock lock;
    {
        CAutoLockT<CountingLock> guard(lock);
        EXPECT_EQ(lock.locks, 1);
        EXPECT_EQ(lock.unlocks, 0);
    }
    EXPECT_EQ(lock.locks, 1);
    EXPECT_EQ(lock.unlocks, 1);
}

TEST(AutoLock, UnlocksWhenTheScopeIsLeftByAnException) {
    CountingLock lock;
    EXPECT_THROW(
        {
            CAutoLockT<CountingLock> guard(lock);
            throw std::runtime_error("leaving the guarded scope");
        },
        std::runtime_error);
    EXPECT_EQ(lock.locks, 1);
    EXPECT_EQ(lock.unlocks, 1);
}

TEST(AutoLock, IsNeitherCopyableNorAssignable) {
    static_assert(!std::is_copy_constructible<CAutoLockT<CManualLock>>::value, "copyable guard");
    static_assert(!std::is_copy_assignable<CAutoLockT<CManualLock>>::value, "assignable guard");
    static_assert(!std::is_copy_constructible<CManualLock>::value, "copyable lock");
    static_assert(std::has_virtual_destructor<CManualLock>::value, "lock needs a virtual dtor");
}

TEST(ManualLock, ExcludesOtherThreadsFromTheGuardedSection) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    CManualLock lock(500);
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    int counter = 0;  // deliberately not atomic: only the lock protects it

    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                CAutoLockT<CManualLock> guard(lock);
                if (inside.fetch_add(1) != 0) {
                    overlaps.fetch_add(1);
                }
                const int seen = counter;
                if (i % 64 == 0) {
                    std::this_thread::yield();  // widen the window a missing lock would open
                }
                counter = seen + 1;
                inside.fetch_sub(1);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(overlaps.load(), 0);
    EXPECT_EQ(counter, kThreads * kRounds);
}

TEST(ManualLock, IsReleasedByTheGuardAfterAnExceptionSoAnotherThreadCanTakeIt) {
    // Static and never destroyed: should the guard leave it locked, the blocked thread is
    // left behind (detached) and still finds the lock alive until the process exits.
    static CManualLock* const lock = new CManualLock(500);
    try {
        CAutoLockT<CManualLock> guard(*lock);
        throw std::runtime_error("leaving the guarded scope");
    } catch (const std::runtime_error&) {
    }
    auto taken = std::make_shared<std::promise<void>>();
    std::future<void> tookIt = taken->get_future();
    std::thread other([taken] {
        CAutoLockT<CManualLock> guard(*lock);
        taken->set_value();
    });
    if (tookIt.wait_for(std::chrono::seconds(5)) == std::future_status::ready) {
        other.join();
    } else {
        other.detach();
        ADD_FAILURE() << "the lock was still held after the guarded scope was left";
    }
}

// ---------------------------------------------------------------------------------------
// CInstanceSmartPtr

struct ReleaseCounter {
    int releases = 0;
    void releaseInstance() { ++releases; }
};

TEST(InstanceSmartPtr, ReleasesTheHeldInstanceExactlyOnceAtScopeEnd) {
    ReleaseCounter instance;
    {
        CInstanceSmartPtr<ReleaseCounter> holder(&instance);
        EXPECT_EQ(holder.get(), &instance);
        EXPECT_TRUE(holder != nullptr);
        EXPECT_EQ(instance.releases, 0);
    }
    EXPECT_EQ(instance.releases, 1);
}

TEST(InstanceSmartPtr, ReleasesWhenTheScopeIsLeftByAnException) {
    ReleaseCounter instance;
    EXPECT_THROW(
        {
            CInstanceSmartPtr<ReleaseCounter> holder(&instance);
            throw std::runtime_error("leaving the holder's scope");
        },
        std::runtime_error);
    EXPECT_EQ(instance.releases, 1);
}

TEST(InstanceSmartPtr, DoesNothingForANullPointer) {
    // A null holder must not dereference its pointer: under the sanitizers a call on null
    // would abort the test.
    CInstanceSmartPtr<ReleaseCounter> holder(nullptr);
    EXPECT_TRUE(holder == nullptr);
    EXPECT_EQ(holder.get(), nullptr);
}

TEST(InstanceSmartPtr, IsNotCopyable) {
    static_assert(!std::is_copy_constructible<CInstanceSmartPtr<ReleaseCounter>>::value,
                  "a copy would release twice");
    static_assert(!std::is_copy_assignable<CInstanceSmartPtr<ReleaseCounter>>::value,
                  "an assignment would release twice");
}

// ---------------------------------------------------------------------------------------
// CStoragePath

class StoragePath : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(CStoragePath::acquireInstance(), nullptr) << "a previous test leaked";
        ASSERT_EQ(CStoragePath::GetAcquisitionCount(), 0U);
    }
    void TearDown() override { EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 0U); }
};

TEST_F(StoragePath, StatusCodesHaveTheirBlockValues) {
    const std::map<STATUSCODE, unsigned long> expected = {
        {CSTORAGEPATH_SUCCESS, 0},
        {CSTORAGEPATH_NOTERROR_BASEVALUE, 0xFE9E0000UL},
        {CSTORAGEPATH_ERROR_NOT_IMPLEMENTED, 0xFE9E0001UL},
        {CSTORAGEPATH_ERROR_BAD_PARAMETER, 0xFE9E0002UL},
        {CSTORAGEPATH_ERROR_BAD_HANDLE, 0xFE9E0003UL},
        {CSTORAGEPATH_ERROR_MEMALLOC_FAILED, 0xFE9E0004UL},
        {CSTORAGEPATH_ERROR_NULL_POINTER, 0xFE9E0005UL},
        {CSTORAGEPATH_ERROR_INSUFFICIENT_BUFFER, 0xFE9E0006UL},
        {CSTORAGEPATH_ERROR_NOT_INITIALIZED, 0xFE9E0007UL},
        {CSTORAGEPATH_ERROR_ALREADY_INITIALIZED, 0xFE9E0008UL},
        {CSTORAGEPATH_ERROR_UNEXPECTED, 0xFE9E0009UL},
        {CSTORAGEPATH_ERROR_NO_INSTANCE, 0xFE9E000AUL},
        {CSTORAGEPATH_ERROR_UNKNOWN, 0xFE9E000BUL},
    };
    for (const auto& entry : expected) {
        EXPECT_EQ(static_cast<unsigned long>(entry.first), entry.second)
            << std::hex << entry.second;
    }
    EXPECT_EQ(expected.size(), 13U) << "two codes share a value";
}

TEST(GlobalStatusCodes, HaveTheGenericOffsetsFromTheGlobalBase) {
    const std::vector<std::pair<STATUSCODE, unsigned long>> expected = {
        {GLOBAL_SUCCESS, 0},
        {GLOBAL_NOTERROR_BASEVALUE, 0xFE000000UL},
        {GLOBAL_ERROR_NOT_IMPLEMENTED, 0xFE000001UL},
        {GLOBAL_ERROR_BAD_PARAMETER, 0xFE000002UL},
        {GLOBAL_ERROR_BAD_HANDLE, 0xFE000003UL},
        {GLOBAL_ERROR_MEMALLOC_FAILED, 0xFE000004UL},
        {GLOBAL_ERROR_NULL_POINTER, 0xFE000005UL},
        {GLOBAL_ERROR_INSUFFICIENT_BUFFER, 0xFE000006UL},
        {GLOBAL_ERROR_NOT_INITIALIZED, 0xFE000007UL},
        {GLOBAL_ERROR_ALREADY_INITIALIZED, 0xFE000008UL},
        {GLOBAL_ERROR_UNEXPECTED, 0xFE000009UL},
        {GLOBAL_ERROR_NO_INSTANCE, 0xFE00000AUL},
        {GLOBAL_ERROR_UNKNOWN, 0xFE00000BUL},
    };
    for (const auto& entry : expected) {
        EXPECT_EQ(static_cast<unsigned long>(entry.first), entry.second)
            << std::hex << entry.second;
    }
    static_assert(sizeof(STATUSCODE) == 8, "STATUSCODE is a signed 64-bit integer");
    static_assert(std::is_signed<STATUSCODE>::value, "STATUSCODE is signed");
}

TEST_F(StoragePath, CreationRegistersTheServiceAsTheFirstAcquisition) {
    CStoragePath* pStoragePath = nullptr;
    ASSERT_EQ(CStoragePath::createSingletonInstance(pStoragePath, "/opt/client/"),
              CSTORAGEPATH_SUCCESS);
    ASSERT_NE(pStoragePath, nullptr);
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 1U);
    pStoragePath->releaseInstance();
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 0U);
    EXPECT_EQ(CStoragePath::acquireInstance(), nullptr);
}

TEST_F(StoragePath, SecondCreationFailsWithANullOutParameterAndLeavesTheCount) {
    CStoragePath* pFirst = nullptr;
    ASSERT_EQ(CStoragePath::createSingletonInstance(pFirst, "/opt/first/"), CSTORAGEPATH_SUCCESS);

    CStoragePath* pSecond = pFirst;  // non-null on entry: must come back null
    EXPECT_EQ(CStoragePath::createSingletonInstance(pSecond, "/opt/second/"),
              static_cast<STATUSCODE>(0xFE9E0008));
    EXPECT_EQ(pSecond, nullptr);
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 1U);

    CInstanceSmartPtr<CStoragePath> isp(CStoragePath::acquireInstance());
    ASSERT_EQ(isp.get(), pFirst);
    EXPECT_EQ(isp->GetMainPath(0, false), "/opt/first/");
    pFirst->releaseInstance();
}

TEST_F(StoragePath, AcquisitionsAreCountedAndTheLastReleaseDestroys) {
    CStoragePath* pStoragePath = nullptr;
    ASSERT_EQ(CStoragePath::createSingletonInstance(pStoragePath, "/opt/old/"),
              CSTORAGEPATH_SUCCESS);
    CStoragePath* pA = CStoragePath::acquireInstance();
    CStoragePath* pB = CStoragePath::acquireInstance();
    EXPECT_EQ(pA, pStoragePath);
    EXPECT_EQ(pB, pStoragePath);
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 3U);

    pA->releaseInstance();
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 2U);
    pB->releaseInstance();
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 1U);
    // Still registered while one acquisition is outstanding: creation is refused.
    CStoragePath* pRefused = nullptr;
    EXPECT_EQ(CStoragePath::createSingletonInstance(pRefused, "/opt/new/"),
              CSTORAGEPATH_ERROR_ALREADY_INITIALIZED);
    pStoragePath->releaseInstance();

    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 0U);
    EXPECT_EQ(CStoragePath::acquireInstance(), nullptr);
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 0U) << "a failed acquisition counted";

    // The old service is gone: a new creation succeeds and knows only the new path.
    CStoragePath* pNew = nullptr;
    ASSERT_EQ(CStoragePath::createSingletonInstance(pNew, "/opt/new/"), CSTORAGEPATH_SUCCESS);
    ASSERT_NE(pNew, nullptr);
    EXPECT_EQ(pNew->GetMainPath(0, false), "/opt/new/");
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 1U);
    pNew->releaseInstance();
}

TEST_F(StoragePath, MainPathIsReturnedExactlyAsGivenWhateverTheArguments) {
    const std::vector<std::string> paths = {"/opt/client/", "/opt/client", "",
                                            "relative dir/with space/", "/opt//x/../y/"};
    for (const std::string& path : paths) {
        CStoragePath* pStoragePath = nullptr;
        ASSERT_EQ(CStoragePath::createSingletonInstance(pStoragePath, path), CSTORAGEPATH_SUCCESS);
        EXPECT_EQ(pStoragePath->GetMainPath(0, false), path);
        EXPECT_EQ(pStoragePath->GetMainPath(7, true), path);
        EXPECT_EQ(pStoragePath->GetMainPath(-1, false), path);
        pStoragePath->releaseInstance();
    }
}

TEST_F(StoragePath, ConcurrentAcquisitionsAndReleasesKeepTheCount) {
    CStoragePath* pStoragePath = nullptr;
    ASSERT_EQ(CStoragePath::createSingletonInstance(pStoragePath, "/opt/client/"),
              CSTORAGEPATH_SUCCESS);
    constexpr unsigned int kThreads = 4;
    constexpr unsigned int kRounds = 20000;
    std::atomic<unsigned int> wrongInstance{0};
    std::atomic<unsigned int> ready{0};
    auto onAllThreads = [&](auto work) {
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (unsigned int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&] {
                ready.fetch_add(1);
                while (ready.load() < kThreads) {
                    // start together, so that the threads contend for the count
                }
                for (unsigned int i = 0; i < kRounds; ++i) {
                    work();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ready = 0;
    };

    onAllThreads([&] {
        if (CStoragePath::acquireInstance() != pStoragePath) {
            wrongInstance.fetch_add(1);
        }
    });
    EXPECT_EQ(wrongInstance.load(), 0U);
    ASSERT_EQ(CStoragePath::GetAcquisitionCount(), 1 + kThreads * kRounds);

    onAllThreads([&] {
        CInstanceSmartPtr<CStoragePath> isp(CStoragePath::acquireInstance());
        pStoragePath->releaseInstance();  // gives back one of the acquisitions above
    });
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 1U);
    pStoragePath->releaseInstance();
}

// ---------------------------------------------------------------------------------------
// fileExists

TEST(FileExists, IsTrueForAnyEntryADanglingLinkIncluded) {
    qntest::TempDir dir;
    const std::string file = dir.write("file.xml", "<a/>");
    const std::string emptyFile = dir.write("empty.xml", "");
    const std::string subdir = dir.path() + "sub";
    ASSERT_EQ(::mkdir(subdir.c_str(), 0700), 0);
    const std::string dangling = dir.path() + "dangling";
    ASSERT_EQ(::symlink((dir.path() + "nowhere").c_str(), dangling.c_str()), 0);
    const std::string linkToFile = dir.path() + "link";
    ASSERT_EQ(::symlink(file.c_str(), linkToFile.c_str()), 0);

    const std::vector<std::pair<std::string, bool>> cases = {
        {file, true},
        {emptyFile, true},
        {subdir, true},
        {subdir + "/", true},
        {dangling, true},
        {linkToFile, true},
        {dir.path() + "missing.xml", false},
        {dir.path() + "missing/child.xml", false},
        {file + "/child", false},
        {"", false},
    };
    for (const auto& testCase : cases) {
        EXPECT_EQ(fileExists(testCase.first), testCase.second) << "path: " << testCase.first;
    }
}

// ---------------------------------------------------------------------------------------
// CAppLog

// Installs the default sink for its lifetime and restores whatever was installed before.
class DefaultSinkScope {
  public:
    DefaultSinkScope() : m_previous(CAppLog::SetSink(CAppLogSink())) {}
    ~DefaultSinkScope() { CAppLog::SetSink(m_previous); }
    DefaultSinkScope(const DefaultSinkScope&) = delete;
    DefaultSinkScope& operator=(const DefaultSinkScope&) = delete;

  private:
    CAppLogSink m_previous;
};

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

TEST(AppLog, DebugMessageRecordCarriesItsFieldsAndTheFormattedText) {
    qntest::LogCapture capture;
    CAppLog::LogDebugMessage("LoadLocalQuillnetPolicy", "vpn/Common/Xml/XmlLocalQNPolMgr", 120,
                             Logging::DBG_Informational, "FIPS mode is %s (%d).", "enabled", 42);
    const std::vector<CAppLogRecord> records = capture.records();
    ASSERT_EQ(records.size(), 1U);
    const CAppLogRecord& record = records[0];
    EXPECT_EQ(record.function, "LoadLocalQuillnetPolicy");
    EXPECT_EQ(record.file, "vpn/Common/Xml/XmlLocalQNPolMgr");
    EXPECT_EQ(record.line, 120);
    EXPECT_EQ(record.importance, Logging::DBG_Informational);
    EXPECT_EQ(record.message, "FIPS mode is enabled (42).");
    EXPECT_EQ(record.callee, "");
    EXPECT_EQ(record.code, 0U);
}

TEST(AppLog, ReturnCodeRecordCarriesCalleeAndCode) {
    qntest::LogCapture capture;
    CAppLog::LogReturnCode("getLocalSecurityPolicyDir", "vpn/Common/Xml/XmlLocalQNPolMgr", 77,
                           Logging::DBG_Error, "CInstanceSmartPtr<StoragePath>", 0xFE9E000AU,
                           nullptr, nullptr);
    CAppLog::LogReturnCode("writeLocalPolicy", "f", 9, Logging::DBG_Warning,
                           "QNCSaxWriter::writeDocument", 0xFFFFFFFFU, "cannot write %s: %d",
                           "second text", "/tmp/x", 13);
    const std::vector<CAppLogRecord> records = capture.records();
    ASSERT_EQ(records.size(), 2U);

    EXPECT_EQ(records[0].function, "getLocalSecurityPolicyDir");
    EXPECT_EQ(records[0].file, "vpn/Common/Xml/XmlLocalQNPolMgr");
    EXPECT_EQ(records[0].line, 77);
    EXPECT_EQ(records[0].importance, Logging::DBG_Error);
    EXPECT_EQ(records[0].callee, "CInstanceSmartPtr<StoragePath>");
    EXPECT_EQ(records[0].code, 0xFE9E000AU);
    EXPECT_EQ(records[0].message, "") << "a null first text gives an empty message";

    EXPECT_EQ(records[1].importance, Logging::DBG_Warning);
    EXPECT_EQ(records[1].callee, "QNCSaxWriter::writeDocument");
    EXPECT_EQ(records[1].code, 0xFFFFFFFFU);
    EXPECT_EQ(records[1].message, "cannot write /tmp/x: 13");
}

TEST(AppLog, ImportanceValuesAreTheLettersOfTheReadableLine) {
    EXPECT_EQ(Logging::DBG_Error, 'E');
    EXPECT_EQ(Logging::DBG_Warning, 'W');
    EXPECT_EQ(Logging::DBG_Informational, 'I');
    EXPECT_EQ(Logging::DBG_Trace, 'T');
    EXPECT_EQ(static_cast<int>(Logging::DBG_Error), 69);
    EXPECT_EQ(static_cast<int>(Logging::DBG_Warning), 87);
    EXPECT_EQ(static_cast<int>(Logging::DBG_Informational), 73);
    EXPECT_EQ(static_cast<int>(Logging::DBG_Trace), 84);
}

TEST(AppLog, SetSinkReturnsThePreviousSinkAndEmptyRestoresTheDefault) {
    DefaultSinkScope defaultSink;
    int firstCalls = 0;
    int secondCalls = 0;
    EXPECT_FALSE(CAppLog::SetSink([&](const CAppLogRecord&) { ++firstCalls; }))
        << "the default sink is handed back empty";
    CAppLogSink previous = CAppLog::SetSink([&](const CAppLogRecord&) { ++secondCalls; });
    ASSERT_TRUE(previous);
    CAppLog::LogDebugMessage("f", "file", 1, Logging::DBG_Trace, "to the second sink");
    EXPECT_EQ(firstCalls, 0);
    EXPECT_EQ(secondCalls, 1);

    previous(CAppLogRecord());  // what came back is the first sink
    EXPECT_EQ(firstCalls, 1);

    CAppLogSink second = CAppLog::SetSink(CAppLogSink());
    ASSERT_TRUE(second);
    testing::internal::CaptureStderr();
    CAppLog::LogDebugMessage("f", "file", 2, Logging::DBG_Trace, "to the default sink");
    const std::string written = testing::internal::GetCapturedStderr();
    EXPECT_EQ(secondCalls, 1) << "the replaced sink still received records";
    EXPECT_NE(written.find("to the default sink"), std::string::npos) << written;
}

TEST(AppLog, DefaultSinkWritesOneReadableLinePerRecordToStandardError) {
    DefaultSinkScope defaultSink;

    testing::internal::CaptureStderr();
    CAppLog::LogDebugMessage("LoadLocalQuillnetPolicy", "vpn/Common/Xml/XmlLocalQNPolMgr", 131,
                             Logging::DBG_Informational, "FIPS mode is %s.", "enabled");
    const std::string message = testing::internal::GetCapturedStderr();
    ASSERT_FALSE(message.empty());
    EXPECT_EQ(std::count(message.begin(), message.end(), '\n'), 1) << message;
    EXPECT_EQ(message.back(), '\n');
    EXPECT_EQ(message.front(), 'I') << message;
    for (const char* part : {"LoadLocalQuillnetPolicy", "vpn/Common/Xml/XmlLocalQNPolMgr:131",
                             "FIPS mode is enabled."}) {
        EXPECT_NE(message.find(part), std::string::npos) << part << " missing from " << message;
    }

    testing::internal::CaptureStderr();
    CAppLog::LogReturnCode("getLocalSecurityPolicyDir", "vpn/Common/Xml/XmlLocalQNPolMgr", 77,
                           Logging::DBG_Error, "CInstanceSmartPtr<StoragePath>", 0xFE9E000AU,
                           nullptr, nullptr);
    const std::string failure = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(failure.begin(), failure.end(), '\n'), 1) << failure;
    EXPECT_EQ(failure.front(), 'E') << failure;
    for (const char* part : {"getLocalSecurityPolicyDir", "vpn/Common/Xml/XmlLocalQNPolMgr:77",
                             "CInstanceSmartPtr<StoragePath>"}) {
        EXPECT_NE(failure.find(part), std::string::npos) << part << " missing from " << failure;
    }
    EXPECT_NE(lowercase(failure).find("fe9e000a"), std::string::npos) << failure;
}

TEST(AppLog, RecordsFromManyThreadsArriveOneAtATimeInOrderAndNoneIsLost) {
    constexpr int kThreads = 8;
    constexpr int kPerThread = 500;
    std::mutex lock;
    std::vector<std::vector<int>> seen(kThreads);
    std::atomic<int> inSink{0};
    std::atomic<int> overlaps{0};
    CAppLogSink previous = CAppLog::SetSink([&](const CAppLogRecord& record) {
        if (inSink.fetch_add(1) != 0) {
            overlaps.fetch_add(1);
        }
        {
            std::lock_guard<std::mutex> guard(lock);
            seen.at(static_cast<size_t>(record.line)).push_back(std::stoi(record.message));
        }
        inSink.fetch_sub(1);
    });

    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kPerThread; ++i) {
                CAppLog::LogDebugMessage("worker", "test", t, Logging::DBG_Trace, "%d", i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    CAppLog::SetSink(previous);

    EXPECT_EQ(overlaps.load(), 0) << "the sink ran on two threads at once";
    for (int t = 0; t < kThreads; ++t) {
        const std::vector<int>& records = seen[static_cast<size_t>(t)];
        ASSERT_EQ(records.size(), static_cast<size_t>(kPerThread)) << "thread " << t;
        for (int i = 0; i < kPerThread; ++i) {
            ASSERT_EQ(records[static_cast<size_t>(i)], i) << "thread " << t << " out of order";
        }
    }
}

// ---------------------------------------------------------------------------------------
// Version

struct VersionParseCase {
    const char* text;
    const char* separators;
    std::list<unsigned int> components;
};

TEST(Version, ComponentsAreTheLeadingDigitsOfEachPiece) {
    const unsigned int kMax = UINT_MAX;
    const std::vector<VersionParseCase> cases = {
        {"5.1.8.105", ".,", {5, 1, 8, 105}},
        {"5,1,8", ".,", {5, 1, 8}},
        {"5.1,8", ".,", {5, 1, 8}},
        {"5.1-beta.3rc2", ".,", {5, 1, 3}},
        {"12abc.x4", ".,", {12, 0}},
        {"abc", ".,", {0}},
        {"", ".,", {0}},
        {"1..2", ".,", {1, 0, 2}},
        {"1.", ".,", {1, 0}},
        {"-1.+2. 3", ".,", {0, 0, 0}},
        {"007.010", ".,", {7, 10}},
        {"4294967295", ".,", {4294967295U}},
        {"4294967296", ".,", {kMax}},
        {"99999999999999999999999.1", ".,", {kMax, 1}},
        {"5.1.8.105", "", {5}},
        {"5;1.8", ";", {5, 1}},
    };
    for (const VersionParseCase& testCase : cases) {
        EXPECT_EQ(Version(testCase.text, testCase.separators).versionInfo, testCase.components)
            << "text \"" << testCase.text << "\" separators \"" << testCase.separators << "\"";
    }
}

struct VersionOrderCase {
    const char* lower;
    const char* higher;
    bool equal;  // true: the two compare equal; false: lower < higher
};

TEST(Version, AllSixOperatorsAgreeOnTheComponentOrder) {
    const std::vector<VersionOrderCase> cases = {
        {"5.1", "5.1.0.0", true},
        {"5.1.8.105", "5,1,8,105", true},
        {"abc", "0", true},
        {"", "0.0.0", true},
        {"4294967295", "99999999999", true},
        {"5.1.8.105", "5.1.8.106", false},
        {"5.1.8.105", "6.0", false},
        {"5.1.8", "5.1.8.1", false},
        {"5.1", "5.1.0.1", false},
        {"5.9", "5.10", false},
        {"4294967294", "99999999999", false},
        {"0.9.9.9", "1", false},
        {"5.1.8.105", "5.1.8.105.1", false},
    };
    for (const VersionOrderCase& testCase : cases) {
        const Version a(testCase.lower, ".,");
        const Version b(testCase.higher, ".,");
        SCOPED_TRACE(std::string(testCase.lower) + " vs " + testCase.higher);
        EXPECT_EQ(a == b, testCase.equal);
        EXPECT_EQ(b == a, testCase.equal);
        EXPECT_EQ(a != b, !testCase.equal);
        EXPECT_EQ(b != a, !testCase.equal);
        EXPECT_EQ(a < b, !testCase.equal);
        EXPECT_FALSE(b < a);
        EXPECT_TRUE(a <= b);
        EXPECT_EQ(b <= a, testCase.equal);
        EXPECT_EQ(b > a, !testCase.equal);
        EXPECT_FALSE(a > b);
        EXPECT_TRUE(b >= a);
        EXPECT_EQ(a >= b, testCase.equal);
        EXPECT_TRUE(a == a && a <= a && a >= a && !(a < a) && !(a > a) && !(a != a));
    }
}

// The bounded comparison that the reader uses for a document's version must order every text
// exactly as a Version built from it would.
TEST(Version, TextComparisonAgreesWithTheBuiltVersion) {
    const char* const texts[] = {"",
                                 "0",
                                 "5",
                                 "5.1",
                                 "5.1.8",
                                 "5.1.8.105",
                                 "5.1.8.106",
                                 "5.1.8.104",
                                 "5,1,8,105",
                                 "5.1.8.105.",
                                 "5.1.8.105.0",
                                 "5.1.8.105.0.0.1",
                                 "5.1.8.105..x.7",
                                 "6",
                                 "4.99",
                                 "5.2",
                                 "5.1.9",
                                 "5.1.8.105a",
                                 "99999999999",
                                 "...",
                                 "5;1;8;105",
                                 ".5"};
    const char* const separatorSets[] = {".,", "", ";"};
    for (const char* separators : separatorSets) {
        for (const char* reference : texts) {
            const Version referenceVersion(reference, separators);
            for (const char* text : texts) {
                EXPECT_EQ(IsVersionTextGreater(text, separators, referenceVersion),
                          Version(text, separators) > referenceVersion)
                    << "\"" << text << "\" vs \"" << reference << "\" separators \"" << separators
                    << "\"";
            }
        }
    }
}

// ---------------------------------------------------------------------------------------
// CStringUtils::tokenize

TEST(Tokenize, CutsAtTheSeparatorAndDropsEmptyPieces) {
    const std::vector<std::tuple<std::string, char, std::vector<std::string>>> cases = {
        {"Credentials,Thumbprints", ',', {"Credentials", "Thumbprints"}},
        {"a,b,c", ',', {"a", "b", "c"}},
        {"a,,b,", ',', {"a", "b"}},
        {",a", ',', {"a"}},
        {"", ',', {}},
        {",", ',', {}},
        {",,,", ',', {}},
        {"single", ',', {"single"}},
        {" a , b ", ',', {" a ", " b "}},
        {"a,b;c", ';', {"a,b", "c"}},
        {"x", 'x', {}},
    };
    for (const auto& testCase : cases) {
        EXPECT_EQ(CStringUtils::tokenize(std::get<0>(testCase), std::get<1>(testCase)),
                  std::get<2>(testCase))
            << "text \"" << std::get<0>(testCase) << "\" separator '" << std::get<1>(testCase)
            << "'";
    }
}

// ---------------------------------------------------------------------------------------
// TTokenParser

std::vector<std::string> allTokens(const std::string& text, const std::string& delimiters) {
    TTokenParser<char> parser(text);
    std::vector<std::string> tokens;
    std::string token = "stale";
    while (parser.NextToken(token, delimiters)) {
        tokens.push_back(token);
        token = "stale";
    }
    EXPECT_EQ(token, "") << "the token is cleared when nothing is left";
    EXPECT_FALSE(parser.NextToken(token, delimiters)) << "false is final";
    return tokens;
}

TEST(TokenParser, HandsOutThePiecesBetweenDelimitersKeepingEmptyOnes) {
    const std::vector<std::tuple<std::string, std::string, std::vector<std::string>>> cases = {
        {",,gw1;;gw2,", ",;", {"", "", "gw1", "", "gw2"}},
        {";,", ",;", {"", ""}},
        {" gw1 , gw2", ",;", {" gw1 ", " gw2"}},
        {"gw1,gw2;;gw3", ",;", {"gw1", "gw2", "", "gw3"}},
        {"gw1,gw2;gw3", "", {"gw1,gw2;gw3"}},
        {"gw1,gw2", ";", {"gw1,gw2"}},
        {"gw1", ",;", {"gw1"}},
        {",", ",;", {""}},
        {"", ",;", {}},
        {"", "", {}},
    };
    for (const auto& testCase : cases) {
        EXPECT_EQ(allTokens(std::get<0>(testCase), std::get<1>(testCase)), std::get<2>(testCase))
            << "text \"" << std::get<0>(testCase) << "\" delimiters \"" << std::get<1>(testCase)
            << "\"";
    }
}

TEST(TokenParser, DelimitersMayChangeFromCallToCall) {
    TTokenParser<char> parser("a,b;c,d");
    std::string token;
    ASSERT_TRUE(parser.NextToken(token, ";"));
    EXPECT_EQ(token, "a,b");
    ASSERT_TRUE(parser.NextToken(token, ","));
    EXPECT_EQ(token, "c");
    ASSERT_TRUE(parser.NextToken(token, ","));
    EXPECT_EQ(token, "d");
    EXPECT_FALSE(parser.NextToken(token, ","));
}

TEST(TokenParser, RestOfStrTakesEverythingAfterTheReadPositionOnce) {
    TTokenParser<char> parser("gw1,gw2;gw3");
    std::string token;
    ASSERT_TRUE(parser.NextToken(token, ","));
    EXPECT_EQ(token, "gw1");
    ASSERT_TRUE(parser.RestOfStr(token));
    EXPECT_EQ(token, "gw2;gw3");
    token = "stale";
    EXPECT_FALSE(parser.RestOfStr(token));
    EXPECT_EQ(token, "");
    EXPECT_FALSE(parser.NextToken(token, ","));

    TTokenParser<char> whole("a b");
    ASSERT_TRUE(whole.RestOfStr(token));
    EXPECT_EQ(token, "a b");

    TTokenParser<char> empty("");
    EXPECT_FALSE(empty.RestOfStr(token));

    // A trailing delimiter leaves nothing behind it.
    TTokenParser<char> trailing("gw1,");
    ASSERT_TRUE(trailing.NextToken(token, ","));
    EXPECT_EQ(token, "gw1");
    EXPECT_FALSE(trailing.RestOfStr(token));
}

TEST(TokenParser, WideParserBehavesAlike) {
    TTokenParser<wchar_t> parser(L",gw1;gw2");
    std::wstring token;
    ASSERT_TRUE(parser.NextToken(token, L",;"));
    EXPECT_EQ(token, L"");
    ASSERT_TRUE(parser.NextToken(token, L",;"));
    EXPECT_EQ(token, L"gw1");
    ASSERT_TRUE(parser.NextToken(token, L",;"));
    EXPECT_EQ(token, L"gw2");
    EXPECT_FALSE(parser.NextToken(token, L",;"));
}

}  // namespace

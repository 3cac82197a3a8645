// The platform layer that the policy module stands on: the lock and its guard, the instance
// holder, the installation-path service, the file-system test, logging, version ordering and
// the two tokenizers.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "AppLog.h"
#include "InstanceSmartPtr.h"
#include "Locks.h"
#include "StoragePath.h"
#include "StringUtils.h"
#include "TestSupport.h"
#include "TokenParser.h"
#include "VersionCompare.h"
#include "sysutils.h"

namespace {

TEST(ManualLock, ExcludesOtherThreadsFromTheGuardedSection) {
    CManualLock lock(500);
    int counter = 0;  // deliberately not atomic: only the lock protects it
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                CAutoLockT<CManualLock> guard(lock);
                const int seen = counter;
                std::this_thread::yield();  // widen the window a missing lock would open
                counter = seen + 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 4 * 2000);
}

TEST(StoragePath, CountsAcquisitionsRefusesASecondCreationAndTheLastReleaseDestroys) {
    const STATUSCODE codes[] = {
        CSTORAGEPATH_NOTERROR_BASEVALUE,        CSTORAGEPATH_ERROR_NOT_IMPLEMENTED,
        CSTORAGEPATH_ERROR_BAD_PARAMETER,       CSTORAGEPATH_ERROR_BAD_HANDLE,
        CSTORAGEPATH_ERROR_MEMALLOC_FAILED,     CSTORAGEPATH_ERROR_NULL_POINTER,
        CSTORAGEPATH_ERROR_INSUFFICIENT_BUFFER, CSTORAGEPATH_ERROR_NOT_INITIALIZED,
        CSTORAGEPATH_ERROR_ALREADY_INITIALIZED, CSTORAGEPATH_ERROR_UNEXPECTED,
        CSTORAGEPATH_ERROR_NO_INSTANCE,         CSTORAGEPATH_ERROR_UNKNOWN};
    for (size_t i = 0; i < std::size(codes); ++i) {
        EXPECT_EQ(codes[i], static_cast<STATUSCODE>(0xFE9E0000 + i));
    }
    EXPECT_EQ(CSTORAGEPATH_SUCCESS, 0);

    EXPECT_EQ(CStoragePath::acquireInstance(), nullptr);
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 0U) << "a failed acquisition counted";
    for (const std::string path : {"/opt//x/../y", "relative dir/"}) {
        CStoragePath* pFirst = nullptr;
        ASSERT_EQ(CStoragePath::createSingletonInstance(pFirst, path), CSTORAGEPATH_SUCCESS);
        CStoragePath* pSecond = pFirst;  // non-null on entry: must come back null
        EXPECT_EQ(CStoragePath::createSingletonInstance(pSecond, "/other/"),
                  CSTORAGEPATH_ERROR_ALREADY_INITIALIZED);
        EXPECT_EQ(pSecond, nullptr);
        {
            CInstanceSmartPtr<CStoragePath> isp(CStoragePath::acquireInstance());
            ASSERT_EQ(isp.get(), pFirst);
            EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 2U);
            EXPECT_EQ(isp->GetMainPath(7, true), path) << "returned exactly as given";
        }
        EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 1U);
        pFirst->releaseInstance();
        EXPECT_EQ(CStoragePath::acquireInstance(), nullptr);
    }
}

TEST(FileExists, IsTrueForAnyEntryADanglingLinkIncluded) {
    qntest::TempDir dir;
    const std::string file = dir.write("file.xml", "");
    ASSERT_EQ(::mkdir((dir.path() + "sub").c_str(), 0700), 0);
    ASSERT_EQ(::symlink((dir.path() + "missing").c_str(), (dir.path() + "dangling").c_str()), 0);
    const std::vector<std::pair<std::string, bool>> cases = {{file, true},
                                                             {dir.path() + "sub/", true},
                                                             {dir.path() + "dangling", true},
                                                             {dir.path() + "missing", false},
                                                             {file + "/child", false},
                                                             {"", false}};
    for (const auto& [path, exists] : cases) {
        EXPECT_EQ(fileExists(path), exists) << path;
    }
}

// The default sink writes each record as one readable line to standard error.
TEST(AppLog, DefaultSinkWritesEachRecordAsOneReadableLine) {
    const CAppLogSink previous = CAppLog::SetSink(CAppLogSink());
    EXPECT_FALSE(CAppLog::SetSink(CAppLogSink())) << "the default sink is handed back empty";
    testing::internal::CaptureStderr();
    CAppLog::LogDebugMessage("LoadLocalQuillnetPolicy", "vpn/Common/Xml/XmlLocalQNPolMgr", 131,
                             Logging::DBG_Informational, "FIPS mode is %s.", "enabled");
    CAppLog::LogReturnCode("getLocalSecurityPolicyDir", "f", 77, Logging::DBG_Error,
                           "CInstanceSmartPtr<StoragePath>", 0xFE9E000AU, nullptr, nullptr);
    CAppLog::LogReturnCode("w", "f", 9, Logging::DBG_Warning, "Writer::write", 13,
                           "cannot write %s", "not recorded", "/tmp/x");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "I LoadLocalQuillnetPolicy vpn/Common/Xml/XmlLocalQNPolMgr:131 FIPS mode is "
              "enabled.\nE getLocalSecurityPolicyDir f:77 CInstanceSmartPtr<StoragePath> returned "
              "0xFE9E000A\nW w f:9 Writer::write returned 0x0000000D: cannot write /tmp/x\n");
    CAppLog::SetSink(previous);
}

TEST(AppLog, RecordsFromManyThreadsArriveOneAtATimeInOrderAndNoneIsLost) {
    constexpr int kThreads = 8;
    constexpr int kPerThread = 500;
    std::vector<std::vector<int>> seen(kThreads);  // guarded by the logging lock
    std::atomic<int> inSink{0};
    std::atomic<int> overlaps{0};
    const CAppLogSink previous = CAppLog::SetSink([&](const CAppLogRecord& record) {
        overlaps += inSink.fetch_add(1) != 0 ? 1 : 0;
        std::this_thread::yield();  // widen the window a missing lock would open
        seen.at(static_cast<size_t>(record.line)).push_back(std::stoi(record.message));
        inSink.fetch_sub(1);
    });
    std::vector<std::thread> threads;
    threads.reserve(8);
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
    std::vector<int> inOrder(kPerThread);
    std::iota(inOrder.begin(), inOrder.end(), 0);
    for (const std::vector<int>& records : seen) {
        EXPECT_EQ(records, inOrder);
    }
}

TEST(Version, ComponentsAreTheLeadingDigitsOfEachPieceAndOrderIsNumeric) {
    EXPECT_EQ(Version("5.1-beta,3rc2", ".,").versionInfo, (std::list<unsigned int>{5, 1, 3}));
    EXPECT_EQ(Version("1..x4", ".,").versionInfo, (std::list<unsigned int>{1, 0, 0}));
    EXPECT_EQ(Version("99999999999.5;1", ".").versionInfo,
              (std::list<unsigned int>{4294967295U, 5}));
    // Each pair: lower, higher, and whether the two compare equal.
    const std::vector<std::tuple<const char*, const char*, bool>> cases = {
        {"5.1", "5.1.0.0", true}, {"", "0.0", true},         {"5.1.8.105", "5.1.8.106", false},
        {"5.9", "5.10", false},   {"5.1", "5.1.0.1", false}, {"0.9.9", "1", false}};
    for (const auto& [lowText, highText, equal] : cases) {
        const Version a(lowText, ".,");
        const Version b(highText, ".,");
        SCOPED_TRACE(std::string(lowText) + " vs " + highText);
        const std::vector<bool> results = {
            a == b, b == a, a != b, a<b, b<a, a <= b, b <= a, a> b, b> a, a >= b, b >= a};
        EXPECT_EQ(results, (std::vector<bool>{equal, equal, !equal, !equal, false, true, equal,
                                              false, !equal, equal, true}));
    }
}

// The bounded comparison the reader applies to a document's version orders every text exactly
// as a Version built from it would.
TEST(Version, TextComparisonAgreesWithTheBuiltVersion) {
    const char* const texts[] = {"",
                                 "0",
                                 "5.1",
                                 "5.1.8.105",
                                 "5.1.8.106",
                                 "5,1,8,104",
                                 "5.1.8.105.",
                                 "5.1.8.105.0.0.1",
                                 "5.1.8.105..x.7",
                                 "6",
                                 "5.1.9",
                                 "5.1.8.105a",
                                 "99999999999",
                                 "...",
                                 "5;1;8;105",
                                 ".5"};
    for (const char* separators : {".,", "", ";"}) {
        for (const char* reference : texts) {
            const Version referenceVersion(reference, separators);
            for (const char* text : texts) {
                EXPECT_EQ(IsVersionTextGreater(text, separators, referenceVersion),
                          Version(text, separators) > referenceVersion)
                    << text << " vs " << reference << " with \"" << separators << "\"";
            }
        }
    }
}

TEST(Tokenize, CutsAtTheSeparatorAndDropsEmptyPieces) {
    using Tokens = std::vector<std::string>;
    EXPECT_EQ(CStringUtils::tokenize(",Credentials,,Thumbprints,", ','),
              (Tokens{"Credentials", "Thumbprints"}));
    EXPECT_EQ(CStringUtils::tokenize(" a ;b,c", ';'), (Tokens{" a ", "b,c"}));
    EXPECT_EQ(CStringUtils::tokenize(",,", ','), Tokens{});
}

TEST(TokenParser, HandsOutThePiecesBetweenDelimitersKeepingEmptyOnes) {
    const std::vector<std::tuple<std::string, std::string, std::vector<std::string>>> cases = {
        {",,gw1;;gw2,", ",;", {"", "", "gw1", "", "gw2"}},
        {" gw1 , gw2", ",;", {" gw1 ", " gw2"}},
        {"gw1,gw2", "", {"gw1,gw2"}},
        {"", ",", {}}};
    for (const auto& [text, delimiters, expected] : cases) {
        TTokenParser<char> parser(text);
        std::vector<std::string> tokens;
        for (std::string token = "stale"; tokens.size() < 9 && parser.NextToken(token, delimiters);
             token = "stale") {
            tokens.push_back(token);
        }
        EXPECT_EQ(tokens, expected) << text;
    }
    TTokenParser<wchar_t> parser(L"a,b;c,d;e");
    std::wstring token = L"stale";
    EXPECT_TRUE(parser.NextToken(token, L";") && token == L"a,b");
    EXPECT_TRUE(parser.NextToken(token, L",") && token == L"c");
    EXPECT_TRUE(parser.RestOfStr(token) && token == L"d;e");
    EXPECT_FALSE(parser.RestOfStr(token));
    EXPECT_EQ(token, L"") << "the token is cleared when nothing is left";
    EXPECT_FALSE(parser.NextToken(token, L","));
}

}  // namespace

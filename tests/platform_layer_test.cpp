// SPDX-License-Identifier: Apache-2.0
// The platform layer that the policy module stands on: the locks, the two process-wide
// services (installation path, policy manager) alone and under threads, where the policy file
// lives on the installation path, version ordering and the two tokenizers. Suite names of the
// threaded tests match the tsan preset's filter.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "InstanceSmartPtr.h"
#include "PolicyDocumentFixture.h"
#include "StringUtils.h"
#include "TokenParser.h"
#include "VersionCompare.h"
#include "sysutils.h"

namespace {

// A counter that is not atomic, read and written back with a yield in between, loses nothing
// when the manual lock, or the logging lock around the sink, serialises the threads.
TEST(Lock, EveryLockLetsOneThreadInAtATime) {
    CManualLock lock(500);
    int guarded = 0;
    int logged = 0;
    const auto bump = [](int& counter) {
        const int seen = counter;
        std::this_thread::yield();  // widen the window a missing lock would open
        counter = seen + 1;
    };
    const CAppLogSink previous = CAppLog::SetSink([&](const CAppLogRecord&) { bump(logged); });
    qntest::onThreads(4, [&] {
        for (int i = 0; i < 2000; ++i) {
            CAppLog::LogDebugMessage("worker", "test", i, Logging::DBG_Trace, "%d", i);
            CAutoLockT<CManualLock> guard(lock);
            bump(guarded);
        }
    });
    CAppLog::SetSink(previous);
    EXPECT_EQ(guarded, 4 * 2000);
    EXPECT_EQ(logged, 4 * 2000) << "records were lost or reached the sink at the same time";
}

// The process-wide bookkeeping of a service: creation is the first acquisition, a second
// creation is refused with the service's code and hands out nothing. Then threads race to
// create, acquire and release through the instance holder: a creation either registers a
// counted service or is refused, a held service stays counted, creation works again after the
// last release, and nothing is left at the end.
template <typename Service, typename... Args>
void expectLifecycle(STATUSCODE refused, const Args&... args) {
    Service* pCreated = nullptr;
    ASSERT_EQ(Service::createSingletonInstance(pCreated, args...), 0);
    Service* pSecond = pCreated;  // non-null on entry: must come back null
    EXPECT_EQ(Service::createSingletonInstance(pSecond, args...), refused);
    EXPECT_EQ(pSecond, nullptr);
    pCreated->releaseInstance();
    std::atomic<int> created{0};
    std::atomic<int> faults{0};
    qntest::onThreads(4, [&] {
        for (int i = 0; i < 5000; ++i) {
            Service* p = nullptr;
            const STATUSCODE status = Service::createSingletonInstance(p, args...);
            created += status == 0 ? 1 : 0;
            faults += status == 0 ? p == nullptr : status != refused || p != nullptr;
            CInstanceSmartPtr<Service> held(status == 0 ? p : Service::acquireInstance());
            faults += held != nullptr && Service::GetAcquisitionCount() == 0 ? 1 : 0;
        }
    });
    EXPECT_EQ(faults, 0);
    EXPECT_GT(created, 1);
    EXPECT_EQ(Service::acquireInstance(), nullptr);
    EXPECT_EQ(Service::GetAcquisitionCount(), 0U) << "a failed acquisition counted";
}

TEST(ManagerLifecycle, EachServiceStaysOneCountedInstanceUnderRacingThreads) {
    expectLifecycle<CStoragePath>(CSTORAGEPATH_ERROR_ALREADY_INITIALIZED, std::string("/x"));
    expectLifecycle<XmlLocalQNPolMgr>(XMLLOCALQNPOLMGR_ERROR_ALREADY_INITIALIZED);
}

// The installation-path service keeps any spelling of a directory with exactly one trailing
// separator; an empty path stays empty (no installation directory).
TEST(StoragePath, KeepsTheMainPathWithExactlyOneTrailingSeparator) {
    const struct {
        const char* given;
        const char* kept;
    } cases[] = {{"/opt/client", "/opt/client/"},
                 {"/opt/client///", "/opt/client/"},
                 {"relative", "relative/"},
                 {"//", "/"},
                 {"", ""}};
    for (const auto& c : cases) {
        qntest::StoragePathScope storage{std::string(c.given)};
        EXPECT_EQ(storage->GetMainPath(0, false), c.kept) << c.given;
    }
}

// The policy location is the service's main path, the file name appended without a separator
// of its own: the service keeps the path with exactly one trailing separator. Without the service,
// the lookup and its caller each log an error with the service's code, and the working directory is
// tried. Any entry at the path counts as existing, a directory or a dangling link too.
TEST(PolicyLocation, IsTheMainPathAsGivenPlusTheFileNameElseTheWorkingDirectory) {
    qntest::TempDir tmp;
    qntest::LogCapture log;
    XmlLocalQNPolMgr mgr;
    std::string dir = "stale";
    std::string name = "caller's";
    EXPECT_EQ(mgr.GetLocalPolicyLocation(dir, name), static_cast<STATUSCODE>(0xFE9E000A));
    EXPECT_EQ(dir + "|" + name, "|caller's");
    ASSERT_EQ(::mkdir((tmp.path() + "QuillnetLocalPolicy.xml").c_str(), 0700), 0);
    const std::filesystem::path previous = std::filesystem::current_path();
    std::filesystem::current_path(tmp.path());
    EXPECT_TRUE(mgr.LocalPolicyFileExists());
    std::filesystem::current_path(previous);
    std::vector<std::string> expected;  // per call: the lookup's record, then its caller's
    for (const char* caller : {"GetLocalPolicyLocation", "getLocalSecurityPolicyDir"}) {
        expected.push_back(qntest::managerRecord("getLocalSecurityPolicyDir", Logging::DBG_Error,
                                                 "", "CInstanceSmartPtr<StoragePath>", 0xFE9E000A));
        expected.push_back(qntest::managerRecord(caller, Logging::DBG_Error, "",
                                                 "XmlLocalQNPolMgr::getLocalSecurityPolicyDir",
                                                 0xFE9E000A));
    }
    EXPECT_EQ(qntest::described(log), expected);
    log.clear();

    // A directory given without its separator gets one: the file is looked for inside it, never
    // beside it.
    qntest::StoragePathScope storage(tmp.path() + "./client");
    EXPECT_EQ(mgr.GetLocalPolicyLocation(dir, name), XMLLOCALQNPOLMGR_SUCCESS);
    EXPECT_EQ(dir + "|" + name, tmp.path() + "./client/|QuillnetLocalPolicy.xml");
    ASSERT_EQ(::symlink("missing", (tmp.path() + "clientQuillnetLocalPolicy.xml").c_str()), 0);
    ASSERT_EQ(::mkdir((tmp.path() + "client").c_str(), 0700), 0);
    EXPECT_FALSE(mgr.LocalPolicyFileExists());
    ASSERT_EQ(::symlink("missing", (tmp.path() + "client/QuillnetLocalPolicy.xml").c_str()), 0);
    EXPECT_TRUE(mgr.LocalPolicyFileExists());
    EXPECT_EQ(CStoragePath::GetAcquisitionCount(), 1U) << "the manager kept an acquisition";
    EXPECT_TRUE(log.records().empty());
}

// Only the system's own "nothing there" is absence; whatever cannot be examined counts as
// present, so that a reader fails on it instead of taking the defaults. Asked as nobody, for
// whom "closed" (root's, 0700) cannot be searched.
TEST(FileExists, IsFalseOnlyWhenTheSystemSaysNothingIsThere) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to drop to an unprivileged user";
    }
    const qntest::TempDir tmp;
    ASSERT_EQ(::chmod(tmp.path().c_str(), 0755), 0);
    tmp.write("file", "x");
    ASSERT_EQ(::mkdir((tmp.path() + "closed").c_str(), 0700), 0);
    tmp.write("closed/inner", "x");
    ASSERT_EQ(::symlink("loop", (tmp.path() + "loop").c_str()), 0);
    ASSERT_EQ(::symlink("none", (tmp.path() + "dangling").c_str()), 0);
    const std::string names[] = {
        "none",          // ENOENT: absent
        "file/below",    // ENOTDIR: absent
        "file",          // a regular file
        "dangling",      // a link to nothing is still an entry
        "loop/below",    // ELOOP: cannot tell
        "closed/inner",  // EACCES: cannot tell
    };
    const std::string answers = qntest::asNobody([&tmp, &names] {
        std::string text;
        for (const std::string& name : names) {
            text += qnsys::fileExists(tmp.path() + name) ? '1' : '0';
        }
        return text;
    });
    EXPECT_EQ(answers, "001111");
}

// Groups of equal texts in ascending order under the separators ".,": every operator and the
// reader's bounded text comparison must follow this order.
TEST(Version, EveryComparisonFollowsTheNumericOrder) {
    const std::vector<std::vector<std::string>> ascending = {
        {"", "...", "0.0"}, {".5"},
        {"1", "1.0.0"},     {"5;1"},
        {"5.1", "5,1,0,0"}, {"5.1.8.105", "5.1.8.105a."},
        {"5.1.8.105..x.7"}, {"5.9"},
        {"5.10"},           {"99999999999", "4294967295"}};
    const auto results = [](const auto& x, const auto& y) {
        return std::array<bool, 6>{(x == y), (x != y), (x < y), (x <= y), (x > y), (x >= y)};
    };
    for (size_t aRank = 0; aRank < ascending.size(); ++aRank) {
        for (const std::string& aText : ascending[aRank]) {
            for (size_t bRank = 0; bRank < ascending.size(); ++bRank) {
                for (const std::string& bText : ascending[bRank]) {
                    const Version a(aText, ".,");
                    const Version b(bText, ".,");
                    EXPECT_EQ(results(a, b), results(aRank, bRank)) << aText << " vs " << bText;
                    EXPECT_EQ(qnpolicy::IsVersionTextGreater(aText, ".,", b), aRank > bRank)
                        << aText << " vs " << bText;
                }
            }
        }
    }
}

// The parser hands out every piece between delimiters untrimmed, empty ones too, and clears
// the token when nothing is left; tokenize drops the empty pieces.
TEST(Tokenizers, ParserHandsOutEveryPieceTokenizeOnlyTheNonEmptyOnes) {
    using Tokens = std::vector<std::string>;
    TTokenParser<char> parser(",,gw1;; gw2 ,");
    Tokens tokens;
    for (std::string token; parser.NextToken(token, ",;");) {
        tokens.push_back(token);
    }
    EXPECT_EQ(tokens, (Tokens{"", "", "gw1", "", " gw2 "}));
    TTokenParser<wchar_t> wide(L"a,b;c");
    std::wstring token = L"stale";
    EXPECT_TRUE(wide.NextToken(token, L";") && token == L"a,b");
    EXPECT_TRUE(wide.RestOfStr(token) && token == L"c");
    EXPECT_FALSE(wide.NextToken(token, L",") || !token.empty());
    EXPECT_EQ(CStringUtils::tokenize(",Credentials,, All,", ','), (Tokens{"Credentials", " All"}));
}

}  // namespace

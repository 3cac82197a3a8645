// SPDX-License-Identifier: Apache-2.0
// System-call faults on the write and read paths. The suite is linked with the library's
// calls wrapped (-Wl,--wrap, see CMakeLists.txt): each wrapper passes straight through unless
// a test has armed it, and then records the call, makes a chosen call fail with a realistic
// errno, runs a hook before it, or kills the process at it.
//
// For every call of a write in turn: the old file is byte for byte unchanged, or the new one
// complete; no temporary name remains; the status and the one record name the failing step;
// nothing throws. Killed at every call: never a partial document, a stray name only in the
// instant between naming and renaming, and none after the next write.

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "ErrnoText.h"
#include "PolicyDocumentFixture.h"
#include "QNCSaxWriter.h"
#include "XmlParser.h"

namespace {

// What the wrappers do while armed. Calls are counted from 0 in the order they are made.
struct Plan {
    bool bArmed = false;
    std::vector<std::string> calls;                 // every call seen, by name
    std::map<size_t, int> failures;                 // call index -> errno to fail with
    std::map<size_t, std::function<void()>> hooks;  // call index -> run before the call
    size_t killAt = static_cast<size_t>(-1);        // call index to die at
};
Plan g_plan;

// True when the call named must fail (errno set). Counts the call.
bool intercept(const char* name) {
    if (!g_plan.bArmed) {
        return false;
    }
    const size_t index = g_plan.calls.size();
    g_plan.calls.emplace_back(name);
    const auto hook = g_plan.hooks.find(index);
    if (hook != g_plan.hooks.end()) {
        g_plan.bArmed = false;  // the hook's own calls go through untouched
        hook->second();
        g_plan.bArmed = true;
    }
    if (index == g_plan.killAt) {
        ::kill(::getpid(), SIGKILL);
    }
    const auto failure = g_plan.failures.find(index);
    if (failure == g_plan.failures.end()) {
        return false;
    }
    errno = failure->second;
    return true;
}

// Arms the plan for its lifetime.
class Armed {
  public:
    explicit Armed(Plan plan) {
        g_plan = std::move(plan);
        g_plan.bArmed = true;
    }
    ~Armed() { g_plan.bArmed = false; }
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
};

}  // namespace

// The names are the linker's: --wrap=call sends the library's calls of call to __wrap_call,
// and __real_call reaches the C library's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int __real_close(int fd);

// open and openat: the mode argument is there only when the file may be created.
#define QN_WRAP_OPEN(call, parameters, arguments)                         \
    int __real_##call parameters;                                         \
    int __wrap_##call parameters {                                        \
        mode_t mode = 0;                                                  \
        if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) { \
            va_list more;                                                 \
            va_start(more, flags);                                        \
            mode = static_cast<mode_t>(va_arg(more, int));                \
            va_end(more);                                                 \
        }                                                                 \
        return intercept(#call) ? -1 : __real_##call arguments;           \
    }
QN_WRAP_OPEN(open, (const char* path, int flags, ...), (path, flags, mode))
QN_WRAP_OPEN(openat, (int dirFd, const char* path, int flags, ...), (dirFd, path, flags, mode))
#undef QN_WRAP_OPEN
// A call of fixed arguments: failed when the plan says so, else passed to the C library.
#define QN_WRAP(result, call, parameters, arguments)            \
    result __real_##call parameters;                            \
    result __wrap_##call parameters {                           \
        return intercept(#call) ? -1 : __real_##call arguments; \
    }
QN_WRAP(int, fstat, (int fd, struct stat* info), (fd, info))
QN_WRAP(ssize_t, read, (int fd, void* buffer, size_t size), (fd, buffer, size))
QN_WRAP(ssize_t, write, (int fd, const void* buffer, size_t size), (fd, buffer, size))
QN_WRAP(int, fsync, (int fd), (fd))
QN_WRAP(int, fchown, (int fd, uid_t owner, gid_t group), (fd, owner, group))
QN_WRAP(int, fremovexattr, (int fd, const char* name), (fd, name))
QN_WRAP(int, fchmod, (int fd, mode_t mode), (fd, mode))
QN_WRAP(int, linkat, (int fromDir, const char* from, int toDir, const char* to, int flags),
        (fromDir, from, toDir, to, flags))
QN_WRAP(int, renameat, (int fromDir, const char* from, int toDir, const char* to),
        (fromDir, from, toDir, to))
QN_WRAP(int, renameat2, (int fromDir, const char* from, int toDir, const char* to, unsigned flags),
        (fromDir, from, toDir, to, flags))
#undef QN_WRAP
// Linux releases the descriptor even when close fails, and so does the wrapper.
int __wrap_close(int fd) {
    const bool bFail = intercept("close");
    const int savedErrno = errno;
    const int result = __real_close(fd);
    errno = savedErrno;
    return bFail ? -1 : result;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

constexpr char kName[] = "QuillnetLocalPolicy.xml";
const std::string kOld = "old policy\n";
const std::string kNew = "<QuillnetLocalPolicy><FipsMode>1</FipsMode></QuillnetLocalPolicy>\n";

// One step of a write: the call, the step a failure of it is reported as (empty: not
// reported, the write succeeds), the errno it fails with in the field, the status it gives, and
// whether it comes after the new file has a temporary name and before that name is renamed away.
struct Step {
    const char* call;
    const char* step;
    int error;
    STATUSCODE status;
    bool bNamed;
};
constexpr STATUSCODE kWritten = QNCSAXWRITER_SUCCESS;
constexpr STATUSCODE kFailed = QNCSAXWRITER_ERROR_FILE_WRITE;
constexpr STATUSCODE kNotSynced = QNCSAXWRITER_ERROR_NOT_SYNCED;

// The write path replacing a file through an unnamed temporary file.
const std::vector<Step> kReplacing = {
    {"openat", "open of the directory", EACCES, kFailed, false},
    {"openat", "open of the temporary file", EACCES, kFailed, false},
    {"fchown", "fchown", EPERM, kFailed, false},
    {"fremovexattr", "fremovexattr", EIO, kFailed, false},
    {"fchmod", "fchmod", EPERM, kFailed, false},
    {"write", "write", ENOSPC, kFailed, false},
    {"fsync", "fsync", EIO, kFailed, false},
    {"linkat", "link of the temporary file", ENOSPC, kFailed, false},
    {"close", "close", EIO, kFailed, true},
    {"renameat", "rename", EIO, kFailed, true},
    {"fsync", "fsync of the directory", EIO, kNotSynced, false},
    {"close", "", EIO, kWritten, false}};
// A write path: replacing, keeping an existing file, and where the file system refuses
// O_TMPFILE (the plan fails that call with EOPNOTSUPP).
struct WritePath {
    const char* name;
    bool bKeep;
    std::vector<Step> steps;
    std::map<size_t, int> failures;
};
std::vector<WritePath> writePaths() {
    std::vector<Step> keeping = kReplacing;
    keeping[9].call = "renameat2";
    std::vector<Step> withoutTmpfile = kReplacing;
    withoutTmpfile[1] = {"openat", "", 0, kWritten, false};  // EOPNOTSUPP: the fallback takes over
    withoutTmpfile.insert(withoutTmpfile.begin() + 2,
                          {"openat", "open of the temporary file", EACCES, kFailed, false});
    withoutTmpfile.erase(withoutTmpfile.begin() + 8);  // no link: the file is named at creation
    for (size_t i = 3; i < 9; ++i) {
        withoutTmpfile[i].bNamed = true;
    }
    return {{"replacing", false, kReplacing, {}},
            {"keeping", true, keeping, {}},
            {"without O_TMPFILE", false, withoutTmpfile, {{1, EOPNOTSUPP}}}};
}

class FaultInjection : public qntest::PolicyDocumentFixture {
  protected:
    std::string path() const { return m_dir.path() + kName; }
    // Every name in the directory but the policy file.
    std::vector<std::string> strays() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_dir.path())) {
            if (entry.path().filename() != kName) {
                names.push_back(entry.path().filename());
            }
        }
        return names;
    }
    // Stores kNew in dir through the writer, keeping an existing file when bKeep; its status.
    static STATUSCODE write(const std::string& dir, bool bKeep) {
        QNCSaxWriter writer(dir, kName, "QuillnetLocalPolicy");
        writer.keepExistingFile(bKeep);
        return writer.storeDocument(kNew);
    }
};

// Each call of each write path fails in turn: the write leaves the old file or the new one,
// no stray name, and one record naming the step that failed.
TEST_F(FaultInjection, AFailingWriteCallAtAnyStepFailsCleanly) {
    for (const WritePath& writePath : writePaths()) {
        SCOPED_TRACE(writePath.name);
        std::vector<std::string> expectedCalls;
        for (const Step& step : writePath.steps) {
            expectedCalls.emplace_back(step.call);
        }
        m_dir.write(kName, kOld);
        if (writePath.bKeep) {
            std::filesystem::remove(path());
        }
        Plan planned;
        planned.failures = writePath.failures;
        {
            Armed armed(planned);
            write(m_dir.path(), writePath.bKeep);
        }
        ASSERT_EQ(g_plan.calls, expectedCalls);
        for (size_t i = 0; i < writePath.steps.size(); ++i) {
            const Step& step = writePath.steps[i];
            if (writePath.failures.count(i) != 0) {
                continue;
            }
            SCOPED_TRACE(std::to_string(i) + " " + step.call);
            const std::string old = writePath.bKeep ? "" : kOld;
            std::filesystem::remove(path());
            if (!writePath.bKeep) {
                m_dir.write(kName, kOld);
            }
            m_log.clear();
            Plan plan = planned;
            plan.failures[i] = step.error;
            STATUSCODE status = 0;
            {
                Armed armed(plan);
                EXPECT_NO_THROW(status = write(m_dir.path(), writePath.bKeep));
            }
            EXPECT_EQ(status, step.status);
            EXPECT_EQ(qntest::readFile(path()), step.status == kFailed ? old : kNew);
            EXPECT_EQ(strays(), std::vector<std::string>());
            const std::vector<CAppLogRecord> records = m_log.records();
            ASSERT_EQ(records.size(), step.status == kWritten ? 0U : 1U);
            if (step.status != kWritten) {
                EXPECT_NE(
                    records[0].message.find(path() + (step.status == kFailed ? ": " : ", but ") +
                                            step.step + " failed: " + qnsys::errnoText(step.error)),
                    std::string::npos)
                    << records[0].message;
            }
        }
    }
}

// A writer killed at each call of each replacing write path, in a child, leaves the old file or
// the new one whole; a temporary name it strands is removed by the next write.
TEST_F(FaultInjection, AWriterKilledAtAnyCallLeavesNoLastingDamage) {
    for (const WritePath& writePath : writePaths()) {
        if (writePath.bKeep) {
            continue;  // nothing old to damage
        }
        for (size_t i = 0; i < writePath.steps.size(); ++i) {
            SCOPED_TRACE(std::string(writePath.name) + " " + std::to_string(i));
            m_dir.write(kName, kOld);
            const pid_t child = ::fork();
            ASSERT_GE(child, 0);
            if (child == 0) {
                Plan plan;
                plan.failures = writePath.failures;
                plan.killAt = i;
                Armed armed(plan);
                write(m_dir.path(), false);
                ::_exit(0);
            }
            int status = 0;
            ASSERT_EQ(::waitpid(child, &status, 0), child);
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
            const std::string content = qntest::readFile(path());
            EXPECT_TRUE(content == kOld || content == kNew) << content;
            EXPECT_LE(strays().size(), writePath.steps[i].bNamed ? 1U : 0U);
            ASSERT_EQ(write(m_dir.path(), false), kWritten);
            EXPECT_EQ(strays(), std::vector<std::string>());
        }
    }
}

// What a write leaves alone: a temporary name of a writer still running, and other names.
TEST_F(FaultInjection, TheNextWriteRemovesOnlyStraysOfWritersNoLongerRunning) {
    const pid_t gone = ::fork();
    if (gone == 0) {
        ::_exit(0);
    }
    ASSERT_EQ(::waitpid(gone, nullptr, 0), gone);
    const std::string prefix = std::string(".") + kName + ".";
    const std::vector<std::string> kept = {prefix + std::to_string(::getppid()) + ".AbC123",
                                           prefix + std::to_string(gone) + ".AbC12",
                                           prefix + "x" + std::to_string(gone) + ".AbC123",
                                           "other" + std::to_string(gone) + ".AbC123"};
    for (const std::string& name : kept) {
        m_dir.write(name, "x");
    }
    m_dir.write(prefix + std::to_string(gone) + ".AbC123", "x");
    ASSERT_EQ(write(m_dir.path(), false), kWritten);
    EXPECT_THAT(strays(), testing::UnorderedElementsAreArray(kept));
}

// Every step works on the directory opened first: swapping the installation directory (a
// link) during the write neither moves the file nor strands a temporary name elsewhere.
TEST_F(FaultInjection, SwappingTheDirectoryLinkMidWriteCannotRedirectAnyStep) {
    const std::string first = m_dir.path() + "first/";
    const std::string second = m_dir.path() + "second/";
    const std::string link = m_dir.path() + "install";
    std::filesystem::create_directory(first);
    std::filesystem::create_directory(second);
    const auto pointTo = [&link](const std::string& target) {
        std::filesystem::create_directory_symlink(target, link + ".new");
        std::filesystem::rename(link + ".new", link);
    };
    pointTo(first);
    std::ofstream(first + kName) << kOld;
    for (const bool bRenameFails : {true, false}) {
        Plan plan;
        plan.hooks[5] = [&] { pointTo(second); };  // before the link of the temporary file
        if (bRenameFails) {
            plan.failures[7] = EIO;
        }
        {
            Armed armed(plan);
            EXPECT_EQ(write(link + "/", false), bRenameFails ? kFailed : kWritten);
        }
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(first), {}), 1);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(second), {}), 0);
        EXPECT_EQ(qntest::readFile(first + kName) == kOld, bRenameFails);
        pointTo(first);
    }
}

// Generation under a fault of its write. Without overwrite, a file that appears while it writes
// is never replaced: it is reported kept, as if it had been there from the start. A replacement
// whose directory could not be synced is in place, but generation fails with the writer's status.
TEST_F(FaultInjection, GenerationReportsWhatItsWriteLeft) {
    const std::string other = "<QuillnetLocalPolicy/>";  // a policy without FIPS mode
    Plan appears;
    appears.hooks[9] = [&] { m_dir.write(kName, other); };  // before renameat2
    // Then the file that case kept is replaced, but the directory's fsync fails.
    Plan unsynced;
    unsynced.failures[10] = EIO;
    const struct {
        Plan plan;
        bool bOverwrite, bGenerated, bKept;
        size_t records;     // the writer's own first, when it failed
        std::string added;  // generation's record, the last
    } cases[] = {
        {appears, false, true, true, 1,
         qntest::managerRecord("GenerateLocalPolicy", Logging::DBG_Warning,
                               "Local Security Policy file already exists and therefore will "
                               "not be generated")},
        {unsynced, true, false, false, 2,
         qntest::managerRecord("writeLocalPolicy", Logging::DBG_Error, "",
                               "QNCSaxWriter::writeDocument",
                               static_cast<uint32_t>(QNCSAXWRITER_ERROR_NOT_SYNCED))}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bOverwrite);
        m_log.clear();
        {
            Armed armed(c.plan);
            EXPECT_EQ(qntest::generate(*m_mgr, {"fm=true"}, c.bOverwrite), c.bGenerated);
        }
        EXPECT_EQ(qntest::readFile(path()) == other, c.bKept);
        EXPECT_EQ(strays(), std::vector<std::string>());
        const std::vector<std::string> records = logged();
        ASSERT_EQ(records.size(), c.records);
        EXPECT_EQ(records.back(), c.added);
    }
}

// The read path: open, fstat, each read and the fstat that confirms the file did not change fail
// in turn, with one record naming the step; an interrupted read is resumed and a failing close
// changes nothing; a file that grows while it is read is read no further than its size at open
// allows.
TEST_F(FaultInjection, AFailingReadCallFailsTheParseWithOneRecordNamingTheStep) {
    m_dir.write(kName, "<QuillnetLocalPolicy><FipsMode>true</FipsMode></QuillnetLocalPolicy>");
    const auto grow = [this] {
        std::ofstream(path(), std::ios::app) << std::string(size_t{16} << 20, ' ');
    };
    const struct {
        size_t call;
        const char* name;
        int error;  // with 0, the call is preceded by 16 MiB appended to the file instead
        STATUSCODE status;
        const char* record;
    } steps[] = {
        {0, "open", EACCES, XMLPARSER_ERROR_FILE_OPEN, "open failed: Permission denied"},
        {1, "fstat", EIO, XMLPARSER_ERROR_FILE_OPEN, "fstat failed: Input/output error"},
        {2, "read", EIO, XMLPARSER_ERROR_FILE_READ, "read failed: Input/output error"},
        {3, "read", EIO, XMLPARSER_ERROR_FILE_READ, "read failed: Input/output error"},
        {4, "fstat", EIO, XMLPARSER_ERROR_FILE_CHANGED, "fstat failed: Input/output error"},
        {2, "read", EINTR, XMLPARSER_SUCCESS, nullptr},
        {5, "close", EIO, XMLPARSER_SUCCESS, nullptr},
        {2, "read", 0, XMLPARSER_ERROR_FILE_CHANGED, "grew past"}};
    for (const auto& step : steps) {
        SCOPED_TRACE(std::to_string(step.call) + " " + std::to_string(step.error));
        m_log.clear();
        Plan plan;
        if (step.error != 0) {
            plan.failures[step.call] = step.error;
        } else {
            plan.hooks[step.call] = grow;
        }
        STATUSCODE status = 0;
        XmlMgr ignored;
        {
            Armed armed(plan);
            EXPECT_NO_THROW(status = XmlParser(&ignored).parseFile(path(), true));
        }
        EXPECT_EQ(g_plan.calls.at(step.call), step.name);
        EXPECT_EQ(status, step.status);
        const std::vector<CAppLogRecord> records = m_log.records();
        ASSERT_EQ(records.size(), step.record != nullptr ? 1U : 0U);
        if (step.record != nullptr) {
            EXPECT_NE(records[0].message.find(step.record), std::string::npos)
                << records[0].message;
        }
    }
}

}  // namespace

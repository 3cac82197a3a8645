// SPDX-License-Identifier: Apache-2.0
// Records reach the places administrators read: syslog through CAppLog::SyslogSink, and the
// journal through the default sink, each at the priority of the record's importance.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

// One record of each importance, logged through both entry points.
void logOneOfEach() {
    CAppLog::LogReturnCode("LoadLocalQuillnetPolicy", "vpn/Common/Xml/XmlLocalQNPolMgr", 120,
                           Logging::DBG_Error, "XmlParser::parseFile", 0xFEA10004U, nullptr,
                           nullptr);
    CAppLog::LogDebugMessage("f", "w.cpp", 2, Logging::DBG_Warning, "value %s", "\"x\"");
    CAppLog::LogDebugMessage("f", "i.cpp", 3, Logging::DBG_Informational, "FIPS mode is on.");
    CAppLog::LogDebugMessage("f", "t.cpp", 4, Logging::DBG_Trace, "trace");
}

constexpr char kErrorText[] =
    "LoadLocalQuillnetPolicy vpn/Common/Xml/XmlLocalQNPolMgr:120 XmlParser::parseFile returned "
    "0xFEA10004";

// Writes text to fd, ignoring a short write (the parent then sees the difference).
void report(int fd, const std::string& text) {
    const ssize_t ignored = ::write(fd, text.data(), text.size());
    static_cast<void>(ignored);
}

// Enters a private mount namespace (in a user namespace of its own when not root) so that a
// tmpfs can stand in for /dev without touching the machine's.
bool enterPrivateMountNamespace(std::string& failure) {
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    if (::unshare(uid == 0 ? CLONE_NEWNS : (CLONE_NEWNS | CLONE_NEWUSER)) != 0) {
        failure = "unshare: " + std::string(std::strerror(errno));
        return false;
    }
    if (uid != 0) {
        // Maps the caller to root of the new user namespace, so that files it creates have
        // an owner.
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
        std::ofstream("/proc/self/gid_map") << "0 " << gid << " 1";
    }
    // In a chroot whose root is no mount point (a fresh build root), "/" cannot be made
    // private (EINVAL); /dev, a mount of its own there, can, and is all that is mounted over.
    const bool bPrivate =
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 ||
        (errno == EINVAL && ::mount(nullptr, "/dev", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
    if (!bPrivate || ::mount("tmpfs", "/dev", "tmpfs", 0, nullptr) != 0) {
        failure = "mount: " + std::string(std::strerror(errno));
        return false;
    }
    return true;
}

// In a child: binds the syslog socket /dev/log in a private mount namespace, runs produce,
// and writes each datagram received, one a line, to fd. Exits 0 when any arrived.
[[noreturn]] void receiveSyslogRecords(int fd, const std::function<void()>& produce) {
    std::string failure;
    if (!enterPrivateMountNamespace(failure)) {
        report(fd, failure);
        ::_exit(2);
    }
    const int logSocket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    if (logSocket < 0 ||
        ::bind(logSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        report(fd, "bind /dev/log: " + std::string(std::strerror(errno)));
        ::_exit(1);
    }
    produce();
    // syslog(3) has sent each datagram before it returned: they wait in the queue.
    int received = 0;
    char datagram[4096];
    for (ssize_t size; (size = ::recv(logSocket, datagram, sizeof datagram, MSG_DONTWAIT)) > 0;) {
        report(fd, std::string(datagram, static_cast<size_t>(size)) + "\n");
        ++received;
    }
    ::_exit(received > 0 ? 0 : 1);
}

// Runs produce in a child that receives the syslog datagrams it sends; the datagrams, one a
// line, or an empty text when the child could not set up a private /dev/log (skipped).
std::string syslogRecordsOf(const std::function<void()>& produce, bool& bSkipped) {
    bSkipped = false;
    int channel[2];
    if (::pipe2(channel, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "pipe2: " << std::strerror(errno);
        return std::string();
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(channel[0]);
        receiveSyslogRecords(channel[1], produce);
    }
    ::close(channel[1]);
    std::string received;
    char buffer[4096];
    for (ssize_t size; (size = ::read(channel[0], buffer, sizeof buffer)) > 0;) {
        received.append(buffer, static_cast<size_t>(size));
    }
    ::close(channel[0]);
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) {
        ADD_FAILURE() << "fork or waitpid failed";
        return std::string();
    }
    bSkipped = WIFEXITED(status) && WEXITSTATUS(status) == 2;
    EXPECT_TRUE(bSkipped || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << received;
    return received;
}

}  // namespace

// With JOURNAL_STREAM naming standard error's device and inode, each line starts with the
// kernel-style priority; naming another stream, or unset, the lines are plain.
TEST(JournalStream, DefaultSinkPrefixesThePriorityOnlyWhenStandardErrorIsTheJournal) {
    const CAppLogSink previous = CAppLog::SetSink(CAppLogSink());
    const char* const saved = std::getenv("JOURNAL_STREAM");
    const std::string plain = std::string("E ") + kErrorText +
                              "\nW f w.cpp:2 value \"x\"\nI f i.cpp:3 FIPS mode is on.\nT f "
                              "t.cpp:4 trace\n";
    const std::string journal = std::string("<3>E ") + kErrorText +
                                "\n<4>W f w.cpp:2 value \"x\"\n<6>I f i.cpp:3 FIPS mode is "
                                "on.\n<7>T f t.cpp:4 trace\n";
    enum class Stream { THIS_ONE, OTHER_INODE, MALFORMED, UNSET };
    const std::vector<std::pair<Stream, std::string>> cases = {
        {Stream::THIS_ONE, journal},
        {Stream::OTHER_INODE, plain},
        {Stream::MALFORMED, plain},
        {Stream::UNSET, plain},
    };
    for (const auto& [stream, expected] : cases) {
        testing::internal::CaptureStderr();
        struct stat status {};
        ASSERT_EQ(::fstat(STDERR_FILENO, &status), 0);
        const std::string device = std::to_string(status.st_dev) + ":";
        if (stream == Stream::UNSET) {
            ::unsetenv("JOURNAL_STREAM");
        } else {
            const std::string value =
                stream == Stream::THIS_ONE      ? device + std::to_string(status.st_ino)
                : stream == Stream::OTHER_INODE ? device + std::to_string(status.st_ino + 1)
                                                : "journal";
            ::setenv("JOURNAL_STREAM", value.c_str(), 1);
        }
        logOneOfEach();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), expected) << static_cast<int>(stream);
    }
    if (saved != nullptr) {
        ::setenv("JOURNAL_STREAM", saved, 1);
    } else {
        ::unsetenv("JOURNAL_STREAM");
    }
    CAppLog::SetSink(previous);
}

// The syslog sink sends each record to the system logger's socket at its importance's
// priority, under the process's openlog identity and facility, without the importance letter.
TEST(SyslogSink, SendsEachRecordAtThePriorityOfItsImportance) {
    bool bSkipped = false;
    const std::string received = syslogRecordsOf(
        [] {
            ::openlog("qntest", 0, LOG_LOCAL3);
            CAppLog::SetSink(CAppLog::SyslogSink());
            logOneOfEach();
            ::closelog();
        },
        bSkipped);
    if (bSkipped) {
        GTEST_SKIP() << "no private mount namespace here: " << received;
    }

    // "<PRI>Mmm dd hh:mm:ss qntest: TEXT", PRI = LOG_LOCAL3 (19 * 8) + the severity.
    const std::vector<std::pair<int, std::string>> expected = {
        {LOG_LOCAL3 | LOG_ERR, kErrorText},
        {LOG_LOCAL3 | LOG_WARNING, "f w.cpp:2 value \"x\""},
        {LOG_LOCAL3 | LOG_INFO, "f i.cpp:3 FIPS mode is on."},
        {LOG_LOCAL3 | LOG_DEBUG, "f t.cpp:4 trace"},
    };
    std::istringstream lines(received);
    std::string line;
    for (const auto& [priority, text] : expected) {
        ASSERT_TRUE(std::getline(lines, line)) << received;
        EXPECT_EQ(line.substr(0, line.find('>') + 1), "<" + std::to_string(priority) + ">");
        EXPECT_EQ(line.substr(line.find(" qntest: ") + 1), "qntest: " + text) << line;
    }
    EXPECT_FALSE(std::getline(lines, line)) << "one datagram a record: " << received;
}

#ifdef QNPOLICY_BINARY
// `qnpolicy --log syslog` sends the module's records to syslog as qnpolicy, facility user:
// here the parse error of a file that is not well-formed.
TEST(SyslogSink, IsWhereQnpolicyLogSyslogSendsTheModulesRecords) {
    qntest::TempDir dir;
    dir.write("QuillnetLocalPolicy.xml", "<QuillnetLocalPolicy>");
    bool bSkipped = false;
    const std::string received = syslogRecordsOf(
        [&dir] {
            const pid_t tool = ::fork();
            if (tool == 0) {
                ::execl(QNPOLICY_BINARY, QNPOLICY_BINARY, "--log", "syslog", "show",
                        "--install-dir", dir.path().c_str(), static_cast<char*>(nullptr));
                ::_exit(127);
            }
            int status = 0;
            ::waitpid(tool, &status, 0);
        },
        bSkipped);
    if (bSkipped) {
        GTEST_SKIP() << "no private mount namespace here: " << received;
    }
    const std::string priority = "<" + std::to_string(LOG_USER | LOG_ERR) + ">";
    EXPECT_EQ(received.rfind(priority, 0), 0U) << received;
    EXPECT_NE(received.find(" qnpolicy["), std::string::npos) << received;
    EXPECT_NE(received.find("XmlParser::parseFile returned 0x"), std::string::npos) << received;
}
#endif

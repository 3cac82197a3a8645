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
#include <filesystem>
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
namespace {

// Runs the tool with args and waits for it.
void runQnpolicy(const std::vector<std::string>& args) {
    const pid_t tool = ::fork();
    if (tool == 0) {
        std::vector<char*> argv = {const_cast<char*>(QNPOLICY_BINARY)};
        for (const std::string& arg : args) {
            argv.push_back(const_cast<char*>(arg.c_str()));
        }
        argv.push_back(nullptr);
        ::execv(QNPOLICY_BINARY, argv.data());
        ::_exit(127);
    }
    ::waitpid(tool, nullptr, 0);
}

// The SHA-256 of a file as coreutils computes it.
std::string sha256Of(const std::string& path) {
    const qntest::TempDir capture;
    const std::string command = "sha256sum " + path + " >" + capture.path() + "sum";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return qntest::readFile(capture.path() + "sum").substr(0, 64);
}

}  // namespace

// `qnpolicy --log syslog` sends the module's records to syslog as qnpolicy, facility user:
// here the parse error of a file that is not well-formed.
TEST(SyslogSink, IsWhereQnpolicyLogSyslogSendsTheModulesRecords) {
    qntest::TempDir dir;
    dir.write("QuillnetLocalPolicy.xml", "<QuillnetLocalPolicy>");
    bool bSkipped = false;
    const std::string received = syslogRecordsOf(
        [&dir] {
            runQnpolicy({"--log", "syslog", "show", "--install-dir", dir.path()});
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
// Each write sends one authpriv.notice record with the caller, the file, every setting changed
// with its old and new value, and the SHA-256 of the document before and after; a run that
// changes nothing sends none.
TEST(AuditTrail, OneRecordPerWriteWithOldAndNewValuesAndBothHashes) {
    const qntest::TempDir dir;
    const std::string policy = dir.path() + "QuillnetLocalPolicy.xml";
    bool bSkipped = false;
    const std::string received = syslogRecordsOf(
        [&dir, &policy] {
            const std::string install = "--install-dir=" + dir.path();
            runQnpolicy({"generate", install, "sct=false"});
            std::filesystem::copy_file(policy, dir.path() + "1");
            runQnpolicy({"set", install, "sct=true", "upal=gw1;gw2"});
            std::filesystem::copy_file(policy, dir.path() + "2");
            runQnpolicy({"set", install, "sct=true"});  // no change: no record
            ::setenv("SUDO_USER", "ali\nce", 1);
            runQnpolicy({"unset", install, "sct"});
        },
        bSkipped);
    if (bSkipped) {
        GTEST_SKIP() << "no private mount namespace here: " << received;
    }
    const std::string first = sha256Of(dir.path() + "1");
    const std::string second = sha256Of(dir.path() + "2");
    const std::string prefix = "<" + std::to_string(LOG_AUTHPRIV | LOG_NOTICE) + ">";
    const std::vector<std::string> expected = {
        "generate wrote \"" + policy + "\" by uid=0 loginuid=",
        "sha256 before=none after=" + first,
        "0 settings changed",
        "set wrote",
        "sha256 before=" + first + " after=" + second,
        "2 settings changed: StrictCertificateTrust: false (" + policy,
        "AuthorizedServerList: 0 servers (default) -> 2 servers",
        "unset wrote",
        "SUDO_USER=\"ali\\nce\" (claimed)",
        "sha256 before=" + second + " after=",
        "1 setting changed: StrictCertificateTrust: true ("};
    std::istringstream lines(received);
    std::vector<std::string> records;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(line.rfind(prefix, 0), 0U) << line;
        EXPECT_NE(line.find(" qnpolicy["), std::string::npos) << line;
        EXPECT_LT(line.size(), 8192U);
        records.push_back(line);
    }
    ASSERT_EQ(records.size(), 3U) << received;
    size_t record = 0;
    for (const std::string& part : expected) {
        record += part.find(" wrote") != std::string::npos && part.rfind("generate", 0) != 0;
        EXPECT_NE(records[record].find(part), std::string::npos) << part << "\n" << records[record];
    }
}

// Without a system logger the write still happens; the tool warns, and --json says so.
TEST(AuditTrail, AWriteWithoutALoggerWarnsAndStillWrites) {
    const qntest::TempDir dir;
    const pid_t child = ::fork();
    if (child == 0) {
        std::string failure;
        if (!enterPrivateMountNamespace(failure)) {
            ::_exit(2);
        }
        const std::string command = std::string(QNPOLICY_BINARY) + " set sct=true --json " +
                                    "--install-dir " + dir.path() + " >" + dir.path() + "out 2>" +
                                    dir.path() + "err";
        ::_exit(WEXITSTATUS(std::system(command.c_str())));
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    if (WEXITSTATUS(status) == 2) {
        GTEST_SKIP() << "no private mount namespace here";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_NE(qntest::readFile(dir.path() + "err")
                  .find("the audit record of this write was not "
                        "delivered (connect to /dev/log: "),
              std::string::npos);
    EXPECT_NE(qntest::readFile(dir.path() + "out").find("\"audit\": {\n    \"delivered\": false"),
              std::string::npos)
        << qntest::readFile(dir.path() + "out");
    EXPECT_NE(qntest::readFile(dir.path() + "QuillnetLocalPolicy.xml")
                  .find("<StrictCertificateTrust>true<"),
              std::string::npos);
}
#endif

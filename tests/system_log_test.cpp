// SPDX-License-Identifier: Apache-2.0
// Records reach the places administrators read: syslog through CAppLog::SyslogSink, and the
// journal through the default sink, each at the priority of the record's importance.

#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

// One record of each importance, logged through both entry points, with and without a message.
void logOneOfEach() {
    CAppLog::LogReturnCode("LoadLocalQuillnetPolicy", "vpn/Common/Xml/XmlLocalQNPolMgr", 120,
                           Logging::DBG_Error, "XmlParser::parseFile", 0xFEA10004U, nullptr,
                           nullptr);
    CAppLog::LogReturnCode("f", "w.cpp", 2, Logging::DBG_Warning, "Writer::write", 13, "value %s",
                           "not recorded", "\"x\"");
    CAppLog::LogDebugMessage("f", "i.cpp", 3, Logging::DBG_Informational, "FIPS mode is %s.", "on");
    CAppLog::LogDebugMessage("f", "t.cpp", 4, Logging::DBG_Trace, "trace");
}

constexpr char kErrorText[] =
    "LoadLocalQuillnetPolicy vpn/Common/Xml/XmlLocalQNPolMgr:120 XmlParser::parseFile returned "
    "0xFEA10004";
constexpr char kWarningText[] = "f w.cpp:2 Writer::write returned 0x0000000D: value \"x\"";

// Enters a private mount namespace (in a user namespace of its own when not root) so that a
// tmpfs can stand in for /dev without touching the machine's.
bool enterPrivateMountNamespace() {
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    if (::unshare(uid == 0 ? CLONE_NEWNS : (CLONE_NEWNS | CLONE_NEWUSER)) != 0) {
        std::perror("unshare");
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
        std::perror("mount");
        return false;
    }
    return true;
}

// Runs produce in a child that binds the syslog socket /dev/log of a private /dev; the
// datagrams it received, one a line, or nothing when this system cannot give the child a
// private /dev (the test is then skipped).
std::optional<std::string> syslogRecordsOf(const std::function<void()>& produce) {
    const qntest::TempDir scratch;
    const pid_t child = ::fork();
    if (child == 0) {
        if (!enterPrivateMountNamespace()) {
            ::_exit(2);
        }
        const int logSocket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, "/dev/log");
        if (logSocket < 0 ||
            ::bind(logSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            std::perror("bind /dev/log");
            ::_exit(1);
        }
        produce();
        // syslog(3) has sent each datagram before it returned: they wait in the queue.
        std::ofstream received(scratch.path() + "received", std::ios::binary);
        char datagram[4096];
        for (ssize_t size;
             (size = ::recv(logSocket, datagram, sizeof datagram, MSG_DONTWAIT)) > 0;) {
            received << std::string(datagram, static_cast<size_t>(size)) << "\n";
        }
        received.close();
        ::_exit(received ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 2) {
        return std::nullopt;
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return qntest::readFile(scratch.path() + "received");
}

}  // namespace

// The default sink writes each record as one readable line to standard error. With
// JOURNAL_STREAM naming standard error's device and inode, each line starts with the
// kernel-style priority; naming another stream, or unset, the lines are plain.
TEST(JournalStream, DefaultSinkPrefixesThePriorityOnlyWhenStandardErrorIsTheJournal) {
    const CAppLogSink previous = CAppLog::SetSink(CAppLogSink());
    EXPECT_FALSE(CAppLog::SetSink(CAppLogSink())) << "the default sink is handed back empty";
    const char* const saved = std::getenv("JOURNAL_STREAM");
    const std::string plain = std::string("E ") + kErrorText + "\nW " + kWarningText +
                              "\nI f i.cpp:3 FIPS mode is on.\nT f t.cpp:4 trace\n";
    const std::string journal = std::string("<3>E ") + kErrorText + "\n<4>W " + kWarningText +
                                "\n<6>I f i.cpp:3 FIPS mode is on.\n<7>T f t.cpp:4 trace\n";
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

namespace {

// Per datagram: its priority and texts it holds.
using SyslogRecords = std::vector<std::pair<int, std::vector<std::string>>>;

// Expects the datagrams received, one a line, to be exactly these records in order, each sent
// under identity.
void expectRecords(const std::string& received, const std::string& identity,
                   const SyslogRecords& expected) {
    std::istringstream lines(received);
    std::string line;
    for (const auto& [priority, texts] : expected) {
        ASSERT_TRUE(std::getline(lines, line)) << received;
        EXPECT_EQ(line.rfind("<" + std::to_string(priority) + ">", 0), 0U) << line;
        EXPECT_NE(line.find(" " + identity), std::string::npos) << line;
        for (const std::string& text : texts) {
            EXPECT_NE(line.find(text), std::string::npos) << text << "\n" << line;
        }
    }
    EXPECT_FALSE(std::getline(lines, line)) << "one datagram a record: " << received;
}

}  // namespace

// The syslog sink sends each record to the system logger's socket at its importance's
// priority, under the process's openlog identity and facility, without the importance letter.
TEST(SyslogSink, SendsEachRecordAtThePriorityOfItsImportance) {
    const std::optional<std::string> received = syslogRecordsOf([] {
        ::openlog("qntest", 0, LOG_LOCAL3);
        CAppLog::SetSink(CAppLog::SyslogSink());
        logOneOfEach();
        ::closelog();
    });
    if (!received) {
        GTEST_SKIP() << "no private mount namespace here";
    }
    // "<PRI>Mmm dd hh:mm:ss qntest: TEXT", PRI = LOG_LOCAL3 (19 * 8) + the severity.
    expectRecords(*received, "qntest: ",
                  {{LOG_LOCAL3 | LOG_ERR, {std::string("qntest: ") + kErrorText}},
                   {LOG_LOCAL3 | LOG_WARNING, {std::string("qntest: ") + kWarningText}},
                   {LOG_LOCAL3 | LOG_INFO, {"qntest: f i.cpp:3 FIPS mode is on."}},
                   {LOG_LOCAL3 | LOG_DEBUG, {"qntest: f t.cpp:4 trace"}}});
}

#ifdef QNPOLICY_BINARY
namespace {

// Runs the tool through the shell with these arguments (and redirections), and waits for it.
void runQnpolicy(const std::string& arguments) {
    static_cast<void>(std::system((std::string(QNPOLICY_BINARY) + " " + arguments).c_str()));
}

// The SHA-256 of a file as coreutils computes it.
std::string sha256Of(const std::string& path) {
    const qntest::TempDir capture;
    const std::string command = "sha256sum " + path + " >" + capture.path() + "sum";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return qntest::readFile(capture.path() + "sum").substr(0, 64);
}

}  // namespace

// What the tool sends to syslog, as qnpolicy: with `--log syslog`, the module's records at
// facility user (here the parser's and the loader's for a file that is not well-formed); for
// each write, one authpriv.notice record with the caller, the file, every setting changed with
// its old and new value, and the SHA-256 of the document before and after; a run that changes
// nothing sends none.
TEST(AuditTrail, OneRecordPerWriteWithOldAndNewValuesAndBothHashes) {
    const qntest::TempDir dir;
    const std::string policy = dir.path() + "QuillnetLocalPolicy.xml";
    const std::optional<std::string> received = syslogRecordsOf([&] {
        runQnpolicy("--log syslog show " + dir.write("broken.xml", "<QuillnetLocalPolicy>"));
        const std::string install = " --install-dir=" + dir.path() + " ";
        runQnpolicy("generate" + install + "sct=false");
        std::filesystem::copy_file(policy, dir.path() + "1");
        runQnpolicy("set" + install + "sct=true 'upal=gw1;gw2'");
        std::filesystem::copy_file(policy, dir.path() + "2");
        runQnpolicy("set" + install + "sct=true");  // no change: no record
        ::setenv("SUDO_USER", "ali\nce", 1);
        runQnpolicy("unset" + install + "sct");
    });
    if (!received) {
        GTEST_SKIP() << "no private mount namespace here";
    }
    const std::string first = sha256Of(dir.path() + "1");
    const std::string second = sha256Of(dir.path() + "2");
    constexpr int kAudit = LOG_AUTHPRIV | LOG_NOTICE;
    expectRecords(
        *received, "qnpolicy[",
        {{LOG_USER | LOG_ERR, {"parseFile vpn/Common/Xml/XmlParser:"}},
         {LOG_USER | LOG_ERR, {"XmlParser::parseFile returned 0x"}},
         {kAudit,
          {"generate wrote \"" + policy + "\" by uid=0 loginuid=",
           "sha256 before=none after=" + first, "0 settings changed"}},
         {kAudit,
          {"set wrote", "sha256 before=" + first + " after=" + second,
           "2 settings changed: StrictCertificateTrust: false (" + policy,
           "AuthorizedServerList: 0 servers (default) -> 2 servers"}},
         {kAudit,
          {"unset wrote", "SUDO_USER=\"ali\\nce\" (claimed)", "sha256 before=" + second + " after=",
           "1 setting changed: StrictCertificateTrust: true ("}}});
}

// Without a system logger the write still happens; the tool warns, and --json says so.
TEST(AuditTrail, AWriteWithoutALoggerWarnsAndStillWrites) {
    const qntest::TempDir dir;
    const std::optional<std::string> received = syslogRecordsOf([&dir] {
        ::unlink("/dev/log");  // no logger listens
        const std::string& d = dir.path();
        runQnpolicy("set sct=true --json --install-dir " + d + " >" + d + "out 2>" + d +
                    "err; echo $? >" + d + "status");
    });
    if (!received) {
        GTEST_SKIP() << "no private mount namespace here";
    }
    EXPECT_EQ(qntest::readFile(dir.path() + "status"), "0\n");
    EXPECT_NE(qntest::readFile(dir.path() + "err")
                  .find("the audit record of this write was not delivered (connect to /dev/log: "),
              std::string::npos);
    EXPECT_NE(qntest::readFile(dir.path() + "out").find("\"audit\": {\n    \"delivered\": false"),
              std::string::npos)
        << qntest::readFile(dir.path() + "out");
    EXPECT_NE(qntest::readFile(dir.path() + "QuillnetLocalPolicy.xml")
                  .find("<StrictCertificateTrust>true<"),
              std::string::npos);
}
#endif

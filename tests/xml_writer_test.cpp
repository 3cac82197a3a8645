// SPDX-License-Identifier: Apache-2.0
// The XML document writer: its textual form, escaping, refusal of what XML cannot carry,
// call-order checks, and storing that keeps the old file or stores the new one.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "PolicyModel.h"
#include "QNCSaxWriter.h"
#include "TestSupport.h"

namespace {

using namespace std::literals;

constexpr char kName[] = "doc.xml";
const std::string kOld = "old\0policy\r\n"s;

// Makes the writer calls given as texts joined by '|', "S" startDocument (with the root
// attributes), "<n" startElement, ">n" endElement, "=t" characters, "E" endDocument, on a
// writer of dir + kName; returns what writeDocument then returns.
STATUSCODE run(const std::string& dir, const std::string& root, const std::string& calls,
               TStrPairList attributes = {}) {
    QNCSaxWriter writer(dir, kName, root);
    for (const std::string& call : qntest::pieces(calls, "|")) {
        (void)(call[0] == 'S'   ? writer.startDocument(&attributes)
               : call[0] == '<' ? writer.startElement(call.substr(1), nullptr)
               : call[0] == '>' ? writer.endElement(call.substr(1))
               : call[0] == '=' ? writer.characters(call.substr(1))
                                : writer.endDocument());
    }
    return writer.writeDocument();
}

class XmlWriter : public ::testing::Test {
  protected:
    std::string path() const { return m_dir.path() + kName; }
    // Writes over an old file; a refused document must leave it byte for byte, no temporary
    // file, and one error record naming the file.
    STATUSCODE overOldFile(const std::string& calls, TStrPairList attributes = {},
                           const std::string& root = "r") {
        m_dir.write(kName, kOld);
        m_log.clear();
        const STATUSCODE status = run(m_dir.path(), root, calls, std::move(attributes));
        if (status != QNCSAXWRITER_SUCCESS) {
            EXPECT_EQ(qntest::readFile(path()), kOld);
            EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_dir.path()), {}), 1);
            const std::vector<CAppLogRecord> records = m_log.records();
            EXPECT_TRUE(records.size() == 1 && records[0].message.find(path()) != std::string::npos)
                << records.size() << " records";
        }
        return status;
    }

    qntest::TempDir m_dir;
    qntest::LogCapture m_log;
};

// The whole form: declaration, attribute order, indentation, empty-element tags, text that
// comes in pieces, the escapes of text and of attribute values, and names of every kind.
TEST_F(XmlWriter, ReplacesTheFileWithTheIndentedEscapedDocumentInMode0644WhateverTheUmask) {
    const std::string hard = "&amp;<>\"'\t\n\r]]>";
    const mode_t previous = ::umask(077);
    EXPECT_EQ(overOldFile("S|<ns:a-b.c9|=" + hard +
                              "|>ns:a-b.c9|<_S|<x\xC2\xB7y|=a \xC3\xA9|"
                              "=\xF0\x9F\x98\x80|>x\xC2\xB7y|<\xC3\xA9t\xF0\x90\x80\x80|=|"
                              ">\xC3\xA9t\xF0\x90\x80\x80|>_S|E",
                          {{"xmlns", "urn:x"}, {"v", hard}, {"\xC3\xA9", ""}}, "Root"),
              QNCSAXWRITER_SUCCESS);
    ::umask(previous);
    EXPECT_EQ(qntest::readFile(path()),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<Root xmlns=\"urn:x\" v=\"&amp;amp;&lt;>&quot;'&#9;&#10;&#13;]]>\" \xC3\xA9=\"\">\n"
              "    <ns:a-b.c9>&amp;amp;&lt;&gt;\"'\t\n&#13;]]&gt;</ns:a-b.c9>\n"
              "    <_S>\n"
              "        <x\xC2\xB7y>a \xC3\xA9\xF0\x9F\x98\x80</x\xC2\xB7y>\n"
              "        <\xC3\xA9t\xF0\x90\x80\x80/>\n"
              "    </_S>\n"
              "</Root>\n");
    struct stat info {};
    ASSERT_EQ(::stat(path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644U);
}

// One member per distinct rule of the name and character checks and of the UTF-8 decoder
// (every other character is accepted, see the round-trip suite), then calls out of order.
TEST_F(XmlWriter, RefusesAMalformedDocumentWithTheStatusOfItsFirstFault) {
    for (const std::string& name :
         {""s, "1abc"s, "a b"s, "a&b"s, "\xC2\xB7x"s, "x\xC0\xAE"s, "x\xEF\xBF\xBE"s, "x\0y"s}) {
        SCOPED_TRACE(testing::PrintToString(name));
        EXPECT_EQ(overOldFile("S|<" + name + "|E"), QNCSAXWRITER_ERROR_INVALID_NAME);
        EXPECT_EQ(overOldFile("S|E", {{name, "v"}}), QNCSAXWRITER_ERROR_INVALID_NAME);
    }
    // Controls, overlong forms, a surrogate, U+FFFE, beyond U+10FFFF, broken sequences.
    for (const std::string& text :
         {"a\0b"s, "\xC0\x80"s, "\xE0\x9F\xBF"s, "\xF0\x8F\xBF\xBF"s, "\xED\xA0\x80"s,
          "\xEF\xBF\xBE"s, "\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "ok\xC3"s, "\xE2\x82z"s}) {
        SCOPED_TRACE(testing::PrintToString(text));
        EXPECT_EQ(overOldFile("S|<e|=" + text + "|>e|E"), QNCSAXWRITER_ERROR_INVALID_TEXT);
        EXPECT_EQ(overOldFile("S|E", {{"a", text}}), QNCSAXWRITER_ERROR_INVALID_TEXT);
    }
    for (const char* calls : {"=x|S|E", "<e|S|E", "S|S|E", "S|>r|E", "S|<a|E", "S", "E",
                              "S|<a|>a|=mixed|E", "S|<a|=text|<b|>b|>a|E"}) {
        EXPECT_EQ(overOldFile(calls), QNCSAXWRITER_ERROR_CALL_ORDER) << calls;
    }
    EXPECT_EQ(overOldFile("S|<a|>b|>a|E"), QNCSAXWRITER_ERROR_MISMATCHED_END);
    EXPECT_EQ(overOldFile("S|<bad name|=\x01|>other|E"), QNCSAXWRITER_ERROR_INVALID_NAME);
    EXPECT_EQ(overOldFile("S|E", {{"a", "1"}, {"b", "2"}, {"a", "3"}}),
              QNCSAXWRITER_ERROR_DUPLICATE_ATTRIBUTE);
}

// A default ACL that lets nobody (65534) write every file made in the directory, in the
// kernel's form: version 2, then tag, permissions and id of user::rwx, user:65534:rw-,
// group::r-x, mask::rwx and other::r-x.
const std::string kDefaultAclGrantingNobodyWrite =
    "\x02\0\0\0"
    "\x01\0\x07\0\xFF\xFF\xFF\xFF\x02\0\x06\0\xFE\xFF\0\0\x04\0\x05\0\xFF\xFF\xFF\xFF"
    "\x10\0\x07\0\xFF\xFF\xFF\xFF\x20\0\x05\0\xFF\xFF\xFF\xFF"s;

// Whatever the directory hands down (a setgid directory of another group, a default ACL that
// lets others write), the stored file is root's, 0644, without an access ACL, and a new inode:
// a descriptor opened on the old file no longer changes what the path holds. Stored through a
// descriptor of the directory, the file lands in that directory even after its path moved.
TEST_F(XmlWriter, StoresANewRootOwnedFileWithoutWhatTheDirectoryHandsDown) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to give directories away";
    }
    const std::string& acl = kDefaultAclGrantingNobodyWrite;
    const std::vector<std::pair<const char*, std::function<bool(const std::string&)>>> cases = {
        {"plain", [](const std::string&) { return true; }},
        {"setgid",
         [](const std::string& dir) {
             return ::chown(dir.c_str(), 0, qntest::kNobody) == 0 &&
                    ::chmod(dir.c_str(), 02755) == 0;
         }},
        {"default ACL",
         [&acl](const std::string& dir) {
             return ::setxattr(dir.c_str(), "system.posix_acl_default", acl.data(), acl.size(),
                               0) == 0;
         }},
    };
    for (const auto& [name, prepare] : cases) {
        SCOPED_TRACE(name);
        const std::string dir = m_dir.path() + name + "/";
        ASSERT_EQ(::mkdir(dir.c_str(), 0755), 0);
        ASSERT_TRUE(prepare(dir));
        ASSERT_EQ(run(dir, "r", "S|<a|=old|>a|E"), QNCSAXWRITER_SUCCESS);
        const int oldFd = ::open((dir + kName).c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(oldFd, 0);
        ASSERT_EQ(run(dir, "r", "S|<a|=new|>a|E"), QNCSAXWRITER_SUCCESS);
        ASSERT_EQ(::pwrite(oldFd, "<r><a>bad</a></r>\n", 18, 0), 18);
        ::close(oldFd);
        EXPECT_NE(qntest::readFile(dir + kName).find("<a>new</a>"), std::string::npos);
        struct stat info {};
        ASSERT_EQ(::stat((dir + kName).c_str(), &info), 0);
        EXPECT_EQ(std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid) + " " +
                      std::to_string(info.st_mode & 07777) + " " + std::to_string(info.st_nlink),
                  "0:0 420 1");
        EXPECT_LT(::getxattr((dir + kName).c_str(), "system.posix_acl_access", nullptr, 0), 0);
    }
    const std::string moved = m_dir.path() + "moved/";
    const int dirFd = ::open((m_dir.path() + "plain").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::rename((m_dir.path() + "plain").c_str(), moved.c_str()), 0);
    QNCSaxWriter through(m_dir.path() + "plain/", kName, "r");
    through.storeThroughDirectory(dirFd);
    EXPECT_EQ(through.storeDocument("<r>through</r>\n"), QNCSAXWRITER_SUCCESS);
    ::close(dirFd);
    EXPECT_EQ(qntest::readFile(moved + kName), "<r>through</r>\n");
}

// Storing is all or nothing: a failure keeps the old file and logs one record. (A failure and
// a kill at each call of the write: fault_injection_test; a write cut short by the file-size
// limit: qnpolicy_cli_test.)
TEST_F(XmlWriter, StoringIsAllOrNothing) {
    const std::string missing = m_dir.path() + "missing/";
    EXPECT_EQ(run(missing, "r", "S|E"), QNCSAXWRITER_ERROR_FILE_WRITE);
    ASSERT_EQ(m_log.records().size(), 1U);
    EXPECT_NE(m_log.records()[0].message.find(missing + kName +
                                              ": open of the directory failed: No such file "
                                              "or directory"),
              std::string::npos);
    EXPECT_EQ(run("", "r", "S|E"), QNCSAXWRITER_ERROR_BAD_PARAMETER);
    // Asked to keep an existing file, the writer keeps it, silently: its caller reports it.
    m_dir.write(kName, kOld);
    m_log.clear();
    QNCSaxWriter keeping(m_dir.path(), kName, "r");
    keeping.keepExistingFile(true);
    keeping.startDocument(nullptr);
    keeping.endDocument();
    EXPECT_EQ(keeping.writeDocument(), QNCSAXWRITER_ERROR_FILE_EXISTS);
    EXPECT_EQ(qntest::readFile(path()), kOld);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_dir.path()), {}), 1);
    EXPECT_TRUE(m_log.records().empty());
    EXPECT_FALSE(std::filesystem::exists(kName)) << "written to the working directory";
}

}  // namespace

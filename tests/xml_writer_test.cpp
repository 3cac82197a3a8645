// The XML document writer: its textual form, escaping, refusal of what XML cannot carry,
// call-order checks, and crash-safe storing.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "QNCSaxWriter.h"
#include "TestSupport.h"
#include "XmlParser.h"

namespace {

constexpr char kFileName[] = "doc.xml";
constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

std::vector<std::string> directoryEntries(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

std::vector<CAppLogRecord> errorRecords(const qntest::LogCapture& log) {
    std::vector<CAppLogRecord> errors;
    for (const CAppLogRecord& record : log.records()) {
        if (record.importance == Logging::DBG_Error) {
            errors.push_back(record);
        }
    }
    return errors;
}

// Writes a root "r" holding one leaf "e" with text and returns writeDocument's status.
STATUSCODE writeLeaf(const std::string& dir, const std::string& text) {
    QNCSaxWriter writer(dir, kFileName, "r");
    writer.startDocument(nullptr);
    writer.startElement("e", nullptr);
    writer.characters(text);
    writer.endElement("e");
    writer.endDocument();
    return writer.writeDocument();
}

// A document with many server names; index tells two such documents apart.
std::string writeServerList(const std::string& dir, int index, int servers) {
    QNCSaxWriter writer(dir, kFileName, "r");
    TStrPairList attributes{{"generation", std::to_string(index)}};
    writer.startDocument(&attributes);
    writer.startElement("AuthorizedServerList", nullptr);
    for (int i = 0; i < servers; ++i) {
        writer.startElement("ServerName", nullptr);
        writer.characters("gateway-" + std::to_string(index) + "-" + std::to_string(i));
        writer.endElement("ServerName");
    }
    writer.endElement("AuthorizedServerList");
    writer.endDocument();
    return writer.writeDocument() == QNCSAXWRITER_SUCCESS ? "ok" : "failed";
}

class XmlWriterTest : public ::testing::Test {
  protected:
    std::string path() const { return m_dir.path() + kFileName; }
    bool fileExists() const { return ::access(path().c_str(), F_OK) == 0; }

    qntest::TempDir m_dir;
    qntest::LogCapture m_log;
};

TEST_F(XmlWriterTest, WritesOneElementPerLineWithFourSpaceIndentAndLeafTextInline) {
    QNCSaxWriter writer(m_dir.path(), kFileName, "Root");
    TStrPairList rootAttributes{{"xmlns", "urn:x"}, {"version", "1.2"}};
    ASSERT_EQ(writer.startDocument(&rootAttributes), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.startElement("Leaf", nullptr), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.characters("value"), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.endElement("Leaf"), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.startElement("Section", nullptr), QNCSAXWRITER_SUCCESS);
    TStrPairList itemAttributes{{"id", "7"}};
    ASSERT_EQ(writer.startElement("Item", &itemAttributes), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.characters("a"), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.characters("b"), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.endElement("Item"), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.startElement("Empty", nullptr), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.characters(""), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.endElement("Empty"), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.endElement("Section"), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.endDocument(), QNCSAXWRITER_SUCCESS);
    ASSERT_EQ(writer.writeDocument(), QNCSAXWRITER_SUCCESS);

    EXPECT_EQ(qntest::readFile(path()), std::string(kDeclaration) +
                                            "<Root xmlns=\"urn:x\" version=\"1.2\">\n"
                                            "    <Leaf>value</Leaf>\n"
                                            "    <Section>\n"
                                            "        <Item id=\"7\">ab</Item>\n"
                                            "        <Empty/>\n"
                                            "    </Section>\n"
                                            "</Root>\n");
    EXPECT_TRUE(m_log.records().empty());
}

TEST_F(XmlWriterTest, RootWithoutChildrenIsAnEmptyElementTag) {
    QNCSaxWriter writer(m_dir.path(), kFileName, "Root");
    writer.startDocument(nullptr);
    writer.endDocument();
    ASSERT_EQ(writer.writeDocument(), QNCSAXWRITER_SUCCESS);
    EXPECT_EQ(qntest::readFile(path()), std::string(kDeclaration) + "<Root/>\n");
}

struct EscapeCase {
    std::string given;
    std::string written;
};

TEST_F(XmlWriterTest, EscapesMarkupAndCarriageReturnInText) {
    const std::vector<EscapeCase> cases = {
        {"plain text", "plain text"},
        {"a&b", "a&amp;b"},
        {"<tag>", "&lt;tag&gt;"},
        {"]]>", "]]&gt;"},
        {"one\r\ntwo\nthree\r", "one&#13;\ntwo\nthree&#13;"},
        {"\"quoted\" 'single'\ttab", "\"quoted\" 'single'\ttab"},
        {"  spaced  ", "  spaced  "},
        {"&amp;", "&amp;amp;"},
        {"caf\xC3\xA9 \xE4\xB8\xAD \xF0\x9F\x98\x80", "caf\xC3\xA9 \xE4\xB8\xAD \xF0\x9F\x98\x80"},
    };
    for (const EscapeCase& c : cases) {
        SCOPED_TRACE(c.given);
        ASSERT_EQ(writeLeaf(m_dir.path(), c.given), QNCSAXWRITER_SUCCESS);
        EXPECT_EQ(qntest::readFile(path()),
                  std::string(kDeclaration) + "<r>\n    <e>" + c.written + "</e>\n</r>\n");
    }
}

TEST_F(XmlWriterTest, EscapesQuoteAmpersandLessThanAndWhiteSpaceInAttributeValues) {
    const std::vector<EscapeCase> cases = {
        {"plain", "plain"},
        {"a&b<c>d", "a&amp;b&lt;c>d"},
        {"say \"hi\" 'there'", "say &quot;hi&quot; 'there'"},
        {"tab\tlf\ncr\r", "tab&#9;lf&#10;cr&#13;"},
        {"", ""},
    };
    for (const EscapeCase& c : cases) {
        SCOPED_TRACE(c.given);
        QNCSaxWriter writer(m_dir.path(), kFileName, "r");
        TStrPairList attributes{{"a", c.given}};
        writer.startDocument(&attributes);
        writer.endDocument();
        ASSERT_EQ(writer.writeDocument(), QNCSAXWRITER_SUCCESS);
        EXPECT_EQ(qntest::readFile(path()),
                  std::string(kDeclaration) + "<r a=\"" + c.written + "\"/>\n");
    }
}

// Where a name is used: as the root's, an element's, or an attribute's name.
enum class NameUse { Root, Element, Attribute };

STATUSCODE writeWithName(const std::string& dir, NameUse use, const std::string& name) {
    QNCSaxWriter writer(dir, kFileName, use == NameUse::Root ? name : "r");
    TStrPairList attributes{{use == NameUse::Attribute ? name : "a", "v"}};
    writer.startDocument(&attributes);
    writer.startElement(use == NameUse::Element ? name : "e", nullptr);
    writer.endElement(use == NameUse::Element ? name : "e");
    writer.endDocument();
    return writer.writeDocument();
}

TEST_F(XmlWriterTest, AcceptsXmlNames) {
    const std::vector<std::string> names = {
        "a",
        "_x",
        "ns:local",
        "a-b.c9",
        "x\xC2\xB7y",
        "\xC3\xA9t\xC3\xA9",
        "\xE4\xB8\xAD",
        "\xF0\x90\x80\x80",
    };
    for (NameUse use : {NameUse::Root, NameUse::Element, NameUse::Attribute}) {
        for (const std::string& name : names) {
            SCOPED_TRACE(name);
            EXPECT_EQ(writeWithName(m_dir.path(), use, name), QNCSAXWRITER_SUCCESS);
        }
    }
    EXPECT_TRUE(errorRecords(m_log).empty());
}

TEST_F(XmlWriterTest, RefusesWhatIsNotAnXmlNameAndWritesNothing) {
    const std::vector<std::string> names = {
        "",
        "1abc",
        "-x",
        ".x",
        "a b",
        "a>b",
        "a&b",
        "a\"b",
        "a=b",
        "x\xC3",
        "\x80x",
        "x\xC0\xAE",
        "\xC2\xB7x",
        "x\xEF\xBF\xBE",
        "x\xED\xA0\x80",
        std::string("x\0y", 3),
    };
    for (NameUse use : {NameUse::Root, NameUse::Element, NameUse::Attribute}) {
        for (const std::string& name : names) {
            SCOPED_TRACE(name);
            m_log.clear();
            EXPECT_EQ(writeWithName(m_dir.path(), use, name), QNCSAXWRITER_ERROR_INVALID_NAME);
            EXPECT_FALSE(fileExists());
            EXPECT_EQ(errorRecords(m_log).size(), 1u);
        }
    }
}

TEST_F(XmlWriterTest, AcceptsEveryXmlCharacterClassAsStrictUtf8) {
    const std::vector<std::string> texts = {
        "\t\n\r",           "\x7F",
        "\xC2\x80",          // U+0080
        "\xED\x9F\xBF",      // U+D7FF, last before the surrogates
        "\xEE\x80\x80",      // U+E000, first after them
        "\xEF\xBF\xBD",      // U+FFFD
        "\xF0\x90\x80\x80",  // U+10000
        "\xF4\x8F\xBF\xBF",  // U+10FFFF
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(testing::PrintToString(text));
        EXPECT_EQ(writeLeaf(m_dir.path(), text), QNCSAXWRITER_SUCCESS);
    }
}

TEST_F(XmlWriterTest, RefusesTextThatXmlCannotCarryInContentAndAttributes) {
    const std::vector<std::string> texts = {
        std::string("a\0b", 3),  // NUL
        "\x01",
        "\x0B",
        "\x1F",
        "\xC0\x80",          // overlong NUL
        "\xC1\xBF",          // overlong
        "\xE0\x80\xAF",      // overlong '/'
        "\xE0\x9F\xBF",      // overlong
        "\xF0\x80\x80\xAF",  // overlong
        "\xF0\x8F\xBF\xBF",  // overlong
        "\xED\xA0\x80",      // surrogate U+D800
        "\xED\xBF\xBF",      // surrogate U+DFFF
        "\xEF\xBF\xBE",      // U+FFFE
        "\xEF\xBF\xBF",      // U+FFFF
        "\xF4\x90\x80\x80",  // above U+10FFFF
        "\xF5\x80\x80\x80",
        "\xF8\x88\x80\x80\x80",  // five-byte form
        "\x80",                  // stray continuation byte
        "ok\xC3",                // truncated at the end
        "\xE2\x82z",             // truncated in the middle
        "\xFF",
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(testing::PrintToString(text));
        m_log.clear();
        EXPECT_EQ(writeLeaf(m_dir.path(), text), QNCSAXWRITER_ERROR_INVALID_TEXT);
        EXPECT_FALSE(fileExists());

        QNCSaxWriter writer(m_dir.path(), kFileName, "r");
        TStrPairList attributes{{"a", text}};
        EXPECT_EQ(writer.startDocument(&attributes), QNCSAXWRITER_ERROR_INVALID_TEXT);
        writer.endDocument();
        EXPECT_EQ(writer.writeDocument(), QNCSAXWRITER_ERROR_INVALID_TEXT);
        EXPECT_FALSE(fileExists());
        EXPECT_EQ(errorRecords(m_log).size(), 2u);  // one per document
    }
}

struct OrderCase {
    const char* name;
    std::function<void(QNCSaxWriter&)> calls;
    STATUSCODE expected;
};

TEST_F(XmlWriterTest, RefusesCallsOutOfDocumentOrderAndMismatchedEnds) {
    const std::vector<OrderCase> cases = {
        {"text before the document", [](QNCSaxWriter& w) { w.characters("x"); },
         QNCSAXWRITER_ERROR_CALL_ORDER},
        {"element before the document", [](QNCSaxWriter& w) { w.startElement("e", nullptr); },
         QNCSAXWRITER_ERROR_CALL_ORDER},
        {"document started twice",
         [](QNCSaxWriter& w) {
             w.startDocument(nullptr);
             w.startDocument(nullptr);
         },
         QNCSAXWRITER_ERROR_CALL_ORDER},
        {"mismatched end",
         [](QNCSaxWriter& w) {
             w.startDocument(nullptr);
             w.startElement("a", nullptr);
             w.endElement("b");
         },
         QNCSAXWRITER_ERROR_MISMATCHED_END},
        {"root closed by endElement",
         [](QNCSaxWriter& w) {
             w.startDocument(nullptr);
             w.endElement("r");
         },
         QNCSAXWRITER_ERROR_CALL_ORDER},
        {"document ended with an open element",
         [](QNCSaxWriter& w) {
             w.startDocument(nullptr);
             w.startElement("a", nullptr);
             w.endDocument();
         },
         QNCSAXWRITER_ERROR_CALL_ORDER},
        {"document never ended", [](QNCSaxWriter& w) { w.startDocument(nullptr); },
         QNCSAXWRITER_ERROR_CALL_ORDER},
        {"document ended without being started", [](QNCSaxWriter& w) { w.endDocument(); },
         QNCSAXWRITER_ERROR_CALL_ORDER},
        {"element after the end",
         [](QNCSaxWriter& w) {
             w.startDocument(nullptr);
             w.endDocument();
             w.startElement("late", nullptr);
         },
         QNCSAXWRITER_ERROR_CALL_ORDER},
        {"text after child elements",
         [](QNCSaxWriter& w) {
             w.startDocument(nullptr);
             w.startElement("a", nullptr);
             w.endElement("a");
             w.characters("mixed");
         },
         QNCSAXWRITER_ERROR_CALL_ORDER},
        {"child element after text",
         [](QNCSaxWriter& w) {
             w.startDocument(nullptr);
             w.startElement("a", nullptr);
             w.characters("text");
             w.startElement("b", nullptr);
         },
         QNCSAXWRITER_ERROR_CALL_ORDER},
        {"attribute given twice",
         [](QNCSaxWriter& w) {
             TStrPairList attributes{{"a", "1"}, {"b", "2"}, {"a", "3"}};
             w.startDocument(&attributes);
         },
         QNCSAXWRITER_ERROR_DUPLICATE_ATTRIBUTE},
    };
    for (const OrderCase& c : cases) {
        SCOPED_TRACE(c.name);
        m_log.clear();
        QNCSaxWriter writer(m_dir.path(), kFileName, "r");
        c.calls(writer);
        EXPECT_EQ(writer.writeDocument(), c.expected);
        EXPECT_FALSE(fileExists());
        EXPECT_EQ(errorRecords(m_log).size(), 1u);
    }
}

TEST_F(XmlWriterTest, KeepsTheFirstFailureAndLogsItOnce) {
    QNCSaxWriter writer(m_dir.path(), kFileName, "r");
    writer.startDocument(nullptr);
    EXPECT_EQ(writer.startElement("bad name", nullptr), QNCSAXWRITER_ERROR_INVALID_NAME);
    EXPECT_EQ(writer.characters("\x01"), QNCSAXWRITER_ERROR_INVALID_NAME);
    EXPECT_EQ(writer.endElement("other"), QNCSAXWRITER_ERROR_INVALID_NAME);
    EXPECT_EQ(writer.endDocument(), QNCSAXWRITER_ERROR_INVALID_NAME);
    EXPECT_EQ(writer.writeDocument(), QNCSAXWRITER_ERROR_INVALID_NAME);
    const std::vector<CAppLogRecord> errors = errorRecords(m_log);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].message.find(path()), std::string::npos) << errors[0].message;
    EXPECT_NE(errors[0].message.find("bad name"), std::string::npos) << errors[0].message;
}

TEST_F(XmlWriterTest, CreatesTheFileWithMode0644WhateverTheUmask) {
    const mode_t previous = ::umask(077);
    const STATUSCODE status = writeLeaf(m_dir.path(), "x");
    ::umask(previous);
    ASSERT_EQ(status, QNCSAXWRITER_SUCCESS);
    struct stat info {};
    ASSERT_EQ(::stat(path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644u);
    EXPECT_TRUE(S_ISREG(info.st_mode));
}

TEST_F(XmlWriterTest, OverwritesAnExistingFileAndLeavesNoTemporaryFile) {
    m_dir.write(kFileName, "old content");
    ASSERT_EQ(writeLeaf(m_dir.path(), "new"), QNCSAXWRITER_SUCCESS);
    EXPECT_EQ(qntest::readFile(path()), std::string(kDeclaration) + "<r>\n    <e>new</e>\n</r>\n");
    EXPECT_EQ(directoryEntries(m_dir.path()), std::vector<std::string>{kFileName});
}

TEST_F(XmlWriterTest, InvalidDocumentLeavesTheOldFileByteForByte) {
    const std::string old = std::string("old\0bytes\r\n", 11);
    m_dir.write(kFileName, old);
    EXPECT_EQ(writeLeaf(m_dir.path(), "\xEF\xBF\xBF"), QNCSAXWRITER_ERROR_INVALID_TEXT);
    EXPECT_EQ(qntest::readFile(path()), old);
    EXPECT_EQ(directoryEntries(m_dir.path()), std::vector<std::string>{kFileName});
}

TEST_F(XmlWriterTest, FailedRenameOverADirectoryRemovesTheTemporaryFile) {
    std::filesystem::create_directory(path());
    m_dir.write(std::string(kFileName) + "/keep", "inside");
    EXPECT_EQ(writeLeaf(m_dir.path(), "x"), QNCSAXWRITER_ERROR_FILE_WRITE);
    EXPECT_EQ(directoryEntries(m_dir.path()), std::vector<std::string>{kFileName});
    EXPECT_EQ(qntest::readFile(path() + "/keep"), "inside");
    const std::vector<CAppLogRecord> errors = errorRecords(m_log);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].message.find("rename"), std::string::npos) << errors[0].message;
}

TEST_F(XmlWriterTest, WriteErrorPartWayLeavesTheOldFileByteForByte) {
    const std::string old = "the old policy\n";
    m_dir.write(kFileName, old);
    // In a child process, so that the file-size limit does not outlive the test: the
    // temporary file hits the limit part-way through the document and write fails (EFBIG).
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit {};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = 1000;
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const std::string result = writeServerList(m_dir.path(), 1, 200);
        ::_exit(result == "failed" ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the write past the limit was not reported";
    EXPECT_EQ(qntest::readFile(path()), old);
    EXPECT_EQ(directoryEntries(m_dir.path()), std::vector<std::string>{kFileName});
}

TEST_F(XmlWriterTest, MissingDirectoryFailsWithOneRecordNamingPathAndCause) {
    const std::string missing = m_dir.path() + "missing/";
    QNCSaxWriter writer(missing, kFileName, "r");
    writer.startDocument(nullptr);
    writer.endDocument();
    EXPECT_EQ(writer.writeDocument(), QNCSAXWRITER_ERROR_FILE_WRITE);
    const std::vector<CAppLogRecord> errors = errorRecords(m_log);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].message.find(missing + kFileName), std::string::npos);
    EXPECT_NE(errors[0].message.find("No such file or directory"), std::string::npos)
        << errors[0].message;
    EXPECT_FALSE(std::filesystem::exists(missing));

    // A storing failure is not kept: once the directory exists the same writer succeeds.
    std::filesystem::create_directory(missing);
    EXPECT_EQ(writer.writeDocument(), QNCSAXWRITER_SUCCESS);
    EXPECT_EQ(qntest::readFile(missing + kFileName), std::string(kDeclaration) + "<r/>\n");
}

TEST_F(XmlWriterTest, EmptyDirectoryIsRefusedInsteadOfWritingToTheWorkingDirectory) {
    const std::string fileName = "qn-writer-empty-dir-" + std::to_string(::getpid()) + ".xml";
    QNCSaxWriter writer("", fileName, "r");
    writer.startDocument(nullptr);
    writer.endDocument();
    EXPECT_EQ(writer.writeDocument(), QNCSAXWRITER_ERROR_BAD_PARAMETER);
    EXPECT_FALSE(std::filesystem::exists(fileName));
    EXPECT_EQ(errorRecords(m_log).size(), 1u);
}

// A child process rewrites the file over and over, alternating two documents, and is killed
// at random moments. After every kill the file must be exactly one of the two documents.
TEST_F(XmlWriterTest, KilledWriterNeverLeavesAPartialFile) {
    constexpr int kServers = 3000;
    ASSERT_EQ(writeServerList(m_dir.path(), 0, kServers), "ok");
    const std::string documentA = qntest::readFile(path());
    const auto writeStart = std::chrono::steady_clock::now();
    ASSERT_EQ(writeServerList(m_dir.path(), 1, kServers), "ok");
    const auto writeMicros = std::chrono::duration_cast<std::chrono::microseconds>(
                                 std::chrono::steady_clock::now() - writeStart)
                                 .count();
    const std::string documentB = qntest::readFile(path());
    ASSERT_NE(documentA, documentB);

    // Kills land anywhere from the child's start to about three of its writes, so that some
    // hit a write in progress and some come after completed ones, however fast the disk is.
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<long> delayMicros(
        0, std::max(2000L, 3 * static_cast<long>(writeMicros)));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    int kills = 0;
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    ::fcntl(pipeFds[0], F_SETFL, O_NONBLOCK);
    long completedWrites = 0;
    while (std::chrono::steady_clock::now() < deadline && kills < 200) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(pipeFds[0]);
            for (int i = 0;; ++i) {
                if (writeServerList(m_dir.path(), i % 2, kServers) == "ok") {
                    const char done = 'w';
                    (void)!::write(pipeFds[1], &done, 1);
                }
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(delayMicros(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ++kills;
        char buffer[256];
        ssize_t got = 0;
        while ((got = ::read(pipeFds[0], buffer, sizeof(buffer))) > 0) {
            completedWrites += got;
        }

        const std::string content = qntest::readFile(path());
        ASSERT_TRUE(content == documentA || content == documentB)
            << "partial or foreign content after kill " << kills << ", " << content.size()
            << " bytes";
        XmlMgr ignoreEvents;
        ASSERT_EQ(XmlParser(&ignoreEvents).parseFile(path(), true), XMLPARSER_SUCCESS);
        // A kill between creating and renaming the temporary file may leave it behind, and
        // only it: a hidden sibling of the target.
        for (const std::string& name : directoryEntries(m_dir.path())) {
            if (name != kFileName) {
                EXPECT_EQ(name.rfind(std::string(".") + kFileName + ".", 0), 0u) << name;
                std::filesystem::remove(m_dir.path() + name);
            }
        }
    }
    ::close(pipeFds[0]);
    ::close(pipeFds[1]);
    RecordProperty("kills", kills);
    RecordProperty("completed_writes", static_cast<int>(completedWrites));
    EXPECT_GE(kills, 3);
    EXPECT_GT(completedWrites, 0) << "the child never completed a write";
}

}  // namespace

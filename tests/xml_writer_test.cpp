// The XML document writer: its textual form, escaping, refusal of what XML cannot carry,
// call-order checks, and crash-safe storing.

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "QNCSaxWriter.h"
#include "TestSupport.h"

namespace {

using namespace std::literals;
using Calls = std::vector<std::string>;
namespace fs = std::filesystem;

constexpr char kName[] = "doc.xml";
constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

// Makes writer calls given as texts, "S" startDocument (with the root attributes), "<n"
// startElement, ">n" endElement, "=t" characters, "E" endDocument, on a writer of
// dir + kName; returns what writeDocument then returns.
STATUSCODE run(const std::string& dir, const std::string& root, const Calls& calls,
               TStrPairList attributes = {}) {
    QNCSaxWriter writer(dir, kName, root);
    for (const std::string& call : calls) {
        const std::string arg = call.substr(1);
        (void)(call[0] == 'S'   ? writer.startDocument(&attributes)
               : call[0] == '<' ? writer.startElement(arg, nullptr)
               : call[0] == '>' ? writer.endElement(arg)
               : call[0] == '=' ? writer.characters(arg)
                                : writer.endDocument());
    }
    return writer.writeDocument();
}

// A document of many server names; generation tells two such documents apart.
Calls serverList(int generation, int servers) {
    Calls calls = {"S"};
    for (int i = 0; i < servers; ++i) {
        calls.insert(calls.end(), {"<n", "=gw-" + std::to_string(generation * i), ">n"});
    }
    calls.emplace_back("E");
    return calls;
}

class XmlWriter : public ::testing::Test {
  protected:
    static Calls leaf(const std::string& text) { return {"S", "<e", "=" + text, ">e", "E"}; }
    std::string path() const { return m_dir.path() + kName; }
    long entries() const {
        return std::distance(fs::directory_iterator(m_dir.path()), fs::directory_iterator());
    }
    // Writes over an old file; a refused document must leave it byte for byte, no temporary
    // file, and one error record naming the file.
    STATUSCODE overOldFile(const std::string& root, const Calls& calls, TStrPairList attributes) {
        m_dir.write(kName, "old\0policy\r\n"s);
        m_log.clear();
        const STATUSCODE status = run(m_dir.path(), root, calls, std::move(attributes));
        if (status != QNCSAXWRITER_SUCCESS) {
            EXPECT_EQ(qntest::readFile(path()), "old\0policy\r\n"s);
            EXPECT_EQ(entries(), 1);
            EXPECT_EQ(m_log.records().size(), 1U);
            for (const CAppLogRecord& record : m_log.records()) {
                EXPECT_NE(record.message.find(path()), std::string::npos) << record.message;
            }
        }
        return status;
    }

    qntest::TempDir m_dir;
    qntest::LogCapture m_log;
};

TEST_F(XmlWriter, ReplacesTheFileWithIndentedElementsAndMode0644WhateverTheUmask) {
    const mode_t previous = ::umask(077);
    EXPECT_EQ(overOldFile("Root",
                          {"S", "<Leaf", "=value", ">Leaf", "<Section", "<Item", "=a", "=b",
                           ">Item", "<Empty", "=", ">Empty", ">Section", "E"},
                          {{"xmlns", "urn:x"}, {"version", "1.2"}}),
              QNCSAXWRITER_SUCCESS);
    ::umask(previous);
    EXPECT_EQ(qntest::readFile(path()), kDeclaration +
                                            "<Root xmlns=\"urn:x\" version=\"1.2\">\n"
                                            "    <Leaf>value</Leaf>\n"
                                            "    <Section>\n"
                                            "        <Item>ab</Item>\n"
                                            "        <Empty/>\n"
                                            "    </Section>\n"
                                            "</Root>\n"s);
    EXPECT_EQ(entries(), 1);
    EXPECT_TRUE(m_log.records().empty());
    struct stat info {};
    ASSERT_EQ(::stat(path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644U);
}

// Each text as leaf text and as an attribute value: given, written as text, as attribute.
TEST_F(XmlWriter, EscapesTextAndAttributeValues) {
    const std::string cases[][3] = {{"a&b<c>d", "a&amp;b&lt;c&gt;d", "a&amp;b&lt;c>d"},
                                    {"]]>&amp;", "]]&gt;&amp;amp;", "]]>&amp;amp;"},
                                    {"\"q\" 's'", "\"q\" 's'", "&quot;q&quot; 's'"},
                                    {"\tx\ny\r\n", "\tx\ny&#13;\n", "&#9;x&#10;y&#13;&#10;"},
                                    {" \xC3\xA9 \xF0\x9F\x98\x80 ", " \xC3\xA9 \xF0\x9F\x98\x80 ",
                                     " \xC3\xA9 \xF0\x9F\x98\x80 "},
                                    {"", "", ""}};
    for (const auto& [given, text, attribute] : cases) {
        SCOPED_TRACE(given);
        ASSERT_EQ(run(m_dir.path(), "r", leaf(given), {{"a", given}}), QNCSAXWRITER_SUCCESS);
        EXPECT_EQ(qntest::readFile(path()), kDeclaration + "<r a=\""s + attribute + "\">\n    <e" +
                                                (text.empty() ? "/>" : ">" + text + "</e>") +
                                                "\n</r>\n");
    }
}

TEST_F(XmlWriter, RefusesWhatIsNotAnXmlNameOrNotStrictUtf8OfXmlCharactersWritingNothing) {
    const std::pair<std::vector<std::string>, STATUSCODE> names[] = {
        {{"_x", "ns:a-b.c9", "x\xC2\xB7y", "\xC3\xA9t\xF0\x90\x80\x80"}, QNCSAXWRITER_SUCCESS},
        {{"", "1abc", "-x", ".x", "a b", "a>b", "a&b", "a\"b", "a=b", "x\xC3", "\x80x", "x\xC0\xAE",
          "\xC2\xB7x", "x\xEF\xBF\xBE", "x\xED\xA0\x80", "x\0y"s},
         QNCSAXWRITER_ERROR_INVALID_NAME}};
    for (const auto& [list, status] : names) {
        for (const std::string& name : list) {
            SCOPED_TRACE(testing::PrintToString(name));
            EXPECT_EQ(overOldFile(name, {"S", "E"}, {}), status);
            EXPECT_EQ(overOldFile("r", {"S", "<" + name, ">" + name, "E"}, {}), status);
            EXPECT_EQ(overOldFile("r", {"S", "E"}, {{name, "v"}}), status);
        }
    }
    // Every other character is accepted (see the round-trip suite).
    const std::vector<std::string> badTexts[] = {
        {"a\0b"s, "\x01", "\x0B", "\x1F"},  // controls
        {"\xC0\x80", "\xC1\xBF", "\xE0\x80\xAF", "\xE0\x9F\xBF", "\xF0\x80\x80\xAF",
         "\xF0\x8F\xBF\xBF"},                                              // overlong
        {"\xED\xA0\x80", "\xED\xBF\xBF", "\xEF\xBF\xBE", "\xEF\xBF\xBF"},  // surrogates, U+FFFE/F
        {"\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80"},  // beyond U+10FFFF
        {"\x80", "ok\xC3", "\xE2\x82z", "\xFF"}};                          // broken sequences
    for (const std::vector<std::string>& group : badTexts) {
        for (const std::string& text : group) {
            SCOPED_TRACE(testing::PrintToString(text));
            EXPECT_EQ(overOldFile("r", leaf(text), {}), QNCSAXWRITER_ERROR_INVALID_TEXT);
            EXPECT_EQ(overOldFile("r", {"S", "E"}, {{"a", text}}), QNCSAXWRITER_ERROR_INVALID_TEXT);
        }
    }
}

TEST_F(XmlWriter, RefusesCallsOutOfDocumentOrderKeepingTheFirstFailure) {
    const std::pair<Calls, STATUSCODE> cases[] = {
        {{"=x", "S", "E"}, QNCSAXWRITER_ERROR_CALL_ORDER},
        {{"<e", "S", "E"}, QNCSAXWRITER_ERROR_CALL_ORDER},
        {{"S", "S", "E"}, QNCSAXWRITER_ERROR_CALL_ORDER},
        {{"S", "<a", ">b", ">a", "E"}, QNCSAXWRITER_ERROR_MISMATCHED_END},
        {{"S", ">r", "E"}, QNCSAXWRITER_ERROR_CALL_ORDER},
        {{"S", "<a", "E"}, QNCSAXWRITER_ERROR_CALL_ORDER},
        {{"S"}, QNCSAXWRITER_ERROR_CALL_ORDER},
        {{"E"}, QNCSAXWRITER_ERROR_CALL_ORDER},
        {{"S", "E", "<late"}, QNCSAXWRITER_ERROR_CALL_ORDER},
        {{"S", "<a", ">a", "=mixed", "E"}, QNCSAXWRITER_ERROR_CALL_ORDER},
        {{"S", "<a", "=text", "<b", ">b", ">a", "E"}, QNCSAXWRITER_ERROR_CALL_ORDER},
        {{"S", "<bad name", "=\x01", ">other", "E"}, QNCSAXWRITER_ERROR_INVALID_NAME}};
    for (const auto& [calls, status] : cases) {
        SCOPED_TRACE(testing::PrintToString(calls));
        EXPECT_EQ(overOldFile("r", calls, {}), status);
    }
    EXPECT_EQ(overOldFile("r", {"S", "E"}, {{"a", "1"}, {"b", "2"}, {"a", "3"}}),
              QNCSAXWRITER_ERROR_DUPLICATE_ATTRIBUTE);
}

TEST_F(XmlWriter, StoringFailureKeepsTheOldFileAndLogsOneRecord) {
    const std::string missing = m_dir.path() + "missing/";
    QNCSaxWriter writer(missing, kName, "r");
    writer.startDocument(nullptr);
    writer.endDocument();
    EXPECT_EQ(writer.writeDocument(), QNCSAXWRITER_ERROR_FILE_WRITE);
    ASSERT_EQ(m_log.records().size(), 1U);
    const std::string message = m_log.records()[0].message;
    EXPECT_NE(message.find(missing + kName), std::string::npos) << message;
    EXPECT_NE(message.find("No such file or directory"), std::string::npos) << message;
    EXPECT_FALSE(fs::exists(missing));
    fs::create_directory(missing);  // a storing failure is not kept: the writer may try again
    EXPECT_EQ(writer.writeDocument(), QNCSAXWRITER_SUCCESS);
    EXPECT_EQ(run("", "r", {"S", "E"}), QNCSAXWRITER_ERROR_BAD_PARAMETER);
    EXPECT_FALSE(fs::exists(kName)) << "written to the working directory";

    // A write error part-way (the file-size limit, in a child so that the limit does not
    // outlive the test) must not replace the old file.
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ::_exit(overOldFile("r", serverList(1, 200), {}) == QNCSAXWRITER_ERROR_FILE_WRITE ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    EXPECT_EQ(qntest::readFile(path()), "old\0policy\r\n"s);
    EXPECT_EQ(entries(), 2);  // the file and the directory made above
}

// A child rewrites the file over and over, alternating two documents, and is killed at
// moments spread over about three of its writes, so that some kills hit a write in progress
// and some come after completed ones: the file is always exactly one of the two documents.
TEST_F(XmlWriter, KilledWriterNeverLeavesAPartialFile) {
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(run(m_dir.path(), "r", serverList(1, 3000)), QNCSAXWRITER_SUCCESS);
    const auto writeTime = std::chrono::steady_clock::now() - start;
    const std::string documentA = qntest::readFile(path());
    ASSERT_EQ(run(m_dir.path(), "r", serverList(0, 3000)), QNCSAXWRITER_SUCCESS);
    const std::string documentB = qntest::readFile(path());
    const long spread = std::max(2000L, 3L * static_cast<long>(writeTime / 1us));
    int kills = 0;
    bool bSawA = false;  // the file holds B at first: finding A proves a completed write
    while (std::chrono::steady_clock::now() - start < std::chrono::seconds(2)) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (int i = 1;; ++i) {
                run(m_dir.path(), "r", serverList(i % 2, 3000));
            }
        }
        ::usleep(static_cast<useconds_t>(kills * 7919L % spread));
        ::kill(child, SIGKILL);
        ASSERT_EQ(::waitpid(child, nullptr, 0), child);
        ++kills;
        const std::string content = qntest::readFile(path());
        ASSERT_TRUE(content == documentA || content == documentB)
            << "partial content after kill " << kills << ", " << content.size() << " bytes";
        bSawA = bSawA || content == documentA;
        // A kill between creating and renaming may leave the temporary file, a hidden sibling.
        for (const auto& entry : fs::directory_iterator(m_dir.path())) {
            const std::string name = entry.path().filename().string();
            if (name != kName) {
                EXPECT_EQ(name.rfind("."s + kName + ".", 0), 0U) << name;
                fs::remove(entry.path());
            }
        }
    }
    EXPECT_GE(kills, 3);
    EXPECT_TRUE(bSawA) << "the child never completed a write";
}

}  // namespace

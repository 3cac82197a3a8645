// XmlParser: the events it delivers, what it refuses, and how it reports failures. Hostile
// documents of great size or depth are in hostile_input_test.cpp, through the loader.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "XmlParser.h"

namespace {

// Records every event as one line: "<name", "@name=value", "=text", ">name".
class RecordingMgr : public XmlMgr {
  public:
    void addElement(const std::string& name) override { events.push_back("<" + name); }
    void endElement(const std::string& name) override { events.push_back(">" + name); }
    void setElementValue(const std::string& value) override { events.push_back("=" + value); }
    void addAttribute(const std::string& name, const std::string& value) override {
        events.push_back("@" + name + "=" + value);
    }
    std::vector<std::string> events;
};

using Events = std::vector<std::string>;

// Parses text from a file (through parseFile) and from memory (through parseBuffer), expects
// both to agree, and returns the status and the events.
struct ParseResult {
    STATUSCODE status;
    Events events;
};

ParseResult parseBoth(const std::string& xml, bool bSecure = true) {
    qntest::TempDir dir;
    const std::string path = dir.write("doc.xml", xml);
    RecordingMgr fromFile;
    const STATUSCODE fileStatus = XmlParser(&fromFile).parseFile(path, bSecure);
    RecordingMgr fromBuffer;
    const STATUSCODE bufferStatus =
        XmlParser(&fromBuffer).parseBuffer(xml.data(), xml.size(), bSecure);
    EXPECT_EQ(fileStatus, bufferStatus);
    EXPECT_EQ(fromFile.events, fromBuffer.events);
    return {fileStatus, fromFile.events};
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(XmlParserEvents, DeliversStartAttributesTextAndEndInDocumentOrder) {
    const ParseResult r = parseBoth(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<QuillnetLocalPolicy xmlns:xsi=\"urn:x\" qnversion=\"5.1.8.105\">\n"
        "    <FipsMode>true</FipsMode>\n"
        "    <UpdatePolicy>\n"
        "        <AuthorizedServerList>\n"
        "            <ServerName>gw1</ServerName>\n"
        "        </AuthorizedServerList>\n"
        "    </UpdatePolicy>\n"
        "</QuillnetLocalPolicy>\n");
    EXPECT_EQ(r.status, XMLPARSER_SUCCESS);
    EXPECT_EQ(r.events, (Events{"<QuillnetLocalPolicy", "@xmlns:xsi=urn:x", "@qnversion=5.1.8.105",
                                "<FipsMode", "=true", ">FipsMode", "<UpdatePolicy",
                                "<AuthorizedServerList", "<ServerName", "=gw1", ">ServerName",
                                ">AuthorizedServerList", ">UpdatePolicy", ">QuillnetLocalPolicy"}));
}

TEST(XmlParserEvents, LeafTextArrivesWholeAndExactlyAsWritten) {
    struct Case {
        const char* xml;
        const char* text;
    };
    const Case cases[] = {
        {"<a>x &amp; &lt;&gt;&quot;&apos;&#65;&#x42;</a>", "x & <>\"'AB"},
        {"<a>1<!-- comment -->2<?pi data?>3</a>", "123"},
        {"<a>[<![CDATA[<b>&amp;</b>]]>]</a>", "[<b>&amp;</b>]"},
        {"<a>  true \t</a>", "  true \t"},
        {"<a>line1\r\nline2</a>", "line1\nline2"},
        {"<a>caf\xC3\xA9 \xE2\x82\xAC</a>", "caf\xC3\xA9 \xE2\x82\xAC"},
    };
    for (const Case& c : cases) {
        const ParseResult r = parseBoth(c.xml);
        EXPECT_EQ(r.status, XMLPARSER_SUCCESS) << c.xml;
        EXPECT_EQ(r.events, (Events{"<a", std::string("=") + c.text, ">a"})) << c.xml;
    }
}

TEST(XmlParserEvents, ElementsWithoutTextOrWithChildrenDeliverNoText) {
    EXPECT_EQ(parseBoth("<r><a/><b></b><c><!-- only a comment --></c></r>").events,
              (Events{"<r", "<a", ">a", "<b", ">b", "<c", ">c", ">r"}));
    EXPECT_EQ(parseBoth("<p>before<c>x</c>between<d/>after</p>").events,
              (Events{"<p", "<c", "=x", ">c", "<d", ">d", ">p"}));
}

TEST(XmlParserEvents, NamesAndAttributeValuesAreHandedOverUnchanged) {
    const ParseResult r = parseBoth(
        "<x:Root xmlns:x=\"urn:a\" a=\"1 &amp; &#x32;\" B='q\"'><x:Leaf>v</x:Leaf></x:Root>");
    EXPECT_EQ(r.status, XMLPARSER_SUCCESS);
    EXPECT_EQ(r.events, (Events{"<x:Root", "@xmlns:x=urn:a", "@a=1 & 2", "@B=q\"", "<x:Leaf", "=v",
                                ">x:Leaf", ">x:Root"}));
}

TEST(XmlParserEvents, TextLongerThanAnInputPieceArrivesInOneCall) {
    // Several MiB so the file is streamed in pieces, with references across piece boundaries.
    std::string text;
    while (text.size() < (size_t{3} << 20)) {
        text += "server-" + std::to_string(text.size()) + " & <more> ";
    }
    std::string escaped;
    for (const char ch : text) {
        escaped += ch == '&'   ? "&amp;"
                   : ch == '<' ? "&lt;"
                   : ch == '>' ? "&#62;"
                               : std::string(1, ch);
    }
    const ParseResult r = parseBoth("<r><a>" + escaped + "</a></r>");
    EXPECT_EQ(r.status, XMLPARSER_SUCCESS);
    ASSERT_EQ(r.events.size(), 5U);
    EXPECT_TRUE(r.events[2] == "=" + text) << "text was split or altered";
}

// Reports the position the parser gives for each event.
class PositionMgr : public XmlMgr {
  public:
    XmlParser* pParser = nullptr;
    std::vector<std::string> positions;
    void addElement(const std::string& name) override { note("<" + name); }
    void setElementValue(const std::string& value) override { note("=" + value); }
    void endElement(const std::string& name) override { note(">" + name); }

  private:
    void note(const std::string& event) {
        positions.push_back(event + "@" + std::to_string(pParser->CurrentLine()) + ":" +
                            std::to_string(pParser->CurrentColumn()));
    }
};

TEST(XmlParserEvents, CurrentPositionIsOneBasedDuringCallbacksAndZeroOutside) {
    PositionMgr mgr;
    XmlParser parser(&mgr);
    mgr.pParser = &parser;
    EXPECT_EQ(parser.CurrentLine(), 0U);
    const std::string xml = "<r>\n  <a>t</a>\n</r>";
    ASSERT_EQ(parser.parseBuffer(xml.data(), xml.size(), true), XMLPARSER_SUCCESS);
    EXPECT_EQ(mgr.positions, (Events{"<r@1:1", "<a@2:3", "=t@2:7", ">a@2:7", ">r@3:1"}));
    EXPECT_EQ(parser.CurrentLine(), 0U);
    EXPECT_EQ(parser.CurrentColumn(), 0U);
}

class ThrowingMgr : public XmlMgr {
  public:
    void addElement(const std::string& name) override {
        if (name == "b") {
            throw std::runtime_error("handler failure");
        }
        ++elements;
    }
    int elements = 0;
};

TEST(XmlParserEvents, HandlerExceptionStopsTheParseAndPassesOn) {
    ThrowingMgr mgr;
    XmlParser parser(&mgr);
    const std::string xml = "<r><a/><b/><c/></r>";
    qntest::LogCapture log;
    EXPECT_THROW(parser.parseBuffer(xml.data(), xml.size(), true), std::runtime_error);
    EXPECT_EQ(mgr.elements, 2);  // r and a; nothing after b
    EXPECT_EQ(parser.CurrentLine(), 0U);
    EXPECT_EQ(log.records().size(), 1U);
    // The parser stays usable.
    EXPECT_EQ(parser.parseBuffer("<r/>", 4, true), XMLPARSER_SUCCESS);
}

TEST(XmlParserEvents, NullHandlerIsRefused) {
    qntest::LogCapture log;
    XmlParser parser(nullptr);
    EXPECT_EQ(parser.parseFile("/nonexistent", true), XMLPARSER_ERROR_NULL_POINTER);
    EXPECT_EQ(parser.parseBuffer("<r/>", 4, true), XMLPARSER_ERROR_NULL_POINTER);
    EXPECT_EQ(log.records().size(), 2U);
}

// Each bad document: the status, the events delivered before the failure, and the position
// named in the single log record.
TEST(XmlParserFailures, BadDocumentsFailWithOneLogRecordNamingFileLineColumnAndReason) {
    struct Case {
        const char* name;
        std::string xml;
        bool bSecure;
        STATUSCODE status;
        Events events;
        const char* where;  // "line L, column C" in the message
    };
    const Case cases[] = {
        {"truncated",
         "<r>\n<a>true</a>\n<b>tr",
         true,
         XMLPARSER_ERROR_NOT_WELL_FORMED,
         {"<r", "<a", "=true", ">a", "<b"},
         "line 3, column 6"},
        {"mismatched",
         "<r>\n <a></b></r>",
         true,
         XMLPARSER_ERROR_NOT_WELL_FORMED,
         {"<r", "<a"},
         "line 2, column 7"},
        {"empty", "", true, XMLPARSER_ERROR_NOT_WELL_FORMED, {}, "line 1, column 1"},
        {"two roots",
         "<a/><b/>",
         true,
         XMLPARSER_ERROR_NOT_WELL_FORMED,
         {"<a", ">a"},
         "line 1, column 5"},
        {"bad utf-8",
         "<a>\xC0\xAF</a>",
         true,
         XMLPARSER_ERROR_NOT_WELL_FORMED,
         {"<a"},
         "line 1, column 4"},
        {"doctype refused",
         "<?xml version=\"1.0\"?>\n<!DOCTYPE r [<!ENTITY e \"x\">]><r>&e;</r>",
         true,
         XMLPARSER_ERROR_DOCTYPE_REFUSED,
         {},
         "line 2, column 1"},
        {"external entity",
         "<!DOCTYPE r [<!ENTITY e SYSTEM \"/etc/hostname\">]><r>&e;</r>",
         false,
         XMLPARSER_ERROR_ENTITY_REFUSED,
         {"<r"},
         "line 1, column 53"},
        {"entity from unread external DTD",
         "<!DOCTYPE r SYSTEM \"/nonexistent.dtd\">\n<r>&e;</r>",
         false,
         XMLPARSER_ERROR_ENTITY_REFUSED,
         {"<r"},
         "line 2, column 4"},
        {"undeclared entity",
         "<r>&e;</r>",
         true,
         XMLPARSER_ERROR_NOT_WELL_FORMED,
         {"<r"},
         "line 1, column 4"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qntest::TempDir dir;
        const std::string path = dir.write("doc.xml", c.xml);
        RecordingMgr mgr;
        qntest::LogCapture log;
        EXPECT_EQ(XmlParser(&mgr).parseFile(path, c.bSecure), c.status);
        EXPECT_EQ(mgr.events, c.events);
        const std::vector<CAppLogRecord> records = log.records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].function, "parseFile");
        EXPECT_EQ(records[0].importance, Logging::DBG_Error);
        EXPECT_NE(records[0].message.find(path), std::string::npos) << records[0].message;
        EXPECT_NE(records[0].message.find(c.where), std::string::npos) << records[0].message;
    }
}

TEST(XmlParserFailures, ParseBufferLogsUnderItsOwnNameAndTheGivenDocumentName) {
    RecordingMgr mgr;
    qntest::LogCapture log;
    const std::string xml = "<r>";
    EXPECT_EQ(XmlParser(&mgr).parseBuffer(xml.data(), xml.size(), true, "memory-doc"),
              XMLPARSER_ERROR_NOT_WELL_FORMED);
    const std::vector<CAppLogRecord> records = log.records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].function, "parseBuffer");
    EXPECT_NE(records[0].message.find("memory-doc"), std::string::npos);
    EXPECT_NE(records[0].message.find("no element found"), std::string::npos);
}

TEST(XmlParserFailures, TolerantParseExpandsInternalEntitiesButNotExternalSubsets) {
    const ParseResult r = parseBoth(
        "<!DOCTYPE r SYSTEM \"/nonexistent.dtd\" [<!ENTITY e \"a&amp;b\">]><r x=\"&e;\">&e;</r>",
        false);
    EXPECT_EQ(r.status, XMLPARSER_SUCCESS);
    EXPECT_EQ(r.events, (Events{"<r", "@x=a&b", "=a&b", ">r"}));
}

TEST(XmlParserFailures, EntityBombIsRefusedQuicklyInBothModes) {
    std::string bomb = "<!DOCTYPE lolz [<!ENTITY l0 \"lollollollollollollollollollol\">";
    for (int i = 1; i <= 9; ++i) {
        bomb += "<!ENTITY l" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j) {
            bomb += "&l" + std::to_string(i - 1) + ";";
        }
        bomb += "\">";
    }
    bomb += "]><lolz>&l9;</lolz>";
    const auto start = std::chrono::steady_clock::now();
    qntest::LogCapture log;
    EXPECT_EQ(parseBoth(bomb, true).status, XMLPARSER_ERROR_DOCTYPE_REFUSED);
    const ParseResult tolerant = parseBoth(bomb, false);
    EXPECT_EQ(tolerant.status, XMLPARSER_ERROR_ENTITY_REFUSED);
    EXPECT_EQ(tolerant.events, (Events{"<lolz"}));
    EXPECT_LT(secondsSince(start), 10.0);
}

TEST(XmlParserFailures, PathsThatAreNotRegularFilesAreRefusedWithoutReading) {
    qntest::TempDir dir;
    const std::string fifo = dir.path() + "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string zeroLink = dir.path() + "zero.xml";
    ASSERT_EQ(::symlink("/dev/zero", zeroLink.c_str()), 0);
    const std::string dangling = dir.path() + "dangling.xml";
    ASSERT_EQ(::symlink("/nonexistent/target.xml", dangling.c_str()), 0);
    const std::string paths[] = {
        dir.path(), dir.path() + "missing.xml", "/dev/null", "/dev/zero", zeroLink, fifo, dangling};
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        RecordingMgr mgr;
        qntest::LogCapture log;
        EXPECT_EQ(XmlParser(&mgr).parseFile(path, true), XMLPARSER_ERROR_FILE_OPEN);
        EXPECT_TRUE(mgr.events.empty());
        const std::vector<CAppLogRecord> records = log.records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].function, "parseFile");
        EXPECT_EQ(records[0].importance, Logging::DBG_Error);
        EXPECT_NE(records[0].message.find(path), std::string::npos) << records[0].message;
    }
}

TEST(XmlParserFailures, LinkToARegularFileIsFollowed) {
    qntest::TempDir dir;
    const std::string target = dir.write("target.xml", "<r>v</r>");
    const std::string link = dir.path() + "link.xml";
    ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
    RecordingMgr mgr;
    EXPECT_EQ(XmlParser(&mgr).parseFile(link, true), XMLPARSER_SUCCESS);
    EXPECT_EQ(mgr.events, (Events{"<r", "=v", ">r"}));
}

TEST(XmlParserFailures, UnreadableFileIsRefused) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "permissions do not restrict root";
    }
    qntest::TempDir dir;
    const std::string path = dir.write("doc.xml", "<r/>");
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    RecordingMgr mgr;
    qntest::LogCapture log;
    EXPECT_EQ(XmlParser(&mgr).parseFile(path, true), XMLPARSER_ERROR_FILE_OPEN);
    EXPECT_EQ(log.records().size(), 1U);
}

}  // namespace

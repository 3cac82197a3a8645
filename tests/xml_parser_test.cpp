// XmlParser: the events it delivers, what it refuses, and how it reports failures.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <tuple>

#include "TestSupport.h"
#include "XmlParser.h"

namespace {

using namespace std::literals;

constexpr STATUSCODE kMalformed = XMLPARSER_ERROR_NOT_WELL_FORMED;
constexpr STATUSCODE kDoctype = XMLPARSER_ERROR_DOCTYPE_REFUSED;
constexpr STATUSCODE kEntity = XMLPARSER_ERROR_ENTITY_REFUSED;

// Records the events as "<name|@name=value|=text|>name|".
class RecordingMgr : public XmlMgr {
  public:
    void addElement(const std::string& name) override { events += "<" + name + "|"; }
    void endElement(const std::string& name) override { events += ">" + name + "|"; }
    void setElementValue(const std::string& value) override { events += "=" + value + "|"; }
    void addAttribute(const std::string& name, const std::string& value) override {
        events += "@" + name + "=" + value + "|";
    }
    std::string events;
};

// Parses the file and expects the status, the events, and, for a failure, one error record
// naming the file and the text where ("line L, column C").
void expectParse(const std::string& path, bool bSecure, STATUSCODE status,
                 const std::string& events, const std::string& where = "") {
    RecordingMgr mgr;
    qntest::LogCapture log;
    EXPECT_EQ(XmlParser(&mgr).parseFile(path, bSecure), status);
    EXPECT_TRUE(mgr.events == events) << mgr.events.substr(0, 200);
    const std::vector<CAppLogRecord> records = log.records();
    ASSERT_EQ(records.size(), status == XMLPARSER_SUCCESS ? 0U : 1U);
    for (const CAppLogRecord& record : records) {
        EXPECT_EQ(record.function, "parseFile");
        EXPECT_EQ(record.importance, Logging::DBG_Error);
        EXPECT_NE(record.message.find("\"" + path + "\""), std::string::npos) << record.message;
        EXPECT_NE(record.message.find(where), std::string::npos) << record.message;
    }
}

TEST(XmlParser, DeliversEventsInDocumentOrderWithEachLeafTextWholeAtItsEnd) {
    const std::tuple<std::string, const char*, bool> cases[] = {
        {"<r xmlns:x=\"urn:a\" q='5.1'><x:a b=\"1 &amp; &#x32;\">t</x:a><c><d>v</d></c></r>",
         "<r|@xmlns:x=urn:a|@q=5.1|<x:a|@b=1 & 2|=t|>x:a|<c|<d|=v|>d|>c|>r|", true},
        {"<a>x &amp; &lt;&gt;&quot;&apos;&#65;&#x42;</a>", "<a|=x & <>\"'AB|>a|", true},
        {"<a>1<!-- c -->2<?pi d?>3[<![CDATA[<b>&amp;</b>]]>]</a>", "<a|=123[<b>&amp;</b>]|>a|",
         true},
        {"<a>  t\xC3\xA9 \t\r\n</a>", "<a|=  t\xC3\xA9 \t\n|>a|", true},
        {"<r><a/><b></b><c><!-- c --></c></r>", "<r|<a|>a|<b|>b|<c|>c|>r|", true},
        {"<p>before<c>x</c>between<d/>after</p>", "<p|<c|=x|>c|<d|>d|>p|", true},
        // A tolerant parse expands internal entities but reads no external subset.
        {"<!DOCTYPE r SYSTEM \"/none.dtd\" [<!ENTITY e \"a&amp;b\">]><r x=\"&e;\">&e;</r>",
         "<r|@x=a&b|=a&b|>r|", false}};
    for (const auto& [xml, events, bSecure] : cases) {
        SCOPED_TRACE(xml);
        qntest::TempDir dir;
        expectParse(dir.write("doc.xml", xml), bSecure, XMLPARSER_SUCCESS, events);
        RecordingMgr fromBuffer;
        EXPECT_EQ(XmlParser(&fromBuffer).parseBuffer(xml.data(), xml.size(), bSecure),
                  XMLPARSER_SUCCESS);
        EXPECT_EQ(fromBuffer.events, events);
    }
}

// Each bad document: the status, the events before the failure, and the position named in
// the single log record. Entity expansion is refused before it can grow.
TEST(XmlParser, BadDocumentFailsWithOneRecordNamingFileLineAndColumn) {
    std::string bomb = "<!DOCTYPE z [<!ENTITY l0 \"lollollollollollollollollollol\">";
    for (int i = 1; i <= 9; ++i) {
        bomb += "<!ENTITY l" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j) {
            bomb += "&l" + std::to_string(i - 1) + ";";
        }
        bomb += "\">";
    }
    bomb += "]>\n<z>&l9;</z>";
    const std::tuple<std::string, bool, STATUSCODE, const char*, const char*> cases[] = {
        {"<r>\n<a>true</a>\n<b>tr", true, kMalformed, "<r|<a|=true|>a|<b|", "line 3, column 6"},
        {"<r>\n <a></b></r>", true, kMalformed, "<r|<a|", "line 2, column 7"},
        {"", true, kMalformed, "", "line 1, column 1"},
        {"<a/><b/>", true, kMalformed, "<a|>a|", "line 1, column 5"},
        {"<a>\xC0\xAF</a>", true, kMalformed, "<a|", "line 1, column 4"},
        {"<r>&e;</r>", true, kMalformed, "<r|", "line 1, column 4"},
        {"<?xml version=\"1.0\"?>\n<!DOCTYPE r [<!ENTITY e \"x\">]><r>&e;</r>", true, kDoctype, "",
         "line 2, column 1"},
        {"<!DOCTYPE r [<!ENTITY e SYSTEM \"/etc/hostname\">]><r>&e;</r>", false, kEntity, "<r|",
         "line 1, column 53"},
        {"<!DOCTYPE r SYSTEM \"/none.dtd\">\n<r>&e;</r>", false, kEntity, "<r|",
         "line 2, column 4"},
        {bomb, true, kDoctype, "", "line 1, column 1"},
        {bomb, false, kEntity, "<z|", "line 2, column 4"}};
    const auto start = std::chrono::steady_clock::now();
    for (const auto& [xml, bSecure, status, events, where] : cases) {
        SCOPED_TRACE(xml.substr(0, 60));
        qntest::TempDir dir;
        expectParse(dir.write("doc.xml", xml), bSecure, status, events, where);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(XmlParser, PathThatIsNotARegularFileIsRefusedWithoutReading) {
    qntest::TempDir dir;
    ASSERT_EQ(::mkfifo((dir.path() + "fifo").c_str(), 0600), 0);
    for (const std::string& path :
         {dir.path(), dir.path() + "missing.xml", dir.path() + "fifo", std::string("/dev/zero")}) {
        SCOPED_TRACE(path);
        expectParse(path, true, XMLPARSER_ERROR_FILE_OPEN, "");
    }
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// What the XML parser delivers and refuses, and hostile policy files through the client's own
// load path: whatever a file holds, loading must end, in bounded time and memory, with either
// a clear failure or a record made only of what the file intact states. The large cases run
// in a forked child, so that a crash or a hang fails one test instead of the suite, and so
// that the child's peak memory can be measured from the moment it starts.
//
// Under AddressSanitizer the large documents are a quarter of their size and the memory
// bounds are loosened for the sanitizer's shadow memory and quarantine: the point there is the
// absence of memory errors, the default build checks the figures.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "PolicyDocumentFixture.h"
#include "XmlParser.h"
#if defined(QN_WITH_LINTER)
#include "lint/PolicyLinter.h"
#endif

namespace {

using namespace std::literals;
using HostileInput = qntest::PolicyDocumentFixture;

#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kScale = 4;
constexpr long kSlackKiB = 256 * 1024;
#else
constexpr size_t kScale = 1;
constexpr long kSlackKiB = 0;
#endif
// Each size attack is refused within kCpu of CPU time (the child's user and system time, which
// a busy machine does not inflate): 2 seconds in the optimised build, which the figures are
// about; instrumented or unoptimised builds (sanitizers, coverage) only must not spin.
#if defined(__SANITIZE_ADDRESS__) || !defined(__OPTIMIZE__)
constexpr std::chrono::seconds kCpu{10};
#else
constexpr std::chrono::seconds kCpu{2};
#endif
constexpr size_t kHuge = (size_t{64} << 20) / kScale;  // bytes of one huge token
constexpr STATUSCODE kOk = XMLPARSER_SUCCESS;
constexpr STATUSCODE kMalformed = XMLPARSER_ERROR_NOT_WELL_FORMED;
constexpr STATUSCODE kEntity = XMLPARSER_ERROR_ENTITY_REFUSED;
constexpr char kList[] = "<QuillnetLocalPolicy><UpdatePolicy><AuthorizedServerList><ServerName>";
constexpr char kEnd[] = "</ServerName></AuthorizedServerList></UpdatePolicy></QuillnetLocalPolicy>";

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

// Runs body in a forked child that fails on a failed expectation of body or on peak memory
// growth beyond limitKiB (from the child's start, when it holds what this process held at the
// fork, so the growth is the body's own); expects the child's CPU time within cpu. A child that
// blocks (on a FIFO) is killed when the suite's own timeout would stop the test.
template <typename Body>
void inChild(long limitKiB, std::chrono::seconds cpu, Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(120);
        rusage usage{};
        ::getrusage(RUSAGE_SELF, &usage);
        const long before = usage.ru_maxrss;
        body();
        ::getrusage(RUSAGE_SELF, &usage);
        EXPECT_LE(usage.ru_maxrss - before, limitKiB + kSlackKiB) << "KiB of peak memory growth";
        ::_exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    rusage usage{};
    ASSERT_EQ(::wait4(child, &status, 0, &usage), child);
    EXPECT_EQ(status, 0) << (WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "failed");
    const auto used = std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                      std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    EXPECT_LT(used, cpu) << "CPU time of the child";
}

// piece repeated up to exactly size bytes.
std::string filled(const std::string& piece, size_t size) {
    std::string block;
    block.reserve(size + piece.size());
    while (block.size() < size) {
        block += piece;
    }
    return block.substr(0, size);
}

// utf8 in another encoding, converted by the C library (independent of the parser's decoders).
std::string converted(std::string utf8, const char* encoding) {
    std::string out(4 * utf8.size(), '\0');
    char* pIn = utf8.data();
    char* pOut = out.data();
    size_t inLeft = utf8.size();
    size_t outLeft = out.size();
    const iconv_t cd = ::iconv_open(encoding, "UTF-8");
    EXPECT_NE(::iconv(cd, &pIn, &inLeft, &pOut, &outLeft), static_cast<size_t>(-1)) << encoding;
    ::iconv_close(cd);
    return out.substr(0, out.size() - outLeft);
}

// Each file, parsed secure or tolerant: the status, the events (each leaf's text whole at its
// end tag; none from the point of failure on) and, for a failure, the one error record of
// parseFile naming the file and where. What is not a regular file is never read.
TEST(XmlParser, DeliversEventsUpToTheFirstErrorWhichOneRecordLocates) {
    qntest::TempDir dir;
    using Case = std::tuple<std::string, bool, STATUSCODE, const char*, const char*>;
    const Case cases[] = {
        {"<r xmlns:x='u' q='5'>a<x:a b='&amp;&#x32;'>t</x:a>b<c><d>v</d><e/><f><!----></f></c></r>",
         true, kOk, "<r|@xmlns:x=u|@q=5|<x:a|@b=&2|=t|>x:a|<c|<d|=v|>d|<e|>e|<f|>f|>c|>r|", ""},
        {"<a>&amp;&lt;&gt;&quot;&apos;&#x42;1<!---->2<?p?>3<![CDATA[<b>&amp;]]>\xC3\xA9\t\r\n</a>",
         true, kOk, "<a|=&<>\"'B123<b>&amp;\xC3\xA9\t\n|>a|", ""},
        // A tolerant parse expands internal entities but reads no external subset.
        {"<!DOCTYPE r SYSTEM \"/none.dtd\" [<!ENTITY e \"a&amp;b\">]><r x=\"&e;\">&e;</r>", false,
         kOk, "<r|@x=a&b|=a&b|>r|", ""},
        {"<r>\n<a>true</a>\n<b>tr", true, kMalformed, "<r|<a|=true|>a|<b|", "line 3, column 6"},
        {"<r>&e;</r>", true, kMalformed, "<r|", "line 1, column 4"},
        {"<?xml version=\"1.0\"?>\n<!DOCTYPE r [<!ENTITY e \"x\">]><r>&e;</r>", true,
         XMLPARSER_ERROR_DOCTYPE_REFUSED, "", "line 2, column 1"},
        {"<!DOCTYPE r SYSTEM \"/none.dtd\">\n<r>&e;</r>", false, kEntity, "<r|",
         "line 2, column 4"},
        {"<!DOCTYPE r [<!ENTITY e SYSTEM \"/etc/hostname\">]><r>&e;</r>", false, kEntity, "<r|",
         "line 1, column 53"},
        // NUL bytes and invalid UTF-8 (overlong, a surrogate).
        {"<r><a>t</a><b>t\0</b><c/></r>"s, true, kMalformed, "<r|<a|=t|>a|<b|", "column 16"},
        {"<r><a>t</a><b x='\xC0\xAF'/><c/></r>", true, kMalformed, "<r|<a|=t|>a|", "column 18"},
        {"<r><a>t</a><!--\xED\xA0\x80--><c/></r>", true, kMalformed, "<r|<a|=t|>a|", "column 16"},
        {std::string(size_t{1} << 20, '\0'), true, kMalformed, "", "line 1, column 1"},
        // Over a limit, in either mode: the record names the limit and the element.
        {"<r>\n <" + std::string(XmlParser::kMaxNameBytes + 1, 'n') + "/></r>", false,
         XMLPARSER_ERROR_LIMIT_EXCEEDED, "<r|",
         "line 2, column 2: element name over the limit of 50000 bytes in element \"n{64}[.]{3}\""},
        {"<r><a b='" + std::string(XmlParser::kMaxTextBytes + 1, 'v') + "'/></r>", true,
         XMLPARSER_ERROR_LIMIT_EXCEEDED, "<r|",
         "line 1, column 4: value of attribute \"b\" over the limit of 10000000 bytes in element "
         "\"a\""},
        {dir.path(), true, XMLPARSER_ERROR_FILE_OPEN, "", ""},
        {"/dev/zero", true, XMLPARSER_ERROR_FILE_OPEN, "", ""}};
    for (const auto& [xml, bSecure, status, events, where] : cases) {
        SCOPED_TRACE(testing::PrintToString(xml.substr(0, 60)));
        const std::string path = xml[0] == '/' ? xml : dir.write("doc.xml", xml);  // or a path
        RecordingMgr mgr;
        qntest::LogCapture log;
        EXPECT_EQ(XmlParser(&mgr).parseFile(path, bSecure), status);
        EXPECT_EQ(mgr.events, events);
        ASSERT_EQ(log.records().size(), status == kOk ? 0U : 1U);
        if (status != kOk) {
            EXPECT_THAT(qntest::describe(log.records()[0]),
                        testing::ContainsRegex("^parseFile " + std::to_string(Logging::DBG_Error) +
                                               " .*\"" + path + "\".*" + where));
        }
    }
}

// Counts the elements it is given.
class CountingMgr : public XmlMgr {
  public:
    void addElement(const std::string& /*name*/) override { ++elements; }
    size_t elements = 0;
};

// A stream (a pipe) is parsed as it arrives, and refused once it has
// delivered more than kMaxStreamBytes, however long it would go on: endless small elements
// stop at the last element the 64 MiB hold (the root and 16,777,215 of "<a/>"); a finite stream
// is read to its end.
TEST(XmlParser, ParsesAStreamAsItArrivesAndRefusesItBeyondItsLimit) {
    const auto previousHandler = std::signal(SIGPIPE, SIG_IGN);
    const std::vector<std::tuple<std::string, std::string, STATUSCODE, size_t, const char*>> cases =
        {
            {"<r><a>t</a></r>", "", kOk, 2, ""},
            {"<r>", "<a/>", XMLPARSER_ERROR_LIMIT_EXCEEDED, 16777216,
             "Refused \"<stdin>\" at line 1, column 67108864: more than 67108864 bytes of input"},
        };
    for (const auto& [head, endless, status, elements, record] : cases) {
        SCOPED_TRACE(head + endless);
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        std::thread writer([&head = head, &endless = endless, fd = fds[1]] {
            const std::string block = head + filled(endless, endless.empty() ? 0 : 1 << 16);
            bool bOpen = ::write(fd, block.data(), block.size()) > 0;
            const std::string more = filled(endless, endless.size() << 14);
            while (bOpen && !endless.empty()) {
                bOpen = ::write(fd, more.data(), more.size()) > 0;
            }
            ::close(fd);
        });
        CountingMgr mgr;
        qntest::LogCapture log;
        EXPECT_EQ(XmlParser(&mgr).parseStream(fds[0], true, "<stdin>"), status);
        ::close(fds[0]);
        writer.join();
        EXPECT_EQ(mgr.elements, elements);
        const std::vector<CAppLogRecord> records = log.records();
        ASSERT_EQ(records.size(), status == kOk ? 0U : 1U);
        if (status != kOk) {
            EXPECT_NE(records[0].message.find(record), std::string::npos) << records[0].message;
        }
    }
    std::signal(SIGPIPE, previousHandler);
}

// Writes head, then piece repeated up to size bytes, then tail, to path; with apparentSize
// beyond size, the file is made that long by a hole (NUL bytes, never read: every limit is
// passed long before) before the tail, so that a gigabyte costs no disk and no memory.
void writeDocument(const std::string& path, const std::string& head, const std::string& piece,
                   size_t size, const std::string& tail, size_t apparentSize) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << head;
    const std::string block = filled(piece, std::min(size, size_t{1} << 20));
    for (size_t written = 0; written < size; written += block.size()) {
        out.write(block.data(),
                  static_cast<std::streamsize>(std::min(block.size(), size - written)));
    }
    if (apparentSize > size) {
        out.seekp(static_cast<std::streamoff>(head.size() + apparentSize));
    }
    out << tail;
}

// Each file, loaded in a child: the loader refuses every DOCTYPE and every document over a
// limit, and loads the rest to the record stated (bypass downloader, servers, first server's
// length), within the memory bound: 64 MiB beyond what the record holds; the tolerant parse
// (for other callers) ends with the status given. Declared entities would, if expanded or
// fetched, explode in size or open a FIFO, which would block until the child is killed.
// Every size attack is refused within 2 seconds of CPU time; each limit is checked just under and
// just over it.
TEST_F(HostileInput, EveryDocumentEndsWithinBoundedResourcesWhateverItsSizeOrEntities) {
    const std::string fifo = m_dir.path() + "entity.fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string laughs = "[<!ENTITY a \"" + filled("lol", 300) + "\"><!ENTITY b \"" +
                               filled("&a;", 900) + "\"><!ENTITY c \"" + filled("&b;", 900) +
                               "\"><!ENTITY d \"" + filled("&c;", 900) + "\">";
    const auto doctype = [](const std::string& rest) {
        return "<!DOCTYPE QuillnetLocalPolicy " + rest + ">" + kList;
    };
    constexpr size_t kText = XmlParser::kMaxTextBytes;
    constexpr size_t kName = XmlParser::kMaxNameBytes;
    constexpr size_t kDepth = XmlParser::kMaxDepth;
    constexpr size_t kGiB = size_t{1} << 30;
    constexpr long kBound = 64 << 10;  // KiB of growth beyond the record
    constexpr long kTextKiB = static_cast<long>(kText / 1024);
    constexpr STATUSCODE kLimit = XMLPARSER_ERROR_LIMIT_EXCEEDED;
    const std::string bypass = "<BypassDownloader>true</BypassDownloader>";
    const std::string name = filled("n", kName);
    // The file: a head, a piece repeated up to a size (then a hole up to an apparent size), a
    // tail; the memory bound; the record; the status of the secure load and of the tolerant
    // parse.
    struct Case {
        std::string head, piece;
        size_t size;
        std::string tail;
        size_t apparentSize;
        long limitKiB;
        std::string expected;
        STATUSCODE loaded, tolerant;
    };
    const STATUSCODE kDoctype = XMLPARSER_ERROR_DOCTYPE_REFUSED;
    const Case cases[] = {
        {doctype(laughs + "]"), "&d;", 3, kEnd, 0, kBound, "0 0 0", kDoctype, kEntity},
        // One 64 KiB entity referenced 16,384 times: 1 GiB of text without any nesting.
        {doctype("[<!ENTITY big \"" + std::string(size_t{64} << 10, 'q') + "\">]"), "&big;",
         size_t{5} << 14, kEnd, 0, kBound, "0 0 0", kDoctype, kEntity},
        {doctype("[<!ENTITY % p SYSTEM \"" + fifo + "\"> %p;]"), "x", 1, kEnd, 0, kBound, "0 0 0",
         kDoctype, kOk},
        {doctype("SYSTEM \"" + fifo + "\""), "x", 1, kEnd, 0, kBound, "0 0 0", kDoctype, kOk},
        // Nesting: the setting at the deepest level allowed loads, one level deeper is refused,
        // and so are 1,000,000 levels.
        {"<QuillnetLocalPolicy>", "<a>", 3 * (kDepth - 2),
         bypass + filled("</a>", 4 * (kDepth - 2)) + "</QuillnetLocalPolicy>", 0, kBound, "1 0 0",
         kOk, kOk},
        {"<QuillnetLocalPolicy>", "<a>", 3 * (kDepth - 1),
         bypass + filled("</a>", 4 * (kDepth - 1)) + "</QuillnetLocalPolicy>", 0, kBound, "0 0 0",
         kLimit, kLimit},
        {"<QuillnetLocalPolicy>", "<a>", 3000000, bypass, 0, kBound, "0 0 0", kLimit, kLimit},
        // Text: a server name at the limit loads, one byte more is refused; 1 GiB of text in an
        // element the reader ignores, or of white space in the root, is refused within the
        // bounds.
        {kList, "gw-", kText, kEnd, 0, kBound + kTextKiB, "0 1 " + std::to_string(kText), kOk, kOk},
        {kList, "gw-", kText + 1, kEnd, 0, kBound, "0 0 0", kLimit, kLimit},
        {"<QuillnetLocalPolicy><Unknown>", "ignored ", 2 * kText,
         "</Unknown></QuillnetLocalPolicy>", kGiB, kBound, "0 0 0", kLimit, kLimit},
        {"<QuillnetLocalPolicy>", " \n\t", 2 * kText, bypass + "</QuillnetLocalPolicy>", kGiB,
         kBound, "0 0 0", kLimit, kLimit},
        // The document's version is compared without a list node per component: at the text
        // limit it loads, one byte more is refused, and 1 GiB is refused before it is held.
        {"<QuillnetLocalPolicy qnversion=\"", "....", kText, "\"/>", 0, kBound + kTextKiB, "0 0 0",
         kOk, kOk},
        {"<QuillnetLocalPolicy qnversion=\"", "....", kText + 1, "\"/>", 0, kBound, "0 0 0", kLimit,
         kLimit},
        {"<QuillnetLocalPolicy qnversion=\"", "5.1.", 2 * kText, "\"/>", kGiB, kBound, "0 0 0",
         kLimit, kLimit},
        // Names: at the limit an unknown element or attribute is ignored, one byte more in an
        // attribute's is refused (in an element's: the parser's own test).
        {"<QuillnetLocalPolicy>", "", 0,
         "<" + name + " " + name + "='v'>t</" + name + ">" + bypass + "</QuillnetLocalPolicy>", 0,
         kBound, "1 0 0", kOk, kOk},
        {"<QuillnetLocalPolicy>", "", 0,
         "<a " + name + "n='v'/>" + bypass + "</QuillnetLocalPolicy>", 0, kBound, "0 0 0", kLimit,
         kLimit},
        {"<QuillnetLocalPolicy>", "<e>0123456789abcdefghijklmn</e>\n", kHuge,
         "</QuillnetLocalPolicy>", 0, 8 << 10, "0 0 0", kOk, kOk}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.head.substr(0, 50) + c.piece + " " + std::to_string(c.size));
        writeDocument(policyPath(), c.head, c.piece, c.size, c.tail, c.apparentSize);
        // Refusals are bounded tightly; loads (64 MiB of elements among them) only must not spin.
        inChild(c.limitKiB, c.loaded == kLimit ? kCpu : 10s, [&] {
            XmlMgr ignored;
            EXPECT_EQ(XmlParser(&ignored).parseFile(policyPath(), false), c.tolerant);
            EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), c.loaded);
            const LocalQNPolicyInfo info = m_mgr->GetLocalPolicyInfo();
            const std::list<std::string>& servers = info.GetAuthorizedServerList();
            EXPECT_EQ(std::to_string(info.BypassDownloader()) + " " +
                          std::to_string(servers.size()) + " " +
                          std::to_string(servers.empty() ? 0 : servers.front().size()),
                      c.expected);
        });
    }
}

// A generated policy that states settings of every kind, with non-ASCII server names: in
// UTF-16 or Latin-1 it loads to the record of the UTF-8 original; cut at any offset, the load
// fails (but for the final line break) with the record of what the cut file states up to its
// last complete tag (a leaf's text counts at its end tag).
TEST_F(HostileInput, FullPolicyLoadsExactlyWhatItsBytesStateWhateverTheEncodingOrCut) {
    ASSERT_TRUE(qntest::generate(*m_mgr, {"fm=true", "bd=true", "sct=true", "rtp=IPSec", "efn=true",
                                          "upsu=false", "rpc=Credentials,Thumbprints,All",
                                          "upal=gw-\xC3\xBC.example,caf\xC3\xA9-\xC3\x9F;gw3"}));
    const std::string full = qntest::readFile(policyPath());
    const std::string reference = qntest::summarize(loadAsIs());
    const std::string body = full.substr(full.find("?>") + 2);
    for (const std::string& bytes :
         {converted("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + body, "UTF-16LE"),
          converted("\xEF\xBB\xBF" + body, "UTF-16BE"),
          converted("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + body, "ISO-8859-1")}) {
        writePolicy(bytes);
        EXPECT_EQ(qntest::summarize(loadAsIs()), reference);
    }
    for (size_t cut = 0; cut < full.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        writePolicy(full.substr(0, cut));
        const bool bLoaded = m_mgr->LoadLocalQuillnetPolicy() == XMLLOCALQNPOLMGR_SUCCESS;
        ASSERT_EQ(bLoaded, cut + 1 == full.size());
        const std::string intact = full.substr(0, full.substr(0, cut).rfind('>') + 1);
        XmlLocalQNPolMgr reader;
        XmlParser(&reader).parseBuffer(intact.data(), intact.size(), true);
        ASSERT_EQ(qntest::summarize(m_mgr->GetLocalPolicyInfo()),
                  bLoaded ? reference : qntest::summarize(reader.GetLocalPolicyInfo()));
    }
}

#if defined(QN_WITH_LINTER)
// Checking a hostile file is bounded like loading one: 20 MB of misspelt elements, or of one
// setting repeated with a text the client takes as false, is linted within the CPU-time and memory
// bounds of the size attacks, keeping the first hundred findings of a kind and counting the
// rest, so that the report stays small.
TEST_F(HostileInput, CheckingAHostileFileIsBoundedInTimeMemoryAndFindings) {
    constexpr size_t kElements = 873000 / kScale;
    const std::tuple<std::string, unsigned long, size_t> documents[] = {
        {"<FipMode>true</FipMode>\n", kElements, 100},            // unknown-element each
        {"<FipsMode>TRUE</FipsMode>\n", 2 * kElements - 1, 200},  // non-boolean; duplicate
    };
    for (const auto& [piece, findings, kept] : documents) {
        SCOPED_TRACE(piece);
        {
            std::ofstream out(policyPath(), std::ios::binary | std::ios::trunc);
            out << "<QuillnetLocalPolicy>\n";
            for (size_t i = 0; i < kElements; ++i) {
                out << piece;
            }
            out << "</QuillnetLocalPolicy>\n";
        }
        inChild(64 << 10, kCpu, [&, findings = findings, kept = kept] {
            const qnpolicy::tool::LintResult result = qnpolicy::tool::LintPolicyFile(policyPath());
            EXPECT_TRUE(result.bReadable);
            EXPECT_EQ(result.Count(), findings);
            EXPECT_EQ(result.findings.size(), kept);
        });
    }
}
#endif

}  // namespace

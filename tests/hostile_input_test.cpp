// Hostile policy files through the client's own load path: whatever a file holds, loading
// must end, in bounded time and memory, with either a clear failure or a record made only of
// what the file intact states. The large cases run in a forked child, so that a crash or a
// hang fails one test instead of the suite, and so that the child's peak memory can be
// measured from the moment it starts.
//
// Under AddressSanitizer the large documents are a quarter of their size and the memory
// bounds are loosened for the sanitizer's shadow memory and quarantine: the point there is the
// absence of memory errors, the default build checks the figures.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "PolicyDocumentFixture.h"
#include "TestSupport.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlParser.h"

namespace {

using qntest::summarize;

#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kScale = 4;
constexpr long kSanitizerSlackKiB = 256 * 1024;
#else
constexpr size_t kScale = 1;
constexpr long kSanitizerSlackKiB = 0;
#endif

constexpr size_t kMiB = size_t{1} << 20;
constexpr long kMiBInKiB = 1024;
constexpr unsigned kChildSecondsLimit = 60;

long maxRssKiB() {
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// How a body run in a child process ended.
struct ChildOutcome {
    std::string ending;  // "exited" when the body returned; else the signal or exit status
    std::string report;  // what the body returned
    long peakGrowthKiB = 0;
    double seconds = 0;
};

// Runs body in a forked child that is killed after kChildSecondsLimit seconds. The child's
// peak resident memory is measured from its start, when it holds what this process held at
// the fork, so the growth is the body's own.
ChildOutcome runInChild(const std::function<std::string()>& body) {
    int fds[2];
    if (::pipe(fds) != 0) {
        ADD_FAILURE() << "pipe: " << std::strerror(errno);
        return {};
    }
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        ::alarm(kChildSecondsLimit);
        const long before = maxRssKiB();
        const std::string report = body();
        const std::string message = std::to_string(maxRssKiB() - before) + "\n" + report;
        size_t written = 0;
        while (written < message.size()) {
            const ssize_t n = ::write(fds[1], message.data() + written, message.size() - written);
            if (n <= 0) {
                ::_exit(3);
            }
            written += static_cast<size_t>(n);
        }
        ::_exit(0);
    }
    ::close(fds[1]);
    ChildOutcome outcome;
    std::string message;
    char buffer[4096];
    ssize_t n = 0;
    while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0) {
        message.append(buffer, static_cast<size_t>(n));
    }
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    outcome.seconds = secondsSince(start);
    if (WIFSIGNALED(status)) {
        outcome.ending = std::string("killed by ") + ::strsignal(WTERMSIG(status));
        return outcome;
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        outcome.ending = "exit status " + std::to_string(WEXITSTATUS(status));
        return outcome;
    }
    outcome.ending = "exited";
    const size_t newline = message.find('\n');
    outcome.peakGrowthKiB = std::stol(message.substr(0, newline));
    outcome.report = message.substr(newline + 1);
    return outcome;
}

void writeRepeated(std::ofstream& out, const std::string& piece, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        out << piece;
    }
}

// A registered manager and installation directory for a child's load.
class HostileInput : public qntest::PolicyDocumentFixture {
  protected:
    // Loads the policy file in a child; the report is the status and, when describe is
    // given, what it says of the loaded record.
    ChildOutcome loadInChild(
        const std::function<std::string(const LocalQNPolicyInfo&)>& describe = nullptr) {
        XmlLocalQNPolMgr* pMgr = m_mgr.get();
        return runInChild([pMgr, describe] {
            const STATUSCODE status = pMgr->LoadLocalQuillnetPolicy();
            std::string report = "status=" + std::to_string(status);
            if (describe) {
                report += " " + describe(pMgr->GetLocalPolicyInfo());
            }
            return report;
        });
    }

    // Writes the policy file from installer arguments, replacing any file.
    bool generate(std::vector<std::string> args) {
        std::vector<char*> argv;
        argv.reserve(args.size());
        for (std::string& arg : args) {
            argv.push_back(arg.data());
        }
        return m_mgr->GenerateLocalPolicy(argv.data(), static_cast<int>(argv.size()), true);
    }

    std::ofstream openPolicy() {
        return std::ofstream(policyPath(), std::ios::binary | std::ios::trunc);
    }
};

const std::string kOk = "status=0";

// --- Entities: nothing outside the policy file is ever read. ---

// Each document declares entities that would, if expanded or fetched, explode in size or read
// another file: a sentinel whose text must never appear, or a FIFO whose opening would block
// until the child is killed. The loader refuses every one before its first element; the
// tolerant mode of the parser (for other callers) refuses what it cannot take from the
// document itself, still without opening anything.
TEST_F(HostileInput, EntityDeclarationsNeverReadOutsideTheDocumentNorExplode) {
    const std::string sentinelText = "SENTINEL-9c41e7";
    const std::string sentinel = m_dir.write("sentinel.txt", sentinelText);
    const std::string fifo = dir() + "entity.fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);

    std::string laughs = "<!DOCTYPE QuillnetLocalPolicy [<!ENTITY l0 \"lollollollol\">";
    for (int i = 1; i <= 9; ++i) {
        laughs += "<!ENTITY l" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j) {
            laughs += "&l" + std::to_string(i - 1) + ";";
        }
        laughs += "\">";
    }
    laughs += "]>";
    // One 64 KiB entity referenced 16,384 times: 1 GiB of text without any nesting.
    std::string quadratic = "<!DOCTYPE QuillnetLocalPolicy [<!ENTITY big \"" +
                            std::string(size_t{64} * 1024, 'q') + "\">]>";
    std::string references;
    for (int i = 0; i < 16 * 1024; ++i) {
        references += "&big;";
    }
    const std::string open = "<QuillnetLocalPolicy><UpdatePolicy><AuthorizedServerList>";
    const std::string close = "</AuthorizedServerList></UpdatePolicy></QuillnetLocalPolicy>";
    struct Case {
        const char* name;
        std::string content;
        STATUSCODE tolerantStatus;
    };
    const Case cases[] = {
        {"billion laughs", laughs + open + "<ServerName>&l9;</ServerName>" + close,
         XMLPARSER_ERROR_ENTITY_REFUSED},
        {"quadratic blowup",
         quadratic + open + "<ServerName>" + references + "</ServerName>" + close,
         XMLPARSER_ERROR_ENTITY_REFUSED},
        {"external entity to a file",
         "<!DOCTYPE QuillnetLocalPolicy [<!ENTITY s SYSTEM \"" + sentinel + "\">]>" + open +
             "<ServerName>&s;</ServerName>" + close,
         XMLPARSER_ERROR_ENTITY_REFUSED},
        {"internal entity that refers to an external one",
         "<!DOCTYPE QuillnetLocalPolicy [<!ENTITY s SYSTEM \"file://" + sentinel +
             "\"><!ENTITY t \"&s;\">]>" + open + "<ServerName>&t;</ServerName>" + close,
         XMLPARSER_ERROR_ENTITY_REFUSED},
        {"external entity to a FIFO",
         "<!DOCTYPE QuillnetLocalPolicy [<!ENTITY f SYSTEM \"" + fifo + "\">]>" + open +
             "<ServerName>&f;</ServerName>" + close,
         XMLPARSER_ERROR_ENTITY_REFUSED},
        {"external parameter entity to a FIFO",
         "<!DOCTYPE QuillnetLocalPolicy [<!ENTITY % p SYSTEM \"" + fifo + "\"> %p;]>" + open +
             "<ServerName>x</ServerName>" + close,
         XMLPARSER_SUCCESS},
        {"external DTD subset on a FIFO",
         "<!DOCTYPE QuillnetLocalPolicy SYSTEM \"" + fifo + "\">" + open +
             "<ServerName>x</ServerName>" + close,
         XMLPARSER_SUCCESS},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        writePolicy(c.content);
        const ChildOutcome loaded =
            loadInChild([](const LocalQNPolicyInfo& info) { return summarize(info); });
        EXPECT_EQ(loaded.ending, "exited");
        EXPECT_EQ(loaded.report, "status=" + std::to_string(XMLPARSER_ERROR_DOCTYPE_REFUSED) + " " +
                                     summarize(LocalQNPolicyInfo()));
        EXPECT_LT(loaded.seconds, 5.0);
        EXPECT_LT(loaded.peakGrowthKiB, 8 * kMiBInKiB + kSanitizerSlackKiB);

        const std::string content = c.content;
        const ChildOutcome tolerant = runInChild([&content] {
            XmlLocalQNPolMgr reader;
            const STATUSCODE status =
                XmlParser(&reader).parseBuffer(content.data(), content.size(), false);
            return "status=" + std::to_string(status) + " " +
                   summarize(reader.GetLocalPolicyInfo());
        });
        EXPECT_EQ(tolerant.ending, "exited");
        EXPECT_EQ(tolerant.report.substr(0, tolerant.report.find(' ')),
                  "status=" + std::to_string(c.tolerantStatus));
        EXPECT_EQ(tolerant.report.find(sentinelText), std::string::npos);
        EXPECT_LT(tolerant.seconds, 5.0);
        EXPECT_LT(tolerant.peakGrowthKiB, 64 * kMiBInKiB + kSanitizerSlackKiB);
    }
}

// --- Size: depth, one huge text, many small elements. ---

TEST_F(HostileInput, MillionNestedElementsLoadInBoundedTimeAndMemory) {
    const size_t depth = 1000000 / kScale;
    {
        std::ofstream out = openPolicy();
        out << "<QuillnetLocalPolicy>";
        writeRepeated(out, "<a>", depth);
        out << "<BypassDownloader>true</BypassDownloader>";
        writeRepeated(out, "</a>", depth);
        out << "</QuillnetLocalPolicy>";
    }
    const ChildOutcome loaded = loadInChild([](const LocalQNPolicyInfo& info) {
        return std::string(info.BypassDownloader() ? "bd" : "-");
    });
    EXPECT_EQ(loaded.ending, "exited");
    EXPECT_EQ(loaded.report, kOk + " bd");
    EXPECT_LT(loaded.seconds, 20.0);
    // expat keeps one small record per open element (about 145 bytes measured): linear in
    // the depth, and no recursion anywhere.
    EXPECT_LT(loaded.peakGrowthKiB,
              160 * kMiBInKiB / static_cast<long>(kScale) + kSanitizerSlackKiB)
        << "for " << depth << " levels";
}

// One 64 MiB token in each place a document can hold one. The text of a leaf arrives in one
// value; the memory is a small multiple of the token, never more. (Measured: twice the token
// for text and comments, which expat streams; four times for the version attribute, which
// expat, the reader and the record each hold whole. A version attribute made of separators
// once cost a list node per separator, thirty times the token.)
TEST_F(HostileInput, HugeTokensLoadInLinearTimeAndBoundedMemory) {
    const size_t huge = 64 * kMiB / kScale;
    struct Case {
        const char* name;
        std::string head;
        std::string piece;
        std::string tail;
        std::string expected;
        long multiple;  // peak memory growth allowed, in multiples of the token
    };
    const std::string root = "<QuillnetLocalPolicy";
    const std::string list = "<QuillnetLocalPolicy><UpdatePolicy><AuthorizedServerList>";
    const std::string listEnd = "</AuthorizedServerList></UpdatePolicy></QuillnetLocalPolicy>";
    const std::string hugeSize = std::to_string(huge);
    const Case cases[] = {
        {"server name", list + "<ServerName>", "gw-", "</ServerName>" + listEnd,
         "servers=1 longest=" + hugeSize, 4},
        {"ignored text", "<QuillnetLocalPolicy><Unknown>", "xxxx",
         "</Unknown></QuillnetLocalPolicy>", "servers=0 longest=0", 3},
        {"version attribute", root + " qnversion=\"", "1...", "\"/>",
         "servers=0 longest=0 version=" + hugeSize, 6},
        {"version attribute of separators", root + " qnversion=\"", "....", "\"/>",
         "servers=0 longest=0 version=" + hugeSize, 6},
        {"comment", root + "><!--", "cccc", "--></QuillnetLocalPolicy>", "servers=0 longest=0", 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        {
            std::ofstream out = openPolicy();
            out << c.head;
            std::string block;
            while (block.size() < kMiB) {
                block += c.piece;
            }
            writeRepeated(out, block.substr(0, kMiB), huge / kMiB);
            out << c.tail;
        }
        const ChildOutcome loaded = loadInChild([](const LocalQNPolicyInfo& info) {
            size_t longest = 0;
            for (const std::string& server : info.GetAuthorizedServerList()) {
                longest = std::max(longest, server.size());
            }
            std::string description =
                "servers=" + std::to_string(info.GetAuthorizedServerList().size()) +
                " longest=" + std::to_string(longest);
            if (!info.GetQNVersion().empty()) {
                description += " version=" + std::to_string(info.GetQNVersion().size());
            }
            return description;
        });
        EXPECT_EQ(loaded.ending, "exited");
        EXPECT_EQ(loaded.report, kOk + " " + c.expected);
        EXPECT_LT(loaded.seconds, 20.0);
        EXPECT_LT(loaded.peakGrowthKiB,
                  c.multiple * static_cast<long>(huge / 1024) + kSanitizerSlackKiB);
    }
}

TEST_F(HostileInput, MemoryDoesNotGrowWithTheNumberOfElements) {
    // 128 MiB of small elements that the reader ignores: the load must not hold the document.
    std::string block;
    for (int i = 0; i < 1024; ++i) {
        block += "<ServerName>gw" + std::to_string(i) + ".example.com</ServerName>\n";
    }
    {
        std::ofstream out = openPolicy();
        out << "<QuillnetLocalPolicy><BypassDownloader>true</BypassDownloader>";
        writeRepeated(out, block, (128 * kMiB / kScale) / block.size());
        out << "</QuillnetLocalPolicy>";
    }
    const ChildOutcome loaded = loadInChild([](const LocalQNPolicyInfo& info) {
        return std::to_string(info.GetAuthorizedServerList().size());
    });
    EXPECT_EQ(loaded.ending, "exited");
    EXPECT_EQ(loaded.report, kOk + " 0");
    EXPECT_LT(loaded.seconds, 20.0);
    EXPECT_LT(loaded.peakGrowthKiB, 8 * kMiBInKiB + kSanitizerSlackKiB);
}

// --- Bytes that XML does not allow. ---

// A setting before the bad bytes and one after: the load fails, keeps the first, never
// applies the second.
struct BadBytesCase {
    std::string name;
    std::string bytes;
};

std::vector<BadBytesCase> badByteSequences() {
    return {
        {"NUL", std::string(1, '\0')},
        {"overlong slash", "\xC0\xAF"},
        {"overlong three-byte", "\xE0\x80\xAF"},
        {"encoded surrogate", "\xED\xA0\x80"},
        {"above U+10FFFF", "\xF4\x90\x80\x80"},
        {"F5 lead byte", "\xF5\x80\x80\x80"},
        {"lone continuation", "\x80"},
        {"truncated sequence", "\xE2\x82"},
        {"FE byte", "\xFE"},
        {"FF byte", "\xFF"},
    };
}

TEST_F(HostileInput, NulBytesAndInvalidUtf8FailTheLoadWhereverTheyStand) {
    const std::string before = "<BypassDownloader>true</BypassDownloader>";
    const std::string after = "<RestrictWebLaunch>true</RestrictWebLaunch>";
    struct Place {
        const char* name;
        std::string head;
        std::string tail;
    };
    const Place places[] = {
        {"leaf text", "<StrictCertificateTrust>tr", "ue</StrictCertificateTrust>"},
        {"server name", "<UpdatePolicy><AuthorizedServerList><ServerName>gw",
         "</ServerName></AuthorizedServerList></UpdatePolicy>"},
        {"attribute value", "<Unknown a=\"", "\"/>"},
        {"element name", "<Strict", "/>"},
        {"comment", "<!--", "-->"},
        {"CDATA section", "<StrictCertificateTrust><![CDATA[", "]]></StrictCertificateTrust>"},
    };
    for (const BadBytesCase& bad : badByteSequences()) {
        for (const Place& place : places) {
            SCOPED_TRACE(bad.name + " in " + place.name);
            std::string content = kRootOpen;
            content.append(before).append(place.head).append(bad.bytes).append(place.tail);
            writePolicy(content.append(after).append(kRootClose));
            EXPECT_NE(m_mgr->LoadLocalQuillnetPolicy(), XMLLOCALQNPOLMGR_SUCCESS);
            const LocalQNPolicyInfo info = m_mgr->GetLocalPolicyInfo();
            EXPECT_TRUE(info.BypassDownloader());
            EXPECT_FALSE(info.StrictCertTrustMode());
            EXPECT_FALSE(info.RestrictWebLaunchMode());
            EXPECT_TRUE(info.GetAuthorizedServerList().empty());
        }
    }
    SCOPED_TRACE("a file of NUL bytes");
    writePolicy(std::string(kMiB, '\0'));
    EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), XMLPARSER_ERROR_NOT_WELL_FORMED);
}

// --- Other encodings: valid documents that must load with the values they state. ---

std::string toUtf16(const std::string& utf8, bool bBigEndian) {
    std::string out = bBigEndian ? "\xFE\xFF" : "\xFF\xFE";
    const auto put = [&out, bBigEndian](uint32_t unit) {
        const char high = static_cast<char>(unit >> 8U);
        const char low = static_cast<char>(unit & 0xFFU);
        out += bBigEndian ? std::string{high, low} : std::string{low, high};
    };
    for (size_t i = 0; i < utf8.size();) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        uint32_t cp = length == 1 ? lead : lead & (0x7FU >> length);
        for (size_t k = 1; k < length; ++k) {
            cp = (cp << 6U) | (static_cast<unsigned char>(utf8[i + k]) & 0x3FU);
        }
        if (cp >= 0x10000) {
            put(0xD800 + ((cp - 0x10000) >> 10U));
            put(0xDC00 + ((cp - 0x10000) & 0x3FFU));
        } else {
            put(cp);
        }
        i += length;
    }
    return out;
}

// Characters up to U+00FF only.
std::string toLatin1(const std::string& utf8) {
    std::string out;
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        if (lead < 0x80) {
            out += static_cast<char>(lead);
        } else {
            out += static_cast<char>(((lead & 0x03U) << 6U) |
                                     (static_cast<unsigned char>(utf8[++i]) & 0x3FU));
        }
    }
    return out;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    text.replace(text.find(from), from.size(), to);
    return text;
}

TEST_F(HostileInput, Utf16WithBomAndLatin1DocumentsLoadWithTheirValues) {
    const std::vector<std::string> args = {
        "fm=true",  "bd=true",    "rpc=Credentials,All",
        "efn=true", "upsu=false", "upal=gw-\xC3\xBC.example,caf\xC3\xA9-\xC3\x9F"};
    ASSERT_TRUE(generate(args));
    const std::string utf8 = qntest::readFile(policyPath());
    const LocalQNPolicyInfo reference = loadAsIs();
    ASSERT_EQ(reference.GetAuthorizedServerList(),
              (std::list<std::string>{"gw-\xC3\xBC.example", "caf\xC3\xA9-\xC3\x9F"}));
    ASSERT_TRUE(reference.UseFIPSMode());

    const std::string declared = "encoding=\"UTF-8\"";
    struct Case {
        const char* name;
        std::string bytes;
    };
    const Case cases[] = {
        {"UTF-8 with a BOM", "\xEF\xBB\xBF" + utf8},
        {"UTF-16LE with a BOM", toUtf16(replaced(utf8, declared, "encoding=\"UTF-16\""), false)},
        {"UTF-16BE with a BOM", toUtf16(replaced(utf8, declared, "encoding=\"UTF-16\""), true)},
        {"UTF-16LE with a BOM, no declaration", toUtf16(utf8.substr(utf8.find("?>") + 2), false)},
        {"Latin-1 declared", toLatin1(replaced(utf8, declared, "encoding=\"ISO-8859-1\""))},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        writePolicy(c.bytes);
        EXPECT_EQ(summarize(loadAsIs()), summarize(reference));
    }
}

// --- Truncation: a cut file states only what lies before the cut. ---

// The document that the intact part of prefix amounts to: everything up to its last complete
// tag, with the elements still open closed. Text is delivered at an element's end tag, so a
// leaf whose end tag was cut off contributes nothing. Knows only the generated layout (no
// comments, no '>' in text or attribute values).
std::string intactPart(const std::string& prefix) {
    const size_t lastTagEnd = prefix.rfind('>');
    if (lastTagEnd == std::string::npos) {
        return std::string();
    }
    std::string document = prefix.substr(0, lastTagEnd + 1);
    std::vector<std::string> open;
    for (size_t lt = document.find('<'); lt != std::string::npos; lt = document.find('<', lt + 1)) {
        const size_t gt = document.find('>', lt);
        const std::string tag = document.substr(lt + 1, gt - lt - 1);
        if (tag[0] == '?' || tag.back() == '/') {
            continue;
        }
        if (tag[0] == '/') {
            open.pop_back();
        } else {
            open.push_back(tag.substr(0, tag.find(' ')));
        }
    }
    for (auto name = open.rbegin(); name != open.rend(); ++name) {
        document += "</" + *name + ">";
    }
    return document;
}

TEST_F(HostileInput, TruncatedPolicyLoadsOnlyItsIntactPrefix) {
    const std::vector<std::string> args = {"fm=true",
                                           "bd=true",
                                           "bdl=true",
                                           "rswd=true",
                                           "rhwd=true",
                                           "rrwd=true",
                                           "rlwd=true",
                                           "rwl=true",
                                           "sct=true",
                                           "ecc=true",
                                           "orc=true",
                                           "rtp=false",
                                           "efn=true",
                                           "epf=true",
                                           "emn=true",
                                           "ewn=true",
                                           "rsc=true",
                                           "upsu=false",
                                           "upcu=false",
                                           "upvp=false",
                                           "upmv=false",
                                           "uppp=false",
                                           "upsp=false",
                                           "upscr=false",
                                           "uphlp=false",
                                           "upres=false",
                                           "uploc=false",
                                           "rpc=Credentials,Thumbprints,All",
                                           "upal=gw1.example.com,gw2.example.com;gw3"};
    ASSERT_TRUE(generate(args));
    const std::string full = qntest::readFile(policyPath());
    const std::string complete = summarize(loadAsIs());

    qntest::LogCapture quiet;
    for (size_t cut = 0; cut < full.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        const std::string prefix = full.substr(0, cut);
        writePolicy(prefix);
        const STATUSCODE status = m_mgr->LoadLocalQuillnetPolicy();
        const std::string loaded = summarize(m_mgr->GetLocalPolicyInfo());
        if (status == XMLLOCALQNPOLMGR_SUCCESS) {
            // Only the final line break can go without losing a part of the document.
            EXPECT_EQ(full.substr(cut), "\n");
            EXPECT_EQ(loaded, complete);
            continue;
        }
        const std::string intact = intactPart(prefix);
        XmlLocalQNPolMgr reader;
        XmlParser(&reader).parseBuffer(intact.data(), intact.size(), true);
        ASSERT_EQ(loaded, summarize(reader.GetLocalPolicyInfo()));
    }
}

}  // namespace

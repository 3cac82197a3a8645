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
#include <iconv.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <list>
#include <sstream>
#include <string>
#include <vector>

#include "PolicyDocumentFixture.h"
#include "XmlParser.h"

namespace {

using qntest::summarize;

#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kScale = 4;
constexpr long kSlackKiB = 256 * 1024;
#else
constexpr size_t kScale = 1;
constexpr long kSlackKiB = 0;
#endif

constexpr size_t kMiB = size_t{1} << 20;
constexpr long kMiBInKiB = 1024;
constexpr unsigned kChildSecondsLimit = 30;
constexpr double kLargeLoadSeconds = 10.0;
constexpr size_t kReportBytes = 4096;
constexpr long kEntityKiB = 64 * kMiBInKiB;
constexpr double kEntitySeconds = 5.0;

long maxRssKiB() {
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Runs body in a forked child killed after kChildSecondsLimit seconds; returns its report (or
// how it died), followed by what broke the bounds: peak resident memory growth beyond
// limitKiB, or a duration beyond seconds. The growth is measured from the child's start, when
// it holds what this process held at the fork, so it is the body's own. The report comes
// back through a shared page.
std::string runInChild(const std::function<std::string()>& body, long limitKiB, double seconds) {
    void* page =
        ::mmap(nullptr, kReportBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(page, MAP_FAILED) << std::strerror(errno);
    const auto start = std::chrono::steady_clock::now();
    if (::fork() == 0) {
        ::alarm(kChildSecondsLimit);
        const long before = maxRssKiB();
        std::string report = body();
        const long growthKiB = maxRssKiB() - before;
        if (growthKiB > limitKiB + kSlackKiB) {
            report += " [memory grew by " + std::to_string(growthKiB) + " KiB]";
        }
        std::snprintf(static_cast<char*>(page), kReportBytes, "%s", report.c_str());
        ::_exit(0);
    }
    int status = 0;
    ::wait(&status);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    const std::string report = WIFSIGNALED(status)
                                   ? std::string("killed by ") + strsignal(WTERMSIG(status))
                                   : std::string(static_cast<const char*>(page));
    ::munmap(page, kReportBytes);
    return took.count() < seconds ? report
                                  : report + " [took " + std::to_string(took.count()) + " s]";
}

// piece repeated up to exactly size bytes.
std::string filled(const std::string& piece, size_t size) {
    std::string block;
    while (block.size() < size) {
        block += piece;
    }
    return block.substr(0, size);
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

// utf8 in another encoding, converted by the C library (independent of the parser's decoders).
std::string converted(const std::string& utf8, const char* encoding) {
    const iconv_t cd = ::iconv_open(encoding, "UTF-8");
    EXPECT_NE(reinterpret_cast<intptr_t>(cd), -1) << encoding;
    std::string in = utf8;
    std::string out(4 * in.size(), '\0');
    char* pIn = in.data();
    char* pOut = out.data();
    size_t inLeft = in.size();
    size_t outLeft = out.size();
    EXPECT_NE(::iconv(cd, &pIn, &inLeft, &pOut, &outLeft), static_cast<size_t>(-1)) << encoding;
    ::iconv_close(cd);
    return out.substr(0, out.size() - outLeft);
}

// The document that the intact part of prefix amounts to: everything up to its last complete
// tag, with the elements still open closed. Text is delivered at an element's end tag, so a
// leaf whose end tag was cut off contributes nothing. Knows only the generated layout (no
// comments, no '>' in text or attribute values).
std::string intactPart(const std::string& prefix) {
    const size_t lastTagEnd = prefix.rfind('>');
    std::string document = lastTagEnd == std::string::npos ? "" : prefix.substr(0, lastTagEnd + 1);
    std::vector<std::string> open;
    for (size_t lt = document.find('<'); lt != std::string::npos; lt = document.find('<', lt + 1)) {
        const std::string tag = document.substr(lt + 1, document.find('>', lt) - lt - 1);
        if (tag[0] == '/') {
            open.pop_back();
        } else if (tag[0] != '?' && tag.back() != '/') {
            open.push_back(tag.substr(0, tag.find(' ')));
        }
    }
    for (auto name = open.rbegin(); name != open.rend(); ++name) {
        document += "</" + *name + ">";
    }
    return document;
}

// A registered manager and installation directory, loads in a child, and generated files.
class HostileInput : public qntest::PolicyDocumentFixture {
  protected:
    // Loads the policy file in a child (see runInChild); the report is the status and what
    // describe says of the loaded record.
    template <typename Describe>
    std::string loadInChild(Describe describe, long limitKiB, double seconds) {
        return runInChild(
            [this, describe] {
                const STATUSCODE status = m_mgr->LoadLocalQuillnetPolicy();
                return std::to_string(status) + " " + describe(m_mgr->GetLocalPolicyInfo());
            },
            limitKiB, seconds);
    }

    // Writes the policy file as each piece repeated its count of times, never whole in memory.
    void writeLarge(const std::vector<std::pair<std::string, size_t>>& pieces) {
        std::ofstream out(policyPath(), std::ios::binary | std::ios::trunc);
        for (const auto& [piece, count] : pieces) {
            for (size_t i = 0; i < count; ++i) {
                out << piece;
            }
        }
    }

    // Generates a policy that states every setting, with non-ASCII server names; returns its
    // bytes.
    std::string generateFullPolicy() {
        std::istringstream in(
            "fm=true bd=true bdl=true rswd=true rhwd=true rrwd=true rlwd=true rwl=true sct=true "
            "ecc=true orc=true rtp=false efn=true epf=true emn=true ewn=true rsc=true upsu=false "
            "upcu=false upvp=false upmv=false uppp=false upsp=false upscr=false uphlp=false "
            "upres=false uploc=false rpc=Credentials,Thumbprints,All "
            "upal=gw-\xC3\xBC.example,caf\xC3\xA9-\xC3\x9F;gw3");
        std::vector<std::string> args{std::istream_iterator<std::string>(in), {}};
        std::vector<char*> argv;
        argv.reserve(args.size());
        for (std::string& arg : args) {
            argv.push_back(arg.data());
        }
        EXPECT_TRUE(m_mgr->GenerateLocalPolicy(argv.data(), static_cast<int>(argv.size()), true));
        return qntest::readFile(policyPath());
    }
};

const std::string kListOpen = "<QuillnetLocalPolicy><UpdatePolicy><AuthorizedServerList>";
const std::string kListClose = "</AuthorizedServerList></UpdatePolicy></QuillnetLocalPolicy>";

// Each document declares entities that would, if expanded or fetched, explode in size or read
// another file: a sentinel whose text must never appear, or a FIFO whose opening would block
// until the child is killed. The loader refuses every DOCTYPE before its first element; the
// tolerant parse (for other callers) refuses what it cannot take from the document itself,
// still without opening anything.
TEST_F(HostileInput, EntitiesNeitherExpandNorReadOutsideTheDocument) {
    const std::string sentinel = m_dir.write("sentinel.txt", "SENTINEL-9c41e7");
    const std::string fifo = m_dir.path() + "entity.fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::string laughs = "<!ENTITY l0 \"lollollollol\">";
    for (int i = 1; i <= 9; ++i) {
        const std::string reference = "&l" + std::to_string(i - 1) + ";";
        laughs += "<!ENTITY l" + std::to_string(i) + " \"" +
                  filled(reference, 10 * reference.size()) + "\">";
    }
    const auto document = [](const std::string& doctype, const std::string& server) {
        return "<!DOCTYPE QuillnetLocalPolicy " + doctype + ">" + kListOpen + "<ServerName>" +
               server + "</ServerName>" + kListClose;
    };
    const struct {
        const char* name;
        std::string content;
        STATUSCODE tolerantStatus;
    } cases[] = {
        {"billion laughs", document("[" + laughs + "]", "&l9;"), XMLPARSER_ERROR_ENTITY_REFUSED},
        // One 64 KiB entity referenced 16,384 times: 1 GiB of text without any nesting.
        {"quadratic blowup",
         document("[<!ENTITY big \"" + std::string(size_t{64} * 1024, 'q') + "\">]",
                  filled("&big;", size_t{5} * 16 * 1024)),
         XMLPARSER_ERROR_ENTITY_REFUSED},
        {"external entity to a file", document("[<!ENTITY s SYSTEM \"" + sentinel + "\">]", "&s;"),
         XMLPARSER_ERROR_ENTITY_REFUSED},
        {"external entity to a FIFO", document("[<!ENTITY f SYSTEM \"" + fifo + "\">]", "&f;"),
         XMLPARSER_ERROR_ENTITY_REFUSED},
        {"external parameter entity to a FIFO",
         document("[<!ENTITY % p SYSTEM \"" + fifo + "\"> %p;]", "x"), XMLPARSER_SUCCESS},
        {"external DTD subset on a FIFO", document("SYSTEM \"" + fifo + "\"", "x"),
         XMLPARSER_SUCCESS},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        writePolicy(c.content);
        EXPECT_EQ(
            loadInChild(summarize, kEntityKiB, kEntitySeconds),
            std::to_string(XMLPARSER_ERROR_DOCTYPE_REFUSED) + " " + summarize(LocalQNPolicyInfo()));
        const std::string tolerant = runInChild(
            [&c] {
                XmlLocalQNPolMgr reader;
                const STATUSCODE status =
                    XmlParser(&reader).parseBuffer(c.content.data(), c.content.size(), false);
                return std::to_string(status) +
                       (summarize(reader.GetLocalPolicyInfo()).find("SENTINEL") == std::string::npos
                            ? ""
                            : " with the sentinel's text");
            },
            kEntityKiB, kEntitySeconds);
        EXPECT_EQ(tolerant, std::to_string(c.tolerantStatus));
    }
}

TEST_F(HostileInput, DeepAndHugeDocumentsLoadInLinearTimeAndBoundedMemory) {
    const size_t depth = 1000000 / kScale;
    const size_t huge = 64 * kMiB / kScale;
    const long hugeKiB = static_cast<long>(huge / 1024);
    const auto repeated = [huge](const std::string& piece) {
        return std::make_pair(filled(piece, kMiB), huge / kMiB);
    };
    const std::pair<std::string, size_t> root = {"<QuillnetLocalPolicy>", 1};
    const std::pair<std::string, size_t> rootEnd = {"</QuillnetLocalPolicy>", 1};
    const struct {
        const char* name;
        std::vector<std::pair<std::string, size_t>> pieces;
        std::string expected;  // bypass downloader, servers, first server's and version length
        long limitKiB;
    } cases[] = {
        {"nested elements",
         {root,
          {"<a>", depth},
          {"<BypassDownloader>true</BypassDownloader>", 1},
          {"</a>", depth},
          rootEnd},
         "1 0 0 0",
         160 * kMiBInKiB / static_cast<long>(kScale)},
        {"server name",
         {{kListOpen + "<ServerName>", 1}, repeated("gw-"), {"</ServerName>" + kListClose, 1}},
         "0 1 " + std::to_string(huge) + " 0",
         4 * hugeKiB},
        {"version attribute of separators",
         {{"<QuillnetLocalPolicy qnversion=\"", 1}, repeated("...."), {"\"/>", 1}},
         "0 0 0 " + std::to_string(huge),
         6 * hugeKiB},
        {"attribute value",
         {root, {"<Unknown a=\"", 1}, repeated("aaaa"), {"\"/>", 1}, rootEnd},
         "0 0 0 0",
         4 * hugeKiB},
        {"32-byte elements",
         {root, repeated("<e>0123456789abcdefghijklmn</e>\n"), rootEnd},
         "0 0 0 0",
         8 * kMiBInKiB},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        writeLarge(c.pieces);
        const auto describe = [](const LocalQNPolicyInfo& info) {
            const std::list<std::string>& servers = info.GetAuthorizedServerList();
            return std::to_string(info.BypassDownloader()) + " " + std::to_string(servers.size()) +
                   " " + std::to_string(servers.empty() ? 0 : servers.front().size()) + " " +
                   std::to_string(info.GetQNVersion().size());
        };
        EXPECT_EQ(loadInChild(describe, c.limitKiB, kLargeLoadSeconds), "0 " + c.expected);
    }
}

// A setting before the bad bytes and one after: the load fails, keeps the first, never
// applies the second nor the one the bad bytes stand in.
TEST_F(HostileInput, NulBytesAndInvalidUtf8FailTheLoadWithoutApplyingWhatFollows) {
    const char* const badBytes[] = {
        "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\x80",
        "\xE2\x82", "\xFE",         "\xFF"};
    const std::pair<std::string, std::string> places[] = {
        {"<StrictCertificateTrust>tr", "ue</StrictCertificateTrust>"},
        {"<UpdatePolicy><AuthorizedServerList><ServerName>gw",
         "</ServerName></AuthorizedServerList></UpdatePolicy>"},
        {"<Unknown a=\"", "\"/>"},
        {"<!--", "-->"},
    };
    LocalQNPolicyInfo expected;
    expected.BypassDownloader(true);
    std::vector<std::string> sequences(std::begin(badBytes), std::end(badBytes));
    sequences.emplace_back(1, '\0');
    for (const std::string& bad : sequences) {
        for (const auto& [head, tail] : places) {
            SCOPED_TRACE(::testing::PrintToString(bad) + " in " + head);
            std::string content = "<QuillnetLocalPolicy><BypassDownloader>true</BypassDownloader>";
            writePolicy(content.append(head).append(bad).append(tail).append(
                "<RestrictWebLaunch>true</RestrictWebLaunch></QuillnetLocalPolicy>"));
            EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), XMLPARSER_ERROR_NOT_WELL_FORMED);
            EXPECT_EQ(summarize(m_mgr->GetLocalPolicyInfo()), summarize(expected));
        }
    }
    writePolicy(std::string(kMiB, '\0'));
    EXPECT_EQ(m_mgr->LoadLocalQuillnetPolicy(), XMLPARSER_ERROR_NOT_WELL_FORMED);
}

TEST_F(HostileInput, Utf16WithBomAndLatin1DocumentsLoadWithTheRecordOfTheUtf8Original) {
    const std::string utf8 = generateFullPolicy();
    const std::string reference = summarize(loadAsIs());
    ASSERT_NE(reference.find("|8:caf\xC3\xA9-\xC3\x9F|3:gw3"), std::string::npos) << reference;

    const std::string bom = "\xEF\xBB\xBF";
    const std::string declared = "encoding=\"UTF-8\"";
    const std::string utf16 = bom + replaced(utf8, declared, "encoding=\"UTF-16\"");
    const std::pair<const char*, std::string> cases[] = {
        {"UTF-8 with a BOM", bom + utf8},
        {"UTF-16LE with a BOM", converted(utf16, "UTF-16LE")},
        {"UTF-16BE with a BOM", converted(utf16, "UTF-16BE")},
        {"UTF-16LE with a BOM, no declaration",
         converted(bom + utf8.substr(utf8.find("?>") + 2), "UTF-16LE")},
        {"Latin-1 declared",
         converted(replaced(utf8, declared, "encoding=\"ISO-8859-1\""), "ISO-8859-1")},
    };
    for (const auto& [name, bytes] : cases) {
        SCOPED_TRACE(name);
        writePolicy(bytes);
        EXPECT_EQ(summarize(loadAsIs()), reference);
    }
}

// A cut file states only what lies before the cut: cut at every offset, the load fails (but
// for the final line break) and its record is the one a fresh reader makes of the intact part.
TEST_F(HostileInput, TruncatedPolicyLoadsOnlyItsIntactPrefix) {
    const std::string full = generateFullPolicy();
    const std::string complete = summarize(loadAsIs());
    for (size_t cut = 0; cut < full.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        writePolicy(full.substr(0, cut));
        const STATUSCODE status = m_mgr->LoadLocalQuillnetPolicy();
        const std::string loaded = summarize(m_mgr->GetLocalPolicyInfo());
        if (status == XMLLOCALQNPOLMGR_SUCCESS) {
            ASSERT_EQ(full.substr(cut), "\n");
            ASSERT_EQ(loaded, complete);
            continue;
        }
        const std::string intact = intactPart(full.substr(0, cut));
        XmlLocalQNPolMgr reader;
        XmlParser(&reader).parseBuffer(intact.data(), intact.size(), true);
        ASSERT_EQ(loaded, summarize(reader.GetLocalPolicyInfo()));
    }
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// The expat-based XML parser: streaming input, event delivery to an XmlMgr, and the
// refusals that keep a hostile document from reaching beyond its own bytes.

#include "XmlParser.h"

#include <expat.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "AppLog.h"
#include "ErrnoText.h"
#include "UniqueFd.h"

namespace {

constexpr char kSourceFile[] = "vpn/Common/Xml/XmlParser";

// Input is fed to expat in pieces of at least kMinFeed bytes. expat keeps an unfinished token
// (a start tag with a huge attribute, a long comment) and scans it again from its start each
// time more input arrives, so each piece is made as large as the unfinished part: the pending
// bytes at most double per piece, the rescans add up to a small multiple of the token's size,
// and memory stays bounded by twice the largest token plus kMinFeed, whatever the document's
// size. kMaxFeed keeps a piece within expat's int-sized lengths.
constexpr size_t kMinFeed = size_t{64} << 10;
constexpr size_t kMaxFeed = size_t{1} << 30;

// A document smaller than this is read whole and parsed as one final piece, the fastest way
// for a typical policy file. Larger ones are streamed: measured on policies of 0.7 to 7 MB,
// pieces of kMinFeed that stay in the cache beat one large buffer.
constexpr size_t kSingleFeedLimit = kMinFeed;

// Element names quoted in a log record are cut to this many bytes: a name may be as long as
// XmlParser::kMaxNameBytes.
constexpr size_t kQuotedNameBytes = 64;

// The position of a parse event, 1-based as editors show it.
struct Position {
    unsigned long line = 0;
    unsigned long column = 0;
};

// name (of which at most kQuotedNameBytes + 1 bytes need be given) in double quotes, cut to
// kQuotedNameBytes at a UTF-8 character boundary and marked "..." when cut.
std::string quotedName(std::string_view name) {
    if (name.size() <= kQuotedNameBytes) {
        return "\"" + std::string(name) + "\"";
    }
    size_t cut = kQuotedNameBytes;
    while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80) {
        --cut;
    }
    return "\"" + std::string(name.substr(0, cut)) + "...\"";
}

// "<what> over the limit of <limit> <unit> in element <element>", the reason of a refusal.
std::string overLimit(const std::string& what, size_t limit, const char* unit,
                      const std::string& element) {
    return what + " over the limit of " + std::to_string(limit) + " " + unit + " in element " +
           element;
}

// name in double quotes, as a failure record names a document.
std::string quoted(const std::string& name) {
    return "\"" + name + "\"";
}

// "<verb> "<name>" at line L, column C", the start of a failure record that has a position.
std::string located(const char* verb, const std::string& name, const Position& at) {
    return std::string(verb) + " \"" + name + "\" at line " + std::to_string(at.line) +
           ", column " + std::to_string(at.column);
}

}  // namespace

// Where the document's bytes come from: an open regular file, a stream or a caller's buffer. Reads
// fill the requested length unless the input ends first.
class XmlParser::Source {
  public:
    // A file grows while it is read if someone writes it in place; the document is then
    // not the one that was opened, and reading it to its end could take without bound. So
    // no more than its size at open plus kGrowthBytes is accepted.
    Source(int fd, const struct stat& opened)
        : m_fd(fd),
          m_size(static_cast<size_t>(opened.st_size)),
          m_limit(m_size + kGrowthBytes),
          m_modified(opened.st_mtim) {}
    Source(const char* data, size_t size) : m_data(data), m_size(size), m_limit(size) {}
    // A stream (standard input, a pipe) has no size to bound it: kMaxStreamBytes does.
    explicit Source(int fd) : m_fd(fd), m_limit(kMaxStreamBytes), m_bStream(true) {}

    bool streamed() const { return m_bStream; }

    // The document's size when it was opened.
    size_t size() const { return m_size; }
    // The most bytes accepted; a source that had more to give has overflowed().
    size_t limit() const { return m_limit; }
    bool overflowed() const { return m_offset > m_limit; }

    // Copies up to want bytes to dst; rGot < want only at the end of the input or once it
    // has overflowed(). False, with errno in rError, when reading failed.
    bool read(char* dst, size_t want, size_t& rGot, int& rError) {
        rGot = 0;
        // One byte past the limit is read to tell a file that ends there from one that grew.
        want = std::min(want, m_limit + 1 - std::min(m_offset, m_limit + 1));
        if (m_fd < 0) {
            rGot = std::min(want, m_size - m_offset);
            std::memcpy(dst, m_data + m_offset, rGot);
            m_offset += rGot;
            return true;
        }
        while (rGot < want) {
            const ssize_t n = ::read(m_fd, dst + rGot, want - rGot);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n < 0) {
                rError = errno;
                return false;
            }
            if (n == 0) {
                break;
            }
            rGot += static_cast<size_t>(n);
        }
        m_offset += rGot;
        return true;
    }

    // Bytes handed out so far.
    size_t offset() const { return m_offset; }

    // Once every byte is read: why the bytes read may not be one version of the file, or
    // empty when they are. A file rewritten in place while it was read changes its size or
    // its modification time (the kernel gives a write after a stat a time of its own), and
    // its bytes may then mix two versions; a file that cannot be examined again counts as
    // changed. A buffer never changes, and a stream is its own only version.
    std::string changedWhileRead() const {
        if (m_fd < 0 || m_bStream) {
            return std::string();
        }
        struct stat now {};
        if (::fstat(m_fd, &now) != 0) {
            return "fstat failed: " + qnsys::errnoText(errno);
        }
        if (static_cast<size_t>(now.st_size) != m_size || m_offset != m_size) {
            return "its size changed while it was read (" + std::to_string(m_size) +
                   " bytes when it was opened, " + std::to_string(m_offset) + " bytes read, " +
                   std::to_string(static_cast<size_t>(now.st_size)) + " bytes now)";
        }
        if (now.st_mtim.tv_sec != m_modified.tv_sec || now.st_mtim.tv_nsec != m_modified.tv_nsec) {
            return "it was modified while it was read";
        }
        return std::string();
    }

  private:
    int m_fd = -1;
    const char* m_data = nullptr;
    size_t m_size = 0;
    size_t m_limit = 0;
    size_t m_offset = 0;
    struct timespec m_modified {};
    bool m_bStream = false;
};

// One parse: the expat parser, the handler, and the text of the element being read. Lives on
// the stack of XmlParser::parse; expat's callbacks reach it through the user data pointer.
//
// The callbacks of a document that stays within the limits build no text and allocate nothing
// per element once the reused strings have grown: a limit is checked against sizes and the
// depth, and the names of the open elements, which a refusal quotes, are kept one after the
// other in one reused buffer. The text of a refusal is built only when one is made.
class XmlParser::Session {
  public:
    // Why the parse was stopped from inside a callback.
    enum StopReason { STOP_NONE, STOP_DOCTYPE, STOP_ENTITY, STOP_LIMIT, STOP_EXCEPTION };

    Session(XmlMgr* pXmlMgr, bool bSecure)
        : m_pXmlMgr(pXmlMgr), m_parser(XML_ParserCreate(nullptr)) {
        if (m_parser == nullptr) {
            return;
        }
        XML_SetUserData(m_parser.get(), this);
        XML_SetElementHandler(m_parser.get(), &Session::onStart, &Session::onEnd);
        XML_SetCharacterDataHandler(m_parser.get(), &Session::onText);
        // Neither the external DTD subset nor any parameter entity is ever read.
        XML_SetParamEntityParsing(m_parser.get(), XML_PARAM_ENTITY_PARSING_NEVER);
        // A reference to an external general entity stops the parse instead of being dropped,
        // and so does any entity expat would skip: text must never silently lose a part.
        XML_SetExternalEntityRefHandler(m_parser.get(), &Session::onExternalEntity);
        XML_SetSkippedEntityHandler(m_parser.get(), &Session::onSkippedEntity);
        if (bSecure) {
            XML_SetStartDoctypeDeclHandler(m_parser.get(), &Session::onDoctype);
        }
    }

    bool created() const { return m_parser != nullptr; }
    XML_Parser parser() const { return m_parser.get(); }
    StopReason stopReason() const { return m_eStopReason; }
    const Position& stopPosition() const { return m_stopPosition; }
    const std::string& stopDetail() const { return m_stopDetail; }
    std::exception_ptr exception() const { return m_exception; }

    Position currentPosition() const {
        return {XML_GetCurrentLineNumber(m_parser.get()),
                XML_GetCurrentColumnNumber(m_parser.get()) + 1};
    }

    // The innermost open element, quoted as a refusal names it: the leaf being read, or the
    // innermost element that has children.
    std::string openElement() const {
        if (m_bLeafOpen) {
            return quotedName(std::string_view(m_name).substr(0, kQuotedNameBytes + 1));
        }
        if (m_parentNameStarts.empty()) {
            return "(before the root element)";
        }
        return quotedName(std::string_view(m_parentNames).substr(m_parentNameStarts.back()));
    }

  private:
    struct ParserFree {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };

    static Session& self(void* userData) { return *static_cast<Session*>(userData); }

    // Stops the parse for good; expat then reports XML_ERROR_ABORTED. Callbacks that expat
    // still makes for the token being processed are ignored.
    void stop(StopReason reason, std::string detail) {
        m_eStopReason = reason;
        m_stopPosition = currentPosition();
        m_stopDetail = std::move(detail);
        XML_StopParser(m_parser.get(), XML_FALSE);
    }

    // Stops the parse for a refused construct, with the detail describe() builds. Building it,
    // like a handler's step, may throw (memory); an exception is kept for XmlParser::parse to
    // rethrow, because it must not unwind through expat's C frames.
    template <typename Describe>
    void refuse(StopReason reason, Describe describe) {
        try {
            stop(reason, describe());
        } catch (...) {
            m_exception = std::current_exception();
            stop(STOP_EXCEPTION, std::string());
        }
    }

    // The reason a start tag is over a limit, in the order the limits are checked: its name,
    // its depth, then each attribute's name and value.
    std::string startTagOverLimit(const XML_Char* name, size_t nameLength,
                                  const XML_Char** atts) const {
        const std::string element =
            quotedName(std::string_view(name, std::min(nameLength, kQuotedNameBytes + 1)));
        if (nameLength > kMaxNameBytes) {
            return overLimit("element name", kMaxNameBytes, "bytes", element);
        }
        if (openElements() >= kMaxDepth) {
            return overLimit("nesting", kMaxDepth, "levels", element);
        }
        for (const XML_Char** att = atts; att[0] != nullptr; att += 2) {
            if (std::strlen(att[0]) > kMaxNameBytes) {
                return overLimit("attribute name", kMaxNameBytes, "bytes", element);
            }
            if (std::strlen(att[1]) > kMaxTextBytes) {
                const size_t attributeNameLength = ::strnlen(att[0], kQuotedNameBytes + 1);
                return overLimit("value of attribute " +
                                     quotedName(std::string_view(att[0], attributeNameLength)),
                                 kMaxTextBytes, "bytes", element);
            }
        }
        return std::string();
    }

    // The elements open before a start tag: those that have children, and the leaf.
    size_t openElements() const { return m_parentNameStarts.size() + (m_bLeafOpen ? 1 : 0); }

    // Whether a start tag stays within every limit: sizes and the depth only.
    bool startTagWithinLimits(size_t nameLength, const XML_Char** atts) const {
        if (nameLength > kMaxNameBytes || openElements() >= kMaxDepth) {
            return false;
        }
        for (const XML_Char** att = atts; att[0] != nullptr; att += 2) {
            if (std::strlen(att[0]) > kMaxNameBytes || std::strlen(att[1]) > kMaxTextBytes) {
                return false;
            }
        }
        return true;
    }

    // A start tag: the enclosing element now has a child, so its text is dropped; the new
    // element collects text until its end tag or its first child.
    static void XMLCALL onStart(void* userData, const XML_Char* name, const XML_Char** atts) {
        Session& s = self(userData);
        if (s.m_eStopReason != STOP_NONE) {
            return;
        }
        const size_t nameLength = std::strlen(name);
        if (!s.startTagWithinLimits(nameLength, atts)) {
            s.refuseStartTag(name, nameLength, atts);
            return;
        }
        try {
            s.m_textRun = 0;
            if (s.m_bLeafOpen) {
                // The element read so far has a child now: its name joins its parents'.
                s.m_parentNameStarts.push_back(s.m_parentNames.size());
                s.m_parentNames.append(s.m_name, 0, kQuotedNameBytes + 1);
            }
            s.m_text.clear();
            s.m_bLeafOpen = true;
            s.m_name.assign(name, nameLength);
            s.m_pXmlMgr->addElement(s.m_name);
            for (const XML_Char** att = atts; att[0] != nullptr; att += 2) {
                s.m_attributeName.assign(att[0]);
                s.m_attributeValue.assign(att[1]);
                s.m_pXmlMgr->addAttribute(s.m_attributeName, s.m_attributeValue);
            }
        } catch (...) {
            s.keepException();
        }
    }

    // An end tag: a leaf delivers its whole text, if it has any; the enclosing element has had
    // a child, so nothing more is collected until the next start tag.
    static void XMLCALL onEnd(void* userData, const XML_Char* name) {
        Session& s = self(userData);
        if (s.m_eStopReason != STOP_NONE) {
            return;
        }
        try {
            if (s.m_bLeafOpen) {
                // The leaf's end tag: its name is the one its start handed out.
                if (!s.m_text.empty()) {
                    s.m_pXmlMgr->setElementValue(s.m_text);
                }
                s.m_bLeafOpen = false;
                s.m_text.clear();
            } else {
                if (!s.m_parentNameStarts.empty()) {
                    s.m_parentNames.resize(s.m_parentNameStarts.back());
                    s.m_parentNameStarts.pop_back();
                }
                s.m_name.assign(name);
            }
            s.m_textRun = 0;
            s.m_pXmlMgr->endElement(s.m_name);
        } catch (...) {
            s.keepException();
        }
    }

    // Character data arrives in pieces (decoded references, CDATA sections and plain text
    // alike); only a leaf's pieces are kept, but every run of text between two tags counts
    // towards the text limit.
    static void XMLCALL onText(void* userData, const XML_Char* text, int length) {
        Session& s = self(userData);
        if (s.m_eStopReason != STOP_NONE) {
            return;
        }
        s.m_textRun += static_cast<size_t>(length);
        if (s.m_textRun > kMaxTextBytes) {
            s.refuseText();
            return;
        }
        if (s.m_bLeafOpen) {
            try {
                s.m_text.append(text, static_cast<size_t>(length));
            } catch (...) {
                s.keepException();
            }
        }
    }

    // The refusals of the callbacks, out of their way: a document within the limits never
    // runs them.
    [[gnu::noinline, gnu::cold]] void refuseStartTag(const XML_Char* name, size_t nameLength,
                                                     const XML_Char** atts) {
        refuse(STOP_LIMIT, [this, name, nameLength, atts] {
            return startTagOverLimit(name, nameLength, atts);
        });
    }
    [[gnu::noinline, gnu::cold]] void refuseText() {
        refuse(STOP_LIMIT,
               [this] { return overLimit("text", kMaxTextBytes, "bytes", openElement()); });
    }

    // A handler's exception (or a failed allocation) stops the parse; parse rethrows it.
    [[gnu::noinline, gnu::cold]] void keepException() {
        m_exception = std::current_exception();
        stop(STOP_EXCEPTION, std::string());
    }

    static void XMLCALL onDoctype(void* userData, const XML_Char* doctypeName,
                                  const XML_Char* /*sysid*/, const XML_Char* /*pubid*/,
                                  int /*hasInternalSubset*/) {
        Session& s = self(userData);
        if (s.m_eStopReason == STOP_NONE) {
            s.refuse(STOP_DOCTYPE, [doctypeName] { return std::string(doctypeName); });
        }
    }

    static int XMLCALL onExternalEntity(XML_Parser parser, const XML_Char* /*context*/,
                                        const XML_Char* /*base*/, const XML_Char* systemId,
                                        const XML_Char* /*publicId*/) {
        Session& s = self(XML_GetUserData(parser));
        if (s.m_eStopReason == STOP_NONE) {
            s.refuse(STOP_ENTITY,
                     [systemId] { return std::string("external entity \"") + systemId + "\""; });
        }
        return XML_STATUS_ERROR;
    }

    static void XMLCALL onSkippedEntity(void* userData, const XML_Char* entityName,
                                        int isParameterEntity) {
        Session& s = self(userData);
        if (s.m_eStopReason == STOP_NONE) {
            s.refuse(STOP_ENTITY, [entityName, isParameterEntity] {
                return std::string(isParameterEntity != 0 ? "%" : "&") + entityName +
                       "; that was not declared or read";
            });
        }
    }

    XmlMgr* m_pXmlMgr;
    std::unique_ptr<XML_ParserStruct, ParserFree> m_parser;
    std::string m_text;        // the text of the open leaf so far
    size_t m_textRun = 0;      // bytes of text since the last tag
    bool m_bLeafOpen = false;  // an element is open and has no child yet; m_name is its name
    // The names of the open elements that have children, each cut to kQuotedNameBytes + 1
    // bytes, one after the other, and where each starts: with the leaf, what a refusal quotes
    // and the depth. A leaf costs nothing here.
    std::string m_parentNames;
    std::vector<size_t> m_parentNameStarts;
    std::string m_name;           // reused for every element name handed out
    std::string m_attributeName;  // reused for every attribute handed out
    std::string m_attributeValue;
    StopReason m_eStopReason = STOP_NONE;
    Position m_stopPosition;
    std::string m_stopDetail;
    std::exception_ptr m_exception;
};

XmlParser::XmlParser(XmlMgr* pXmlMgr) : m_pXmlMgr(pXmlMgr) {}

XmlParser::~XmlParser() = default;

// Each asks expat for its own half only: an observer asks for both at every event, and each
// question makes expat bring its position up to the event.
unsigned long XmlParser::CurrentLine() const {
    return m_pSession != nullptr ? XML_GetCurrentLineNumber(m_pSession->parser()) : 0;
}

unsigned long XmlParser::CurrentColumn() const {
    return m_pSession != nullptr ? XML_GetCurrentColumnNumber(m_pSession->parser()) + 1 : 0;
}

STATUSCODE XmlParser::fail(const char* function, int sourceLine, STATUSCODE status,
                           const std::string& message, Failure failure) {
    m_lastFailure = std::move(failure);
    if (m_bLogFailures) {
        CAppLog::LogDebugMessage(function, kSourceFile, sourceLine, Logging::DBG_Error, "%s: %s",
                                 message.c_str(), m_lastFailure.reason.c_str());
    }
    return status;
}

STATUSCODE XmlParser::parseFile(const std::string& path, bool bSecure) {
    m_lastFailure = Failure();
    if (m_pXmlMgr == nullptr) {
        return fail("parseFile", __LINE__, XMLPARSER_ERROR_NULL_POINTER,
                    "Cannot parse " + quoted(path), {0, 0, "no event handler was given"});
    }
    // O_NONBLOCK: opening a FIFO without a writer must not wait. Links are followed; what
    // the path finally names must be a regular file, so a device (/dev/zero) or a directory
    // is refused before a byte is read.
    const qnsys::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid()) {
        const int error = errno;
        return fail("parseFile", __LINE__, XMLPARSER_ERROR_FILE_OPEN,
                    "Cannot open " + quoted(path) + ": open failed",
                    {0, 0, qnsys::errnoText(error)});
    }

    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) {
        const int error = errno;
        return fail("parseFile", __LINE__, XMLPARSER_ERROR_FILE_OPEN,
                    "Cannot examine " + quoted(path) + ": fstat failed",
                    {0, 0, qnsys::errnoText(error)});
    }
    if (!S_ISREG(info.st_mode)) {
        return fail("parseFile", __LINE__, XMLPARSER_ERROR_FILE_OPEN,
                    "Cannot parse " + quoted(path), {0, 0, "not a regular file"});
    }
    Source source(fd.get(), info);
    return parse(source, bSecure, path, "parseFile");
}

STATUSCODE XmlParser::parseBuffer(const char* data, size_t size, bool bSecure,
                                  const std::string& name) {
    m_lastFailure = Failure();
    if (m_pXmlMgr == nullptr || (data == nullptr && size != 0)) {
        return fail(
            "parseBuffer", __LINE__, XMLPARSER_ERROR_NULL_POINTER, "Cannot parse \"" + name + "\"",
            {0, 0, m_pXmlMgr == nullptr ? "no event handler was given" : "the buffer is null"});
    }
    Source source(data, size);
    return parse(source, bSecure, name, "parseBuffer");
}

STATUSCODE XmlParser::parseStream(int fd, bool bSecure, const std::string& name) {
    m_lastFailure = Failure();
    if (m_pXmlMgr == nullptr) {
        return fail("parseStream", __LINE__, XMLPARSER_ERROR_NULL_POINTER,
                    "Cannot parse " + quoted(name), {0, 0, "no event handler was given"});
    }
    Source source(fd);
    return parse(source, bSecure, name, "parseStream");
}

STATUSCODE XmlParser::parse(Source& source, bool bSecure, const std::string& name,
                            const char* function) {
    Session session(m_pXmlMgr, bSecure);
    if (!session.created()) {
        return fail(function, __LINE__, XMLPARSER_ERROR_MEMALLOC_FAILED,
                    "Cannot parse " + quoted(name), {0, 0, "the XML parser could not be created"});
    }
    // CurrentLine() and CurrentColumn() answer from this session until the parse ends, however
    // it ends.
    struct SessionScope {
        Session*& rpSession;
        ~SessionScope() { rpSession = nullptr; }
    } scope{m_pSession};
    m_pSession = &session;
    const std::optional<STATUSCODE> fed = feed(source, session, name, function);
    return fed.has_value() ? *fed : stoppedStatus(session, name, function);
}

STATUSCODE XmlParser::overflowStatus(const Source& source, const Session& session,
                                     const std::string& name, const char* function) {
    if (source.streamed()) {
        // Where the parse had got to: what was read before stays read, as for any refusal.
        const Position at = session.currentPosition();
        return fail(function, __LINE__, XMLPARSER_ERROR_LIMIT_EXCEEDED,
                    located("Refused", name, at),
                    {at.line, at.column,
                     "more than " + std::to_string(source.limit()) +
                         " bytes of input, the most a stream may hold"});
    }
    return fail(function, __LINE__, XMLPARSER_ERROR_FILE_CHANGED, "Refused " + quoted(name),
                {0, 0,
                 "it grew past " + std::to_string(source.limit()) + " bytes while it was read (" +
                     std::to_string(source.size()) + " bytes when it was opened)"});
}

std::optional<STATUSCODE> XmlParser::feed(Source& source, Session& session, const std::string& name,
                                          const char* function) {
    XML_Parser parser = session.parser();
    size_t want =
        !source.streamed() && source.size() < kSingleFeedLimit ? source.size() + 1 : kMinFeed;
    // A streamed document's first buffer has room for the next piece too, beside what expat
    // keeps of the first: expat then reuses it for every later piece of that size instead of
    // allocating a larger one after the first.
    size_t room = want < kMinFeed ? want : 2 * kMinFeed;
    for (;;) {
        void* buffer = XML_GetBuffer(parser, static_cast<int>(std::max(want, room)));
        room = 0;
        if (buffer == nullptr) {
            return fail(function, __LINE__, XMLPARSER_ERROR_MEMALLOC_FAILED,
                        "Cannot parse " + quoted(name),
                        {0, 0, "no memory for " + std::to_string(want) + " bytes of input"});
        }
        size_t got = 0;
        int error = 0;
        if (!source.read(static_cast<char*>(buffer), want, got, error)) {
            return fail(function, __LINE__, XMLPARSER_ERROR_FILE_READ,
                        "Reading " + quoted(name) + " failed after " +
                            std::to_string(source.offset()) + " bytes: read failed",
                        {0, 0, qnsys::errnoText(error)});
        }
        if (source.overflowed()) {
            return overflowStatus(source, session, name, function);
        }
        const bool bFinal = got < want;
        // Checked before the last piece is parsed: the events of a mixed document up to here
        // may have been delivered, but no load succeeds with it.
        const std::string changed = bFinal ? source.changedWhileRead() : std::string();
        if (!changed.empty()) {
            return fail(function, __LINE__, XMLPARSER_ERROR_FILE_CHANGED, "Refused " + quoted(name),
                        {0, 0, changed});
        }
        if (XML_ParseBuffer(parser, static_cast<int>(got), bFinal ? XML_TRUE : XML_FALSE) !=
            XML_STATUS_OK) {
            return std::nullopt;
        }
        if (bFinal) {
            return XMLPARSER_SUCCESS;
        }
        // The bytes expat holds back are the unfinished token; the next piece matches them.
        const XML_Index parsed = XML_GetCurrentByteIndex(parser);
        const size_t pending = parsed >= 0 && static_cast<size_t>(parsed) <= source.offset()
                                   ? source.offset() - static_cast<size_t>(parsed)
                                   : 0;
        if (pending > kMaxMarkupBytes) {
            const Position at = session.currentPosition();
            return fail(function, __LINE__, XMLPARSER_ERROR_LIMIT_EXCEEDED,
                        located("Refused", name, at),
                        {at.line, at.column,
                         overLimit("markup (a start tag with its attributes, a comment or a "
                                   "processing instruction)",
                                   kMaxMarkupBytes, "bytes", session.openElement())});
        }
        want = std::clamp(pending, kMinFeed, kMaxFeed);
    }
}

STATUSCODE XmlParser::stoppedStatus(const Session& session, const std::string& name,
                                    const char* function) {
    const Position& stopped = session.stopPosition();
    switch (session.stopReason()) {
        case Session::STOP_DOCTYPE:
            return fail(function, __LINE__, XMLPARSER_ERROR_DOCTYPE_REFUSED,
                        located("Refused", name, stopped),
                        {stopped.line, stopped.column,
                         "document type declaration \"" + session.stopDetail() +
                             "\" (a secure parse accepts no DTD)"});
        case Session::STOP_ENTITY:
            return fail(
                function, __LINE__, XMLPARSER_ERROR_ENTITY_REFUSED,
                located("Refused", name, stopped),
                {stopped.line, stopped.column,
                 session.stopDetail() + " (entities from outside the document are never read)"});
        case Session::STOP_LIMIT:
            return fail(function, __LINE__, XMLPARSER_ERROR_LIMIT_EXCEEDED,
                        located("Refused", name, stopped),
                        {stopped.line, stopped.column, session.stopDetail()});
        case Session::STOP_EXCEPTION:
            fail(function, __LINE__, XMLPARSER_ERROR_UNKNOWN, located("Parsing", name, stopped),
                 {stopped.line, stopped.column, "the event handler threw an exception"});
            std::rethrow_exception(session.exception());
        case Session::STOP_NONE:
            break;
    }
    XML_Parser parser = session.parser();
    const XML_Error code = XML_GetErrorCode(parser);
    const Position at{XML_GetErrorLineNumber(parser), XML_GetErrorColumnNumber(parser) + 1};
    STATUSCODE status = XMLPARSER_ERROR_NOT_WELL_FORMED;
    switch (code) {
        case XML_ERROR_NO_MEMORY:
            status = XMLPARSER_ERROR_MEMALLOC_FAILED;
            break;
        case XML_ERROR_AMPLIFICATION_LIMIT_BREACH:
        case XML_ERROR_RECURSIVE_ENTITY_REF:
        case XML_ERROR_EXTERNAL_ENTITY_HANDLING:
            status = XMLPARSER_ERROR_ENTITY_REFUSED;
            break;
        default:
            break;
    }
    return fail(function, __LINE__, status, located("Cannot parse", name, at),
                {at.line, at.column, XML_ErrorString(code)});
}

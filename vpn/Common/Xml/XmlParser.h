// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_XMLPARSER_H
#define QUILLNET_XMLPARSER_H

#include <cstddef>
#include <optional>
#include <string>

#include "GenDefs.h"
#include "GlobalStatuscodes.h"
#include "XmlMgr.h"

// Status codes of the XML parser (block 0xA1).
enum XMLPARSER_ERRORS : STATUSCODE {
    XMLPARSER_SUCCESS = 0,
    XMLPARSER_NOTERROR_BASEVALUE = STATUSCODE_BLOCK_BASE(0xA1),
    XMLPARSER_ERROR_NOT_IMPLEMENTED =
        XMLPARSER_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_NOT_IMPLEMENTED,
    XMLPARSER_ERROR_MEMALLOC_FAILED =
        XMLPARSER_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_MEMALLOC_FAILED,
    XMLPARSER_ERROR_NULL_POINTER = XMLPARSER_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_NULL_POINTER,
    // The module's own codes.
    // The file is missing, not a regular file, or not accessible.
    XMLPARSER_ERROR_FILE_OPEN = XMLPARSER_NOTERROR_BASEVALUE + 11,
    // read(2) failed part-way.
    XMLPARSER_ERROR_FILE_READ = XMLPARSER_NOTERROR_BASEVALUE + 12,
    // expat reported an error: not well-formed, bad encoding, truncated.
    XMLPARSER_ERROR_NOT_WELL_FORMED = XMLPARSER_NOTERROR_BASEVALUE + 13,
    // bSecure and the document has a DOCTYPE.
    XMLPARSER_ERROR_DOCTYPE_REFUSED = XMLPARSER_NOTERROR_BASEVALUE + 14,
    // An external, undeclared or over-amplified entity.
    XMLPARSER_ERROR_ENTITY_REFUSED = XMLPARSER_NOTERROR_BASEVALUE + 15,
    // A text, name, attribute value, piece of markup or nesting depth over its limit (the
    // limits are XmlParser's constants).
    XMLPARSER_ERROR_LIMIT_EXCEEDED = XMLPARSER_NOTERROR_BASEVALUE + 16,
    // The file changed while it was read (its size or modification time), so the bytes read
    // may mix two versions of it; or it grew past what its size at open allows.
    XMLPARSER_ERROR_FILE_CHANGED = XMLPARSER_NOTERROR_BASEVALUE + 17,
    XMLPARSER_ERROR_UNKNOWN = XMLPARSER_NOTERROR_BASEVALUE + 18,
};

// XmlParser parses one XML document and delivers its events to an XmlMgr handler on the
// calling thread (see XmlMgr.h for the order).
//
//   XmlParser parser(&handler);
//   if (parser.parseFile(path, true) != XMLPARSER_SUCCESS) {
//       const XmlParser::Failure& why = parser.LastFailure();   // line, column, reason
//   }
//
// The input is streamed: memory grows with the largest single token or leaf text, not with
// the document, and both are bounded. In both modes the parser refuses, with
// XMLPARSER_ERROR_LIMIT_EXCEEDED and one record naming the limit, the element, the line and
// the column:
//   - a text of one element (the character data between two tags, entities expanded) over
//     kMaxTextBytes, an attribute value over kMaxTextBytes, an element or attribute name
//     over kMaxNameBytes, and nesting deeper than kMaxDepth elements;
//   - a piece of markup over kMaxMarkupBytes (a start tag with all its attributes, a
//     comment, a processing instruction, a declaration), checked while expat is still
//     collecting it, so that a huge attribute value is refused before it is held whole.
// A file that changes while it is read is refused with XMLPARSER_ERROR_FILE_CHANGED: one that
// grows is read no further than its size at open plus kGrowthBytes, and one whose size or
// modification time differs once it is read to its end is refused before its last piece is
// parsed, so that no parse succeeds over bytes that mix two versions of a file rewritten in
// place (replace a policy file by renaming a complete new one over it). Altogether a parse holds at
// most a few times kMaxMarkupBytes, whatever the input. With bSecure a document type declaration is
// refused before any element is delivered; without it a DTD is tolerated, but nothing outside the
// document (external DTD subset, external or parameter entity) is ever read: a reference to one
// fails the parse. Every failure is logged once, naming the document, line, column and reason, and
// described by LastFailure() as values. An exception thrown by the handler stops the parse and
// passes on to the caller of parseFile. Nothing is formatted while a parse goes well: the text
// of a refusal is built only when one is made.
class XmlParser {
  public:
    // The limits, chosen at or a little above those the most trusted XML parsers ship by
    // default (10,000,000 bytes of text, 50,000 bytes of name, 256 levels): far beyond any
    // policy file, far below what would strain a client machine.
    static constexpr size_t kMaxTextBytes = 10000000;
    static constexpr size_t kMaxNameBytes = 50000;
    static constexpr size_t kMaxDepth = 256;
    // One attribute value at the text limit, with its element's and its own name at theirs,
    // always fits; several large values in one start tag may not.
    static constexpr size_t kMaxMarkupBytes = kMaxTextBytes + 2 * kMaxNameBytes + 64;
    static constexpr size_t kGrowthBytes = size_t{64} << 10;
    // The most a stream (parseStream) may hold: far beyond any policy file, and a bound on
    // the time and memory an endless input costs.
    static constexpr size_t kMaxStreamBytes = size_t{64} << 20;

    // The handler is remembered, not owned; it must outlive the parser.
    explicit XmlParser(XmlMgr* pXmlMgr);
    virtual ~XmlParser();
    XmlParser(const XmlParser&) = delete;
    XmlParser& operator=(const XmlParser&) = delete;

    // Parses the file at path; 0 when the document was parsed to its end.
    STATUSCODE parseFile(const std::string& path, bool bSecure);

    // Parses what fd delivers until its end (standard input, a pipe: anything read() reads)
    // the same way, as it arrives, and refuses it (XMLPARSER_ERROR_LIMIT_EXCEEDED) once it
    // has delivered more than kMaxStreamBytes; name stands for it in the log. fd stays open.
    STATUSCODE parseStream(int fd, bool bSecure, const std::string& name);

    // Parses an in-memory document the same way; name stands for the document in the log.
    STATUSCODE parseBuffer(const char* data, size_t size, bool bSecure,
                           const std::string& name = "<buffer>");

    // During a callback: the 1-based line and column where the markup that caused the event
    // starts (for setElementValue, the end tag that completes the text). 0 outside a parse.
    unsigned long CurrentLine() const;
    unsigned long CurrentColumn() const;

    // Where and why the last parse failed, as its failure record says: the 1-based line and
    // column (both 0 when the failure concerns the input as a whole, such as a file that cannot
    // be opened) and the reason ("mismatched tag", "Permission denied"). All empty after a
    // parse that succeeded.
    struct Failure {
        unsigned long line = 0;
        unsigned long column = 0;
        std::string reason;
    };
    const Failure& LastFailure() const { return m_lastFailure; }

    // With false, a failure is not logged; LastFailure() still describes it. For callers that
    // report a failure in their own words (a linter that turns it into a finding).
    void LogFailures(bool bLog) { m_bLogFailures = bLog; }

  private:
    // Defined in XmlParser.cpp: where the document's bytes come from, and the state of the
    // parse that is running.
    class Source;
    class Session;

    STATUSCODE parse(Source& source, bool bSecure, const std::string& name, const char* function);
    // The feed loop: reads the source piece by piece into expat's buffer and parses each piece.
    // The status when the input decided the parse (0 at its end, or a failure of reading it),
    // or nothing when expat stopped on the document, for stoppedStatus to say why.
    std::optional<STATUSCODE> feed(Source& source, Session& session, const std::string& name,
                                   const char* function);
    // The refusal of a source that delivered more than its limit: a stream past
    // kMaxStreamBytes, or a file that grew while it was read.
    STATUSCODE overflowStatus(const Source& source, const Session& session, const std::string& name,
                              const char* function);
    // The status of a parse that expat stopped, logged once: the refusal a callback made, or
    // expat's own error.
    STATUSCODE stoppedStatus(const Session& session, const std::string& name, const char* function);
    // Records a failure, logs it (unless LogFailures(false)) as "<message>: <reason>" and
    // returns status.
    STATUSCODE fail(const char* function, int sourceLine, STATUSCODE status,
                    const std::string& message, Failure failure);

    XmlMgr* m_pXmlMgr;
    Session* m_pSession = nullptr;  // set only while a parse runs
    Failure m_lastFailure;
    bool m_bLogFailures = true;
};

#endif  // QUILLNET_XMLPARSER_H

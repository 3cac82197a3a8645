#ifndef XMLPARSER_H
#define XMLPARSER_H

#include <cstddef>
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
    XMLPARSER_ERROR_FILE_OPEN =
        XMLPARSER_NOTERROR_BASEVALUE + 11,  // missing, not a regular file, no access
    XMLPARSER_ERROR_FILE_READ = XMLPARSER_NOTERROR_BASEVALUE + 12,        // read(2) failed part-way
    XMLPARSER_ERROR_NOT_WELL_FORMED = XMLPARSER_NOTERROR_BASEVALUE + 13,  // expat reported an error
    XMLPARSER_ERROR_DOCTYPE_REFUSED = XMLPARSER_NOTERROR_BASEVALUE + 14,  // bSecure and a DOCTYPE
    XMLPARSER_ERROR_ENTITY_REFUSED =
        XMLPARSER_NOTERROR_BASEVALUE + 15,  // external, undeclared or over-amplified entity
    XMLPARSER_ERROR_UNKNOWN = XMLPARSER_NOTERROR_BASEVALUE + 16,
};

// XmlParser parses one XML document and delivers its events to an XmlMgr handler on the
// calling thread (see XmlMgr.h for the order).
//
//   XmlParser parser(&handler);
//   if (parser.parseFile(path, true) != XMLPARSER_SUCCESS) { ... }  // the reason is logged
//
// The input is streamed: memory grows with the largest single token or leaf text, not with
// the document. With bSecure a document type declaration is refused before any element is
// delivered; without it a DTD is tolerated, but nothing outside the document (external DTD
// subset, external or parameter entity) is ever read: a reference to one fails the parse.
// Every failure is logged once, naming the document, line, column and reason. An exception
// thrown by the handler stops the parse and passes on to the caller of parseFile.
class XmlParser {
  public:
    // The handler is remembered, not owned; it must outlive the parser.
    explicit XmlParser(XmlMgr* pXmlMgr);
    virtual ~XmlParser();
    XmlParser(const XmlParser&) = delete;
    XmlParser& operator=(const XmlParser&) = delete;

    // Parses the file at path; 0 when the document was parsed to its end.
    STATUSCODE parseFile(const std::string& path, bool bSecure);

    // Parses an in-memory document the same way; name stands for the document in the log.
    STATUSCODE parseBuffer(const char* data, size_t size, bool bSecure,
                           const std::string& name = "<buffer>");

    // During a callback: the 1-based line and column where the markup that caused the event
    // starts (for setElementValue, the end tag that completes the text). 0 outside a parse.
    unsigned long CurrentLine() const;
    unsigned long CurrentColumn() const;

  private:
    // Defined in XmlParser.cpp: where the document's bytes come from, and the state of the
    // parse that is running.
    class Source;
    class Session;

    STATUSCODE parse(Source& source, bool bSecure, const std::string& name, const char* function);

    XmlMgr* m_pXmlMgr;
    Session* m_pSession = nullptr;  // set only while a parse runs
};

#endif  // XMLPARSER_H

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
    XMLPARSER_ERROR_NOT_IMPLEMENTED = XMLPARSER_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_NOT_IMPLEMENTED,
    XMLPARSER_ERROR_NULL_POINTER = XMLPARSER_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_NULL_POINTER,
};

// XmlParser parses one XML document and delivers its events to an XmlMgr handler on the
// calling thread (see XmlMgr.h for the order).
class XmlParser {
public:
    // The handler is remembered, not owned; it must outlive the parser.
    explicit XmlParser(XmlMgr* pXmlMgr);
    virtual ~XmlParser();
    XmlParser(const XmlParser&) = delete;
    XmlParser& operator=(const XmlParser&) = delete;

    // Parses the file at path; 0 when the document was parsed to its end.
    STATUSCODE parseFile(const std::string& path, bool bSecure);

private:
    XmlMgr* m_pXmlMgr;
};

#endif  // XMLPARSER_H

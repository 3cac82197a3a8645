#include "XmlParser.h"

// Placeholder until the expat-based parser lands: every parse reports "not implemented".
XmlParser::XmlParser(XmlMgr* pXmlMgr) : m_pXmlMgr(pXmlMgr) {}
XmlParser::~XmlParser() = default;
STATUSCODE XmlParser::parseBuffer(const char* /*data*/, size_t /*size*/, bool /*bSecure*/,
                                  const std::string& /*name*/) {
    return XMLPARSER_ERROR_NOT_IMPLEMENTED;
}
unsigned long XmlParser::CurrentLine() const { return 0; }
unsigned long XmlParser::CurrentColumn() const { return 0; }
STATUSCODE XmlParser::parseFile(const std::string& /*path*/, bool /*bSecure*/) {
    return m_pXmlMgr == nullptr ? XMLPARSER_ERROR_NULL_POINTER : XMLPARSER_ERROR_NOT_IMPLEMENTED;
}

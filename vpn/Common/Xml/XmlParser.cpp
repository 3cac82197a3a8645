#include "XmlParser.h"

// Placeholder until the expat-based parser lands: every parse reports "not implemented".
XmlParser::XmlParser(XmlMgr* pXmlMgr) : m_pXmlMgr(pXmlMgr) {}
XmlParser::~XmlParser() = default;
STATUSCODE XmlParser::parseFile(const std::string& /*path*/, bool /*bSecure*/) {
    return m_pXmlMgr == nullptr ? XMLPARSER_ERROR_NULL_POINTER : XMLPARSER_ERROR_NOT_IMPLEMENTED;
}

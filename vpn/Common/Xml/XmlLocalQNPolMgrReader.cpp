#include "XmlLocalQNPolMgr.h"

// Placeholder until the document reader lands: events are ignored.
void XmlLocalQNPolMgr::addElement(const std::string& /*elementName*/) {}
void XmlLocalQNPolMgr::endElement(const std::string& /*elementName*/) {}
void XmlLocalQNPolMgr::setElementValue(const std::string& /*elementValue*/) {}
void XmlLocalQNPolMgr::addAttribute(const std::string& /*attributeName*/, const std::string& /*attributeValue*/) {}

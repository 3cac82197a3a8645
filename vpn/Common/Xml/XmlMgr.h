// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_XMLMGR_H
#define QUILLNET_XMLMGR_H

#include <string>

// XmlMgr receives the events of one XML parse (see XmlParser). Every callback has an empty
// default, so a handler overrides only what it needs; none can stop or steer the parse.
//
// For each element, in document order: addElement(name) at its start tag; addAttribute once
// per attribute, before anything else of the element; the character data of an element
// without child elements in one setElementValue call at its end; the events of its
// children; endElement(name) at its end tag.
class XmlMgr {
  public:
    XmlMgr() = default;
    XmlMgr(const XmlMgr&) = default;
    XmlMgr& operator=(const XmlMgr&) = default;
    virtual ~XmlMgr() = default;

    virtual void addElement(const std::string& /*elementName*/) {}
    virtual void endElement(const std::string& /*elementName*/) {}
    virtual void setElementValue(const std::string& /*elementValue*/) {}
    virtual void addAttribute(const std::string& /*attributeName*/,
                              const std::string& /*attributeValue*/) {}
};

#endif  // QUILLNET_XMLMGR_H

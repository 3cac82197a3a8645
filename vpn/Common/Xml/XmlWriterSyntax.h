// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_XMLWRITERSYNTAX_H
#define QUILLNET_XMLWRITERSYNTAX_H

// The XML 1.0 rules the document writer enforces and the escaping it applies. Internal to
// the XML layer: not installed.
//
//   if (!qnxml::isXmlName(name)) { ...refuse... }
//   size_t bad = qnxml::findInvalidXmlText(text);   // npos when text is fine
//   qnxml::appendEscapedText(document, text);

#include <cstddef>
#include <string>

namespace qnxml {

// True when name matches XML 1.0's Name production (fifth edition), encoded as strict UTF-8.
bool isXmlName(const std::string& name);

// The byte offset of the first character that XML 1.0 cannot carry: a byte sequence that is
// not strict UTF-8 (overlong forms, encoded surrogates, values above U+10FFFF, truncated or
// stray continuation bytes), or a code point outside the Char production (controls other
// than tab, line feed and carriage return; U+FFFE; U+FFFF). std::string::npos when the whole
// text is acceptable.
size_t findInvalidXmlText(const std::string& text);

// Appends text as element content: '&', '<', '>' and carriage return become "&amp;",
// "&lt;", "&gt;" and "&#13;" (a raw carriage return would be normalised away by a parser).
void appendEscapedText(std::string& out, const std::string& text);

// Appends value for use between double quotes: '&', '<', '"', tab, line feed and carriage
// return become "&amp;", "&lt;", "&quot;", "&#9;", "&#10;" and "&#13;" (raw white space
// would be normalised to spaces by a parser).
void appendEscapedAttribute(std::string& out, const std::string& value);

// The same, as a new string: for documents composed with +.
inline std::string escapedText(const std::string& text) {
    std::string out;
    appendEscapedText(out, text);
    return out;
}
inline std::string escapedAttribute(const std::string& value) {
    std::string out;
    appendEscapedAttribute(out, value);
    return out;
}

}  // namespace qnxml

#endif  // QUILLNET_XMLWRITERSYNTAX_H

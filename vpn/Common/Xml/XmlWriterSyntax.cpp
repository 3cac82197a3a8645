// SPDX-License-Identifier: Apache-2.0
// XML 1.0 name and character rules, strict UTF-8 decoding, and escaping for the writer.

#include "XmlWriterSyntax.h"

namespace {

// Decodes the code point at pos as strict UTF-8 (the well-formed byte sequences of the
// Unicode standard, table 3-7) and advances pos past it. False, pos unchanged, for any other
// byte sequence: overlong forms, encoded surrogates, values above U+10FFFF, truncation.
bool decodeUtf8(const std::string& text, size_t& pos, char32_t& codePoint) {
    const auto lead = static_cast<unsigned char>(text[pos]);
    if (lead < 0x80) {
        codePoint = lead;
        ++pos;
        return true;
    }
    size_t length = 0;
    unsigned char secondLow = 0x80;
    unsigned char secondHigh = 0xBF;
    char32_t value = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        value = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        value = lead & 0x0Fu;
        if (lead == 0xE0) {
            secondLow = 0xA0;  // below: overlong
        } else if (lead == 0xED) {
            secondHigh = 0x9F;  // above: surrogates U+D800..U+DFFF
        }
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        value = lead & 0x07u;
        if (lead == 0xF0) {
            secondLow = 0x90;  // below: overlong
        } else if (lead == 0xF4) {
            secondHigh = 0x8F;  // above: beyond U+10FFFF
        }
    } else {
        return false;  // continuation byte, C0/C1 (always overlong) or F5..FF
    }
    if (text.size() - pos < length) {
        return false;
    }
    for (size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[pos + i]);
        const unsigned char low = i == 1 ? secondLow : 0x80;
        const unsigned char high = i == 1 ? secondHigh : 0xBF;
        if (byte < low || byte > high) {
            return false;
        }
        value = (value << 6) | (byte & 0x3Fu);
    }
    codePoint = value;
    pos += length;
    return true;
}

// XML 1.0 Char: tab, line feed, carriage return, and the planes without surrogates, U+FFFE
// and U+FFFF (surrogates never decode).
bool isXmlChar(char32_t c) {
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

// XML 1.0 (fifth edition) NameStartChar.
bool isNameStartChar(char32_t c) {
    return c == ':' || (c >= 'A' && c <= 'Z') || c == '_' || (c >= 'a' && c <= 'z') ||
           (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
           (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) ||
           (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
           (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0xEFFFF);
}

// XML 1.0 (fifth edition) NameChar.
bool isNameChar(char32_t c) {
    return isNameStartChar(c) || c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

// The replacement for a byte of element content, or null when the byte is copied as is.
struct TextEscape {
    const char* operator()(char c) const {
        switch (c) {
            case '&':
                return "&amp;";
            case '<':
                return "&lt;";
            case '>':
                return "&gt;";  // also keeps "]]>" out of content
            case '\r':
                return "&#13;";
            default:
                return nullptr;
        }
    }
};

// The replacement for a byte of an attribute value, or null when the byte is copied as is.
struct AttributeEscape {
    const char* operator()(char c) const {
        switch (c) {
            case '&':
                return "&amp;";
            case '<':
                return "&lt;";
            case '"':
                return "&quot;";
            case '\t':
                return "&#9;";
            case '\n':
                return "&#10;";
            case '\r':
                return "&#13;";
            default:
                return nullptr;
        }
    }
};

// Appends text, copying runs of plain bytes in one piece and replacing the others. The
// escape is a function object so that the per-byte test is inlined.
template <typename Escape>
void appendEscaped(std::string& out, const std::string& text, Escape escape) {
    size_t runStart = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char* replacement = escape(text[i]);
        if (replacement != nullptr) {
            out.append(text, runStart, i - runStart);
            out.append(replacement);
            runStart = i + 1;
        }
    }
    out.append(text, runStart, std::string::npos);
}

}  // namespace

namespace qnxml {

bool isXmlName(const std::string& name) {
    size_t pos = 0;
    while (pos < name.size()) {
        const bool bFirst = pos == 0;
        char32_t c = 0;
        if (static_cast<unsigned char>(name[pos]) < 0x80) {
            c = static_cast<unsigned char>(name[pos]);  // ASCII, the common case
            ++pos;
        } else if (!decodeUtf8(name, pos, c)) {
            return false;
        }
        if (!(bFirst ? isNameStartChar(c) : isNameChar(c))) {
            return false;
        }
    }
    return !name.empty();
}

size_t findInvalidXmlText(const std::string& text) {
    size_t pos = 0;
    while (pos < text.size()) {
        const auto byte = static_cast<unsigned char>(text[pos]);
        if (byte >= 0x20 && byte < 0x80) {
            ++pos;  // printable ASCII, the common case
            continue;
        }
        const size_t start = pos;
        char32_t c = 0;
        if (!decodeUtf8(text, pos, c) || !isXmlChar(c)) {
            return start;
        }
    }
    return std::string::npos;
}

void appendEscapedText(std::string& out, const std::string& text) {
    appendEscaped(out, text, TextEscape());
}

void appendEscapedAttribute(std::string& out, const std::string& value) {
    appendEscaped(out, value, AttributeEscape());
}

}  // namespace qnxml

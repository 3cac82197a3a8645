#include "TextFormat.h"

#include <cstdio>

namespace qnpolicy::tool {

namespace {

// Appends c, escaped when it is a control character, a quote (bQuoteEscaped) or a backslash.
void appendEscaped(std::string& out, char c, bool bQuoteEscaped) {
    switch (c) {
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        case '\t':
            out += "\\t";
            return;
        case '\\':
            out += bQuoteEscaped ? "\\\\" : "\\";
            return;
        case '"':
            out += bQuoteEscaped ? "\\\"" : "\"";
            return;
        default:
            break;
    }
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned int>(byte));
        out += escaped;
        return;
    }
    out.push_back(c);
}

}  // namespace

std::string HexText(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned int>(value));
    return text;
}

std::string Quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        appendEscaped(out, c, true);
    }
    out.push_back('"');
    return out;
}

std::string OneLine(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        appendEscaped(out, c, false);
    }
    return out;
}

}  // namespace qnpolicy::tool

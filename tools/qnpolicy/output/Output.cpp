// SPDX-License-Identifier: Apache-2.0
#include "Output.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>

#include "MessageText.h"

namespace qnpolicy::tool {

namespace {

constexpr char kReplacementCharacter[] = "\xEF\xBF\xBD";
constexpr size_t kIndentWidth = 2;

// The bytes a JSON string cannot hold as they are: controls, the quote, the backslash, and
// every byte of a multi-byte sequence, which is checked for valid UTF-8.
constexpr std::array<bool, 256> kNeedsCare = [] {
    std::array<bool, 256> needsCare{};
    for (size_t byte = 0; byte < needsCare.size(); ++byte) {
        needsCare[byte] = byte < 0x20 || byte >= 0x80 || byte == '"' || byte == '\\';
    }
    return needsCare;
}();

// The length of the valid UTF-8 sequence at text[i], or 0 when the bytes there are not one
// (overlong forms, surrogates and values above U+10FFFF included).
size_t utf8SequenceLength(std::string_view text, size_t i) {
    const auto byte = [&text](size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(i);
    size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        low = lead == 0xE0 ? 0xA0 : 0x80;
        high = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (i + length > text.size() || byte(i + 1) < low || byte(i + 1) > high) {
        return 0;
    }
    for (size_t k = 2; k < length; ++k) {
        if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) {
            return 0;
        }
    }
    return length;
}

}  // namespace

std::string DisplayName(std::string_view name) {
    bool bPlain = !name.empty() && name.front() != ' ' && name.back() != ' ';
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        bPlain = bPlain && byte >= 0x20 && byte != 0x7F && c != '"' && c != '\\';
    }
    return bPlain ? std::string(name) : Quoted(name);
}

CCheckedOutputBuffer::CCheckedOutputBuffer(int fd) : m_fd(fd) {
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
}

CCheckedOutputBuffer::~CCheckedOutputBuffer() {
    drain();
}

bool CCheckedOutputBuffer::drain() {
    const char* next = pbase();
    const char* const end = pptr();
    while (m_error == 0 && next < end) {
        const ssize_t written = ::write(m_fd, next, static_cast<size_t>(end - next));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            m_error = errno;
            break;
        }
        next += written;
    }
    // After a failure the bytes are dropped: nobody can receive them any more.
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
    return m_error == 0;
}

CCheckedOutputBuffer::int_type CCheckedOutputBuffer::overflow(int_type c) {
    if (!drain()) {
        return traits_type::eof();
    }
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
    }
    return traits_type::not_eof(c);
}

int CCheckedOutputBuffer::sync() {
    return drain() ? 0 : -1;
}

void COutputBuffer::Flush() {
    m_out.write(m_data.data(), static_cast<std::streamsize>(m_used));
    m_used = 0;
}

void COutputBuffer::appendLarge(std::string_view text) {
    Flush();
    if (text.size() > m_data.size()) {
        m_out.write(text.data(), static_cast<std::streamsize>(text.size()));
        return;
    }
    Append(text);
}

void CJsonWriter::newline() {
    static constexpr std::string_view kBlanks = "                                ";
    m_buffer.Append('\n');
    for (size_t indent = m_scopes.size() * kIndentWidth; indent > 0;) {
        const size_t now = std::min(indent, kBlanks.size());
        m_buffer.Append(kBlanks.substr(0, now));
        indent -= now;
    }
}

void CJsonWriter::beforeValue() {
    if (m_bAfterKey) {
        m_bAfterKey = false;
        return;
    }
    if (m_scopes.empty()) {
        return;
    }
    Scope& scope = m_scopes.back();
    if (scope.bInline) {
        if (scope.bHasMembers) {
            m_buffer.Append(", ");
        }
        scope.bHasMembers = true;
        return;
    }
    if (scope.bHasMembers) {
        m_buffer.Append(',');
    }
    scope.bHasMembers = true;
    newline();
}

CJsonWriter& CJsonWriter::open(char bracket, Layout eLayout) {
    beforeValue();
    m_buffer.Append(bracket);
    const bool bInline =
        eLayout == Layout::INLINE || (!m_scopes.empty() && m_scopes.back().bInline);
    m_scopes.push_back(Scope{false, bInline});
    return *this;
}

CJsonWriter& CJsonWriter::close(char bracket) {
    const Scope scope = m_scopes.back();
    m_scopes.pop_back();
    if (scope.bHasMembers && !scope.bInline) {
        newline();
    }
    m_buffer.Append(bracket);
    return *this;
}

CJsonWriter& CJsonWriter::BeginObject(Layout eLayout) {
    return open('{', eLayout);
}

CJsonWriter& CJsonWriter::EndObject() {
    return close('}');
}

CJsonWriter& CJsonWriter::BeginArray(Layout eLayout) {
    return open('[', eLayout);
}

CJsonWriter& CJsonWriter::EndArray() {
    return close(']');
}

CJsonWriter& CJsonWriter::Key(std::string_view name) {
    beforeValue();
    writeString(name);
    m_buffer.Append(": ");
    m_bAfterKey = true;
    return *this;
}

CJsonWriter& CJsonWriter::String(std::string_view text) {
    beforeValue();
    writeString(text);
    return *this;
}

CJsonWriter& CJsonWriter::Bool(bool b) {
    beforeValue();
    m_buffer.Append(b ? "true" : "false");
    return *this;
}

CJsonWriter& CJsonWriter::Number(unsigned long value) {
    beforeValue();
    char digits[24];
    m_buffer.Append(
        std::string_view(digits, static_cast<size_t>(WriteDecimal(digits, value) - digits)));
    return *this;
}

CJsonWriter& CJsonWriter::Null() {
    beforeValue();
    m_buffer.Append("null");
    return *this;
}

CJsonWriter& CJsonWriter::Raw(std::string_view json) {
    beforeValue();
    m_buffer.Append(json);
    return *this;
}

void CJsonWriter::Finish() {
    m_buffer.Append('\n');
    m_buffer.Flush();
}

void CJsonWriter::writeString(std::string_view text) {
    m_buffer.Append('"');
    // Most texts need no escape at all: found in one pass, copied at once.
    if (IsPlainText(text)) {
        m_buffer.Append(text);
        m_buffer.Append('"');
        return;
    }
    size_t plainStart = 0;
    const auto flushPlain = [this, &text, &plainStart](size_t end) {
        m_buffer.Append(text.substr(plainStart, end - plainStart));
    };
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (!kNeedsCare[c]) {
            ++i;
            continue;
        }
        size_t length = 1;
        const char* replacement = nullptr;
        char escaped[8];
        if (c == '"') {
            replacement = "\\\"";
        } else if (c == '\\') {
            replacement = "\\\\";
        } else if (c == '\n') {
            replacement = "\\n";
        } else if (c == '\t') {
            replacement = "\\t";
        } else if (c == '\r') {
            replacement = "\\r";
        } else if (c < 0x20) {
            std::snprintf(escaped, sizeof escaped, "\\u%04X", static_cast<unsigned int>(c));
            replacement = escaped;
        } else {
            length = utf8SequenceLength(text, i);
            if (length != 0) {
                i += length;
                continue;
            }
            length = 1;
            replacement = kReplacementCharacter;
        }
        flushPlain(i);
        m_buffer.Append(replacement);
        i += length;
        plainStart = i;
    }
    flushPlain(text.size());
    m_buffer.Append('"');
}

}  // namespace qnpolicy::tool

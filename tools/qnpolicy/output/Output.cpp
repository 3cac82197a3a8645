// SPDX-License-Identifier: Apache-2.0
#include "Output.h"

#include <unistd.h>

#include <cerrno>

#include <cstdio>

#include "MessageText.h"

namespace qnpolicy::tool {

namespace {

constexpr char kReplacementCharacter[] = "\xEF\xBF\xBD";
constexpr size_t kIndentWidth = 2;
constexpr size_t kFlushSize = size_t{64} << 10;

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

CJsonWriter::~CJsonWriter() {
    flush(true);
}

void CJsonWriter::flush(bool bForce) {
    if (bForce || m_buffer.size() >= kFlushSize) {
        m_out.write(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size()));
        m_buffer.clear();
    }
}

void CJsonWriter::newline() {
    m_buffer.push_back('\n');
    m_buffer.append(m_scopeHasMembers.size() * kIndentWidth, ' ');
}

void CJsonWriter::beforeValue() {
    if (m_bAfterKey) {
        m_bAfterKey = false;
        return;
    }
    if (!m_scopeHasMembers.empty()) {
        if (m_scopeHasMembers.back()) {
            m_buffer.push_back(',');
        }
        m_scopeHasMembers.back() = true;
        newline();
    }
}

CJsonWriter& CJsonWriter::open(char bracket) {
    beforeValue();
    m_buffer.push_back(bracket);
    m_scopeHasMembers.push_back(false);
    return *this;
}

CJsonWriter& CJsonWriter::close(char bracket) {
    const bool bHadMembers = m_scopeHasMembers.back();
    m_scopeHasMembers.pop_back();
    if (bHadMembers) {
        newline();
    }
    m_buffer.push_back(bracket);
    flush(false);
    return *this;
}

CJsonWriter& CJsonWriter::BeginObject() {
    return open('{');
}

CJsonWriter& CJsonWriter::EndObject() {
    return close('}');
}

CJsonWriter& CJsonWriter::BeginArray() {
    return open('[');
}

CJsonWriter& CJsonWriter::EndArray() {
    return close(']');
}

CJsonWriter& CJsonWriter::Key(std::string_view name) {
    beforeValue();
    writeString(name);
    m_buffer.append(": ");
    m_bAfterKey = true;
    return *this;
}

CJsonWriter& CJsonWriter::String(std::string_view text) {
    beforeValue();
    writeString(text);
    flush(false);
    return *this;
}

CJsonWriter& CJsonWriter::Bool(bool b) {
    beforeValue();
    m_buffer.append(b ? "true" : "false");
    return *this;
}

CJsonWriter& CJsonWriter::Number(unsigned long value) {
    beforeValue();
    m_buffer.append(std::to_string(value));
    return *this;
}

CJsonWriter& CJsonWriter::Null() {
    beforeValue();
    m_buffer.append("null");
    return *this;
}

void CJsonWriter::Finish() {
    m_buffer.push_back('\n');
    flush(true);
}

void CJsonWriter::writeString(std::string_view text) {
    m_buffer.push_back('"');
    size_t plainStart = 0;
    const auto flushPlain = [this, &text, &plainStart](size_t end) {
        m_buffer.append(text.data() + plainStart, end - plainStart);
    };
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c < 0x80 && c != '"' && c != '\\') {
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
        m_buffer.append(replacement);
        i += length;
        plainStart = i;
    }
    flushPlain(text.size());
    m_buffer.push_back('"');
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_OUTPUT_H
#define QNPOLICY_OUTPUT_H

// What the tool writes on standard output: a stream buffer that remembers a failed write, and
// the JSON writer.

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace qnpolicy::tool {

// A file name as the tool's results show it: as it is when it is plain (printable, no blank at
// either end, no quote or backslash), which keeps FILE:LINE:COLUMN readable by editors; quoted
// with its control characters escaped otherwise, so that a name cannot forge a line.
std::string DisplayName(std::string_view name);

// CCheckedOutputBuffer is a stream buffer over a file descriptor (standard output) that
// remembers why a write failed: a full disk, a closed pipe. Nothing written after the first
// failure is attempted, and Error() gives its errno, so that the tool can end with the I/O
// error status instead of reporting success for output nobody received.
//
//   CCheckedOutputBuffer buffer(STDOUT_FILENO);
//   std::ostream out(&buffer);
//   out << ...;
//   out.flush();
//   if (buffer.Error() != 0) { ... }
class CCheckedOutputBuffer : public std::streambuf {
  public:
    explicit CCheckedOutputBuffer(int fd);
    ~CCheckedOutputBuffer() override;
    CCheckedOutputBuffer(const CCheckedOutputBuffer&) = delete;
    CCheckedOutputBuffer& operator=(const CCheckedOutputBuffer&) = delete;

    // The errno of the first failed write; 0 while every write succeeded.
    int Error() const { return m_error; }

  protected:
    int_type overflow(int_type c) override;
    int sync() override;

  private:
    // Writes the buffered bytes; false once a write has failed.
    bool drain();

    static constexpr size_t kBufferSize = size_t{64} << 10;
    int m_fd;
    int m_error = 0;
    std::array<char, kBufferSize> m_buffer{};
};

// Whether every byte of text is printable ASCII other than the quote and the backslash: a text
// that every writer of the tool can copy as it is, between quotes. Eight bytes are tested at
// once, since it is asked of every server name.
inline bool IsPlainText(std::string_view text) {
    constexpr uint64_t kOnes = 0x0101010101010101ULL;
    constexpr uint64_t kHighBits = 0x8080808080808080ULL;
    // Whether any byte of word (none above 0x7F) is below limit, or is zero.
    const auto anyBelow = [](uint64_t word, uint64_t limit) {
        return ((word - kOnes * limit) & ~word & kHighBits) != 0;
    };
    const auto anyEqual = [&anyBelow](uint64_t word, uint64_t byte) {
        return anyBelow(word ^ (kOnes * byte), 1);
    };
    const auto plainWord = [&anyBelow, &anyEqual](const char* at) {
        uint64_t word = 0;
        std::memcpy(&word, at, sizeof word);
        return (word & kHighBits) == 0 && !anyBelow(word, 0x20) && !anyEqual(word, 0x7F) &&
               !anyEqual(word, '"') && !anyEqual(word, '\\');
    };
    if (text.size() < sizeof(uint64_t)) {
        return std::all_of(text.begin(), text.end(), [](char character) {
            const auto byte = static_cast<unsigned char>(character);
            return byte >= 0x20 && byte < 0x7F && byte != '"' && byte != '\\';
        });
    }
    // Whole words, then the last word, which may overlap the one before it.
    for (size_t i = 0; i + sizeof(uint64_t) <= text.size(); i += sizeof(uint64_t)) {
        if (!plainWord(text.data() + i)) {
            return false;
        }
    }
    return plainWord(text.data() + text.size() - sizeof(uint64_t));
}

// Writes value's decimal digits at `at` and returns their end; room for 20 digits is needed.
// The short way for the numbers of a position, which a hundred thousand lines each carry.
inline char* WriteDecimal(char* at, unsigned long value) {
    constexpr unsigned long kShort = 100000000;  // eight digits
    if (value >= kShort) {
        return std::to_chars(at, at + 20, value).ptr;
    }
    static constexpr char kPairs[] =
        "0001020304050607080910111213141516171819202122232425262728293031323334353637383940414243"
        "4445464748495051525354555657585960616263646566676869707172737475767778798081828384858687"
        "88899091929394959697989900";
    unsigned int length = 1;
    for (unsigned long rest = value; rest >= 10; rest /= 10) {
        ++length;
    }
    char* end = at + length;
    char* digit = end;
    while (value >= 100) {
        const unsigned long pair = (value % 100) * 2;
        value /= 100;
        *--digit = kPairs[pair + 1];
        *--digit = kPairs[pair];
    }
    if (value >= 10) {
        *--digit = kPairs[value * 2 + 1];
        *--digit = kPairs[value * 2];
    } else {
        *--digit = static_cast<char>('0' + value);
    }
    return end;
}

// COutputBuffer gathers text in one fixed buffer and hands it to a stream in 64 KiB pieces, so
// that many small appends (the lines or JSON values of a hundred thousand servers) cost a copy
// each rather than a stream insertion or a string's growth. The destructor hands on the rest.
//
//   COutputBuffer text(out);
//   text.Append("FipsMode true");
//   text.Append('\n');
class COutputBuffer {
  public:
    explicit COutputBuffer(std::ostream& out) : m_out(out) {}
    ~COutputBuffer() { Flush(); }
    COutputBuffer(const COutputBuffer&) = delete;
    COutputBuffer& operator=(const COutputBuffer&) = delete;

    void Append(std::string_view text) {
        const size_t size = text.size();
        if (size > m_data.size() - m_used) {
            appendLarge(text);
            return;
        }
        text.copy(m_data.data() + m_used, size);
        m_used += size;
    }
    void Append(char character) {
        if (m_used == m_data.size()) {
            Flush();
        }
        m_data[m_used++] = character;
    }
    // Room for size bytes (at most 64 KiB) to be written in place, then Commit(their end): a
    // line of known pieces composed without a call per piece.
    char* Reserve(size_t size) {
        if (size > m_data.size() - m_used) {
            Flush();
        }
        return m_data.data() + m_used;
    }
    void Commit(const char* end) { m_used = static_cast<size_t>(end - m_data.data()); }
    void Flush();

  private:
    void appendLarge(std::string_view text);

    std::ostream& m_out;
    std::array<char, size_t{64} << 10> m_data{};
    size_t m_used = 0;
};

// CJsonWriter writes one JSON document to a stream as it goes, indented by two spaces a
// level, without building it in memory first: `show --json` of a policy with 100,000 servers
// costs no more memory than the record it prints.
//
//   CJsonWriter json(out);
//   json.BeginObject().Key("formatVersion").Number(1).Key("files").BeginArray();
//   ...
//   json.EndArray().EndObject().Finish();   // Finish() ends the document with a newline
//
// Strings are written as UTF-8; a byte sequence that is not valid UTF-8 (an installer
// argument can hold anything) is replaced by U+FFFD, so the output always parses. An object or
// array begun with Layout::INLINE keeps its members on one line ({"line": 3, "column": 5}),
// which costs less for a list of a hundred thousand small values.
class CJsonWriter {
  public:
    explicit CJsonWriter(std::ostream& out) : m_buffer(out) {}
    CJsonWriter(const CJsonWriter&) = delete;
    CJsonWriter& operator=(const CJsonWriter&) = delete;

    enum class Layout { INDENTED, INLINE };
    CJsonWriter& BeginObject(Layout eLayout = Layout::INDENTED);
    CJsonWriter& EndObject();
    CJsonWriter& BeginArray(Layout eLayout = Layout::INDENTED);
    CJsonWriter& EndArray();
    // The name of the next member of the open object.
    CJsonWriter& Key(std::string_view name);
    CJsonWriter& String(std::string_view text);
    CJsonWriter& Bool(bool b);
    CJsonWriter& Number(unsigned long value);
    CJsonWriter& Null();
    // A value given as JSON text the caller rendered itself (numbers and fixed keys only, never
    // text from a file), written as it is: a hundred thousand small objects cost a copy each.
    CJsonWriter& Raw(std::string_view json);
    void Finish();

  private:
    // Separates and indents the value about to be written, unless it follows its key.
    void beforeValue();
    CJsonWriter& open(char bracket, Layout eLayout);
    CJsonWriter& close(char bracket);
    void newline();
    void writeString(std::string_view text);

    COutputBuffer m_buffer;
    struct Scope {
        bool bHasMembers;
        bool bInline;
    };
    std::vector<Scope> m_scopes;  // one per open object or array
    bool m_bAfterKey = false;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_OUTPUT_H

// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_OUTPUT_H
#define QNPOLICY_OUTPUT_H

// What the tool writes on standard output: a stream buffer that remembers a failed write, and
// the JSON writer.

#include <array>
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
// argument can hold anything) is replaced by U+FFFD, so the output always parses.
class CJsonWriter {
  public:
    explicit CJsonWriter(std::ostream& out) : m_out(out) {}
    // Writes what is still buffered.
    ~CJsonWriter();
    CJsonWriter(const CJsonWriter&) = delete;
    CJsonWriter& operator=(const CJsonWriter&) = delete;

    CJsonWriter& BeginObject();
    CJsonWriter& EndObject();
    CJsonWriter& BeginArray();
    CJsonWriter& EndArray();
    // The name of the next member of the open object.
    CJsonWriter& Key(std::string_view name);
    CJsonWriter& String(std::string_view text);
    CJsonWriter& Bool(bool b);
    CJsonWriter& Number(unsigned long value);
    CJsonWriter& Null();
    void Finish();

  private:
    // Separates and indents the value about to be written, unless it follows its key.
    void beforeValue();
    CJsonWriter& open(char bracket);
    CJsonWriter& close(char bracket);
    void newline();
    void writeString(std::string_view text);
    // Hands the buffered text to the stream once it is large, or always with bForce.
    void flush(bool bForce);

    std::ostream& m_out;
    // The text not yet handed to the stream: appending to a string costs far less per
    // character than the stream's own insertion.
    std::string m_buffer;
    std::vector<bool> m_scopeHasMembers;  // one entry per open object or array
    bool m_bAfterKey = false;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_OUTPUT_H

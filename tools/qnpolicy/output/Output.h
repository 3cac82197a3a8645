#ifndef QNPOLICY_JSONWRITER_H
#define QNPOLICY_JSONWRITER_H

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace qnpolicy::tool {

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

#endif  // QNPOLICY_JSONWRITER_H

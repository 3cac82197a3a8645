// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_TOKENPARSER_H
#define QUILLNET_TOKENPARSER_H

#include <string>

// TTokenParser walks a string from front to back, handing out the pieces between
// delimiter characters. Tokens are returned exactly as they stand (nothing is trimmed), and
// an empty piece between two adjacent delimiters is a token of its own.
//
//   TTokenParser<char> parser("gw1,gw2;;gw3");
//   std::string token;
//   while (parser.NextToken(token, ",;")) { ... "gw1", "gw2", "", "gw3" ... }
template <typename CharT>
class TTokenParser {
  public:
    typedef std::basic_string<CharT> StringT;

    explicit TTokenParser(const StringT& text) : m_text(text), m_CurPos(0) {}

    // Clears token. Returns false once the whole text has been handed out. Otherwise the
    // token is the text from the read position up to the first character of delimiters at
    // or after it, and the position moves just past that delimiter; when no delimiter
    // follows (or delimiters is empty), behaves as RestOfStr.
    bool NextToken(StringT& token, StringT delimiters) {
        token.clear();
        if (m_CurPos >= m_text.size()) {
            return false;
        }
        const typename StringT::size_type delimiterPos =
            delimiters.empty() ? StringT::npos : m_text.find_first_of(delimiters, m_CurPos);
        if (delimiterPos == StringT::npos) {
            return RestOfStr(token);
        }
        token.assign(m_text, m_CurPos, delimiterPos - m_CurPos);
        m_CurPos = delimiterPos + 1;
        return true;
    }

    // Clears token. When text remains after the read position, the token becomes all of it,
    // the position moves to the end and the result is true; otherwise the result is false.
    bool RestOfStr(StringT& token) {
        token.clear();
        if (m_CurPos >= m_text.size()) {
            return false;
        }
        token.assign(m_text, m_CurPos, StringT::npos);
        m_CurPos = m_text.size();
        return true;
    }

  private:
    StringT m_text;
    typename StringT::size_type m_CurPos;
};

#endif  // QUILLNET_TOKENPARSER_H

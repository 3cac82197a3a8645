// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_MESSAGETEXT_H
#define QUILLNET_MESSAGETEXT_H

// The text forms the policy checks and the command-line tool share, so that a value looks the
// same in every message: quoting, joining, hex, "did you mean". Internal to the library and the
// tool: not installed.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qnpolicy {

// text in double quotes, with control characters, quotes and backslashes escaped, so that an
// empty or blank-padded value stays visible and a message stays on one line: "a b\n" ->
// "\"a b\\n\"".
std::string Quoted(std::string_view text);

// text with its control characters escaped as in Quoted, without the quotes: one log record
// stays one line whatever its values hold.
std::string OneLine(std::string_view text);

// A 32-bit value as eight upper-case hex digits: "0x000021C7". The one hex form, for masks
// and status codes alike.
std::string HexText(uint32_t value);

// The texts one after the other with separator between them, each Quoted when bQuote:
// Join({"a", "b"}, ", ", true) is "\"a\", \"b\"".
template <typename Texts>
std::string Join(const Texts& texts, std::string_view separator, bool bQuote = false) {
    std::string joined;
    bool bFirst = true;
    for (const auto& text : texts) {
        if (!bFirst) {
            joined += separator;
        }
        bFirst = false;
        joined += bQuote ? Quoted(text) : std::string(text);
    }
    return joined;
}

// The candidate an administrator most probably meant when writing text, for "did you mean"
// hints; empty when no candidate is close enough. Letter case and surrounding blanks are
// ignored, then candidates are ranked by edit distance (insertions, deletions and
// substitutions of single characters); a candidate qualifies when its distance is at most
// two or a quarter of the longer text, whichever is larger. Ties go to the earlier
// candidate.
//
//   SuggestName("FipMode", {"BypassDownloader", "FipsMode"})   // "FipsMode"
std::string SuggestName(const std::string& text, const std::vector<std::string>& candidates);

// " Did you mean "x"?" for SuggestName's answer; empty when there is none.
std::string DidYouMean(const std::string& text, const std::vector<std::string>& candidates);

// The edit distance between two texts, compared byte by byte.
size_t EditDistance(const std::string& a, const std::string& b);

}  // namespace qnpolicy

#endif  // QUILLNET_MESSAGETEXT_H

#ifndef QNPOLICY_TEXTFORMAT_H
#define QNPOLICY_TEXTFORMAT_H

#include <cstdint>
#include <string>
#include <string_view>

// The few text forms every subcommand shares, so that a value looks the same in each message.
namespace qnpolicy::tool {

// A 32-bit value as eight upper-case hex digits: "0x000021C7". The one hex form of the tool,
// for masks and status codes alike.
std::string HexText(uint32_t value);

// text in double quotes, with control characters, quotes and backslashes escaped, so that an
// empty or blank-padded value stays visible and a message stays on one line: "a b\n" ->
// "\"a b\\n\"".
std::string Quoted(std::string_view text);

// text with its control characters escaped as in Quoted, without the quotes: one log record
// stays one line whatever its values hold.
std::string OneLine(std::string_view text);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_TEXTFORMAT_H

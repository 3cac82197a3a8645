#ifndef QNPOLICY_PARSEFAILURE_H
#define QNPOLICY_PARSEFAILURE_H

#include <string>
#include <vector>

#include "AppLog.h"

namespace qnpolicy::tool {

// Why a document could not be read or parsed, where the parser stopped: line and column are
// 1-based, 0 when the failure is about the file as a whole (it cannot be opened or read).
struct ParseFailure {
    std::string message;
    unsigned long line = 0;
    unsigned long column = 0;
};

// The parser reports where and why it stopped in its one failure record ("Cannot parse
// \"f.xml\" at line 3, column 7: mismatched tag", "Cannot open \"f.xml\": Permission
// denied"). This reads the first error record of records in that form: the position after
// "line" and "column", the reason after the last ": ". A record in another form gives its
// whole message at line 0; no error record at all gives fallback.
ParseFailure DescribeParseFailure(const std::vector<CAppLogRecord>& records,
                                  const std::string& fallback);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_PARSEFAILURE_H

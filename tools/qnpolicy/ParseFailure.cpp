#include "ParseFailure.h"

#include <cstdlib>

namespace qnpolicy::tool {

namespace {

constexpr char kLineMarker[] = " line ";
constexpr char kColumnMarker[] = ", column ";
constexpr char kReasonSeparator[] = ": ";

// The number that follows marker in text at or after from, or 0; rEnd is left after it.
unsigned long numberAfter(const std::string& text, const std::string& marker, size_t from,
                          size_t& rEnd) {
    const size_t at = text.find(marker, from);
    if (at == std::string::npos) {
        return 0;
    }
    const char* const start = text.c_str() + at + marker.size();
    char* end = nullptr;
    const unsigned long value = std::strtoul(start, &end, 10);
    rEnd = static_cast<size_t>(end - text.c_str());
    return end == start ? 0 : value;
}

}  // namespace

ParseFailure DescribeParseFailure(const std::vector<CAppLogRecord>& records,
                                  const std::string& fallback) {
    ParseFailure failure;
    failure.message = fallback;
    for (const CAppLogRecord& record : records) {
        if (record.importance != Logging::DBG_Error || record.message.empty()) {
            continue;
        }
        const std::string& text = record.message;
        size_t afterLine = 0;
        size_t afterColumn = 0;
        failure.line = numberAfter(text, kLineMarker, 0, afterLine);
        failure.column =
            failure.line == 0 ? 0 : numberAfter(text, kColumnMarker, afterLine, afterColumn);
        if (failure.column == 0) {
            failure.line = 0;
        }
        const size_t reason = failure.line != 0 ? text.find(kReasonSeparator, afterColumn)
                                                : text.rfind(kReasonSeparator);
        failure.message =
            reason == std::string::npos ? text : text.substr(reason + sizeof kReasonSeparator - 1);
        return failure;
    }
    return failure;
}

}  // namespace qnpolicy::tool

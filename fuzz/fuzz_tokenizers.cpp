// TTokenParser and CStringUtils::tokenize against straightforward reference models.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "StringUtils.h"
#include "TokenParser.h"

namespace {

using qnfuzz::check;

// Every piece between delimiters, empty ones included, and no piece after a final delimiter.
std::vector<std::string> referenceTokens(const std::string& text, const std::string& delimiters) {
    std::vector<std::string> tokens;
    std::string current;
    size_t consumed = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (delimiters.find(text[i]) != std::string::npos) {
            tokens.push_back(current);
            current.clear();
            consumed = i + 1;
        } else {
            current.push_back(text[i]);
        }
    }
    if (consumed < text.size()) {
        tokens.push_back(current);
    }
    return tokens;
}

std::vector<std::string> referenceTokenize(const std::string& text, char separator) {
    std::vector<std::string> tokens;
    for (const std::string& token : referenceTokens(text, std::string(1, separator))) {
        if (!token.empty()) {
            tokens.push_back(token);
        }
    }
    return tokens;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qnfuzz::FuzzInput in(data, size);
    const std::string delimiters = in.text(3);
    const std::string text = in.rest();

    TTokenParser<char> parser(text);
    std::vector<std::string> tokens;
    std::string token = "stale";
    while (parser.NextToken(token, delimiters)) {
        tokens.push_back(token);
    }
    check(token.empty());
    check(!parser.RestOfStr(token) && token.empty());
    check(tokens == (delimiters.empty() ? referenceTokens(text, std::string())
                                        : referenceTokens(text, delimiters)));

    const char separator = delimiters.empty() ? ',' : delimiters[0];
    check(CStringUtils::tokenize(text, separator) == referenceTokenize(text, separator));
    return 0;
}

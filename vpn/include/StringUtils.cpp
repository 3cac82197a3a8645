// SPDX-License-Identifier: Apache-2.0
#include "StringUtils.h"

std::vector<std::string> CStringUtils::tokenize(const std::string& text, char separator) {
    std::vector<std::string> tokens;
    std::string::size_type start = 0;
    while (start <= text.size()) {
        std::string::size_type end = text.find(separator, start);
        if (end == std::string::npos) {
            end = text.size();
        }
        if (end > start) {
            tokens.emplace_back(text, start, end - start);
        }
        start = end + 1;
    }
    return tokens;
}

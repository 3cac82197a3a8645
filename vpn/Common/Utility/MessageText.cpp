// SPDX-License-Identifier: Apache-2.0
#include "MessageText.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <limits>

namespace qnpolicy {

namespace {

// Distances up to this bound always qualify; longer names tolerate a quarter of their length.
constexpr size_t kMinimumTolerance = 2;
constexpr size_t kToleranceDivisor = 4;

std::string foldForComparison(const std::string& text) {
    const auto isBlank = [](unsigned char c) { return std::isspace(c) != 0; };
    auto first = std::find_if_not(text.begin(), text.end(), isBlank);
    auto last = std::find_if_not(text.rbegin(), text.rend(), isBlank).base();
    std::string folded;
    for (auto it = first; it < last; ++it) {
        folded.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(*it))));
    }
    return folded;
}

}  // namespace

size_t EditDistance(const std::string& a, const std::string& b) {
    // One row of the classic dynamic programme: row[j] is the distance between the prefix
    // of a read so far and the first j characters of b.
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            const size_t substitution = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({above + 1, row[j - 1] + 1, substitution});
            diagonal = above;
        }
    }
    return row[b.size()];
}

std::string SuggestName(const std::string& text, const std::vector<std::string>& candidates) {
    const std::string folded = foldForComparison(text);
    std::string best;
    size_t bestDistance = std::numeric_limits<size_t>::max();
    for (const std::string& candidate : candidates) {
        const std::string foldedCandidate = foldForComparison(candidate);
        const size_t distance = EditDistance(folded, foldedCandidate);
        const size_t tolerance = std::max(
            kMinimumTolerance, std::max(folded.size(), foldedCandidate.size()) / kToleranceDivisor);
        if (distance <= tolerance && distance < bestDistance) {
            best = candidate;
            bestDistance = distance;
        }
    }
    return best;
}

std::string DidYouMean(const std::string& text, const std::vector<std::string>& candidates) {
    const std::string suggestion = SuggestName(text, candidates);
    return suggestion.empty() ? std::string() : " Did you mean " + Quoted(suggestion) + "?";
}

namespace {

// Appends c, escaped when it is a control character, a quote (bQuoteEscaped) or a backslash.
void appendEscaped(std::string& out, char c, bool bQuoteEscaped) {
    switch (c) {
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        case '\t':
            out += "\\t";
            return;
        case '\\':
            out += bQuoteEscaped ? "\\\\" : "\\";
            return;
        case '"':
            out += bQuoteEscaped ? "\\\"" : "\"";
            return;
        default:
            break;
    }
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned int>(byte));
        out += escaped;
        return;
    }
    out.push_back(c);
}

}  // namespace

std::string HexText(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned int>(value));
    return text;
}

std::string Quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        appendEscaped(out, c, true);
    }
    out.push_back('"');
    return out;
}

std::string OneLine(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        appendEscaped(out, c, false);
    }
    return out;
}

}  // namespace qnpolicy

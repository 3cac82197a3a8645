// SPDX-License-Identifier: Apache-2.0
// The platform helpers against simple reference models; the input's first byte picks one:
//   0: SecureString's append, assignment and copy against a std::string;
//   1: TTokenParser and CStringUtils::tokenize against a plain split of the text (and
//      qntest::pieces);
//   2: Version against a reference reading of dotted versions and lexicographic order, and
//      IsVersionTextGreater against the built versions.

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "PolicyModel.h"
#include "StringUtils.h"
#include "TokenParser.h"
#include "VersionCompare.h"

namespace {

using qnfuzz::check;

// Takes a piece off the front of rest: as many bytes as rest's first byte says, up to
// maxLength (fewer when rest runs out).
std::string take(std::string& rest, size_t maxLength) {
    const size_t length = rest.empty() ? 0 : static_cast<uint8_t>(rest[0]) % (maxLength + 1);
    std::string piece = rest.substr(std::min<size_t>(1, rest.size()), length);
    rest.erase(0, std::min(rest.size(), length + 1));
    return piece;
}

// Every piece between delimiters, empty ones included: one more than there are delimiters.
std::vector<std::string> split(const std::string& text, const std::string& delimiters) {
    std::vector<std::string> pieces(1);
    for (const char ch : text) {
        if (delimiters.find(ch) != std::string::npos) {
            pieces.emplace_back();
        } else {
            pieces.back() += ch;
        }
    }
    return pieces;
}

// Pieces of odd length are appended (in place while they fit, else moved to a new buffer),
// pieces of even length assigned from another object (an empty one: from itself). Sources are
// taken up to their first NUL, and so are copies.
void secureString(std::string& rest) {
    SecureString<std::string> secure(take(rest, 64));
    std::string model = secure.c_str();
    while (!rest.empty()) {
        const std::string piece = take(rest, 255);
        if (piece.size() % 2 != 0) {
            secure += piece;
            model += piece.substr(0, piece.find('\0'));
        } else {
            const SecureString<std::string> other(piece);
            secure = piece.empty() ? secure : other;
            model = piece.empty() ? model : piece.substr(0, piece.find('\0'));
        }
        check(secure.length() == model.size() && model == secure.c_str());
        check(SecureString<std::string>(secure).c_str() == model);
    }
}

// TTokenParser hands out every piece between delimiters, empty ones included, but none after a
// final delimiter; tokenize the non-empty pieces between separators.
void tokenizers(std::string& rest) {
    const std::string delimiters = take(rest, 3);
    TTokenParser<char> parser(rest);
    std::vector<std::string> tokens;
    std::string token;
    while (parser.NextToken(token, delimiters)) {
        tokens.push_back(token);
    }
    std::vector<std::string> expected = split(rest, delimiters);
    if (expected.back().empty()) {  // no token after a final delimiter
        expected.pop_back();
    }
    check(tokens == expected);
    const char separator[] = {delimiters.empty() || delimiters[0] == '\0' ? ',' : delimiters[0], 0};
    check(CStringUtils::tokenize(rest, separator[0]) == qntest::pieces(rest, separator));
}

// Components cut at '.' and ',', each the value of its leading digits, saturated.
std::list<unsigned int> components(const std::string& text) {
    std::list<unsigned int> found;
    for (const std::string& piece : split(text, ".,")) {
        unsigned long long number = 0;
        for (size_t i = 0; i < piece.size() && piece[i] >= '0' && piece[i] <= '9'; ++i) {
            number = std::min<unsigned long long>(number * 10 + (piece[i] - '0'), UINT_MAX);
        }
        found.push_back(static_cast<unsigned int>(number));
    }
    return found;
}

// Versions order as their components do, lexicographically, missing ones counting as zero.
void versions(std::string& rest) {
    const std::string first = take(rest, 40);
    const Version a(first, ".,");
    const Version b(rest, ".,");
    check(a.versionInfo == components(first) && b.versionInfo == components(rest));
    std::vector<unsigned int> x(a.versionInfo.begin(), a.versionInfo.end());
    std::vector<unsigned int> y(b.versionInfo.begin(), b.versionInfo.end());
    x.resize(std::max(x.size(), y.size()));  // missing trailing components count as zero
    y.resize(x.size());
    check((a < b) == (x < y) && (a == b) == (x == y) && (a > b) == (x > y));
    // The bounded comparison of a text of any length with a short reference.
    check(qnpolicy::IsVersionTextGreater(rest, ".,", a) == (y > x));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static void (*const kTargets[])(std::string&) = {secureString, tokenizers, versions};
    if (size > 0) {
        std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
        kTargets[data[0] % 3](rest);
    }
    return 0;
}

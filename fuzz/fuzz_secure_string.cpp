// SecureString against a plain std::string model: every operation must leave the same text,
// and the static helpers must clear what they promise to clear.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "StringUtils.h"

namespace {

using qnfuzz::check;

// The copying rule: sources given as strings are taken up to their first NUL.
std::string upToNul(const std::string& s) {
    return std::string(s.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qnfuzz::FuzzInput in(data, size);
    const std::string initial = in.text(64);
    SecureString<std::string> secure(initial.data(), initial.size());
    std::string model = initial;

    while (!in.empty()) {
        switch (in.byte() % 6) {
            case 0: {  // append: in place while it fits strictly, else moved (and cut at a NUL)
                const std::string piece = in.text(300);
                const size_t capacity = static_cast<std::string&>(secure).capacity();
                const bool inPlace = model.size() + upToNul(piece).size() < capacity;
                secure += piece;
                model = (inPlace ? model : upToNul(model)) + upToNul(piece);
                break;
            }
            case 1: {  // assignment from another secure string
                const std::string piece = in.text(64);
                const SecureString<std::string> other(piece);
                secure = other;
                model = upToNul(piece);
                break;
            }
            case 2: {  // self-assignment keeps the value
                SecureString<std::string>& alias = secure;
                secure = alias;
                break;
            }
            case 3: {  // Reset wipes and empties a caller's string
                std::string plain = in.text(64);
                const size_t length = plain.size();
                const char* buffer = plain.data();
                SecureString<std::string>::Reset(plain);
                check(plain.empty());
                for (size_t i = 0; i < length; ++i) {
                    check(buffer[i] == '\0');
                }
                break;
            }
            case 4: {  // GetAndClear copies then zeroes the caller's text
                const std::string piece = in.text(64);
                std::vector<char> buffer(piece.begin(), piece.end());
                buffer.push_back('\0');
                const std::string expected(buffer.data());
                const SecureString<std::string> copied =
                    SecureString<std::string>::GetAndClear(buffer.data());
                check(std::string(copied.c_str(), copied.length()) == expected);
                for (size_t i = 0; i < expected.size(); ++i) {
                    check(buffer[i] == '\0');
                }
                break;
            }
            default: {  // copy construction
                const SecureString<std::string> copy(secure);
                check(std::string(copy.c_str(), copy.length()) ==
                      upToNul(std::string(secure.c_str(), secure.length())));
                break;
            }
        }
        check(std::string(secure.c_str(), secure.length()) == model);
    }
    return 0;
}

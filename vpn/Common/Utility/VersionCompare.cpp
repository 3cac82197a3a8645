#include "VersionCompare.h"

#include <limits>

namespace {

// The value of the leading decimal digits of component, saturated at unsigned int's maximum.
unsigned int leadingNumber(const std::string& text, std::string::size_type begin,
                           std::string::size_type end) {
    constexpr unsigned int kMax = std::numeric_limits<unsigned int>::max();
    unsigned int value = 0;
    for (std::string::size_type i = begin; i < end; ++i) {
        const char c = text[i];
        if (c < '0' || c > '9') {
            break;
        }
        const auto digit = static_cast<unsigned int>(c - '0');
        if (value > (kMax - digit) / 10) {
            return kMax;
        }
        value = value * 10 + digit;
    }
    return value;
}

}  // namespace

Version::Version(const std::string& text, const std::string& separators) {
    std::string::size_type begin = 0;
    while (true) {
        std::string::size_type end =
            separators.empty() ? std::string::npos : text.find_first_of(separators, begin);
        if (end == std::string::npos) {
            versionInfo.push_back(leadingNumber(text, begin, text.size()));
            break;
        }
        versionInfo.push_back(leadingNumber(text, begin, end));
        begin = end + 1;
    }
}

int Version::compare(const Version& other) const {
    auto mine = versionInfo.begin();
    auto theirs = other.versionInfo.begin();
    while (mine != versionInfo.end() || theirs != other.versionInfo.end()) {
        const unsigned int a = mine != versionInfo.end() ? *mine++ : 0;
        const unsigned int b = theirs != other.versionInfo.end() ? *theirs++ : 0;
        if (a != b) {
            return a < b ? -1 : 1;
        }
    }
    return 0;
}

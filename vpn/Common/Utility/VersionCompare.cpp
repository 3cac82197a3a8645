// SPDX-License-Identifier: Apache-2.0
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

namespace qnpolicy {

bool IsVersionTextGreater(const std::string& text, const std::string& separators,
                          const Version& reference) {
    // headEnd: the end of the first components of text, as many as reference has.
    std::string::size_type headEnd = text.size();
    std::string::size_type begin = 0;
    for (size_t count = 0; count < reference.versionInfo.size(); ++count) {
        const std::string::size_type separator =
            separators.empty() ? std::string::npos : text.find_first_of(separators, begin);
        if (separator == std::string::npos) {
            break;
        }
        if (count + 1 == reference.versionInfo.size()) {
            headEnd = separator;
            break;
        }
        begin = separator + 1;
    }
    const Version head(text.substr(0, headEnd), separators);
    if (head != reference) {
        return head > reference;
    }
    // Equal so far: reference's missing components count as 0.
    for (begin = headEnd; begin < text.size();) {
        ++begin;  // past the separator that ended the previous component
        std::string::size_type end = text.find_first_of(separators, begin);
        end = end == std::string::npos ? text.size() : end;
        if (leadingNumber(text, begin, end) != 0) {
            return true;
        }
        begin = end;
    }
    return false;
}

}  // namespace qnpolicy

// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_ERRNOTEXT_H
#define QUILLNET_ERRNOTEXT_H

// The module's one errno-to-text conversion, thread-safe (strerror is not). Internal to the
// library: not installed.
//
//   log("open failed: %s", qnsys::errnoText(errno).c_str());

#include <cstring>
#include <string>

namespace qnsys {

namespace detail {

// strerror_r comes in two forms; overloads pick the message out of either.
// GNU: returns the message, which need not be in the buffer.
inline const char* strerrorMessage(const char* message, const char* /*buffer*/) {
    return message;
}
// XSI: returns 0 and fills the buffer.
inline const char* strerrorMessage(int result, const char* buffer) {
    return result == 0 ? buffer : "Unknown error";
}

}  // namespace detail

inline std::string errnoText(int error) {
    char buffer[256] = {};
    return detail::strerrorMessage(strerror_r(error, buffer, sizeof(buffer)), buffer);
}

}  // namespace qnsys

#endif  // QUILLNET_ERRNOTEXT_H

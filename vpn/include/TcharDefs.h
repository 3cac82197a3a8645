// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_TCHARDEFS_H
#define QUILLNET_TCHARDEFS_H

#include <string>

// All text of the client is narrow: TCHAR is char and tstring is std::string.
typedef char TCHAR;
typedef std::string tstring;

#endif  // QUILLNET_TCHARDEFS_H

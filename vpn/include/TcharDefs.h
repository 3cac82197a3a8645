// SPDX-License-Identifier: Apache-2.0
#ifndef TCHARDEFS_H
#define TCHARDEFS_H

#include <string>

// All text of the client is narrow: TCHAR is char and tstring is std::string.
typedef char TCHAR;
typedef std::string tstring;

#endif  // TCHARDEFS_H

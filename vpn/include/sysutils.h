// SPDX-License-Identifier: Apache-2.0
#ifndef SYSUTILS_H
#define SYSUTILS_H

#include <string>

// False only when the system answers that nothing is at the path (ENOENT, ENOTDIR); true for any
// file-system entry, a dangling symbolic link included, and for a path that cannot be examined
// (EACCES, ELOOP, EIO, ...), so that a caller fails loudly on what it cannot tell instead of
// silently treating it as absent.
bool fileExists(const std::string& path);

#endif  // SYSUTILS_H

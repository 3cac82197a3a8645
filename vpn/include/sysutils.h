// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_SYSUTILS_H
#define QUILLNET_SYSUTILS_H

#include <string>

// True when any file-system entry exists at the path, a dangling symbolic link included
// (lstat succeeds). A path that exists but cannot be read is reported as existing, so that
// the caller fails loudly on it instead of silently treating it as absent.
bool fileExists(const std::string& path);

#endif  // QUILLNET_SYSUTILS_H

// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_SYSUTILS_H
#define QUILLNET_SYSUTILS_H

#include <string>

// The platform layer's stand-ins for the client's own services live in the project's
// namespaces, never at global scope, and the library calls them by their qualified names: a
// client that defines its own fileExists (or any function of the same global name) keeps its
// own and changes nothing in the library, which cannot be made to read an unreadable policy
// as absent that way.
namespace qnsys {

// True when any file-system entry exists at the path, a dangling symbolic link included
// (lstat succeeds). A path that exists but cannot be read is reported as existing, so that
// the caller fails loudly on it instead of silently treating it as absent.
bool fileExists(const std::string& path);

}  // namespace qnsys

#endif  // QUILLNET_SYSUTILS_H

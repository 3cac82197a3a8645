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

// False only when the system answers that nothing is at the path (ENOENT, ENOTDIR); true for any
// file-system entry, a dangling symbolic link included, and for a path that cannot be examined
// (EACCES, ELOOP, EIO, ...), so that a caller fails loudly on what it cannot tell instead of
// silently treating it as absent.
bool fileExists(const std::string& path);

}  // namespace qnsys

#endif  // QUILLNET_SYSUTILS_H

// SPDX-License-Identifier: Apache-2.0
#include "sysutils.h"

#include <sys/stat.h>

#include <cerrno>

namespace qnsys {

bool fileExists(const std::string& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0) {
        return true;
    }
    // Only the system's own "nothing there" is absence; a path that cannot be examined (EACCES,
    // ELOOP, EIO, ...) may hold a file, so it counts as present and its reader fails loudly.
    return errno != ENOENT && errno != ENOTDIR;
}

}  // namespace qnsys

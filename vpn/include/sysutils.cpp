// SPDX-License-Identifier: Apache-2.0
#include "sysutils.h"

#include <sys/stat.h>

namespace qnsys {

bool fileExists(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

}  // namespace qnsys

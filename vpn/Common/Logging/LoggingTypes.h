// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_LOGGINGTYPES_H
#define QUILLNET_LOGGINGTYPES_H

namespace Logging {

// Importance of a log record; each value is the ASCII code of the letter that stands for it
// in a readable log line ('E', 'W', 'I', 'T').
enum DebugImportance {
    DBG_Error = 69,
    DBG_Warning = 87,
    DBG_Informational = 73,
    DBG_Trace = 84,
};

}  // namespace Logging

#endif  // QUILLNET_LOGGINGTYPES_H

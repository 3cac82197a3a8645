// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_GENDEFS_H
#define QUILLNET_GENDEFS_H

// Status of an operation: 0 is success; errors are positive values below 2^32 laid out in
// per-module blocks (see GlobalStatuscodes.h).
typedef long STATUSCODE;

#endif  // QUILLNET_GENDEFS_H

// SPDX-License-Identifier: Apache-2.0
#ifndef GENDEFS_H
#define GENDEFS_H

// Status of an operation: 0 is success; errors are positive values below 2^32 laid out in
// per-module blocks (see GlobalStatuscodes.h).
typedef long STATUSCODE;

#endif  // GENDEFS_H

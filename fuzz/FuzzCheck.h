// SPDX-License-Identifier: Apache-2.0
#ifndef QN_FUZZ_FUZZCHECK_H
#define QN_FUZZ_FUZZCHECK_H

#include <cstdlib>

namespace qnfuzz {

// Stops the fuzzer with a crash report when an invariant does not hold.
inline void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace qnfuzz

#endif  // QN_FUZZ_FUZZCHECK_H

// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_UNIFIEDDIFF_H
#define QNPOLICY_UNIFIEDDIFF_H

#include <string>

namespace qnpolicy::tool {

// The unified diff (three lines of context, as `diff -u` prints it) that turns before into
// after, under the headers "--- beforeName" and "+++ afterName"; empty when the texts are
// equal. Lines are compared whole. The common head and tail are matched first, and the rest
// by a longest common subsequence when it is small enough (at most kMaxCells line pairs);
// a larger changed middle is shown as removed and added whole: still a correct diff, only
// not the shortest, and policy documents are sorted, so changes stay local.
std::string UnifiedDiff(const std::string& before, const std::string& after,
                        const std::string& beforeName, const std::string& afterName);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_UNIFIEDDIFF_H

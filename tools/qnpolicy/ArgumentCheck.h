#ifndef QNPOLICY_ARGUMENTCHECK_H
#define QNPOLICY_ARGUMENTCHECK_H

#include <map>
#include <string>
#include <vector>

#include "XmlLocalQNPolMgr.h"

namespace qnpolicy::tool {

// An installer argument that generation skips, and why.
struct SkippedArgument {
    std::string argument;  // as given
    std::string kind;      // "invalid-argument", "empty-value", "unknown-abbreviation",
                           // "value-not-allowed" or "duplicate-argument"
    std::string message;
};

// What generation will make of a list of installer arguments.
struct ArgumentCheck {
    std::vector<SkippedArgument> skipped;
    // The element each used argument sets, mapped to that argument as given.
    std::map<std::string, std::string> argumentOfElement;
};

// Checks installer arguments the way GenerateLocalPolicy does, against the same vocabulary
// and in the same order of tests (no "=", empty value, unknown abbreviation, value not
// allowed, a policy given again), so that skipped holds exactly what generation skips, each
// with a message naming the argument, quoting its value, and suggesting the nearest
// abbreviation or listing the allowed values. Generation skips an empty value silently; here
// it is reported like the others.
ArgumentCheck CheckInstallerArguments(const std::vector<std::string>& policyArgs,
                                      const std::map<std::string, LocalPolicySetting>& vocabulary);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_ARGUMENTCHECK_H

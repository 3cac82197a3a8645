#ifndef QNPOLICY_POLICYFILEATTRIBUTES_H
#define QNPOLICY_POLICYFILEATTRIBUTES_H

#include <string>
#include <vector>

#include "LintFinding.h"

namespace qnpolicy::tool {

// Findings about who can change the policy file at path: a file not owned by root, or one
// that its group or others may write, lets someone other than the administrator loosen the
// policy. The file's own entry is examined after following symbolic links, as the client
// opens it. Nothing is reported for a path that cannot be examined (the parse reports it).
std::vector<LintFinding> CheckPolicyFileAttributes(const std::string& path);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_POLICYFILEATTRIBUTES_H

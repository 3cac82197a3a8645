#ifndef QNPOLICY_POLICYFILEATTRIBUTES_H
#define QNPOLICY_POLICYFILEATTRIBUTES_H

#include <string>
#include <vector>

#include "LintFinding.h"

namespace qnpolicy::tool {

// Findings about who can change the policy file at path, as a careful loader of a
// root-owned configuration checks it: the file and every directory above it up to "/" must
// be owned by root and not writable by group or others, since whoever can write the file,
// or rename entries in one of its directories, can loosen the policy. A directory with the
// sticky bit (such as /tmp) may be writable by others: they cannot rename or remove what
// they do not own. The file's real location is examined (symbolic links followed, as the
// client opens it). A path that cannot be examined gives no finding (the parse reports it).
std::vector<LintFinding> CheckPolicyFileAttributes(const std::string& path);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_POLICYFILEATTRIBUTES_H

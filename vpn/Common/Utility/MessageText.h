#ifndef QNPOLICY_NAMESUGGESTION_H
#define QNPOLICY_NAMESUGGESTION_H

#include <string>
#include <vector>

namespace qnpolicy::tool {

// The candidate an administrator most probably meant when writing text, for "did you mean"
// hints; empty when no candidate is close enough. Letter case and surrounding blanks are
// ignored, then candidates are ranked by edit distance (insertions, deletions and
// substitutions of single characters); a candidate qualifies when its distance is at most
// two or a quarter of the longer text, whichever is larger. Ties go to the earlier
// candidate.
//
//   SuggestName("FipMode", {"BypassDownloader", "FipsMode"})   // "FipsMode"
std::string SuggestName(const std::string& text, const std::vector<std::string>& candidates);

// The edit distance between two texts, compared byte by byte.
size_t EditDistance(const std::string& a, const std::string& b);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_NAMESUGGESTION_H

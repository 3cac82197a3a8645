// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_LOCALQNPOLICYOPTIONTEXTS_H
#define QUILLNET_LOCALQNPOLICYOPTIONTEXTS_H

// The text forms of the preference-caching options, which a policy document's caching list
// holds. The table itself is file-local to LocalQNPolicyInfo.cpp and constant-initialised, so
// that these answer correctly from any static initialiser. Internal to the library: not
// installed.

#include <string>
#include <string_view>
#include <vector>

#include "LocalQNPolicyInfo.h"

namespace qnpolicy {

// The text of an option ("false", "Credentials", ...); empty for a value outside 0 to 5.
std::string_view CachingOptionText(RestrictPrefCachingOption option);

// The option a token names, compared exactly and case-sensitively; false, and rOption
// unchanged, when it names none.
bool FindCachingOption(std::string_view token, RestrictPrefCachingOption& rOption);

// The tokens of a caching list: the text cut at each option separator, empty pieces dropped,
// nothing trimmed.
std::vector<std::string> SplitCachingList(const std::string& text);

}  // namespace qnpolicy

#endif  // QUILLNET_LOCALQNPOLICYOPTIONTEXTS_H

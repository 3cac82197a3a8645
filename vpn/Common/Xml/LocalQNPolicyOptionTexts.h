// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_LOCALQNPOLICYOPTIONTEXTS_H
#define QUILLNET_LOCALQNPOLICYOPTIONTEXTS_H

// Text forms of the preference-caching options, shared by the record and the document
// reader. Internal to the module: not installed.

#include <map>
#include <string>

#include "LocalQNPolicyInfo.h"

// Option to text, exactly the six options, iterated in ascending option order. Built during
// static initialisation and never changed.
extern const std::map<RestrictPrefCachingOption, std::string> sg_restrictPrefCachingOptionToStrMap;

// Separator of the options in a policy document's caching list.
inline constexpr char sg_restrictPrefCachingDelim = ',';

#endif  // QUILLNET_LOCALQNPOLICYOPTIONTEXTS_H

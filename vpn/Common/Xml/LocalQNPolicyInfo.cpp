// SPDX-License-Identifier: Apache-2.0
// The policy record, and the text forms of its preference-caching options.

#include "LocalQNPolicyInfo.h"

#include <array>
#include <utility>

#include "LocalQNPolicyOptionTexts.h"
#include "StringUtils.h"

namespace {

// Option to text, exactly the six options in ascending option order. Constant-initialised, so
// it is complete before any static initialiser can read it.
constexpr std::array<std::pair<RestrictPrefCachingOption, std::string_view>,
                     RESTRICT_PREF_CACHING_OPTION_COUNT>
    sg_restrictPrefCachingOptionToStrMap = {{
        {RESTRICT_PREF_CACHING_FALSE, "false"},
        {RESTRICT_PREF_CACHING_CREDENTIALS, "Credentials"},
        {RESTRICT_PREF_CACHING_THUMBPRINTS, "Thumbprints"},
        {RESTRICT_PREF_CACHING_CREDENTIALS_AND_THUMBPRINTS, "CredentialsAndThumbprints"},
        {RESTRICT_PREF_CACHING_AHS, "AutomaticServerSelection"},
        {RESTRICT_PREF_CACHING_ALL, "All"},
    }};

// Separator of the options in a policy document's caching list.
constexpr char sg_restrictPrefCachingDelim = ',';

}  // namespace

namespace qnpolicy {

std::string_view CachingOptionText(RestrictPrefCachingOption option) {
    for (const auto& [known, text] : sg_restrictPrefCachingOptionToStrMap) {
        if (known == option) {
            return text;
        }
    }
    return std::string_view();
}

bool FindCachingOption(std::string_view token, RestrictPrefCachingOption& rOption) {
    for (const auto& [option, text] : sg_restrictPrefCachingOptionToStrMap) {
        if (text == token) {
            rOption = option;
            return true;
        }
    }
    return false;
}

std::vector<std::string> SplitCachingList(const std::string& text) {
    return CStringUtils::tokenize(text, sg_restrictPrefCachingDelim);
}

}  // namespace qnpolicy

LocalQNPolicyInfo::LocalQNPolicyInfo() = default;
LocalQNPolicyInfo::LocalQNPolicyInfo(const LocalQNPolicyInfo& other) = default;
LocalQNPolicyInfo::~LocalQNPolicyInfo() = default;
LocalQNPolicyInfo& LocalQNPolicyInfo::operator=(const LocalQNPolicyInfo& other) = default;

// A new record holds the defaults; assigning it frees the server list and the version text.
void LocalQNPolicyInfo::Reset() {
    LocalQNPolicyInfo::operator=(LocalQNPolicyInfo());
}

void LocalQNPolicyInfo::RestrictPrefCaching(RestrictPrefCachingOption option) {
    // An option outside the vector would index past its end; no reader produces one, and
    // ignoring it cannot weaken a restriction already recorded.
    if (option < RESTRICT_PREF_CACHING_FALSE || option >= RESTRICT_PREF_CACHING_OPTION_COUNT) {
        return;
    }
    if (option == RESTRICT_PREF_CACHING_FALSE) {
        m_RestrictPrefCachingValues.assign(m_RestrictPrefCachingValues.size(), false);
    }
    m_RestrictPrefCachingValues[static_cast<size_t>(option)] = true;
}

std::string LocalQNPolicyInfo::RestrictPrefCachingStr() const {
    std::string text;
    for (const auto& [option, optionText] : sg_restrictPrefCachingOptionToStrMap) {
        const auto index = static_cast<size_t>(option);
        if (index < m_RestrictPrefCachingValues.size() && m_RestrictPrefCachingValues[index]) {
            if (!text.empty()) {
                text += sg_restrictPrefCachingDelim;
            }
            text.append(optionText);
        }
    }
    return text;
}

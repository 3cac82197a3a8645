// The policy vocabulary: installer abbreviations, their element names and allowed values.

#include <strings.h>  // strcasecmp

#include "LocalPolicySettings.h"
#include "XmlLocalQNPolMgr.h"

// The rows are the catalogue's settings that have an abbreviation, in catalogue order
// (a server name has none): its name, its section and its allowed values in their order.
void XmlLocalQNPolMgr::initializePolicyMap() {
    for (const LocalPolicySettingInfo& info : LocalPolicySettings()) {
        if (info.abbreviation.empty()) {
            continue;
        }
        LocalPolicySetting& setting = m_policyTransTable[info.abbreviation];
        setting.tstrFullName = info.element;
        setting.bIsUpdatePolicy = info.section == LocalPolicySection::UPDATE_POLICY;
        setting.listAllowedValues.assign(info.allowedValues.begin(), info.allowedValues.end());
    }
}

// Accepts policyValue when the row lists no values, or when it equals a listed value
// ignoring ASCII case; in the latter case policyValue takes the listed spelling.
bool XmlLocalQNPolMgr::valueIsAllowed(const LocalPolicySetting& policy,
                                      std::string& policyValue) const {
    if (policy.listAllowedValues.empty()) {
        return true;
    }
    for (const std::string& allowedValue : policy.listAllowedValues) {
        // strcasecmp stops at a NUL: a value with an embedded NUL must not match its prefix.
        if (allowedValue.size() == policyValue.size() &&
            strcasecmp(allowedValue.c_str(), policyValue.c_str()) == 0) {
            policyValue = allowedValue;
            return true;
        }
    }
    return false;
}

#include "XmlLocalQNPolMgr.h"

// Placeholder until generation lands: nothing is written.
bool XmlLocalQNPolMgr::GenerateLocalPolicy(char** /*policyArgs*/, int /*numPolicyArgs*/, bool /*overwrite*/) { return false; }
bool XmlLocalQNPolMgr::writeLocalPolicy(const std::map<std::string, std::string>& /*policyMap*/,
                                        const std::map<std::string, std::string>& /*updatePolicyMap*/) const {
    return false;
}

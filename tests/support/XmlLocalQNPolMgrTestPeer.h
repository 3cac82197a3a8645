// SPDX-License-Identifier: Apache-2.0
#ifndef QN_TESTS_XMLLOCALQNPOLMGRTESTPEER_H
#define QN_TESTS_XMLLOCALQNPOLMGRTESTPEER_H

// Narrow access to the manager's private steps and state, for tests only.

#include <map>
#include <string>

#include "XmlLocalQNPolMgr.h"

class XmlLocalQNPolMgrTestPeer {
  public:
    using StringMap = std::map<std::string, std::string>;

    static XmlLocalQNPolMgr::RETAINED_FIPS_MODE retainedFipsMode(const XmlLocalQNPolMgr& m) {
        return m.m_retainedFipsMode;
    }
    static bool writeLocalPolicy(const XmlLocalQNPolMgr& m, const StringMap& policyMap,
                                 const StringMap& updatePolicyMap) {
        return m.writeLocalPolicy(policyMap, updatePolicyMap);
    }
};

#endif  // QN_TESTS_XMLLOCALQNPOLMGRTESTPEER_H

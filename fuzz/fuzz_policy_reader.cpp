// SPDX-License-Identifier: Apache-2.0
// The policy reader fed by the real parser: arbitrary bytes go through XmlParser::parseBuffer,
// secure and tolerant, into a manager whose record is checked after every element's text.
// Whatever the document:
//   - entry RESTRICT_PREF_CACHING_FALSE of the caching restrictions is always true;
//   - within one parse the certificate-store exclude mask only gains bits and the authorized
//     server list only gains entries at its end: no later element can take back an exclusion
//     or a server that an earlier one stated.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <string>

#include "AppLog.h"
#include "FuzzCheck.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlParser.h"

namespace {

using qnfuzz::check;

// The manager with each element's text forwarded to the real reader; then the record is
// compared with the one seen after the previous text.
class CheckingPolMgr : public XmlLocalQNPolMgr {
  public:
    void setElementValue(const std::string& value) override {
        XmlLocalQNPolMgr::setElementValue(value);
        const LocalQNPolicyInfo info = GetLocalPolicyInfo();
        check(info.RestrictPrefCaching().at(RESTRICT_PREF_CACHING_FALSE));
        check((info.ExcludeCertStores() & m_uiMask) == m_uiMask);
        const std::list<std::string>& servers = info.GetAuthorizedServerList();
        check(servers.size() >= m_servers.size() &&
              std::equal(m_servers.begin(), m_servers.end(), servers.begin()));
        m_uiMask = info.ExcludeCertStores();
        m_servers = servers;
    }

  private:
    uint32_t m_uiMask = 0;
    std::list<std::string> m_servers;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // Every failure path logs; a million lines a minute would only slow the fuzzer.
    CAppLog::SetSink([](const CAppLogRecord&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    for (const bool bSecure : {true, false}) {
        CheckingPolMgr mgr;
        XmlParser(&mgr).parseBuffer(reinterpret_cast<const char*>(data), size, bSecure, "fuzz");
    }
    return 0;
}

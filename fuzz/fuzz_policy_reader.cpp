// The policy reader fed by the real parser: arbitrary bytes go through XmlParser::parseBuffer
// into a manager whose four callbacks are checked after every event.
//
// Invariants, whatever the document:
//   - entry RESTRICT_PREF_CACHING_FALSE of the caching restrictions is always true;
//   - within one parse the certificate-store exclude mask only gains bits and the authorized
//     server list only gains entries at its end: no later element can take back an exclusion
//     or a server that an earlier one stated;
//   - start and end tags never change the record: only text and the root's version do;
//   - a document without a DOCTYPE gives the same status and the same record whether the
//     parse is secure or tolerant; a secure parse that refuses a DOCTYPE delivers nothing.

#include <algorithm>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "AppLog.h"
#include "FuzzInput.h"
#include "LocalQNPolicyInfo.h"
#include "PolicyModel.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlParser.h"

namespace {

using qnfuzz::check;
using qntest::summarize;

// The manager with every callback forwarded to the real reader and checked afterwards.
class CheckingPolMgr : public XmlLocalQNPolMgr {
  public:
    void addElement(const std::string& name) override {
        keepsRecord([this, &name] { XmlLocalQNPolMgr::addElement(name); });
    }
    void endElement(const std::string& name) override {
        keepsRecord([this, &name] { XmlLocalQNPolMgr::endElement(name); });
    }
    void setElementValue(const std::string& value) override {
        XmlLocalQNPolMgr::setElementValue(value);
        checkGrowth();
    }
    void addAttribute(const std::string& name, const std::string& value) override {
        XmlLocalQNPolMgr::addAttribute(name, value);
        checkGrowth();
    }
    bool delivered() const { return m_bDelivered; }

  private:
    // Runs a tag event, which must leave the record as it found it.
    template <typename Event>
    void keepsRecord(Event event) {
        const std::string before = summarize(GetLocalPolicyInfo());
        event();
        checkGrowth();
        check(summarize(GetLocalPolicyInfo()) == before);
    }

    // Compares the record with the one seen after the previous event, then remembers it.
    void checkGrowth() {
        m_bDelivered = true;
        const LocalQNPolicyInfo info = GetLocalPolicyInfo();
        const std::vector<bool> caching = info.RestrictPrefCaching();
        check(caching.size() == RESTRICT_PREF_CACHING_OPTION_COUNT && caching[0]);
        check((info.ExcludeCertStores() & m_uiMask) == m_uiMask);
        m_uiMask = info.ExcludeCertStores();
        const std::list<std::string>& servers = info.GetAuthorizedServerList();
        check(servers.size() >= msl_servers.size() &&
              std::equal(msl_servers.begin(), msl_servers.end(), servers.begin()));
        msl_servers = servers;
    }

    uint32_t m_uiMask = 0;
    std::list<std::string> msl_servers;
    bool m_bDelivered = false;
};

// The status, whether any event reached the manager, and the record.
std::string parse(const uint8_t* data, size_t size, bool bSecure) {
    CheckingPolMgr mgr;
    const STATUSCODE status =
        XmlParser(&mgr).parseBuffer(reinterpret_cast<const char*>(data), size, bSecure, "fuzz");
    return std::to_string(status) + (mgr.delivered() ? " events " : " none ") +
           summarize(mgr.GetLocalPolicyInfo());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // Every failure path logs; a million lines a minute would only slow the fuzzer.
    CAppLog::SetSink([](const CAppLogRecord&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string secure = parse(data, size, true);
    const std::string refused = std::to_string(XMLPARSER_ERROR_DOCTYPE_REFUSED);
    if (secure.rfind(refused + " ", 0) == 0) {
        check(secure == refused + " none " + summarize(LocalQNPolicyInfo()));
    } else {
        check(parse(data, size, false) == secure);
    }
    return 0;
}

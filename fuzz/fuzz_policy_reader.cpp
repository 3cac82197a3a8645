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

#include <cstdint>
#include <list>
#include <string>

#include "AppLog.h"
#include "LocalQNPolicyInfo.h"
#include "PolicySummary.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlParser.h"

namespace {

using qnfuzz::check;

// The manager with every callback forwarded to the real reader and checked afterwards.
class CheckingPolMgr : public XmlLocalQNPolMgr {
  public:
    void addElement(const std::string& elementName) override {
        const std::string before = qnfuzz::summarize(GetLocalPolicyInfo());
        XmlLocalQNPolMgr::addElement(elementName);
        checkGrowth();
        check(qnfuzz::summarize(GetLocalPolicyInfo()) == before);
    }

    void endElement(const std::string& elementName) override {
        const std::string before = qnfuzz::summarize(GetLocalPolicyInfo());
        XmlLocalQNPolMgr::endElement(elementName);
        checkGrowth();
        check(qnfuzz::summarize(GetLocalPolicyInfo()) == before);
    }

    void setElementValue(const std::string& elementValue) override {
        XmlLocalQNPolMgr::setElementValue(elementValue);
        checkGrowth();
    }

    void addAttribute(const std::string& attributeName,
                      const std::string& attributeValue) override {
        XmlLocalQNPolMgr::addAttribute(attributeName, attributeValue);
        checkGrowth();
    }

    bool delivered() const { return m_bDelivered; }

  private:
    // Compares the record with the one seen after the previous event, then remembers it.
    void checkGrowth() {
        m_bDelivered = true;
        const LocalQNPolicyInfo info = GetLocalPolicyInfo();
        const std::vector<bool> caching = info.RestrictPrefCaching();
        check(caching.size() == RESTRICT_PREF_CACHING_OPTION_COUNT && caching[0]);

        const uint32_t mask = info.ExcludeCertStores();
        check((mask & m_uiMask) == m_uiMask);
        m_uiMask = mask;

        const std::list<std::string>& servers = info.GetAuthorizedServerList();
        check(servers.size() >= msl_servers.size());
        auto server = servers.begin();
        for (const std::string& earlier : msl_servers) {
            check(*server == earlier);
            ++server;
        }
        msl_servers.insert(msl_servers.end(), server, servers.end());
    }

    uint32_t m_uiMask = 0;
    std::list<std::string> msl_servers;
    bool m_bDelivered = false;
};

struct Outcome {
    STATUSCODE status;
    std::string record;
    bool bDelivered;
};

Outcome parse(const uint8_t* data, size_t size, bool bSecure) {
    CheckingPolMgr mgr;
    XmlParser parser(&mgr);
    const STATUSCODE status =
        parser.parseBuffer(reinterpret_cast<const char*>(data), size, bSecure, "fuzz");
    return {status, qnfuzz::summarize(mgr.GetLocalPolicyInfo()), mgr.delivered()};
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // Every failure path logs; a million lines a minute would only slow the fuzzer.
    CAppLog::SetSink([](const CAppLogRecord&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Outcome secure = parse(data, size, true);
    const Outcome tolerant = parse(data, size, false);
    if (secure.status == XMLPARSER_ERROR_DOCTYPE_REFUSED) {
        check(!secure.bDelivered);
        check(secure.record == qnfuzz::summarize(LocalQNPolicyInfo()));
    } else {
        check(tolerant.status == secure.status);
        check(tolerant.record == secure.record);
    }
    return 0;
}

#include "DeferredLog.h"

#include "ToolLog.h"

namespace qnpolicy::tool {

CDeferredLog::CDeferredLog() : m_pRecords(std::make_shared<std::vector<CAppLogRecord>>()) {
    // The sink runs under the logging lock, which also serialises access to the vector.
    std::shared_ptr<std::vector<CAppLogRecord>> records = m_pRecords;
    m_previous =
        CAppLog::SetSink([records](const CAppLogRecord& record) { records->push_back(record); });
}

CDeferredLog::~CDeferredLog() {
    Forward();
}

void CDeferredLog::restore() {
    if (!m_bRestored) {
        CAppLog::SetSink(m_previous);
        m_bRestored = true;
    }
}

void CDeferredLog::Forward() {
    ForwardExcept([](const CAppLogRecord&) { return false; });
}

void CDeferredLog::ForwardExcept(const std::function<bool(const CAppLogRecord&)>& bReplaced) {
    if (m_bRestored) {
        return;
    }
    restore();
    for (const CAppLogRecord& record : *m_pRecords) {
        if (bReplaced(record)) {
            continue;
        }
        if (m_previous) {
            m_previous(record);
        } else {
            CToolLog::WriteLine(record);
        }
    }
    m_pRecords->clear();
}

void CDeferredLog::Discard() {
    restore();
    m_pRecords->clear();
}

}  // namespace qnpolicy::tool

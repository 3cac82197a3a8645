#ifndef QNPOLICY_DEFERREDLOG_H
#define QNPOLICY_DEFERREDLOG_H

#include <functional>
#include <memory>
#include <vector>

#include "AppLog.h"

namespace qnpolicy::tool {

// CDeferredLog holds back the module's log records while it lives, so that a caller can
// decide afterwards whether they matter: Discard() drops them, Forward() (and the destructor
// when neither was called) passes them on, in order, to the sink that was installed before,
// and ForwardExcept() passes on all but those the tool reports in a better form of its own
// (the DOCTYPE refusal that the linter turns into a finding, the per-argument warnings of a
// generation that generate prints with the argument they came from).
class CDeferredLog {
  public:
    CDeferredLog();
    ~CDeferredLog();
    CDeferredLog(const CDeferredLog&) = delete;
    CDeferredLog& operator=(const CDeferredLog&) = delete;

    // The records held back so far.
    const std::vector<CAppLogRecord>& Records() const { return *m_pRecords; }

    void Forward();
    void ForwardExcept(const std::function<bool(const CAppLogRecord&)>& bReplaced);
    void Discard();

  private:
    void restore();

    std::shared_ptr<std::vector<CAppLogRecord>> m_pRecords;
    CAppLogSink m_previous;
    bool m_bRestored = false;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_DEFERREDLOG_H

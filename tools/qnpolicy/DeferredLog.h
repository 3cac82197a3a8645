#ifndef QNPOLICY_DEFERREDLOG_H
#define QNPOLICY_DEFERREDLOG_H

#include <memory>
#include <vector>

#include "AppLog.h"

namespace qnpolicy::tool {

// CDeferredLog holds back the module's log records while it lives, so that a caller can
// decide afterwards whether they matter: Discard() drops them, Forward() (and the destructor
// when neither was called) passes them on, in order, to the sink that was installed before.
// Used where a failure is expected and reported in a better form, such as the DOCTYPE
// refusal that the linter turns into a finding.
class CDeferredLog {
  public:
    CDeferredLog();
    ~CDeferredLog();
    CDeferredLog(const CDeferredLog&) = delete;
    CDeferredLog& operator=(const CDeferredLog&) = delete;

    void Forward();
    void Discard();

  private:
    void restore();

    std::shared_ptr<std::vector<CAppLogRecord>> m_pRecords;
    CAppLogSink m_previous;
    bool m_bRestored = false;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_DEFERREDLOG_H

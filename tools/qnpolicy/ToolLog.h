#ifndef QNPOLICY_TOOLLOG_H
#define QNPOLICY_TOOLLOG_H

#include "AppLog.h"

namespace qnpolicy::tool {

// How much of the module's log the tool shows on standard error.
enum class Verbosity {
    QUIET,    // --quiet: errors only
    NORMAL,   // errors, warnings and informational records
    VERBOSE,  // -v: the trace records too
};

// CToolLog routes the module's log records to standard error for the whole run, as the
// library's default sink does (one line per record, CAppLog::FormatRecord), keeping only the
// importances the verbosity asks for. A value holding a line break or another control
// character is escaped, so one record stays one line. The previous sink is restored when the
// object goes out of scope.
class CToolLog {
  public:
    explicit CToolLog(Verbosity eVerbosity);
    ~CToolLog();
    CToolLog(const CToolLog&) = delete;
    CToolLog& operator=(const CToolLog&) = delete;

    // Whether a record of this importance is shown.
    static bool Shows(Verbosity eVerbosity, Logging::DebugImportance eImportance);

  private:
    CAppLogSink m_previous;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_TOOLLOG_H

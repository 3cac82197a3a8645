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

// CToolLog routes the module's log records for the whole run, keeping only the importances
// the verbosity asks for: to standard error as the library's default sink does (one line per
// record, CAppLog::FormatRecord; a value holding a line break or another control character is
// escaped, so one record stays one line), or with bSyslog to syslog(3) as "qnpolicy",
// facility user (CAppLog::SyslogSink). The previous sink is restored when the object goes out
// of scope.
class CToolLog {
  public:
    CToolLog(Verbosity eVerbosity, bool bSyslog);
    ~CToolLog();
    CToolLog(const CToolLog&) = delete;
    CToolLog& operator=(const CToolLog&) = delete;

    // Writes one record as one line on standard error: the journal's priority prefix where
    // standard error is the journal (CAppLog::StandardErrorPrefix), then the readable line
    // with control characters escaped.
    static void WriteLine(const CAppLogRecord& record);

    // Whether a record of this importance is shown.
    static bool Shows(Verbosity eVerbosity, Logging::DebugImportance eImportance);

  private:
    CAppLogSink m_previous;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_TOOLLOG_H

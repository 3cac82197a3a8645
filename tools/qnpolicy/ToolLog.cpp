#include "ToolLog.h"

#include <syslog.h>

#include <cstdio>

#include "TextFormat.h"

namespace qnpolicy::tool {

CToolLog::CToolLog(Verbosity eVerbosity, bool bSyslog) {
    if (bSyslog) {
        ::openlog("qnpolicy", LOG_PID, LOG_USER);
        m_previous = CAppLog::SetSink(
            [eVerbosity, sink = CAppLog::SyslogSink()](const CAppLogRecord& record) {
                if (Shows(eVerbosity, record.importance)) {
                    sink(record);
                }
            });
        return;
    }
    m_previous = CAppLog::SetSink([eVerbosity](const CAppLogRecord& record) {
        if (Shows(eVerbosity, record.importance)) {
            WriteLine(record);
        }
    });
}

CToolLog::~CToolLog() {
    CAppLog::SetSink(m_previous);
}

void CToolLog::WriteLine(const CAppLogRecord& record) {
    std::fprintf(stderr, "%s%s\n", CAppLog::StandardErrorPrefix(record.importance).c_str(),
                 OneLine(CAppLog::FormatRecord(record)).c_str());
}

bool CToolLog::Shows(Verbosity eVerbosity, Logging::DebugImportance eImportance) {
    switch (eVerbosity) {
        case Verbosity::QUIET:
            return eImportance == Logging::DBG_Error;
        case Verbosity::NORMAL:
            return eImportance != Logging::DBG_Trace;
        case Verbosity::VERBOSE:
            return true;
    }
    return true;
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_APPLOG_H
#define QUILLNET_APPLOG_H

#include <cstdint>
#include <functional>
#include <string>

#include "LoggingTypes.h"
#include "QuillnetExport.h"

// One log record as it reaches the sink.
struct CAppLogRecord {
    std::string function;  // the operation's bare name, e.g. "LoadLocalQuillnetPolicy"
    std::string file;      // source file as passed by the caller
    int line = 0;
    Logging::DebugImportance importance = Logging::DBG_Trace;
    std::string message;  // LogDebugMessage: the formatted text; LogReturnCode: text1
                          // formatted with the variadic arguments, empty when text1 is null
    std::string callee;   // LogReturnCode only: the failed operation, e.g. "XmlParser::parseFile"
    uint32_t code = 0;    // LogReturnCode only: the callee's status
};

// Receives every record. A sink runs under the logging lock: it must not log itself.
using CAppLogSink = std::function<void(const CAppLogRecord&)>;

// CAppLog is the client's process-wide logging facility: static functions, no logger object.
// Records go to one process-wide sink; the default sink writes one readable line per record
// to standard error:
//
//   E LoadLocalQuillnetPolicy vpn/Common/Xml/XmlLocalQNPolMgr:LINE XmlParser::parseFile returned
//   0xFEA1000D
//   I LoadLocalQuillnetPolicy vpn/Common/Xml/XmlLocalQNPolMgr:LINE FIPS mode is enabled.
//
// A record's file and line are those of the statement that wrote it.
//
// When standard error is the systemd journal's stream (JOURNAL_STREAM names its device and
// inode), each line starts with the kernel-style priority of its importance ("<3>" errors,
// "<4>" warnings, "<6>" information, "<7>" trace), so a service's records keep their priority
// in the journal. A client that runs as a daemon without the journal sends its records to
// syslog instead:
//
//   openlog("quillnetd", LOG_PID, LOG_DAEMON);  // optional: identity and facility
//   CAppLog::SetSink(CAppLog::SyslogSink());
//
// Logging is thread-safe, and records reach the sink in the order they were logged.
class QUILLNET_API CAppLog {
  public:
    // Logs a printf-style message.
    static void LogDebugMessage(const char* function, const char* file, int line,
                                Logging::DebugImportance importance, const char* format, ...)
        __attribute__((format(printf, 5, 6)));

    // Logs a failed call: callee is the operation that failed, code its status. text1, when
    // not null, is a printf-style format for the variadic arguments and becomes the record's
    // message; text2 is accepted for interface compatibility and not recorded.
    static void LogReturnCode(const char* function, const char* file, int line,
                              Logging::DebugImportance importance, const char* callee,
                              uint32_t code, const char* text1, const char* text2, ...);

    // Installs a process-wide sink and returns the previous one; an empty sink restores the
    // default, which writes to standard error. While the default is in effect the previous
    // sink is returned empty, so installing what SetSink returned always restores the state
    // before the call.
    static CAppLogSink SetSink(CAppLogSink sink);

    // A sink that hands every record to syslog(3) at the priority of its importance
    // (SyslogPriority), as the readable line without its importance letter: function,
    // file:line, then the message or the callee and its code. The identity and facility are
    // the process's openlog(3) choice (by default the program name and LOG_USER).
    static CAppLogSink SyslogSink();

    // The syslog(3) priority of an importance: E LOG_ERR, W LOG_WARNING, I LOG_INFO,
    // T LOG_DEBUG; LOG_NOTICE for a value outside the enumeration.
    static int SyslogPriority(Logging::DebugImportance importance);

    // What the default sink puts before a record's line: the kernel-style priority of the
    // importance ("<3>" ...) when standard error is the journal's stream, else nothing. A sink
    // of its own that writes to standard error puts it first too.
    static std::string StandardErrorPrefix(Logging::DebugImportance importance);

    // The readable one-line form of a record used by the default sink (no trailing newline):
    // the importance letter, a space, then FormatRecordText.
    static std::string FormatRecord(const CAppLogRecord& record);
    // The record without its importance letter: function, file:line, then the message or the
    // callee, its status and the message.
    static std::string FormatRecordText(const CAppLogRecord& record);
};

#endif  // QUILLNET_APPLOG_H

// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_APPLOGHERE_H
#define QUILLNET_APPLOGHERE_H

// One-line log calls that fill in where a record comes from: the calling function's bare name
// (__func__, so a record's operation is always the function that logs it), the source text
// of the module, and the line. Internal to the library: not installed.
//
// A file that logs names its module's source text once, as a constant the macros find by
// name, then logs with one line per record:
//
//   constexpr char kAppLogSourceFile[] = "vpn/Common/Xml/XmlLocalQNPolMgr";
//   ...
//   APPLOG_MESSAGE(DBG_Warning, "ignoring undefined abbreviation %s", abbreviation.c_str());
//   APPLOG_RETURN_CODE(DBG_Error, "XmlParser::parseFile", status);
//
// Call them only from the function whose name the record must carry, never from a lambda or
// a helper (where __func__ names something else).

#include <cstdint>

#include "AppLog.h"

// A printf-style message of the given Logging::DebugImportance (DBG_Error, DBG_Warning, ...).
#define APPLOG_MESSAGE(importance, ...)                                                  \
    CAppLog::LogDebugMessage(__func__, kAppLogSourceFile, __LINE__, Logging::importance, \
                             __VA_ARGS__)

// A failed call: the callee's name and the status it returned; no message text.
#define APPLOG_RETURN_CODE(importance, callee, status)                                         \
    CAppLog::LogReturnCode(__func__, kAppLogSourceFile, __LINE__, Logging::importance, callee, \
                           static_cast<uint32_t>(status), nullptr, nullptr)

// The same, for a record that names another operation than the calling function: an operation
// of the manager performed by the document layer on its behalf, which logs what the manager
// logs for it.
#define APPLOG_MESSAGE_AS(function, importance, ...)                                     \
    CAppLog::LogDebugMessage(function, kAppLogSourceFile, __LINE__, Logging::importance, \
                             __VA_ARGS__)
#define APPLOG_RETURN_CODE_AS(function, importance, callee, status)                            \
    CAppLog::LogReturnCode(function, kAppLogSourceFile, __LINE__, Logging::importance, callee, \
                           static_cast<uint32_t>(status), nullptr, nullptr)

#endif  // QUILLNET_APPLOGHERE_H

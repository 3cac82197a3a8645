// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_XMLLOCALQNPOLMGRRECORDS_H
#define QUILLNET_XMLLOCALQNPOLMGRRECORDS_H

// The records the manager's module writes on behalf of its reader and its document layer, one
// function each. All of them are defined in XmlLocalQNPolMgr.cpp, whose path every record of
// the module names ("vpn/Common/Xml/XmlLocalQNPolMgr"), so that a record's file and line lead to
// the statement that wrote it. Each carries the operation name the client's log readers know.
// Internal to the library: not installed.

#include "GenDefs.h"

namespace qnpolicy::records {

// setElementValue, warning: "Local Policy XML structure is incorrect." (an update permission
// outside the update-policy section).
void StructureIncorrect();
// addAttribute, warning: the document's version is newer than the client's.
void NewerVersion();
// LoadLocalQuillnetPolicy, error: callee (the parser's operation) returned status.
void LoadFailed(const char* callee, STATUSCODE status);
// LoadLocalQuillnetPolicy, information: "FIPS mode is enabled." or "... disabled.".
void FipsMode(bool bEnabled);
// writeLocalPolicy, error: storing the document returned status.
void StoreFailed(STATUSCODE status);

}  // namespace qnpolicy::records

#endif  // QUILLNET_XMLLOCALQNPOLMGRRECORDS_H

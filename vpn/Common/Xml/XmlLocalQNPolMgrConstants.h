// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_XMLLOCALQNPOLMGRCONSTANTS_H
#define QUILLNET_XMLLOCALQNPOLMGRCONSTANTS_H

// The structural names of the policy document, shared by the library and the tool: the root,
// its version attribute, the section that holds the update permissions, and the server list and
// name elements (whose catalogue rows take their names from here). All are constants
// initialised at compile time, usable from any static initialiser. The file's name is public
// (kPolicyFileName, LocalPolicyDocument.h). Internal to the library and the tool: not installed.

#include "LocalPolicyDocument.h"
#include "QnBuildConfig.h"

namespace qnpolicy {

inline constexpr char kRootElement[] = "QuillnetLocalPolicy";
inline constexpr char kVersionAttribute[] = "qnversion";
inline constexpr char kUpdatePolicyElement[] = "UpdatePolicy";
inline constexpr char kAuthorizedServerListElement[] = "AuthorizedServerList";
inline constexpr char kServerNameElement[] = "ServerName";

// The document's default namespace, the SOAP 1.1 encoding namespace as SOAP 1.1 spells it,
// which is also the target namespace of the schema the document names.
inline constexpr char kDocumentNamespace[] = "http://schemas.xmlsoap.org/soap/encoding/";
inline constexpr char kSchemaInstanceNamespace[] = "http://www.w3.org/2001/XMLSchema-instance";
inline constexpr char kSchemaFile[] = "QuillnetLocalPolicy.xsd";

// The client's own version, written into new files and compared with every file read.
inline constexpr char kClientVersion[] = QN_CLIENT_VERSION;

}  // namespace qnpolicy

#endif  // QUILLNET_XMLLOCALQNPOLMGRCONSTANTS_H

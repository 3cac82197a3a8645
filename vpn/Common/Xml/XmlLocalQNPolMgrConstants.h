// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_XMLLOCALQNPOLMGRCONSTANTS_H
#define QUILLNET_XMLLOCALQNPOLMGRCONSTANTS_H

// Names shared by the manager's implementation files. Internal to the module: not installed.
// The names of the elements the reader acts on live in the settings catalogue
// (LocalPolicySettings.h); here stand only the file, the root and the section that holds the
// update permissions.

#include <string>

#include "LocalPolicySettings.h"
#include "QnBuildConfig.h"

namespace qnpolicy {

// The source path every log record of the manager names (see AppLogHere.h).
inline constexpr char kAppLogSourceFile[] = "vpn/Common/Xml/XmlLocalQNPolMgr";

inline constexpr char kPolicyFileName[] = "QuillnetLocalPolicy.xml";
inline constexpr char kRootElement[] = "QuillnetLocalPolicy";
inline constexpr char kVersionAttribute[] = "qnversion";
inline constexpr char kUpdatePolicyElement[] = "UpdatePolicy";

// The server list's and the server name's element names, as the catalogue holds them, for the
// tool's messages and generated documentation that name these two structural elements; the
// library itself asks the catalogue by kind.
inline const std::string& kAuthorizedServerListElement =
    FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_LIST)->element;
inline const std::string& kServerNameElement =
    FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_NAME)->element;

// The document's default namespace, the SOAP 1.1 encoding namespace as SOAP 1.1 spells it,
// which is also the target namespace of the schema the document names.
inline constexpr char kDocumentNamespace[] = "http://schemas.xmlsoap.org/soap/encoding/";
inline constexpr char kSchemaInstanceNamespace[] = "http://www.w3.org/2001/XMLSchema-instance";
inline constexpr char kSchemaFile[] = "QuillnetLocalPolicy.xsd";

// The warning of a generation that keeps an existing file (no overwrite).
inline constexpr char kFileKeptMessage[] =
    "Local Security Policy file already exists and therefore will not be generated";

// The client's own version, written into new files and compared with every file read.
inline constexpr char kClientVersion[] = QN_CLIENT_VERSION;

}  // namespace qnpolicy

#endif  // QUILLNET_XMLLOCALQNPOLMGRCONSTANTS_H

#ifndef XMLLOCALQNPOLMGRCONSTANTS_H
#define XMLLOCALQNPOLMGRCONSTANTS_H

// Names shared by the manager's implementation files. Internal to the module: not installed.

#include "QnBuildConfig.h"

namespace qnpolicy {

// The source path every log record of the manager names.
inline constexpr char kSourceFile[] = "vpn/Common/Xml/XmlLocalQNPolMgr";

inline constexpr char kPolicyFileName[] = "QuillnetLocalPolicy.xml";
inline constexpr char kRootElement[] = "QuillnetLocalPolicy";
inline constexpr char kVersionAttribute[] = "qnversion";
inline constexpr char kUpdatePolicyElement[] = "UpdatePolicy";
inline constexpr char kAuthorizedServerListElement[] = "AuthorizedServerList";
inline constexpr char kServerNameElement[] = "ServerName";

// The client's own version, written into new files and compared with every file read.
inline constexpr char kClientVersion[] = QN_CLIENT_VERSION;

}  // namespace qnpolicy

#endif  // XMLLOCALQNPOLMGRCONSTANTS_H

#ifndef QNPOLICY_TOOLSESSION_H
#define QNPOLICY_TOOLSESSION_H

#include <string>

#include "GenDefs.h"
#include "StoragePath.h"
#include "XmlLocalQNPolMgr.h"

namespace qnpolicy::tool {

// The main installation directory as the module expects it: the text given, with a '/'
// appended when it does not end with one.
std::string NormalizeInstallDir(const std::string& installDir);

// CToolSession registers the module's process-wide services for one subcommand: the
// installation-path service on the chosen directory, then the policy manager. Both are
// released, in reverse order, when the session ends.
//
//   CToolSession session;
//   if (session.Open("/opt/quillnet") != XMLLOCALQNPOLMGR_SUCCESS) { ... }
//   session.Manager().LoadLocalQuillnetPolicy();
class CToolSession {
  public:
    CToolSession() = default;
    ~CToolSession();
    CToolSession(const CToolSession&) = delete;
    CToolSession& operator=(const CToolSession&) = delete;

    // Registers both services; the status of the registration that failed otherwise (logged).
    STATUSCODE Open(const std::string& installDir);

    // Valid only after a successful Open.
    XmlLocalQNPolMgr& Manager() const { return *m_pManager; }
    // The full path of the policy file the manager reads and writes.
    std::string PolicyPath() const;

  private:
    CStoragePath* m_pStoragePath = nullptr;
    XmlLocalQNPolMgr* m_pManager = nullptr;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_TOOLSESSION_H

#ifndef QNPOLICY_PRIVATEDIRECTORY_H
#define QNPOLICY_PRIVATEDIRECTORY_H

#include <string>

namespace qnpolicy::tool {

// CPrivateDirectory is a fresh directory of the tool's own (mkdtemp, mode 0700, in $TMPDIR
// or /tmp), removed with its content when the object goes out of scope. generate lets the
// module write the would-be document there, and show points the module at a file elsewhere
// through it, so that neither ever touches the install directory to find something out.
//
//   CPrivateDirectory scratch;
//   if (!scratch.Create()) { ... }   // the reason is logged
//   scratch.Path();                  // ends with '/'
class CPrivateDirectory {
  public:
    CPrivateDirectory() = default;
    ~CPrivateDirectory();
    CPrivateDirectory(const CPrivateDirectory&) = delete;
    CPrivateDirectory& operator=(const CPrivateDirectory&) = delete;

    bool Create();
    const std::string& Path() const { return m_path; }

  private:
    std::string m_path;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_PRIVATEDIRECTORY_H

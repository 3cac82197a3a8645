// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_PATHAUDIT_H
#define QNPOLICY_PATHAUDIT_H

// Who can change the policy file: the audit of its path as the client resolves it, the one
// place that decides whether a path is safe, for check and for every writer.

#include <sys/stat.h>

#include <string>
#include <vector>

#include "UniqueFd.h"
#include "lint/PolicyLinter.h"

namespace qnpolicy::tool {

// An open directory, owned: the directory a path audit ended on, which a writer stores
// through (and in which writers take their lock), so that the directory examined is the
// directory used, whatever happens to its path meanwhile. Move-only.
class CDirectoryHandle {
  public:
    CDirectoryHandle() = default;
    CDirectoryHandle(qnsys::UniqueFd fd, std::string path)
        : m_fd(std::move(fd)), m_path(std::move(path)) {}

    bool Valid() const { return m_fd.valid(); }
    // Readable (O_RDONLY | O_DIRECTORY) where the caller may read the directory, so that a
    // store can list and sync it through the descriptor; else an O_PATH descriptor, for
    // lookups only.
    int Fd() const { return m_fd.get(); }
    // The directory's path as the audit walked it, links resolved, with its trailing '/'.
    const std::string& Path() const { return m_path; }

  private:
    qnsys::UniqueFd m_fd;
    std::string m_path;
};

// Whom the audit trusts to own what leads to the policy file.
enum class Trust {
    CLIENT,  // root alone: the client reads the file as root (check)
    WRITER,  // root, and the user running the tool (a writer run by another user)
};

// One component through which someone untrusted could change the policy, with what to run.
struct PathProblem {
    const char* kind;     // the finding kind: unsafe-path, file-owner or file-permissions
    std::string message;  // names the component, says what is wrong and what to run
};

// What the audit of a policy path found.
struct PathAudit {
    std::vector<PathProblem> problems;  // unsafe directories and links, from "/" down
    CDirectoryHandle directory;         // where the walk ended, when it reached the last directory
    std::string name;                   // the policy file's name in that directory (links followed)
    // The walk could not reach the last directory: ENOENT or ENOTDIR (nothing there for the
    // client either), ELOOP, or why a component could not be examined (then also a problem).
    int error = 0;
    // Something is at name: entry is its status (its own, not a link's target). With
    // bExamined false, something may be there but could not be examined (counts as present).
    bool bExists = false;
    bool bExamined = false;
    struct stat entry {};

    bool Reached() const { return directory.Valid(); }
    std::string Path() const { return directory.Path() + name; }
};

// Walks path component by component as the client's open resolves it, following nothing
// blindly: each directory opened O_PATH | O_NOFOLLOW below the one before, each entry examined
// without following it (AT_SYMLINK_NOFOLLOW), each symbolic link's target spliced into the
// walk (at most 40 links). A relative path starts at the working directory's own path.
//
// Every directory from "/" down to the policy file, and every link met on the way, must be
// owned by a trusted user, and a directory must not be writable by its group or others. A link's
// own mode is never judged: its owner and the directory holding it are. The sticky bit excuses
// a directory writable by others above the directory that holds the policy, since others
// cannot rename what they do not own there (and every entry below it must have a trusted
// owner anyway); it never excuses the directory that holds the policy, where anyone could
// create the file while it is absent. A component that cannot be examined is a problem: what
// cannot be told is unsafe. Bind mounts and the client's own mount namespace are beyond what a
// walk of the path can see.
PathAudit AuditPolicyPath(const std::string& path, Trust eTrust);

// What check reports of the policy file itself (the regular file at the end of an audit): not
// owned by root (file-owner), writable by its group or others, which an ACL granting write
// shows as a group-writable mode too (file-permissions), or more than one hard link, through
// which another name can change it (unsafe-path). path names it in the messages.
std::vector<PathProblem> FileProblems(const struct stat& file, const std::string& path);

// Who other than root can change the policy at path, as check and comply report it: the audit
// of its directories and links as the client resolves them (Trust::CLIENT), then, when a regular
// file is there, FileProblems of that file; as findings about the file as a whole. None: only
// root can change it.
std::vector<LintFinding> PolicyPathFindings(const std::string& path);

// A mode's permission bits as four octal digits: "0644".
std::string OctalMode(mode_t mode);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_PATHAUDIT_H

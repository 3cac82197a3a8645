// SPDX-License-Identifier: Apache-2.0
// The path audit: a walk from "/" to the policy file that follows nothing blindly.

#include "PathAudit.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <deque>

#include "ErrnoText.h"
#include "MessageText.h"
#include "lint/PolicyTexts.h"

namespace qnpolicy::tool {

namespace {

// As many links as the kernel follows in one path lookup (MAXSYMLINKS).
constexpr int kMaxLinks = 40;
constexpr char kSafeShellCharacters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./+-:@%,=";

// path as one shell word: as it is when it needs no quoting, else in single quotes.
std::string shellWord(const std::string& path) {
    if (!path.empty() && path.find_first_not_of(kSafeShellCharacters) == std::string::npos) {
        return path;
    }
    std::string quoted = "'";
    for (const char c : path) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

// The components of path in order, without empty ones and ".".
void appendComponents(const std::string& path, std::deque<std::string>& rComponents, bool bFront) {
    std::deque<std::string> components;
    for (size_t start = 0; start <= path.size();) {
        const size_t slash = std::min(path.find('/', start), path.size());
        const std::string component = path.substr(start, slash - start);
        if (!component.empty() && component != ".") {
            components.push_back(component);
        }
        start = slash + 1;
    }
    rComponents.insert(bFront ? rComponents.begin() : rComponents.end(), components.begin(),
                       components.end());
}

// One directory on the walk: its descriptor (O_PATH), its path with the trailing '/', and
// whether only the sticky bit excused its being writable by others.
struct WalkedDirectory {
    qnsys::UniqueFd fd;
    std::string path;
    bool bStickyExcused = false;
};

// The walk of one path: the directories entered, in order, and what was found.
class CPathWalk {
  public:
    CPathWalk(Trust eTrust, PathAudit& rAudit) : m_eTrust(eTrust), m_rAudit(rAudit) {}

    void run(const std::string& path) {
        std::deque<std::string> pending;
        if (path.empty() || path[0] != '/') {
            char cwd[PATH_MAX];
            if (::getcwd(cwd, sizeof cwd) == nullptr) {
                cannotExamine(".", errno);
                return;
            }
            appendComponents(cwd, pending, false);
        }
        appendComponents(path, pending, false);
        if (!enterRoot()) {
            return;
        }
        int links = 0;
        while (!pending.empty()) {
            const std::string name = pending.front();
            pending.pop_front();
            if (name == "..") {
                if (m_directories.size() > 1) {
                    m_directories.pop_back();
                }
                continue;
            }
            if (!step(name, pending, links)) {
                return;
            }
        }
        if (m_rAudit.name.empty()) {
            m_rAudit.error = EISDIR;  // the path ends on a directory, not on a file's name
            return;
        }
        finish();
    }

  private:
    bool trusted(uid_t uid) const {
        return uid == 0 || (m_eTrust == Trust::WRITER && uid == ::geteuid());
    }
    const char* trustedOwners() const {
        return m_eTrust == Trust::CLIENT ? "not root"
                                         : "neither root nor the user running qnpolicy";
    }
    void problem(std::string message) {
        m_rAudit.problems.push_back({findingkind::kUnsafePath, std::move(message)});
    }
    void cannotExamine(const std::string& component, int error) {
        m_rAudit.error = error;
        problem(Quoted(component) + " cannot be examined (" + qnsys::errnoText(error) +
                "), so who can change the policy file through it cannot be told. Run: sudo ls "
                "-ld " +
                shellWord(component) + ", and make it examinable");
    }

    bool enterRoot() {
        qnsys::UniqueFd fd(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!fd.valid()) {
            cannotExamine("/", errno);
            return false;
        }
        return enter(std::move(fd), "/");
    }

    // Judges the directory open as fd and walks into it.
    bool enter(qnsys::UniqueFd fd, const std::string& path) {
        struct stat status {};
        if (::fstat(fd.get(), &status) != 0) {
            cannotExamine(path, errno);
            return false;
        }
        if (!trusted(status.st_uid)) {
            problem("The directory " + Quoted(path) + " is owned by user id " +
                    std::to_string(status.st_uid) + ", " + trustedOwners() +
                    ": that user can replace the policy file. Run: chown root " + shellWord(path));
        }
        const bool bWritable = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
        const bool bSticky = (status.st_mode & S_ISVTX) != 0;
        if (bWritable && !bSticky) {
            problem("The directory " + Quoted(path) + " has mode " + OctalMode(status.st_mode) +
                    ": its group or others can replace the policy file. Run: chmod go-w " +
                    shellWord(path));
        }
        const std::string withSlash = path.back() == '/' ? path : path + "/";
        m_directories.push_back({std::move(fd), withSlash, bWritable && bSticky});
        return true;
    }

    // Examines one name in the current directory: a link is spliced into the walk, a directory
    // entered, the last entry recorded. False when the walk ends early.
    bool step(const std::string& name, std::deque<std::string>& rPending, int& rLinks) {
        const WalkedDirectory& directory = m_directories.back();
        const std::string component = directory.path + name;
        struct stat status {};
        if (::fstatat(directory.fd.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            const int error = errno;
            if ((error == ENOENT || error == ENOTDIR) && rPending.empty()) {
                m_rAudit.name = name;  // nothing there: absent from a reachable directory
                return true;
            }
            if (error == ENOENT || error == ENOTDIR) {
                m_rAudit.error = error;
                return false;
            }
            m_rAudit.bExists = true;  // cannot tell: counts as present
            cannotExamine(component, error);
            return false;
        }
        if (S_ISLNK(status.st_mode)) {
            return splice(name, component, status, rPending, rLinks);
        }
        if (rPending.empty()) {
            m_rAudit.name = name;
            m_rAudit.bExists = true;
            m_rAudit.bExamined = true;
            m_rAudit.entry = status;
            return true;
        }
        if (!S_ISDIR(status.st_mode)) {
            m_rAudit.error = ENOTDIR;
            return false;
        }
        qnsys::UniqueFd fd(::openat(directory.fd.get(), name.c_str(),
                                    O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!fd.valid()) {
            cannotExamine(component, errno);
            return false;
        }
        return enter(std::move(fd), component);
    }

    // Judges the link's owner and puts its target's components before the rest of the walk.
    bool splice(const std::string& name, const std::string& component, const struct stat& status,
                std::deque<std::string>& rPending, int& rLinks) {
        if (++rLinks > kMaxLinks) {
            m_rAudit.error = ELOOP;
            problem(Quoted(component) + " leads through more than " + std::to_string(kMaxLinks) +
                    " symbolic links. Run: readlink -f " + shellWord(component) +
                    ", and point it at the file directly");
            return false;
        }
        if (!trusted(status.st_uid)) {
            problem("The symbolic link " + Quoted(component) + " is owned by user id " +
                    std::to_string(status.st_uid) + ", " + trustedOwners() +
                    ": that user can point it elsewhere. Run: chown -h root " +
                    shellWord(component));
        }
        std::string target(PATH_MAX, '\0');
        const ssize_t length =
            ::readlinkat(m_directories.back().fd.get(), name.c_str(), target.data(), target.size());
        if (length < 0) {
            cannotExamine(component, errno);
            return false;
        }
        target.resize(static_cast<size_t>(length));
        if (!target.empty() && target[0] == '/') {
            m_directories.resize(1);
        }
        appendComponents(target, rPending, true);
        if (rPending.empty()) {
            rPending.push_back(".");  // a link to "/": the walk ends on a directory
        }
        return true;
    }

    // The last directory holds the policy: writable by others, it is unsafe even when sticky.
    // Its descriptor is opened for reading where that is allowed, for a store to use.
    void finish() {
        WalkedDirectory& last = m_directories.back();
        if (last.bStickyExcused) {
            const std::string shown =
                last.path.size() > 1 ? last.path.substr(0, last.path.size() - 1) : last.path;
            problem("The directory " + Quoted(shown) +
                    " holds the policy file and others can write in it: the sticky bit does not "
                    "stop them from creating the file while it is absent. Run: chmod go-w " +
                    shellWord(shown));
        }
        qnsys::UniqueFd readable(::openat(last.fd.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        m_rAudit.directory = CDirectoryHandle(
            readable.valid() ? std::move(readable) : std::move(last.fd), last.path);
    }

    Trust m_eTrust;
    PathAudit& m_rAudit;
    std::vector<WalkedDirectory> m_directories;
};

}  // namespace

std::string OctalMode(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned int>(mode & 07777));
    return text;
}

PathAudit AuditPolicyPath(const std::string& path, Trust eTrust) {
    PathAudit audit;
    CPathWalk(eTrust, audit).run(path);
    return audit;
}

std::vector<PathProblem> FileProblems(const struct stat& file, const std::string& path) {
    std::vector<PathProblem> problems;
    if (file.st_uid != 0) {
        problems.push_back(
            {findingkind::kFileOwner, "The file " + Quoted(path) + " is owned by user id " +
                                          std::to_string(file.st_uid) +
                                          ", not by root: that user can change the policy. "
                                          "Run: chown root " +
                                          shellWord(path)});
    }
    if ((file.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        problems.push_back({findingkind::kFilePermissions,
                            "The file " + Quoted(path) + " has mode " + OctalMode(file.st_mode) +
                                ": its group or others can change the policy. Run: chmod go-w " +
                                shellWord(path)});
    }
    if (file.st_nlink > 1) {
        problems.push_back({findingkind::kUnsafePath,
                            "The file " + Quoted(path) + " has " + std::to_string(file.st_nlink) +
                                " hard links: whoever can write another of its names changes "
                                "the policy. Run: cp -p " +
                                shellWord(path) + " " + shellWord(path + ".new") + " && mv " +
                                shellWord(path + ".new") + " " + shellWord(path)});
    }
    return problems;
}

std::vector<LintFinding> PolicyPathFindings(const std::string& path) {
    const PathAudit audit = AuditPolicyPath(path, Trust::CLIENT);
    std::vector<PathProblem> problems = audit.problems;
    if (audit.bExamined && S_ISREG(audit.entry.st_mode)) {
        const std::vector<PathProblem> file = FileProblems(audit.entry, audit.Path());
        problems.insert(problems.end(), file.begin(), file.end());
    }
    std::vector<LintFinding> findings;
    findings.reserve(problems.size());
    for (PathProblem& problem : problems) {
        findings.push_back(LintFinding{0, 0, problem.kind, SeverityOf(problem.kind),
                                       std::move(problem.message), std::string()});
    }
    return findings;
}

}  // namespace qnpolicy::tool

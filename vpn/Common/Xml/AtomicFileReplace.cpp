// SPDX-License-Identifier: Apache-2.0
// Crash-safe whole-file replacement: unnamed temporary file, fsync, name, rename, directory
// fsync, all relative to one descriptor of the directory.

#include "AtomicFileReplace.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

#include "AppLog.h"
#include "ErrnoText.h"
#include "UniqueFd.h"

namespace {

constexpr char kSourceFile[] = "vpn/Common/Xml/AtomicFileReplace";
// Attempts at a temporary name before giving up (another writer took each one first).
constexpr int kNameAttempts = 16;
constexpr char kSuffixAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr size_t kSuffixLength = 6;

qnfile::ReplaceResult outcome(qnfile::ReplaceOutcome eOutcome, const char* step) {
    qnfile::ReplaceResult result;
    result.outcome = eOutcome;
    result.error = errno != 0 ? errno : EIO;
    result.step = step;
    return result;
}

qnfile::ReplaceResult failure(const char* step) {
    return outcome(qnfile::OUTCOME_FAILED, step);
}

// "<name>.<pid>." : the temporary names of this process for the file name are this prefix
// followed by kSuffixLength characters of kSuffixAlphabet.
std::string temporaryPrefix(const std::string& baseName, pid_t pid) {
    return "." + baseName + "." + std::to_string(pid) + ".";
}

// A fresh temporary name; names differ between calls of one process (counter) and between
// runs that reuse a pid (clock).
std::string newTemporaryName(const std::string& baseName) {
    static std::atomic<unsigned long> sg_counter{0};
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    unsigned long long mix =
        static_cast<unsigned long long>(now.tv_nsec) ^
        (static_cast<unsigned long long>(now.tv_sec) << 20) ^
        (static_cast<unsigned long long>(sg_counter++) * 0x9E3779B97F4A7C15ULL);
    std::string name = temporaryPrefix(baseName, ::getpid());
    for (size_t i = 0; i < kSuffixLength; ++i) {
        name.push_back(kSuffixAlphabet[mix % (sizeof(kSuffixAlphabet) - 1)]);
        mix /= sizeof(kSuffixAlphabet) - 1;
    }
    return name;
}

// The pid of the writer that made entry, when entry is a temporary name for baseName;
// 0 otherwise.
pid_t temporaryNameOwner(const std::string& entry, const std::string& baseName) {
    const std::string prefix = "." + baseName + ".";
    if (entry.size() <= prefix.size() + 1 + kSuffixLength ||
        entry.compare(0, prefix.size(), prefix) != 0) {
        return 0;
    }
    const size_t dot = entry.size() - kSuffixLength - 1;
    if (entry[dot] != '.' || dot == prefix.size() || dot - prefix.size() > 9) {
        return 0;
    }
    pid_t pid = 0;
    for (size_t i = prefix.size(); i < dot; ++i) {
        if (entry[i] < '0' || entry[i] > '9') {
            return 0;
        }
        pid = pid * 10 + (entry[i] - '0');
    }
    for (size_t i = dot + 1; i < entry.size(); ++i) {
        if (std::string(kSuffixAlphabet).find(entry[i]) == std::string::npos) {
            return 0;
        }
    }
    return pid;
}

// Removes every temporary name for baseName whose writer process no longer exists: what a
// writer killed between naming and renaming left. A name whose pid is running is kept, even
// when the pid was reused by another process since: removing a running writer's file would
// make its rename fail, keeping a stray is harmless. Failures here do not stop the write;
// they are logged.
void removeStrayTemporaries(int dirFd, const std::string& baseName, const std::string& path) {
    qnsys::UniqueFd listFd(::dup(dirFd));
    DIR* dir = listFd.valid() ? ::fdopendir(listFd.get()) : nullptr;
    if (dir == nullptr) {
        const int error = errno;
        CAppLog::LogDebugMessage("removeStrayTemporaries", kSourceFile, __LINE__,
                                 Logging::DBG_Warning,
                                 "Cannot list the directory of \"%s\" for stray temporary "
                                 "files: %s",
                                 path.c_str(), qnsys::errnoText(error).c_str());
        return;
    }
    listFd.release();  // owned by dir now
    ::rewinddir(dir);
    while (const dirent* entry = ::readdir(dir)) {
        const pid_t owner = temporaryNameOwner(entry->d_name, baseName);
        if (owner == 0 || owner == ::getpid() || ::kill(owner, 0) == 0 || errno != ESRCH) {
            continue;
        }
        struct stat info {};
        if (::fstatat(dirFd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISREG(info.st_mode)) {
            continue;
        }
        if (::unlinkat(dirFd, entry->d_name, 0) != 0 && errno != ENOENT) {
            const int error = errno;
            CAppLog::LogDebugMessage("removeStrayTemporaries", kSourceFile, __LINE__,
                                     Logging::DBG_Warning,
                                     "Cannot remove the stray temporary file \"%s\" beside "
                                     "\"%s\": %s",
                                     entry->d_name, path.c_str(), qnsys::errnoText(error).c_str());
        }
    }
    ::closedir(dir);
}

// A temporary name in the directory, removed on destruction unless it was renamed away.
class TemporaryName {
  public:
    explicit TemporaryName(int dirFd) : m_dirFd(dirFd) {}
    ~TemporaryName() {
        if (!m_name.empty()) {
            const int savedErrno = errno;
            ::unlinkat(m_dirFd, m_name.c_str(), 0);
            errno = savedErrno;
        }
    }
    TemporaryName(const TemporaryName&) = delete;
    TemporaryName& operator=(const TemporaryName&) = delete;

    void set(std::string name) { m_name = std::move(name); }
    const char* c_str() const { return m_name.c_str(); }
    // The name is gone (renamed over the target): nothing to remove.
    void forget() { m_name.clear(); }

  private:
    int m_dirFd;
    std::string m_name;
};

// Writes all of content, resuming after signals and short writes; false with errno set.
bool writeAll(int fd, const std::string& content) {
    const char* data = content.data();
    size_t remaining = content.size();
    while (remaining > 0) {
        const ssize_t written = ::write(fd, data, remaining);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data += written;
        remaining -= static_cast<size_t>(written);
    }
    return true;
}

// True when openat's error says the file system (or kernel) has no O_TMPFILE.
bool tmpfileUnsupported(int error) {
    return error == EOPNOTSUPP || error == EISDIR || error == EINVAL;
}

// Creates the file under a fresh temporary name at once (no O_TMPFILE); fd invalid and
// errno set on failure.
qnsys::UniqueFd createNamed(int dirFd, const std::string& baseName, TemporaryName& rName) {
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        const std::string name = newTemporaryName(baseName);
        qnsys::UniqueFd fd(::openat(dirFd, name.c_str(),
                                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (fd.valid()) {
            rName.set(name);
            return fd;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return qnsys::UniqueFd();
}

// Gives the unnamed file fd a fresh temporary name; false with errno set. Linking through
// /proc needs no privilege; AT_EMPTY_PATH serves where /proc is not mounted.
bool linkUnnamed(int fd, int dirFd, const std::string& baseName, TemporaryName& rName) {
    const std::string procPath = "/proc/self/fd/" + std::to_string(fd);
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        const std::string name = newTemporaryName(baseName);
        int result = ::linkat(AT_FDCWD, procPath.c_str(), dirFd, name.c_str(), AT_SYMLINK_FOLLOW);
        if (result != 0 && errno == ENOENT) {
            result = ::linkat(fd, "", dirFd, name.c_str(), AT_EMPTY_PATH);
        }
        if (result == 0) {
            rName.set(name);
            return true;
        }
        if (errno != EEXIST) {
            return false;
        }
    }
    return false;
}

// Gives the new file, before it has a name, the owner, group and permissions it is to keep:
// root's own (root:root) when root writes, the writer's otherwise (who cannot give a file
// away); no access ACL, which a directory's default ACL would otherwise hand it; mode, whatever
// the umask. A setgid or default-ACL directory then cannot pass its group or entries on to the
// file. False with the failed call as step, errno set.
bool setSafeAttributes(int fd, mode_t mode, const char*& rStep) {
    const bool bRoot = ::geteuid() == 0;
    const auto keep = static_cast<uid_t>(-1);
    if (::fchown(fd, bRoot ? 0 : keep, bRoot ? 0 : static_cast<gid_t>(-1)) != 0) {
        rStep = "fchown";
        return false;
    }
    // ENODATA: it has none; EOPNOTSUPP: the file system keeps no ACLs.
    if (::fremovexattr(fd, "system.posix_acl_access") != 0 && errno != ENODATA &&
        errno != EOPNOTSUPP) {
        rStep = "fremovexattr";
        return false;
    }
    // Set last and before the fsync, which makes it durable with the content.
    if (::fchmod(fd, mode) != 0) {
        rStep = "fchmod";
        return false;
    }
    return true;
}

// Renames the temporary name to baseName unless baseName exists; false with errno set
// (EEXIST: it exists). Where the file system has no RENAME_NOREPLACE, a hard link, which
// fails on an existing name too, does the same.
bool renameNoReplace(int dirFd, TemporaryName& rName, const std::string& baseName) {
    if (::renameat2(dirFd, rName.c_str(), dirFd, baseName.c_str(), RENAME_NOREPLACE) == 0) {
        rName.forget();
        return true;
    }
    if (errno != EINVAL) {
        return false;
    }
    return ::linkat(dirFd, rName.c_str(), dirFd, baseName.c_str(), 0) == 0;
}

}  // namespace

namespace qnfile {

ReplaceResult replaceFileAtomically(const std::string& path, const std::string& content,
                                    mode_t mode, ExistingFile existing) {
    const size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? std::string(".")
                                  : slash == 0               ? std::string("/")
                                                             : path.substr(0, slash);
    const std::string baseName = slash == std::string::npos ? path : path.substr(slash + 1);

    const qnsys::UniqueFd dirFd(
        ::openat(AT_FDCWD, directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dirFd.valid()) {
        return failure("open of the directory");
    }
    return replaceFileAtomicallyAt(dirFd.get(), baseName, path, content, mode, existing);
}

ReplaceResult replaceFileAtomicallyAt(int dirFd, const std::string& baseName,
                                      const std::string& path, const std::string& content,
                                      mode_t mode, ExistingFile existing) {
    removeStrayTemporaries(dirFd, baseName, path);

    TemporaryName temporaryName(dirFd);
    qnsys::UniqueFd fd(::openat(dirFd, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    const bool bUnnamed = fd.valid();
    if (!bUnnamed) {
        if (!tmpfileUnsupported(errno)) {
            return failure("open of the temporary file");
        }
        fd = createNamed(dirFd, baseName, temporaryName);
        if (!fd.valid()) {
            return failure("open of the temporary file");
        }
    }
    const char* step = "";
    if (!setSafeAttributes(fd.get(), mode, step)) {
        return failure(step);
    }
    if (!writeAll(fd.get(), content)) {
        return failure("write");
    }
    if (::fsync(fd.get()) != 0) {
        return failure("fsync");
    }
    if (bUnnamed && !linkUnnamed(fd.get(), dirFd, baseName, temporaryName)) {
        return failure("link of the temporary file");
    }
    // Closed before the file takes the target's name, so that a delayed write error (some
    // network file systems report them only here) still leaves the old file in place.
    if (!fd.close()) {
        return failure("close");
    }
    if (existing == EXISTING_KEEP) {
        if (!renameNoReplace(dirFd, temporaryName, baseName)) {
            if (errno == EEXIST) {
                ReplaceResult kept;
                kept.outcome = OUTCOME_KEPT;
                return kept;
            }
            return failure("rename");
        }
    } else {
        if (::renameat(dirFd, temporaryName.c_str(), dirFd, baseName.c_str()) != 0) {
            return failure("rename");
        }
        temporaryName.forget();
    }
    if (::fsync(dirFd) != 0) {
        return outcome(OUTCOME_NOT_SYNCED, "fsync of the directory");
    }
    return ReplaceResult();
}

}  // namespace qnfile

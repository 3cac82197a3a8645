// Crash-safe whole-file replacement: temporary file, fsync, rename, directory fsync.

#include "AtomicFileReplace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace {

// A temporary file that is closed and removed on destruction unless it was renamed into
// place, so that no failure path leaves it behind.
class TempFile {
  public:
    TempFile() = default;
    ~TempFile() {
        closeFd();
        if (!m_bCommitted && !m_path.empty()) {
            ::unlink(m_path.c_str());
        }
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    // Creates the file from a mkstemp template; false with errno set on failure.
    bool create(std::string pathTemplate) {
        std::vector<char> buffer(pathTemplate.begin(), pathTemplate.end());
        buffer.push_back('\0');
        m_fd = ::mkostemp(buffer.data(), O_CLOEXEC);
        if (m_fd < 0) {
            return false;
        }
        m_path.assign(buffer.data());
        return true;
    }
    int fd() const { return m_fd; }
    const std::string& path() const { return m_path; }
    // Closes the descriptor; false with errno set when close reports an error (a delayed
    // write error on some file systems).
    bool close() { return closeFd() == 0; }
    void commit() { m_bCommitted = true; }

  private:
    int closeFd() {
        if (m_fd < 0) {
            return 0;
        }
        const int result = ::close(m_fd);
        m_fd = -1;
        return result;
    }

    int m_fd = -1;
    std::string m_path;
    bool m_bCommitted = false;
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

// Fsyncs a directory so that a rename in it survives a crash; false with errno set.
bool syncDirectory(const std::string& directory) {
    const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool bSynced = ::fsync(fd) == 0;
    const int savedErrno = errno;
    ::close(fd);
    errno = savedErrno;
    return bSynced;
}

qnfile::ReplaceResult failure(const char* step) {
    qnfile::ReplaceResult result;
    result.error = errno != 0 ? errno : EIO;
    result.step = step;
    return result;
}

}  // namespace

namespace qnfile {

ReplaceResult replaceFileAtomically(const std::string& path, const std::string& content,
                                    mode_t mode) {
    const size_t slash = path.rfind('/');
    const std::string directoryPrefix =
        slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string baseName = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string directory = directoryPrefix.empty() ? std::string(".") : directoryPrefix;

    TempFile temp;
    if (!temp.create(directoryPrefix + "." + baseName + ".XXXXXX")) {
        return failure("mkostemp");
    }
    // mkostemp creates the file 0600; the mode is set explicitly so that the umask does not
    // decide who may read the policy. It is set before the fsync so that the fsync makes it
    // durable together with the content.
    if (::fchmod(temp.fd(), mode) != 0) {
        return failure("fchmod");
    }
    if (!writeAll(temp.fd(), content)) {
        return failure("write");
    }
    if (::fsync(temp.fd()) != 0) {
        return failure("fsync");
    }
    if (!temp.close()) {
        return failure("close");
    }
    if (::rename(temp.path().c_str(), path.c_str()) != 0) {
        return failure("rename");
    }
    temp.commit();
    if (!syncDirectory(directory)) {
        return failure("fsync of the directory");
    }
    return ReplaceResult();
}

}  // namespace qnfile

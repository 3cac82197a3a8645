// SPDX-License-Identifier: Apache-2.0
// The writers' lock and the fingerprint of the file they read (see WriterLock.h).

#include "safety/WriterLock.h"

#include <fcntl.h>
#include <nettle/sha2.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <thread>

namespace qnpolicy::tool {

namespace {

constexpr std::chrono::milliseconds kRetryInterval{20};
// The most of a lock file read for the holder's pid: a pid is never longer.
constexpr size_t kMaxPidText = 32;

// Locks fd exclusively without waiting: true when taken; false with errno set otherwise
// (EAGAIN or EACCES: another description holds it).
bool tryLock(int fd) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return ::fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

// The pid text the holder wrote, digits only; empty when none can be read.
std::string holderPidOf(int fd) {
    std::array<char, kMaxPidText> buffer{};
    const ssize_t size = ::pread(fd, buffer.data(), buffer.size(), 0);
    std::string pid;
    for (ssize_t i = 0;
         i < size && buffer[static_cast<size_t>(i)] >= '0' && buffer[static_cast<size_t>(i)] <= '9';
         ++i) {
        pid += buffer[static_cast<size_t>(i)];
    }
    return pid;
}

// A SHA-256 digest computed in pieces, through nettle: a small library with no relocations
// to speak of, so that the commands which never hash (check, show) do not pay at start-up for
// binding a large cryptographic library.
class CSha256 {
  public:
    CSha256() { sha256_init(&m_context); }
    void Update(const void* data, size_t size) {
        sha256_update(&m_context, size, static_cast<const uint8_t*>(data));
    }
    std::string HexDigest() {
        std::array<uint8_t, SHA256_DIGEST_SIZE> digest{};
        sha256_digest(&m_context, digest.size(), digest.data());
        static const char kHex[] = "0123456789abcdef";
        std::string hex;
        for (const uint8_t byte : digest) {
            hex += kHex[byte >> 4U];
            hex += kHex[byte & 0xFU];
        }
        return hex;
    }

  private:
    sha256_ctx m_context{};
};

}  // namespace

LockAttempt CWriterLock::Acquire(const CDirectoryHandle& directory,
                                 std::chrono::milliseconds wait) {
    LockAttempt attempt;
    qnsys::UniqueFd fd(::openat(directory.Fd(), kWriterLockName,
                                O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    struct stat status {};
    if (!fd.valid() || ::fstat(fd.get(), &status) != 0) {
        attempt.error = errno;
        return attempt;
    }
    if (!S_ISREG(status.st_mode)) {
        attempt.error = EINVAL;
        return attempt;
    }
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (!tryLock(fd.get())) {
        if (errno != EAGAIN && errno != EACCES) {
            attempt.error = errno;
            return attempt;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            attempt.eOutcome = LockAttempt::BUSY;
            attempt.holderPid = holderPidOf(fd.get());
            return attempt;
        }
        std::this_thread::sleep_for(kRetryInterval);
    }
    // For the message of a writer that waits: a failure here changes nothing else.
    const std::string pid = std::to_string(::getpid()) + "\n";
    if (::ftruncate(fd.get(), 0) == 0) {
        const ssize_t ignored = ::pwrite(fd.get(), pid.data(), pid.size(), 0);
        static_cast<void>(ignored);
    }
    m_fd = std::move(fd);
    attempt.eOutcome = LockAttempt::TAKEN;
    return attempt;
}

std::string Sha256Hex(std::string_view bytes) {
    CSha256 digest;
    digest.Update(bytes.data(), bytes.size());
    return digest.HexDigest();
}

FileFingerprint FingerprintFileAt(const CDirectoryHandle& directory, const std::string& name) {
    FileFingerprint fingerprint;
    struct stat entry {};
    if (::fstatat(directory.Fd(), name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) {
            fingerprint.eKind = FileFingerprint::UNREADABLE;
            fingerprint.error = errno;
        }
        return fingerprint;
    }
    if (!S_ISREG(entry.st_mode)) {
        fingerprint.eKind = FileFingerprint::OTHER;
        fingerprint.identity = std::to_string(entry.st_dev) + ":" + std::to_string(entry.st_ino) +
                               ":" + std::to_string(entry.st_mode & S_IFMT);
        return fingerprint;
    }
    qnsys::UniqueFd fd(
        ::openat(directory.Fd(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    fingerprint.eKind = FileFingerprint::UNREADABLE;
    if (!fd.valid()) {
        fingerprint.error = errno;
        return fingerprint;
    }
    CSha256 digest;
    std::array<char, size_t{64} << 10> buffer{};
    for (;;) {
        const ssize_t size = ::read(fd.get(), buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0) {
            fingerprint.error = errno;
            return fingerprint;
        }
        if (size == 0) {
            break;
        }
        digest.Update(buffer.data(), static_cast<size_t>(size));
    }
    fingerprint.eKind = FileFingerprint::REGULAR;
    fingerprint.identity = digest.HexDigest();
    return fingerprint;
}

}  // namespace qnpolicy::tool

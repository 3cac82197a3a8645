// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_UNIQUEFD_H
#define QUILLNET_UNIQUEFD_H

// The module's one owning file descriptor. Internal to the library: not installed.
//
//   qnsys::UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
//   if (!fd.valid()) { ... errno ... }
//   ::read(fd.get(), ...);            // closed when fd goes out of scope
//   if (!fd.close()) { ... errno ... }  // or closed early, with close's error reported
//
// Move-only: exactly one owner closes each descriptor, exactly once.

#include <unistd.h>

#include <cerrno>

namespace qnsys {

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }

    // Gives up ownership without closing.
    int release() {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }

    // Closes the descriptor held (its error is of no use here, and errno is kept) and takes
    // fd instead.
    void reset(int fd = -1) {
        if (m_fd >= 0) {
            const int savedErrno = errno;
            ::close(m_fd);
            errno = savedErrno;
        }
        m_fd = fd;
    }

    // Closes now and reports the result: false, with errno set, when close failed (a delayed
    // write error on some file systems). The descriptor is released either way, as Linux
    // does not leave it open after a failed close.
    bool close() {
        if (m_fd < 0) {
            return true;
        }
        return ::close(release()) == 0;
    }

  private:
    int m_fd = -1;
};

}  // namespace qnsys

#endif  // QUILLNET_UNIQUEFD_H

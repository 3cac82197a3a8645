// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_WRITERLOCK_H
#define QNPOLICY_WRITERLOCK_H

// What keeps two of the tool's writers apart, and what tells a writer that the policy file
// changed behind its back: the lock every writer (generate, set, unset, edit) holds while it
// reads, decides and stores, and the fingerprint of the file it read, compared once more just
// before it stores.
//
//   CWriterLock lock;
//   const LockAttempt attempt = lock.Acquire(audit.directory, kWriterLockWait);
//   const FileFingerprint read = FingerprintFileAt(audit.directory, audit.name);
//   ... decide ...
//   if (FingerprintFileAt(audit.directory, audit.name) != read) { ... exit 75 ... }
//
// The lock is advisory: it binds the tool's writers, not the library's GenerateLocalPolicy,
// an installer or an editor run by hand; the fingerprint catches those.

#include <chrono>
#include <string>
#include <string_view>

#include "UniqueFd.h"
#include "safety/PathAudit.h"

namespace qnpolicy::tool {

// The lock file's name in the install directory. Created 0600 by the first writer and never
// removed: removing it would let a writer lock a new inode while another holds the old one.
inline constexpr char kWriterLockName[] = ".QuillnetLocalPolicy.lock";
// How long a writer waits for another to finish before it gives up (exit 75).
inline constexpr std::chrono::milliseconds kWriterLockWait{5000};

// What taking the lock came to.
struct LockAttempt {
    enum Outcome {
        TAKEN,   // held until the CWriterLock ends
        BUSY,    // another writer held it for the whole wait; holderPid names it when it could
        FAILED,  // the lock file could not be opened or locked: error is the errno value
    };
    Outcome eOutcome = FAILED;
    std::string holderPid;  // BUSY: the pid the holder wrote, as text; empty when unknown
    int error = 0;
};

// An exclusive open-file-description lock (fcntl F_OFD_SETLK) on kWriterLockName, taken
// through the directory a path audit ended on, so that the directory locked is the directory
// examined and stored into. Released when the object ends (its descriptor closes); a process
// that dies releases it too. Move-only.
class CWriterLock {
  public:
    // Tries at once, then every few milliseconds until wait has passed. The lock file must be
    // a regular file (never followed through a link). Once taken, the holder's pid is written
    // in it, for the message another writer gives; nothing reads it for any decision.
    LockAttempt Acquire(const CDirectoryHandle& directory, std::chrono::milliseconds wait);
    bool Held() const { return m_fd.valid(); }

  private:
    qnsys::UniqueFd m_fd;
};

// The SHA-256 of bytes, as 64 lowercase hexadecimal digits.
std::string Sha256Hex(std::string_view bytes);

// Which file is at a name: nothing, a regular file with the SHA-256 of its whole content, or
// something else (identified by device, inode and type), or something that could not be read
// (counted as changed whenever compared: what cannot be told is never the same).
struct FileFingerprint {
    enum Kind { ABSENT, REGULAR, OTHER, UNREADABLE };
    Kind eKind = ABSENT;
    std::string identity;  // REGULAR: the SHA-256; OTHER: device, inode and type
    int error = 0;         // UNREADABLE: the errno value

    bool operator==(const FileFingerprint& other) const {
        return eKind != UNREADABLE && eKind == other.eKind && identity == other.identity;
    }
    bool operator!=(const FileFingerprint& other) const { return !(*this == other); }
};

// The fingerprint of name in directory, never following a link (a link is OTHER), reading a
// regular file in pieces so that any size costs constant memory.
FileFingerprint FingerprintFileAt(const CDirectoryHandle& directory, const std::string& name);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_WRITERLOCK_H

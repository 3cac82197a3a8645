// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_AUDITTRAIL_H
#define QNPOLICY_AUDITTRAIL_H

// The audit trail of the policy file: one record in the system log for every write by a
// writer of the tool (generate, set, unset, edit, a repair included), saying who wrote, which
// file, each setting that changed with its old and new value, and the SHA-256 of the document
// before and after. The tool sends it itself, to /dev/log, so that it knows whether the record
// was delivered; the write never depends on it.
//
//   AuditWrite write{"set", path, changes.Lines(), beforeSha256, afterSha256};
//   const AuditDelivery delivery = SendAuditRecord(write);
//   if (!delivery.bDelivered) { ... warn, and say so in --json ... }

#include <cstddef>
#include <string>
#include <vector>

namespace qnpolicy::tool {

// One write, as the record tells it.
struct AuditWrite {
    std::string command;               // "generate", "set", ...
    std::string path;                  // the policy file written
    std::vector<std::string> changes;  // "Element: old -> new", one a setting
    std::string before;                // the SHA-256 of the file replaced; empty: none was there
    std::string after;                 // the SHA-256 of the document written
};

// The most a record holds: a datagram every system logger accepts whole.
inline constexpr size_t kMaxAuditRecordBytes = size_t{8} << 10;
// The most changes a record lists; the others are counted.
inline constexpr size_t kMaxAuditedChanges = 20;

// The record's message, control characters escaped, under kMaxAuditRecordBytes: the caller's
// identity (uid, the login uid of /proc/self/loginuid, and SUDO_USER and SUDO_UID when set,
// marked as the caller's claim), the file, the changes (the first kMaxAuditedChanges, each cut
// to a few hundred bytes, then a count of the rest) and both hashes.
std::string AuditRecordText(const AuditWrite& write);

struct AuditDelivery {
    bool bDelivered = false;
    std::string failure;  // why not: "connect to /dev/log: No such file or directory"
};

// Sends the record to /dev/log as authpriv.notice, tagged "qnpolicy[PID]".
AuditDelivery SendAuditRecord(const AuditWrite& write);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_AUDITTRAIL_H

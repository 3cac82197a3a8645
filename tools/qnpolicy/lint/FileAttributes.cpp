// SPDX-License-Identifier: Apache-2.0
// Who can change a policy file: its owner and mode, and those of every directory above it.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "AppLog.h"
#include "PolicyLinter.h"

namespace qnpolicy::tool {

namespace {

constexpr char kSourceFile[] = "tools/qnpolicy/lint/FileAttributes";
constexpr uid_t kRootUid = 0;

// The findings of one entry: "The file" or "The directory /opt". Owned by root, or by
// alsoAllowed when it is not root, and writable by nobody else (a sticky directory excepted).
void checkEntry(const std::string& path, const std::string& subject, bool bDirectory,
                uid_t alsoAllowed, std::vector<LintFinding>& rFindings) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        const int error = errno;
        CAppLog::LogDebugMessage("CheckFileAttributes", kSourceFile, __LINE__, Logging::DBG_Warning,
                                 "cannot examine %s: %s", path.c_str(), std::strerror(error));
        return;
    }
    const auto finding = [&rFindings](const char* kind, const std::string& message) {
        rFindings.push_back(LintFinding{0, 0, kind, SeverityOf(kind), message, std::string()});
    };
    if (status.st_uid != kRootUid && status.st_uid != alsoAllowed) {
        finding(findingkind::kFileOwner,
                subject + " is owned by user id " + std::to_string(status.st_uid) +
                    ", not by root: that user can change the policy. Run: chown root " + path);
    }
    const bool bSticky = bDirectory && (status.st_mode & S_ISVTX) != 0;
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !bSticky) {
        finding(findingkind::kFilePermissions,
                subject + "'s mode is " + OctalMode(status.st_mode) +
                    ": its group or others can change the policy. Run: chmod go-w " + path);
    }
}

// The findings of directory and of every directory above it, up to "/".
void checkDirectories(const std::filesystem::path& directory, uid_t alsoAllowed,
                      std::vector<LintFinding>& rFindings) {
    for (std::filesystem::path current = directory;; current = current.parent_path()) {
        checkEntry(current.string(), "The directory " + current.string(), true, alsoAllowed,
                   rFindings);
        if (current == current.root_path()) {
            break;
        }
    }
}

// path's real location; empty, logged, when it cannot be resolved.
std::filesystem::path resolved(const std::string& path) {
    std::error_code error;
    std::filesystem::path real = std::filesystem::canonical(path, error);
    if (error) {
        CAppLog::LogDebugMessage("CheckFileAttributes", kSourceFile, __LINE__, Logging::DBG_Warning,
                                 "cannot resolve %s: %s", path.c_str(), error.message().c_str());
        return std::filesystem::path();
    }
    return real;
}

}  // namespace

std::string OctalMode(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned int>(mode & 07777));
    return text;
}

std::vector<LintFinding> CheckFileAttributes(const std::string& path) {
    std::vector<LintFinding> findings;
    const std::filesystem::path real = resolved(path);
    if (real.empty()) {
        return findings;
    }
    checkEntry(path, "The file", false, kRootUid, findings);
    checkDirectories(real.parent_path(), kRootUid, findings);
    return findings;
}

std::vector<LintFinding> CheckDirectoryAttributes(const std::string& directory) {
    std::vector<LintFinding> findings;
    const std::filesystem::path real = resolved(directory);
    if (!real.empty()) {
        checkDirectories(real, ::geteuid(), findings);
    }
    return findings;
}

}  // namespace qnpolicy::tool

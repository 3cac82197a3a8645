// Who can change a policy file: its owner and mode, and those of every directory above it.

#include "PolicyLinter.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "AppLog.h"

namespace qnpolicy::tool {

namespace {

constexpr char kSourceFile[] = "tools/qnpolicy/lint/FileAttributes";
constexpr uid_t kRootUid = 0;

std::string octalMode(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned int>(mode & 07777));
    return text;
}

// The findings of one entry: "The file" or "The directory /opt".
void checkEntry(const std::string& path, const std::string& subject, bool bDirectory,
                std::vector<LintFinding>& rFindings) {
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
    if (status.st_uid != kRootUid) {
        finding(findingkind::kFileOwner,
                subject + " is owned by user id " + std::to_string(status.st_uid) +
                    ", not by root: that user can change the policy. Run: chown root " + path);
    }
    const bool bSticky = bDirectory && (status.st_mode & S_ISVTX) != 0;
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !bSticky) {
        finding(findingkind::kFilePermissions,
                subject + "'s mode is " + octalMode(status.st_mode) +
                    ": its group or others can change the policy. Run: chmod go-w " + path);
    }
}

}  // namespace

std::vector<LintFinding> CheckFileAttributes(const std::string& path) {
    std::vector<LintFinding> findings;
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    if (error) {
        CAppLog::LogDebugMessage("CheckFileAttributes", kSourceFile, __LINE__, Logging::DBG_Warning,
                                 "cannot resolve %s: %s", path.c_str(), error.message().c_str());
        return findings;
    }
    checkEntry(path, "The file", false, findings);
    for (std::filesystem::path directory = real.parent_path();;
         directory = directory.parent_path()) {
        checkEntry(directory.string(), "The directory " + directory.string(), true, findings);
        if (directory == directory.root_path()) {
            break;
        }
    }
    return findings;
}

}  // namespace qnpolicy::tool

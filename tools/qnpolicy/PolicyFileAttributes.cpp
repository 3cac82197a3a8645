#include "PolicyFileAttributes.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "AppLog.h"

namespace qnpolicy::tool {

namespace {

constexpr char kSourceFile[] = "tools/qnpolicy/PolicyFileAttributes";
constexpr uid_t kRootUid = 0;

std::string octalMode(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned int>(mode & 07777));
    return text;
}

}  // namespace

std::vector<LintFinding> CheckPolicyFileAttributes(const std::string& path) {
    std::vector<LintFinding> findings;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        const int error = errno;
        CAppLog::LogDebugMessage("CheckPolicyFileAttributes", kSourceFile, __LINE__,
                                 Logging::DBG_Warning, "cannot examine %s: %s", path.c_str(),
                                 std::strerror(error));
        return findings;
    }
    if (status.st_uid != kRootUid) {
        findings.push_back(LintFinding{
            0, 0, findingkind::kFileOwner,
            "The file is owned by user id " + std::to_string(status.st_uid) +
                ", not by root: that user can change the policy. Run: chown root " + path});
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        findings.push_back(LintFinding{
            0, 0, findingkind::kFilePermissions,
            "The file's mode is " + octalMode(status.st_mode) +
                ": its group or others can change the policy. Run: chmod go-w " + path});
    }
    return findings;
}

}  // namespace qnpolicy::tool

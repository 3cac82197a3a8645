// SPDX-License-Identifier: Apache-2.0
// generate's inputs: installer arguments from a file, and the policy file already on disk.

#include "GenerateInputs.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "ErrnoText.h"
#include "MessageText.h"
#include "ToolContext.h"
#include "XmlParser.h"

namespace qnpolicy::tool {

namespace {

// The mode of every policy file the tool writes: its owner writes, all read.
constexpr mode_t kPolicyFileMode = 0644;

// Whether the open file has an access ACL; one that cannot be read counts as present.
bool hasAccessAcl(int fd) {
    return ::fgetxattr(fd, "system.posix_acl_access", nullptr, 0) >= 0 ||
           (errno != ENODATA && errno != EOPNOTSUPP);
}

// What differs from a file the tool writes (see ExistingFile::repairs).
std::vector<Repair> repairsOf(const struct stat& file, bool bAcl) {
    const uid_t self = ::geteuid();
    const bool bRoot = self == 0;
    std::vector<Repair> repairs;
    if (file.st_uid != self && file.st_uid != 0) {
        repairs.push_back({"owner", std::to_string(file.st_uid), std::to_string(self)});
    }
    if (bRoot && file.st_gid != 0) {
        repairs.push_back({"group", std::to_string(file.st_gid), "0"});
    }
    if ((file.st_mode & 07777) != kPolicyFileMode) {
        repairs.push_back({"mode", OctalMode(file.st_mode), OctalMode(kPolicyFileMode)});
    }
    if (bRoot && bAcl) {
        repairs.push_back({"acl", "extended", "none"});
    }
    if (file.st_nlink > 1) {
        repairs.push_back({"links", std::to_string(file.st_nlink), "1"});
    }
    return repairs;
}

// The lines of content as arguments; a failure names the first line refused.
ArgumentFileFailure splitLines(const std::string& content, const std::string& shown,
                               std::vector<std::string>& rArguments) {
    unsigned long lineNumber = 0;
    for (size_t start = 0; start < content.size();) {
        const size_t end = std::min(content.find('\n', start), content.size());
        const std::string_view line(content.data() + start, end - start);
        ++lineNumber;
        const std::string where = "--args-from " + shown + ", line " + std::to_string(lineNumber);
        if (line.find('\0') != std::string_view::npos) {
            return {kExitDataError, errorkind::kRefused,
                    where + " holds a NUL byte, which no argument can carry"};
        }
        if (end < content.size() && !line.empty() && line.back() == '\r') {
            return {kExitDataError, errorkind::kRefused,
                    where +
                        " ends with a carriage return (a CRLF line end), which would be "
                        "part of its value: write the file with LF line ends"};
        }
        if (!line.empty()) {
            rArguments.emplace_back(line);
        }
        start = end + 1;
    }
    return {};
}

}  // namespace

ArgumentFileFailure ReadArgumentFile(const std::string& path,
                                     std::vector<std::string>& rArguments) {
    const bool bStandardInput = path == kStandardInput;
    const std::string shown = bStandardInput ? std::string("(standard input)") : Quoted(path);
    qnsys::UniqueFd file;
    if (!bStandardInput) {
        file.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file.valid()) {
            const int error = errno;
            return error == ENOENT ? ArgumentFileFailure{kExitNoInput, errorkind::kNoSuchFile,
                                                         "--args-from " + shown + ": no such file"}
                                   : ArgumentFileFailure{
                                         kExitUnreadable, errorkind::kUnreadable,
                                         "--args-from " + shown + ": " + qnsys::errnoText(error)};
        }
    }
    std::string content;
    int error = 0;
    if (!ReadAtMost(bStandardInput ? STDIN_FILENO : file.get(), XmlParser::kMaxStreamBytes, content,
                    error)) {
        return {kExitUnreadable, errorkind::kUnreadable,
                "--args-from " + shown + ": " + qnsys::errnoText(error)};
    }
    if (content.size() > XmlParser::kMaxStreamBytes) {
        return {kExitDataError, errorkind::kRefused,
                "--args-from " + shown + ": more than " +
                    std::to_string(XmlParser::kMaxStreamBytes) + " bytes, the most it reads"};
    }
    return splitLines(content, shown, rArguments);
}

ExistingFile ExamineExistingFile(const CDirectoryHandle& directory, const std::string& name,
                                 bool bRead, size_t limit) {
    ExistingFile existing;
    struct stat status {};
    if (::fstatat(directory.Fd(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        existing.eKind =
            errno == ENOENT || errno == ENOTDIR ? ExistingFile::NONE : ExistingFile::UNKNOWN;
        return existing;
    }
    existing.eKind = S_ISREG(status.st_mode)   ? ExistingFile::REGULAR
                     : S_ISDIR(status.st_mode) ? ExistingFile::DIRECTORY
                                               : ExistingFile::OTHER;
    if (existing.eKind != ExistingFile::REGULAR) {
        return existing;
    }
    bool bAcl = false;
    if (bRead || ::geteuid() == 0) {
        const qnsys::UniqueFd fd(
            ::openat(directory.Fd(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!fd.valid() || ::fstat(fd.get(), &status) != 0) {
            existing.readError = errno;
            return existing;
        }
        bAcl = hasAccessAcl(fd.get());
        if (bRead && ReadAtMost(fd.get(), limit, existing.content, existing.readError)) {
            existing.bOversized = existing.content.size() > limit;
            existing.content.resize(std::min(existing.content.size(), limit));
        }
    }
    existing.repairs = repairsOf(status, bAcl);
    return existing;
}

}  // namespace qnpolicy::tool

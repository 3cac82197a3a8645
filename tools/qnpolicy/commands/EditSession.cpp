// SPDX-License-Identifier: Apache-2.0
// The editor session of qnpolicy edit (see EditSession.h).

#include "commands/EditSession.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>

#include "ErrnoText.h"
#include "UniqueFd.h"
#include "XmlParser.h"
#include "lint/PolicyLinter.h"

namespace qnpolicy::tool {

namespace {

// The working copy, removed when the session ends, however it ends short of a kill.
class CWorkingCopy {
  public:
    explicit CWorkingCopy(const CDirectoryHandle& directory) : m_directory(directory) {}
    ~CWorkingCopy() { ::unlinkat(m_directory.Fd(), kEditCopyName, 0); }
    CWorkingCopy(const CWorkingCopy&) = delete;
    CWorkingCopy& operator=(const CWorkingCopy&) = delete;

    // Creates it, 0600, holding content; false with errno set when that fails.
    bool Create(const std::string& content) const {
        qnsys::UniqueFd fd(::openat(m_directory.Fd(), kEditCopyName,
                                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!fd.valid()) {
            return false;
        }
        for (size_t done = 0; done < content.size();) {
            const ssize_t size = ::write(fd.get(), content.data() + done, content.size() - done);
            if (size < 0 && errno != EINTR) {
                return false;
            }
            done += size > 0 ? static_cast<size_t>(size) : 0;
        }
        return fd.close();
    }

    // What the editor left: a regular file of the parser's size at most (an editor may have
    // replaced it by renaming a new one over it); false with errno set otherwise.
    bool Read(std::string& rContent) const {
        qnsys::UniqueFd fd(::openat(m_directory.Fd(), kEditCopyName,
                                    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat status {};
        if (!fd.valid() || ::fstat(fd.get(), &status) != 0) {
            return false;
        }
        if (!S_ISREG(status.st_mode)) {
            errno = EINVAL;
            return false;
        }
        int error = 0;
        rContent.clear();
        if (!ReadAtMost(fd.get(), XmlParser::kMaxStreamBytes, rContent, error)) {
            errno = error;
            return false;
        }
        if (rContent.size() > XmlParser::kMaxStreamBytes) {
            errno = EFBIG;
            return false;
        }
        return true;
    }

  private:
    const CDirectoryHandle& m_directory;
};

// Runs $VISUAL, else $EDITOR (through the shell, so that either may carry options), else
// `editor`, else `vi`, on path, with the terminal's interrupt and quit left to the editor.
// The editor's exit status, or -1 when it could not be run or was killed.
int runEditor(const std::string& path) {
    std::string configured;
    for (const char* name : {"VISUAL", "EDITOR"}) {
        const char* value = std::getenv(name);
        if (configured.empty() && value != nullptr) {
            configured = value;
        }
    }
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction savedInterrupt {};
    struct sigaction savedQuit {};
    ::sigaction(SIGINT, &ignore, &savedInterrupt);
    ::sigaction(SIGQUIT, &ignore, &savedQuit);
    const pid_t child = ::fork();
    if (child == 0) {
        ::sigaction(SIGINT, &savedInterrupt, nullptr);
        ::sigaction(SIGQUIT, &savedQuit, nullptr);
        if (!configured.empty()) {
            const std::string command = configured + " \"$1\"";
            ::execl("/bin/sh", "sh", "-c", command.c_str(), "qnpolicy-edit", path.c_str(),
                    static_cast<char*>(nullptr));
        } else {
            ::execlp("editor", "editor", path.c_str(), static_cast<char*>(nullptr));
            ::execlp("vi", "vi", path.c_str(), static_cast<char*>(nullptr));
        }
        ::_exit(127);
    }
    int status = 0;
    while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    ::sigaction(SIGINT, &savedInterrupt, nullptr);
    ::sigaction(SIGQUIT, &savedQuit, nullptr);
    return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Shows what is wrong with document; true when there is anything.
bool showProblems(const std::string& document, const std::string& path, CToolContext& context) {
    const LintResult lint = LintPolicyBytes(document, path);
    if (!lint.bReadable) {
        context.Error("error: line " + std::to_string(lint.failureLine) + ", column " +
                      std::to_string(lint.failureColumn) +
                      ": the client cannot read the document: " + lint.failureReason);
        return true;
    }
    for (const LintFinding& finding : lint.findings) {
        context.Error(std::string(SeverityText(finding.eSeverity)) + ": line " +
                      std::to_string(finding.line) + ", column " + std::to_string(finding.column) +
                      ": " + finding.kind + ": " + finding.message);
    }
    return !lint.findings.empty();
}

// The administrator's answer: 'e', 'x' or 'Q' (EOF counts as 'x'); asks again otherwise.
char askWhatNow() {
    for (;;) {
        std::cerr << "What now? (e)dit again, (x) exit without saving, (Q) save anyway: "
                  << std::flush;
        std::string answer;
        if (!std::getline(std::cin, answer)) {
            return 'x';
        }
        if (answer == "e" || answer == "x" || answer == "Q") {
            return answer[0];
        }
    }
}

}  // namespace

void RemoveStaleEditCopy(const CDirectoryHandle& directory) {
    ::unlinkat(directory.Fd(), kEditCopyName, 0);
}

EditOutcome RunEditSession(const CDirectoryHandle& directory, const std::string& original,
                           const std::string& path, CToolContext& context) {
    EditOutcome outcome;
    const CWorkingCopy copy(directory);
    if (!copy.Create(original)) {
        outcome.failure = "cannot create the working copy " + directory.Path() + kEditCopyName +
                          ": " + qnsys::errnoText(errno);
        return outcome;
    }
    for (;;) {
        const int status = runEditor(directory.Path() + kEditCopyName);
        if (status != 0) {
            outcome.failure = status < 0
                                  ? std::string("the editor could not be run or was killed")
                                  : "the editor exited with status " + std::to_string(status);
            return outcome;
        }
        if (!copy.Read(outcome.document)) {
            outcome.failure = "cannot read the working copy back: " + qnsys::errnoText(errno);
            return outcome;
        }
        if (outcome.document == original) {
            outcome.eResult = EditOutcome::UNCHANGED;
            return outcome;
        }
        if (!showProblems(outcome.document, path, context)) {
            outcome.eResult = EditOutcome::SAVE;
            return outcome;
        }
        const char answer = askWhatNow();
        if (answer != 'e') {
            outcome.eResult = answer == 'Q' ? EditOutcome::SAVE : EditOutcome::ABANDONED;
            return outcome;
        }
    }
}

}  // namespace qnpolicy::tool

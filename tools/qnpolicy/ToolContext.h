// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_TOOLCONTEXT_H
#define QNPOLICY_TOOLCONTEXT_H

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "AppLog.h"

namespace qnpolicy::tool {

// The exit statuses of qnpolicy: one per condition, the same in every subcommand, documented
// in --help, the manual page and the README. Above 2 they are those of sysexits.h, so that
// scripts can tell a usage error from refused data, a missing input or an I/O error.
inline constexpr int kExitSuccess = 0;
// check: findings reported; generate --diff, diff: the policies differ; comply: not compliant;
// edit: nothing saved.
inline constexpr int kExitFindings = 1;
// A file that exists but cannot be read or parsed.
inline constexpr int kExitUnreadable = 2;
// EX_USAGE: an unknown subcommand or option, an option the subcommand does not take, a missing
// or malformed argument.
inline constexpr int kExitUsage = 64;
// EX_DATAERR: generate refused its arguments (nothing was written); comply: a malformed
// baseline.
inline constexpr int kExitDataError = 65;
// EX_NOINPUT: no such file or directory.
inline constexpr int kExitNoInput = 66;
// EX_SOFTWARE: an unexpected exception, such as running out of memory.
inline constexpr int kExitInternal = 70;
// EX_CANTCREAT: the policy file cannot be created, kept or repaired safely.
inline constexpr int kExitCannotCreate = 73;
// EX_IOERR: reading or writing failed, standard output included.
inline constexpr int kExitIoError = 74;
// EX_TEMPFAIL: another writer held the lock, or changed the file while this run read it;
// nothing was written, and running again is the remedy.
inline constexpr int kExitTempFail = 75;

// The operand that names standard input, and the name standard input goes by in reports.
inline constexpr char kStandardInput[] = "-";
inline constexpr char kStandardInputName[] = "<stdin>";

// One exit status and what it means, as --help lists them.
struct ExitCodeInfo {
    int code;
    const char* meaning;
};
inline constexpr ExitCodeInfo kExitCodes[] = {
    {kExitSuccess,
     "success (check: no findings; generate --diff, diff: no difference; comply: compliant)"},
    {kExitFindings,
     "check: findings were reported; generate --diff: the file differs; diff: "
     "the client reads the two files differently; comply: not compliant; edit: nothing was saved"},
    {kExitUnreadable, "a file that exists cannot be read or parsed"},
    {kExitUsage,
     "usage error: unknown subcommand or option, an option the subcommand does not take, a "
     "missing or malformed argument"},
    {kExitDataError,
     "generate, set, unset: arguments refused (nothing written); comply: a malformed baseline"},
    {kExitNoInput, "no such file or directory"},
    {kExitInternal, "internal error (an unexpected exception, such as running out of memory)"},
    {kExitCannotCreate,
     "generate, set, unset, edit: the policy file cannot be created, kept or repaired safely: "
     "its path or the file on disk is unsafe, or something other than a regular file is there"},
    {kExitIoError, "I/O error: writing the policy file or standard output failed"},
    {kExitTempFail,
     "generate, set, unset, edit: another writer holds the lock, or changed the file meanwhile; "
     "nothing was written (run again)"},
};

// The stable kinds of the "error" object --json prints when a run fails before it has a
// result, one per condition of the exit statuses above.
namespace errorkind {
inline constexpr char kUsage[] = "usage";
inline constexpr char kNoSuchFile[] = "no-such-file";
inline constexpr char kNoSuchDirectory[] = "no-such-directory";
inline constexpr char kUnreadable[] = "unreadable";
inline constexpr char kRefused[] = "refused";
inline constexpr char kUnsafeDirectory[] = "unsafe-directory";
inline constexpr char kUnsafeFile[] = "unsafe-file";
inline constexpr char kNotRegularFile[] = "not-regular-file";
inline constexpr char kCannotCreate[] = "cannot-create";
inline constexpr char kIoError[] = "io-error";
inline constexpr char kLocked[] = "locked";
inline constexpr char kChanged[] = "changed-meanwhile";
inline constexpr char kInternal[] = "internal";
}  // namespace errorkind

// The values of --log: standard error (the default) or syslog(3).
inline constexpr char kLogSinkStderr[] = "stderr";
inline constexpr char kLogSinkSyslog[] = "syslog";

// The options every subcommand shares, accepted before or after the subcommand's name.
struct SharedOptions {
    std::string installDir;
    bool bJson = false;
    bool bQuiet = false;
    bool bVerbose = false;
    std::string logSink = kLogSinkStderr;
};

// How much of the module's log the tool shows.
enum class Verbosity {
    QUIET,    // --quiet: errors only
    NORMAL,   // errors, warnings and informational records
    VERBOSE,  // -v: the trace records too
};

// CToolContext is what the dispatcher hands each subcommand: the shared options, the checked
// standard output for results, and standard error for the tool's own messages, each prefixed
// "qnpolicy SUBCOMMAND: ". While it lives, the module's log records go where --log says, as
// many as the verbosity asks for; the previous sink is restored at its end.
//
//   int CShowCommand::Run(CToolContext& context) {
//       context.Out() << ...;
//       context.Error("cannot load ...");
//   }
class CToolContext {
  public:
    CToolContext(const SharedOptions& options, const std::string& command, std::ostream& out,
                 std::ostream& err);
    ~CToolContext();
    CToolContext(const CToolContext&) = delete;
    CToolContext& operator=(const CToolContext&) = delete;

    const SharedOptions& Options() const { return m_options; }
    std::ostream& Out() { return m_out; }

    // A failure of the run; always printed.
    void Error(const std::string& message);
    // A failure that ends the run before it has a result: each detail (as "error: DETAIL"),
    // then the message, printed once as Error, and with --json the one object on standard output,
    // {"formatVersion": 1, "error": {"kind", "message"}}, whose message holds the details
    // (a line each) and the message. Returns exitCode.
    int Fail(int exitCode, const char* kind, const std::string& message,
             const std::vector<std::string>& details = {});
    // A warning or a note about the result; --quiet drops them.
    void Warning(const std::string& message);
    void Note(const std::string& message);

    // 0 when the install directory exists and is a directory, or cannot be examined (the
    // command's own read or audit then reports it); otherwise says so ("no such directory")
    // and returns the no-input status (66).
    int RequireInstallDir();

    // Reads standard input whole into rContent, and refuses it once it has delivered more than
    // XmlParser::kMaxStreamBytes (64 MiB), the most the parser takes from a stream: 0, or the
    // exit status of the failure, reported (2 when there is more, 74 when reading fails).
    int ReadStandardInput(std::string& rContent);
    // The install directory as the module expects it, with its trailing '/'.
    std::string InstallDir() const;
    // The policy file of the install directory.
    std::string InstallPolicyPath() const;

    // Writes one record as one line on standard error: the journal's priority prefix where
    // standard error is the journal, then the readable line with control characters escaped.
    static void WriteLogLine(const CAppLogRecord& record);
    // Whether a record of this importance is shown.
    static bool Shows(Verbosity eVerbosity, Logging::DebugImportance eImportance);

  private:
    Verbosity verbosity() const;

    SharedOptions m_options;
    std::string m_prefix;
    std::ostream& m_out;
    std::ostream& m_err;
    CAppLogSink m_previousSink;
};

// Reads fd to its end, or until more than limit bytes have come, appending to rContent; false
// with errno in rError when a read fails. The room for limit + 1 bytes is reserved at once, so
// that the last piece never doubles it: memory the pieces do not fill is never touched.
bool ReadAtMost(int fd, size_t limit, std::string& rContent, int& rError);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_TOOLCONTEXT_H

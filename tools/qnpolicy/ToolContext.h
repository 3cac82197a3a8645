#ifndef QNPOLICY_TOOLCONTEXT_H
#define QNPOLICY_TOOLCONTEXT_H

#include <ostream>
#include <string>

#include "ToolLog.h"

namespace qnpolicy::tool {

// The options every subcommand shares, accepted before or after the subcommand's name.
// The values of --log: standard error (the default) or syslog(3).
inline constexpr char kLogSinkStderr[] = "stderr";
inline constexpr char kLogSinkSyslog[] = "syslog";

struct SharedOptions {
    std::string installDir;
    bool bJson = false;
    bool bQuiet = false;
    bool bVerbose = false;
    std::string logSink = kLogSinkStderr;
};

// CToolContext is what the dispatcher hands each subcommand: the shared options, the checked
// standard output for results, and standard error for the tool's own messages, each prefixed
// "qnpolicy SUBCOMMAND: ". The module's log records reach standard error through CToolLog.
//
//   int RunShow(const CommandArgs& args, CToolContext& context) {
//       if (const int status = context.RequireInstallDir(); status != kExitSuccess) {
//           return status;
//       }
//       context.Out() << ...;
//   }
class CToolContext {
  public:
    CToolContext(const SharedOptions& options, const std::string& command, std::ostream& out,
                 std::ostream& err);

    const SharedOptions& Options() const { return m_options; }
    Verbosity GetVerbosity() const;
    std::ostream& Out() { return m_out; }

    // A failure of the run; always printed.
    void Error(const std::string& message);
    // A warning or a note about the result; --quiet drops them.
    void Warning(const std::string& message);
    void Note(const std::string& message);

    // 0 when the install directory exists and is a directory; otherwise says so ("no such
    // directory") and returns the no-input status (66).
    int RequireInstallDir();
    // The policy file of the install directory.
    std::string InstallPolicyPath() const;

  private:
    SharedOptions m_options;
    std::string m_prefix;
    std::ostream& m_out;
    std::ostream& m_err;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_TOOLCONTEXT_H

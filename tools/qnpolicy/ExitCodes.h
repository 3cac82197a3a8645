#ifndef QNPOLICY_EXITCODES_H
#define QNPOLICY_EXITCODES_H

// The exit statuses of qnpolicy, shared by every subcommand and documented in --help and in
// the README. Usage errors take 64 (EX_USAGE of sysexits.h) so that they never collide with
// check's 1 (findings) and 2 (unreadable file).
namespace qnpolicy::tool {

inline constexpr int kExitSuccess = 0;
// generate: no file written; show: the policy could not be loaded; check: findings reported.
inline constexpr int kExitFailure = 1;
// check: the file is missing, unreadable or not well-formed XML.
inline constexpr int kExitUnreadable = 2;
// An unknown subcommand or option, a missing or malformed argument.
inline constexpr int kExitUsage = 64;
// An unexpected exception, such as running out of memory (EX_SOFTWARE of sysexits.h).
inline constexpr int kExitInternal = 70;

// The text of the exit-code table, appended to every --help.
inline constexpr char kExitCodeHelp[] =
    "Exit codes:\n"
    "  0   success (check: no findings)\n"
    "  1   generate: the policy file could not be written; show: the policy could not be\n"
    "      loaded; check: findings were reported\n"
    "  2   check: the file is missing, unreadable or not well-formed XML\n"
    "  64  usage error: unknown subcommand or option, missing or malformed argument\n"
    "  70  internal error (an unexpected exception, such as running out of memory)\n";

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_EXITCODES_H

#ifndef QNPOLICY_EXITCODES_H
#define QNPOLICY_EXITCODES_H

// The exit statuses of qnpolicy, shared by every subcommand and documented in --help and in
// the README. Above 2 they are those of sysexits.h, so that scripts can tell a usage error
// from refused data, a missing input or an I/O error.
namespace qnpolicy::tool {

inline constexpr int kExitSuccess = 0;
// check: findings reported; generate --diff: the file differs; show: the policy could not
// be loaded.
inline constexpr int kExitFindings = 1;
// check: a file could not be read or parsed.
inline constexpr int kExitUnreadable = 2;
// EX_USAGE: an unknown subcommand or option, a missing or malformed argument.
inline constexpr int kExitUsage = 64;
// EX_DATAERR: generate refused its arguments; nothing was written.
inline constexpr int kExitDataError = 65;
// EX_NOINPUT: no such file or directory.
inline constexpr int kExitNoInput = 66;
// EX_SOFTWARE: an unexpected exception, such as running out of memory.
inline constexpr int kExitInternal = 70;
// EX_CANTCREAT: the policy file cannot be created in the install directory.
inline constexpr int kExitCannotCreate = 73;
// EX_IOERR: reading or writing failed, standard output included.
inline constexpr int kExitIoError = 74;

// The text of the exit-code table, appended to every --help.
inline constexpr char kExitCodeHelp[] =
    "Exit codes:\n"
    "  0   success (check: no findings; generate --diff: no difference)\n"
    "  1   check: findings were reported; generate --diff: the file differs;\n"
    "      show: the policy could not be loaded\n"
    "  2   check: a file could not be read or parsed\n"
    "  64  usage error: unknown subcommand or option, missing or malformed argument\n"
    "  65  generate: arguments refused (nothing written)\n"
    "  66  no such file or directory\n"
    "  70  internal error (an unexpected exception, such as running out of memory)\n"
    "  73  generate: the policy file cannot be created in the install directory\n"
    "  74  I/O error: writing the policy file or standard output failed\n";

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_EXITCODES_H

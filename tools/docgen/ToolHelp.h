// SPDX-License-Identifier: Apache-2.0
#ifndef QNDOCGEN_TOOLHELP_H
#define QNDOCGEN_TOOLHELP_H

#include <string>
#include <vector>

namespace qndocgen {

// One option of a command: "--install-dir DIR", "--log SINK" with its choices, "-h,--help".
struct ToolOption {
    std::vector<std::string> names;    // "-h", "--help"
    std::string argument;              // the value's type name ("DIR"); empty for a flag
    std::vector<std::string> choices;  // the values it accepts, when it names them
    std::string defaultValue;
    std::string description;
};

// One positional argument: "FILE FILE", "ARG ABBREV=VALUE ...".
struct ToolPositional {
    std::string name;
    std::string argument;  // the type name ("FILE", "ABBREV=VALUE")
    bool bRepeated = false;
    std::string description;
};

// The tool or one of its subcommands.
struct ToolCommand {
    std::string name;         // empty for the tool itself
    std::string usage;        // its synopsis, as --help prints it after "Usage: "
    std::string description;  // the lines before the usage line, joined
    std::vector<ToolOption> options;
    std::vector<ToolPositional> positionals;
};

// An entry of the exit-code table: "64" and its meaning.
struct ToolExitCode {
    std::string code;
    std::string meaning;
};

// ToolHelp is what qnpolicy's command table says of the tool and each subcommand, as the
// manual page and the completion need it: the same options, positionals and texts that --help
// prints, taken from the table itself.
//
//   ToolHelp help = DescribeTool();
struct ToolHelp {
    std::string version;  // the --version line
    ToolCommand tool;
    std::vector<ToolCommand> subcommands;
    std::vector<ToolExitCode> exitCodes;
};

ToolHelp DescribeTool();

}  // namespace qndocgen

#endif  // QNDOCGEN_TOOLHELP_H

#ifndef QNDOCGEN_TOOLHELP_H
#define QNDOCGEN_TOOLHELP_H

#include <functional>
#include <string>
#include <vector>

namespace qndocgen {

// One option as --help lists it: "--install-dir DIR=/opt/quillnet/",
// "--log SINK:{stderr,syslog}=stderr", "-h,--help".
struct ToolOption {
    std::vector<std::string> names;    // "-h", "--help"
    std::string argument;              // the value's type name ("DIR"); empty for a flag
    std::vector<std::string> choices;  // the allowed values, when --help lists them
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

// The tool or one of its subcommands, as its --help describes it.
struct ToolCommand {
    std::string name;         // empty for the tool itself
    std::string usage;        // the text after "Usage: "
    std::string description;  // the lines before the usage line, joined
    std::vector<ToolOption> options;
    std::vector<ToolPositional> positionals;
};

// An entry of the exit-code table: "64" and its meaning.
struct ToolExitCode {
    std::string code;
    std::string meaning;
};

// ToolHelp is what the built qnpolicy says about itself in --help and in each subcommand's
// --help, read into a structure so that the manual page and the completion follow the tool
// whatever it offers.
//
//   ToolHelp help;
//   std::string error;
//   if (!ReadToolHelp("build/tools/qnpolicy/qnpolicy", help, error)) { ... }
struct ToolHelp {
    std::string version;  // the --version line
    ToolCommand tool;
    std::vector<ToolCommand> subcommands;
    std::vector<ToolExitCode> exitCodes;
};

// Reads a help text in the tool's layout: description lines, "Usage: ...", then sections
// ("Options:", "Positionals:", "Subcommands:", "Exit codes:") of entries indented by two
// spaces, a description after two or more spaces or on indented lines below.
ToolCommand ParseCommandHelp(const std::string& name, const std::string& helpText,
                             std::vector<std::string>* subcommandNames,
                             std::vector<ToolExitCode>* exitCodes);

// Runs the binary with --version, --help and SUBCOMMAND --help for every subcommand --help
// lists. False with error set when one of them fails.
bool ReadToolHelp(const std::string& binary, ToolHelp& help, std::string& error);

}  // namespace qndocgen

#endif  // QNDOCGEN_TOOLHELP_H

// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_COMMANDLINE_H
#define QNPOLICY_COMMANDLINE_H

#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CommandTable.h"

// The CLI11 parser the command table describes, for the dispatcher and the documentation
// generator; the commands themselves only declare their options (CommandTable.h).
//
//   CommandLine line;
//   BuildCommandLine(line);           // CLI11 app with every subcommand and option
//   line.app.parse(argc, argv);
//
// A run that knows which subcommand its words name builds only that one's options
// (BuildCommandLine(line, &info)): declaring every option of every subcommand costs more
// than reading a typical policy file.
namespace qnpolicy::tool {

// The command line the table describes: the CLI11 app with a subcommand per command, the shared
// options, and the values an option accepts where it names them (for the completion).
struct CommandLine {
    CLI::App app{"", "qnpolicy"};
    SharedOptions shared;
    struct Entry {
        const CommandInfo* pInfo;
        CLI::App* pApp;
        std::unique_ptr<CCommand> pCommand;
        bool bComplete;  // its options are declared (false: its name and description only)
    };
    std::vector<Entry> commands;
    std::map<const CLI::Option*, std::vector<std::string>> choices;
};
// Every subcommand with its options; with pOnly, the others by name and description only.
void BuildCommandLine(CommandLine& line, const CommandInfo* pOnly = nullptr);

// One subcommand's synopsis on one line, from its options as the table declares them:
// "qnpolicy check [OPTIONS] [--ignore KIND]... [FILE...]", where OPTIONS stands for the shared
// options, options that exclude each other are joined by "|", and a repeatable one is followed
// by "...".
std::string Synopsis(const CommandLine& line, const CommandLine::Entry& entry);
// The usage --help prints: every subcommand's synopsis, wrapped at 80 columns, then the
// tool's own options; the manual page and the README show the same lines.
std::string UsageText(const CommandLine& line);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_COMMANDLINE_H

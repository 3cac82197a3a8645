// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_COMMANDTABLE_H
#define QNPOLICY_COMMANDTABLE_H

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ToolContext.h"

// The subcommands of qnpolicy, as one table: each command owns its options (AddOptions binds
// them to its own members) and runs with the context the dispatcher sets up once for all of
// them (Run returns the exit status). The dispatcher, the manual page and the shell completion
// all read the table, so a command or an option is declared in one place.
//
//   CommandLine line;
//   BuildCommandLine(line);           // CLI11 app with every subcommand and option
//   line.app.parse(argc, argv);
//
// A run that knows which subcommand its words name builds only that one's options
// (BuildCommandLine(line, &info)): declaring every option of every subcommand costs more
// than reading a typical policy file.
namespace qnpolicy::tool {

class CCommand {
  public:
    virtual ~CCommand() = default;
    virtual void AddOptions(CLI::App& command) = 0;
    virtual int Run(CToolContext& context) = 0;
    // Whether this run reads or writes the install directory, which must then exist.
    virtual bool UsesInstallDir() const { return true; }
    // The values each of its options accepts where it names them, by the option's name: for
    // the completion and the manual page.
    virtual std::map<std::string, std::vector<std::string>> OptionChoices() const { return {}; }
    // What its own options imply for the shared ones (a format that is JSON), applied once the
    // command line is parsed and before the run.
    virtual void AdjustSharedOptions(SharedOptions& /*rOptions*/) const {}
};

// What a command shares with the others.
enum CommandFlag : unsigned {
    COMMAND_INSTALL_DIR = 1U << 0,  // takes --install-dir
    COMMAND_JSON = 1U << 1,         // takes --json
};

struct CommandInfo {
    const char* name;
    const char* description;
    unsigned flags;
    std::unique_ptr<CCommand> (*create)();
    // With COMMAND_JSON: the JSON Schema (draft 2020-12) of the object --json prints when the
    // command has a result; the error object every command prints instead is added to it by
    // OutputSchema.
    const char* resultSchema;
};

// The table, in the order --help lists the commands.
const std::vector<CommandInfo>& Commands();

// The JSON Schema of what `qnpolicy COMMAND --json` prints, result or error, as installed
// beside the policy file's XML Schema and printed by `qnpolicy schema --json-schema COMMAND`;
// empty for a command without --json.
std::string OutputSchema(const CommandInfo& command);

extern const char kGenerateResultSchema[];
extern const char kChangeResultSchema[];
extern const char kShowResultSchema[];
extern const char kCheckResultSchema[];
extern const char kVocabularyResultSchema[];
extern const char kDiffResultSchema[];
extern const char kComplyResultSchema[];

std::unique_ptr<CCommand> CreateGenerateCommand();
std::unique_ptr<CCommand> CreateSetCommand();
std::unique_ptr<CCommand> CreateUnsetCommand();
std::unique_ptr<CCommand> CreateEditCommand();
std::unique_ptr<CCommand> CreateShowCommand();
std::unique_ptr<CCommand> CreateCheckCommand();
std::unique_ptr<CCommand> CreateDiffCommand();
std::unique_ptr<CCommand> CreateComplyCommand();
std::unique_ptr<CCommand> CreateScapCommand();
std::unique_ptr<CCommand> CreateVocabularyCommand();
std::unique_ptr<CCommand> CreateSchemaCommand();

// What comply and scap share: the machine's host name, which decides the waivers unless --host
// names another; and the baseline at path (- reads standard input) read into rParse: 0, or the
// exit status of a failure, reported (66 no such file, 65 a malformed baseline). When the
// baseline cannot be used, beforeRefusing (if given) runs first, and a status other than 0 it
// returns is returned instead (comply's metrics are written before the refusal).
std::string MachineHostName();
struct BaselineParse;
int LoadBaseline(CToolContext& context, const std::string& path, BaselineParse& rParse,
                 const std::function<int()>& beforeRefusing = nullptr);

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

// The exit-code table as --help prints it.
std::string ExitCodeHelp();

// One subcommand's synopsis on one line, from its options as the table declares them:
// "qnpolicy check [OPTIONS] [--ignore KIND]... [FILE...]", where OPTIONS stands for the shared
// options, options that exclude each other are joined by "|", and a repeatable one is followed
// by "...".
std::string Synopsis(const CommandLine& line, const CommandLine::Entry& entry);
// The usage --help prints: every subcommand's synopsis, wrapped at 80 columns, then the
// tool's own options; the manual page and the README show the same lines.
std::string UsageText(const CommandLine& line);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_COMMANDTABLE_H

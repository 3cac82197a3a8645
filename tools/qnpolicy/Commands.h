#ifndef QNPOLICY_COMMANDS_H
#define QNPOLICY_COMMANDS_H

#include <string>
#include <vector>

#include "ToolContext.h"

namespace CLI {
class App;
}

// The subcommands of qnpolicy. Each adds its own options to its CLI11 subcommand
// (AddXxxOptions, bound to CommandArgs) and runs with the shared context (RunXxx), returning
// the exit status (ExitCodes.h). main.cpp lists them in one table.
namespace qnpolicy::tool {

// The subcommands' own arguments, filled by the command-line parser.
struct CommandArgs {
    // generate
    std::vector<std::string> policyArgs;
    bool bOverwrite = false;
    bool bLenient = false;
    bool bDryRun = false;
    bool bDiff = false;
    // show: one file; check: several, "-" for standard input
    std::vector<std::string> files;
    // check
    std::vector<std::string> ignoredKinds;
};

void AddGenerateOptions(CLI::App& command, CommandArgs& args);
// Writes the policy file from "policy_abbreviation=value" arguments, refusing unusable ones.
int RunGenerate(const CommandArgs& args, CToolContext& context);

void AddShowOptions(CLI::App& command, CommandArgs& args);
// Loads the policy file as the client does and prints the effective policy.
int RunShow(const CommandArgs& args, CToolContext& context);

void AddCheckOptions(CLI::App& command, CommandArgs& args);
// Lints policy files, or the policy file of the install directory.
int RunCheck(const CommandArgs& args, CToolContext& context);

void AddVocabularyOptions(CLI::App& command, CommandArgs& args);
// Prints the vocabulary of installer abbreviations with each setting's meaning.
int RunVocabulary(const CommandArgs& args, CToolContext& context);

void AddSchemaOptions(CLI::App& command, CommandArgs& args);
// Prints the XML Schema of the policy document, generated from the settings catalogue.
int RunSchema(const CommandArgs& args, CToolContext& context);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_COMMANDS_H

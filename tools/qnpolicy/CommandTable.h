// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_COMMANDTABLE_H
#define QNPOLICY_COMMANDTABLE_H

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ToolContext.h"

// The subcommands of qnpolicy, as one table: each command declares its options (AddOptions
// binds them to its own members) and runs with the context the dispatcher sets up once for all
// of them (Run returns the exit status). The dispatcher, the manual page and the shell
// completion all read the table, so a command or an option is declared in one place.
// Options are declared as data (OptionDecl); CommandLine.h builds the parser from them, so a
// command's own file needs no parser header.
namespace qnpolicy::tool {

// One option or positional argument of a command: the member it binds and what the parser
// enforces. A name without a leading dash ("FILE") is a positional. The setters chain:
//   options.Value("--host", m_host, "...").TypeName("NAME").Needs("--tailoring");
struct OptionDecl {
    std::string name;
    std::string description;
    bool* pFlag = nullptr;  // exactly one of the three targets is set
    std::string* pValue = nullptr;
    std::vector<std::string>* pValues = nullptr;
    std::string typeName;
    bool bRequired = false;
    int minValues = 0;  // with maxValues > 0, how many values a positional takes
    int maxValues = 0;
    bool bOneValueEach = false;  // a repeatable option takes one value per occurrence
    // The values accepted, also offered by the completion and listed in the manual page.
    std::vector<std::string> choices;
    // The message refusing a value, empty to accept it.
    std::function<std::string(const std::string&)> check;
    std::vector<std::string> excludes;  // options of the same command not given with it
    std::vector<std::string> needs;     // options of the same command it requires

    OptionDecl& TypeName(std::string text) {
        typeName = std::move(text);
        return *this;
    }
    OptionDecl& Required() {
        bRequired = true;
        return *this;
    }
    OptionDecl& Expected(int least, int most) {
        minValues = least;
        maxValues = most;
        return *this;
    }
    OptionDecl& OneValueEach() {
        bOneValueEach = true;
        return *this;
    }
    OptionDecl& Choices(std::vector<std::string> values) {
        choices = std::move(values);
        return *this;
    }
    OptionDecl& Check(std::function<std::string(const std::string&)> validator) {
        check = std::move(validator);
        return *this;
    }
    OptionDecl& Excludes(std::string other) {
        excludes.push_back(std::move(other));
        return *this;
    }
    OptionDecl& Needs(std::string other) {
        needs.push_back(std::move(other));
        return *this;
    }
};

// The options one command declares, in the order --help lists them.
class COptionList {
  public:
    OptionDecl& Flag(std::string name, bool& rTarget, std::string description) {
        OptionDecl& decl = add(std::move(name), std::move(description));
        decl.pFlag = &rTarget;
        return decl;
    }
    OptionDecl& Value(std::string name, std::string& rTarget, std::string description) {
        OptionDecl& decl = add(std::move(name), std::move(description));
        decl.pValue = &rTarget;
        return decl;
    }
    OptionDecl& Values(std::string name, std::vector<std::string>& rTarget,
                       std::string description) {
        OptionDecl& decl = add(std::move(name), std::move(description));
        decl.pValues = &rTarget;
        return decl;
    }
    const std::deque<OptionDecl>& Decls() const { return m_decls; }

  private:
    OptionDecl& add(std::string name, std::string description) {
        OptionDecl& decl = m_decls.emplace_back();
        decl.name = std::move(name);
        decl.description = std::move(description);
        return decl;
    }
    std::deque<OptionDecl> m_decls;  // a deque: a declaration stays where it is while chained
};

class CCommand {
  public:
    virtual ~CCommand() = default;
    virtual void AddOptions(COptionList& options) = 0;
    virtual int Run(CToolContext& context) = 0;
    // Whether this run reads or writes the install directory, which must then exist.
    virtual bool UsesInstallDir() const { return true; }
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

// The exit-code table as --help prints it.
std::string ExitCodeHelp();

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_COMMANDTABLE_H

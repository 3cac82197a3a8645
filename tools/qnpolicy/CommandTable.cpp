// SPDX-License-Identifier: Apache-2.0
#include "CommandTable.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "QnBuildConfig.h"

namespace qnpolicy::tool {

namespace {

constexpr char kInstallDirHelp[] =
    "Main installation directory holding QuillnetLocalPolicy.xml (a missing trailing '/' is "
    "added)";

// The options every command shares, on the main command and on each command, so that they are
// accepted on either side of the command's name.
void addSharedOptions(CommandLine& line, CLI::App& command, unsigned flags) {
    SharedOptions& options = line.shared;
    if ((flags & COMMAND_INSTALL_DIR) != 0) {
        command.add_option("--install-dir", options.installDir, kInstallDirHelp)
            ->type_name("DIR")
            ->capture_default_str()
            ->check([](const std::string& value) {
                return value.empty() ? std::string("the directory must not be empty")
                                     : std::string();
            });
    }
    if ((flags & COMMAND_JSON) != 0) {
        command.add_flag("--json", options.bJson, "Print one JSON object (\"formatVersion\": 1)");
    }
    CLI::Option* quiet = command.add_flag("-q,--quiet", options.bQuiet, "Print only errors");
    command.add_flag("-v,--verbose", options.bVerbose, "Add the module's trace records")
        ->excludes(quiet);
    const std::vector<std::string> sinks = {kLogSinkStderr, kLogSinkSyslog};
    CLI::Option* log =
        command
            .add_option("--log", options.logSink,
                        "Where the policy module's log records go: stderr, or syslog (as "
                        "qnpolicy, facility user)")
            ->type_name("SINK")
            ->check(CLI::IsMember(sinks))
            ->capture_default_str();
    line.choices[log] = sinks;
    command.footer(ExitCodeHelp());
}

}  // namespace

const std::vector<CommandInfo>& Commands() {
    static const std::vector<CommandInfo> commands = {
        {"generate",
         "Write the policy file from installer arguments \"policy_abbreviation=value\" (see "
         "`qnpolicy vocabulary`). Every argument is checked and the document that would be "
         "written is linted first: any unusable argument or finding refuses the run (exit 65) "
         "unless --lenient is given. An existing file is kept unless --overwrite is given, and "
         "left untouched when it already holds the same document.",
         COMMAND_INSTALL_DIR | COMMAND_JSON, CreateGenerateCommand, kGenerateResultSchema},
        {"show",
         "Load the policy file (or FILE; - reads standard input) as the client does and print "
         "the effective policy: the file's path and presence, its version, every setting in "
         "catalogue order and the authorized servers.",
         COMMAND_INSTALL_DIR | COMMAND_JSON, CreateShowCommand, kShowResultSchema},
        {"check",
         "Lint policy files (default: the install directory's; - reads standard input): report, "
         "with line and column, every place where the client will not do what a file seems to "
         "say, and unsafe ownership or permissions of the file and the directories above it.",
         COMMAND_INSTALL_DIR | COMMAND_JSON, CreateCheckCommand, kCheckResultSchema},
        {"vocabulary",
         "List the installer abbreviations with their element, section, default, allowed values "
         "and meaning, and the values generate writes.",
         COMMAND_JSON, CreateVocabularyCommand, kVocabularyResultSchema},
        {"schema",
         "Print the XML Schema of the policy file, QuillnetLocalPolicy.xsd, generated from the "
         "settings catalogue, or with --json-schema the JSON Schema of a subcommand's --json "
         "output. The XML Schema checks each element and its text as the client reads them, not "
         "rules between elements (one setting overriding another), which check reports.",
         0, CreateSchemaCommand, nullptr},
    };
    return commands;
}

void BuildCommandLine(CommandLine& line) {
    line.app.description(
        "qnpolicy " QN_CLIENT_VERSION
        ": generate, show and check the client's local policy file QuillnetLocalPolicy.xml.\n"
        "The policy module's log records are printed on standard error, one line each.");
    line.app.set_version_flag("--version", "qnpolicy " QN_CLIENT_VERSION);
    line.app.require_subcommand(0, 1);
    line.shared.installDir = QN_DEFAULT_MAIN_DIR;
    unsigned allFlags = 0;
    for (const CommandInfo& info : Commands()) {
        allFlags |= info.flags;
    }
    addSharedOptions(line, line.app, allFlags);
    for (const CommandInfo& info : Commands()) {
        CLI::App* command = line.app.add_subcommand(info.name, info.description);
        addSharedOptions(line, *command, info.flags);
        std::unique_ptr<CCommand> pCommand = info.create();
        pCommand->AddOptions(*command);
        command->allow_extras(false);
        line.commands.push_back(CommandLine::Entry{&info, command, std::move(pCommand)});
    }
    // Left-over words of the main command are an unknown subcommand or option, reported with
    // a suggestion instead of CLI11's generic message.
    line.app.allow_extras(true);
}

namespace {

// The object every command prints with --json when it fails before it has a result, and the
// error inside it.
constexpr char kErrorSchema[] = R"({
    "type": "object",
    "required": ["kind", "message"],
    "properties": {
        "kind": {"enum": ["usage", "no-such-file", "no-such-directory", "unreadable", "refused",
                          "unsafe-directory", "unsafe-file", "not-regular-file",
                          "cannot-create", "io-error", "internal"]},
        "message": {"type": "string"},
        "line": {"type": "integer", "minimum": 0},
        "column": {"type": "integer", "minimum": 0},
        "consequence": {"type": "string"}
    },
    "additionalProperties": false
})";
// One finding of check, as check and generate report it.
constexpr char kFindingSchema[] = R"({
    "type": "object",
    "required": ["kind", "severity", "line", "column", "message"],
    "properties": {
        "kind": {"type": "string"},
        "severity": {"enum": ["error", "warning"]},
        "line": {"type": "integer", "minimum": 0},
        "column": {"type": "integer", "minimum": 0},
        "message": {"type": "string"}
    }
})";
constexpr char kErrorDocumentSchema[] = R"({
    "type": "object",
    "required": ["formatVersion", "error"],
    "properties": {
        "formatVersion": {"const": 1},
        "error": {"$ref": "#/$defs/error"},
        "loaded": {"const": false},
        "policyFile": {"type": "string"}
    },
    "additionalProperties": false
})";

}  // namespace

std::string OutputSchema(const CommandInfo& command) {
    if (command.resultSchema == nullptr) {
        return std::string();
    }
    nlohmann::ordered_json schema;
    schema["$schema"] = "https://json-schema.org/draft/2020-12/schema";
    schema["$id"] = std::string("qnpolicy-") + command.name + ".schema.json";
    schema["title"] = std::string("qnpolicy ") + command.name + " --json";
    schema["description"] =
        "The one JSON object the command prints on standard output with --json: its result, "
        "or the error that ended the run.";
    schema["oneOf"] = {nlohmann::ordered_json::parse(command.resultSchema),
                       {{"$ref", "#/$defs/errorDocument"}}};
    schema["$defs"]["errorDocument"] = nlohmann::ordered_json::parse(kErrorDocumentSchema);
    schema["$defs"]["error"] = nlohmann::ordered_json::parse(kErrorSchema);
    schema["$defs"]["finding"] = nlohmann::ordered_json::parse(kFindingSchema);
    return schema.dump(2) + "\n";
}

std::string ExitCodeHelp() {
    std::string help = "Exit codes:\n";
    for (const ExitCodeInfo& exitCode : kExitCodes) {
        char code[16];
        std::snprintf(code, sizeof code, "  %-3d ", exitCode.code);
        help += code;
        help += exitCode.meaning;
        help += '\n';
    }
    return help;
}

}  // namespace qnpolicy::tool

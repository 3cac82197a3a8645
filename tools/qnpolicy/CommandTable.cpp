// SPDX-License-Identifier: Apache-2.0
#include "CommandLine.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>

#include "MessageText.h"
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

// A command's declared options as CLI11's, then the relations between them, which name
// options declared later too.
void addDeclaredOptions(CommandLine& line, CLI::App& command, const COptionList& options) {
    for (const OptionDecl& decl : options.Decls()) {
        CLI::Option* option = decl.pFlag != nullptr
                                  ? command.add_flag(decl.name, *decl.pFlag, decl.description)
                              : decl.pValue != nullptr
                                  ? command.add_option(decl.name, *decl.pValue, decl.description)
                                  : command.add_option(decl.name, *decl.pValues, decl.description);
        if (!decl.typeName.empty()) {
            option->type_name(decl.typeName);
        }
        option->required(decl.bRequired);
        if (decl.maxValues > 0) {
            option->expected(decl.minValues, decl.maxValues);
        }
        if (decl.bOneValueEach) {
            option->allow_extra_args(false);
        }
        if (!decl.choices.empty()) {
            option->check(CLI::IsMember(decl.choices));
            line.choices[option] = decl.choices;
        }
        if (decl.check) {
            option->check(decl.check);
        }
    }
    for (const OptionDecl& decl : options.Decls()) {
        CLI::Option* option = command.get_option(decl.name);
        for (const std::string& other : decl.excludes) {
            option->excludes(command.get_option(other));
        }
        for (const std::string& other : decl.needs) {
            option->needs(command.get_option(other));
        }
    }
}

// --help's usage: the table's synopsis instead of CLI11's generic "[OPTIONS] [SUBCOMMAND]".
class CUsageFormatter : public CLI::Formatter {
  public:
    explicit CUsageFormatter(const CommandLine& line) : m_line(line) {}

    std::string make_usage(const CLI::App* app, std::string /*name*/) const override {
        for (const CommandLine::Entry& entry : m_line.commands) {
            if (entry.pApp == app) {
                return "Usage: " + Synopsis(m_line, entry) + "\n";
            }
        }
        std::string usage = "Usage:\n";
        const std::string text = UsageText(m_line);
        for (size_t start = 0; start < text.size();) {
            const size_t end = text.find('\n', start);
            usage += "  " + text.substr(start, end - start + 1);
            start = end + 1;
        }
        return usage;
    }

  private:
    const CommandLine& m_line;
};

// Whether a subcommand's option is one the main command takes too (or --help).
bool isSharedOption(const CommandLine& line, const CLI::Option* option) {
    for (const std::string& name : option->get_lnames()) {
        if (name == "help" || line.app.get_option_no_throw("--" + name) != nullptr) {
            return true;
        }
    }
    return false;
}

// "--name" or "--name TYPE", without the checks CLI11 appends to the type.
std::string optionUsage(const CLI::Option* option) {
    std::string usage = option->get_lnames().empty() ? "-" + option->get_snames().front()
                                                     : "--" + option->get_lnames().front();
    const std::string type = option->get_type_name();
    if (option->get_type_size() != 0 && !type.empty()) {
        usage += " " + type.substr(0, type.find(':'));
    }
    return usage;
}

// "FILE", "[FILE]", "FILE [FILE]", "[SETTING...]": the times a positional is required, then
// what it may add.
std::string positionalUsage(const CLI::Option* option) {
    const std::string name = option->get_type_name();
    const int most = option->get_items_expected_max();
    const int least = option->get_required() ? std::max(1, option->get_items_expected_min()) : 0;
    std::string usage;
    for (int i = 0; i < least; ++i) {
        usage += (usage.empty() ? "" : " ") + name;
    }
    if (most > least) {
        usage += (usage.empty() ? "[" : " [") + name + (most - least > 1 ? "...]" : "]");
    }
    return usage;
}

// The line cut into lines of at most kUsageWidth columns, between bracketed groups, each
// continuation indented under the first argument.
std::string wrapped(const std::string& line, size_t indent) {
    constexpr size_t kUsageWidth = 80;
    std::vector<std::string> words;
    int depth = 0;
    std::string word;
    for (const char character : line) {
        depth += character == '[' ? 1 : character == ']' ? -1 : 0;
        if (character == ' ' && depth == 0) {
            words.push_back(word);
            word.clear();
        } else {
            word += character;
        }
    }
    words.push_back(word);
    std::string text;
    size_t width = 0;
    for (const std::string& next : words) {
        if (width != 0 && width + 1 + next.size() > kUsageWidth) {
            text += "\n" + std::string(indent, ' ');
            width = indent;
        } else if (width != 0) {
            text += ' ';
            ++width;
        }
        text += next;
        width += next.size();
    }
    return text + "\n";
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
        {"set",
         "Change the named settings of the policy file and keep every other one as the file "
         "states it, in its order (a missing file is created from the defaults). The arguments "
         "are checked as generate checks them; a finding about a named setting refuses the run "
         "(exit 65), one about another setting is a warning. What a rewrite would drop "
         "(comments, elements and texts the client ignores) refuses the run unless --force; a "
         "file the client cannot parse is left alone (exit 2).",
         COMMAND_INSTALL_DIR | COMMAND_JSON, CreateSetCommand, kChangeResultSchema},
        {"unset",
         "Remove the named settings from the policy file, so that their defaults hold, and keep "
         "every other one as set does. The summary lists every setting the client reads "
         "differently, those an override decided included.",
         COMMAND_INSTALL_DIR | COMMAND_JSON, CreateUnsetCommand, kChangeResultSchema},
        {"edit",
         "Edit the policy file in $VISUAL, else $EDITOR, else editor, else vi, as visudo edits "
         "its file: under the writers' lock, on a working copy in the install directory. "
         "Nothing is written when the document is unchanged; findings are shown with the "
         "choice to edit again, exit without saving, or save anyway (Q). Needs a terminal "
         "(exit 64 without one).",
         COMMAND_INSTALL_DIR, CreateEditCommand, nullptr},
        {"show",
         "Load the policy file (or FILE; - reads standard input) as the client does and print "
         "the effective policy: the file's path and presence, its version, every setting in "
         "catalogue order and the authorized servers; with --origin, where each value comes "
         "from. A file that cannot be parsed exits 2 after saying what the client holds: the "
         "defaults and what was read before the error, which are printed too.",
         COMMAND_INSTALL_DIR | COMMAND_JSON, CreateShowCommand, kShowResultSchema},
        {"check",
         "Lint policy files (default: the install directory's; - reads standard input): report, "
         "with line and column, every place where the client will not do what a file seems to "
         "say, and unsafe ownership or permissions of the file and the directories above it.",
         COMMAND_INSTALL_DIR | COMMAND_JSON, CreateCheckCommand, kCheckResultSchema},
        {"diff",
         "Compare two policy files as the client reads them (with one FILE, the install "
         "directory's file against it; - reads standard input): one line per setting whose "
         "effective value differs, with both values and both origins. A reordered, re-indented or "
         "commented file that the client reads alike is the same policy; the version is reported "
         "but is no difference. Exit 0: the same, 1: different.",
         COMMAND_INSTALL_DIR | COMMAND_JSON, CreateDiffCommand, kDiffResultSchema},
        {"comply",
         "Judge policy files (default: the install directory's, a missing one read as the "
         "defaults) against a baseline (qnpolicy-baseline(5)): each rule's verdict, pass, fail "
         "with the expected value, the actual value and the element it comes from, or waived "
         "with the waiver's reason and last day, and file-safety, the audit of who can change the "
         "file. Exit 0: compliant, 1: not compliant, 65: a malformed baseline. "
         "--format=prometheus prints the verdict on one file as metrics for node_exporter's "
         "textfile collector (qnpolicy-metrics.service runs it every five minutes once its "
         "timer is enabled); with --output they are stored atomically and the run exits 0 "
         "whatever the verdict.",
         COMMAND_INSTALL_DIR | COMMAND_JSON, CreateComplyCommand, kComplyResultSchema},
        {"scap",
         "Print a baseline (qnpolicy-baseline(5)) as SCAP content for oscap: one SCAP 1.3 source "
         "data stream with an XCCDF 1.2 benchmark, one rule per setting plus the rule that the "
         "file is in the form the client reads plainly, and the OVAL checks of the install "
         "directory's policy file; with --tailoring, the waivers that hold today as an XCCDF "
         "tailoring file. Exit 65: a malformed baseline.",
         COMMAND_INSTALL_DIR, CreateScapCommand, nullptr},
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

void BuildCommandLine(CommandLine& line, const CommandInfo* pOnly) {
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
        std::unique_ptr<CCommand> pCommand = info.create();
        const bool bComplete = pOnly == nullptr || pOnly == &info;
        if (bComplete) {
            addSharedOptions(line, *command, info.flags);
            COptionList options;
            pCommand->AddOptions(options);
            addDeclaredOptions(line, *command, options);
        }
        command->allow_extras(false);
        line.commands.push_back(CommandLine::Entry{&info, command, std::move(pCommand), bComplete});
    }
    // Left-over words of the main command are an unknown subcommand or option, reported with
    // a suggestion instead of CLI11's generic message.
    line.app.allow_extras(true);
    const auto formatter = std::make_shared<CUsageFormatter>(line);
    line.app.formatter(formatter);
    for (CommandLine::Entry& entry : line.commands) {
        entry.pApp->formatter(formatter);
    }
}

namespace {

// A setting the client reads differently in two policies (diff, generate --diff): both
// values with their origins, and for the server list where it first differs.
constexpr char kChangeSchema[] = R"({
    "type": "object",
    "required": ["setting", "old", "new"],
    "properties": {
        "setting": {"type": "string"},
        "old": {"$ref": "#/$defs/changeSide"},
        "new": {"$ref": "#/$defs/changeSide"},
        "firstDifference": {
            "type": "object",
            "required": ["index", "old", "new"],
            "properties": {
                "index": {"type": "integer", "minimum": 0},
                "old": {"oneOf": [{"type": "null"}, {"$ref": "#/$defs/changeSide"}]},
                "new": {"oneOf": [{"type": "null"}, {"$ref": "#/$defs/changeSide"}]}
            },
            "additionalProperties": false
        }
    },
    "additionalProperties": false
})";
constexpr char kChangeSideSchema[] = R"({
    "type": "object",
    "required": ["value", "origin"],
    "properties": {
        "value": {"$ref": "#/$defs/settingValue"},
        "origin": {"$ref": "#/$defs/position"}
    },
    "additionalProperties": false
})";

// The object every command prints with --json when it fails before it has a result, and the
// error inside it.
constexpr char kErrorSchema[] = R"({
    "type": "object",
    "required": ["kind", "message"],
    "properties": {
        "kind": {"enum": ["usage", "no-such-file", "no-such-directory", "unreadable", "refused",
                          "unsafe-directory", "unsafe-file", "not-regular-file",
                          "cannot-create", "io-error", "locked", "changed-meanwhile",
                          "internal"]},
        "message": {"type": "string"},
        "line": {"type": "integer", "minimum": 0},
        "column": {"type": "integer", "minimum": 0},
        "consequence": {"type": "string"}
    },
    "additionalProperties": false
})";
// A write's audit record (generate, set, unset, edit): whether the system logger took it.
constexpr char kAuditSchema[] = R"({
    "type": "object",
    "required": ["delivered"],
    "properties": {"delivered": {"type": "boolean"}, "failure": {"type": "string"}},
    "additionalProperties": false
})";
// Where an element starts in its file; null for a default, which no element gave.
constexpr char kPositionSchema[] = R"({
    "oneOf": [
        {"type": "null"},
        {"type": "object",
         "required": ["line", "column"],
         "properties": {"line": {"type": "integer", "minimum": 1},
                        "column": {"type": "integer", "minimum": 1}},
         "additionalProperties": false}
    ]
})";
// A setting's effective value: on/off, one text, or a list of texts (the servers).
constexpr char kSettingValueSchema[] = R"({
    "anyOf": [{"type": "boolean"}, {"type": "string"},
              {"type": "array", "items": {"type": "string"}}]
})";
// show --origin's settings: each with its value, origin, when a change takes effect and every
// element that contributed; the server list with one origin per server.
constexpr char kOriginSettingsSchema[] = R"({
    "type": "object",
    "additionalProperties": {
        "type": "object",
        "required": ["value", "origin", "takesEffect", "contributors"],
        "properties": {
            "value": {"$ref": "#/$defs/settingValue"},
            "origin": {"$ref": "#/$defs/position"},
            "takesEffect": {"enum": ["next-load", "next-start"]},
            "contributors": {"type": "array", "items": {
                "type": "object",
                "required": ["element", "line", "column", "text", "contribution"],
                "properties": {
                    "element": {"type": "string"},
                    "line": {"type": "integer", "minimum": 1},
                    "column": {"type": "integer", "minimum": 1},
                    "text": {"type": "string"},
                    "contribution": {"enum": ["sets", "adds", "overridden", "unchanged",
                                              "forces"]}
                },
                "additionalProperties": false}},
            "omittedContributors": {"type": "integer", "minimum": 1},
            "valueOrigins": {"type": "array", "items": {"$ref": "#/$defs/position"}}
        },
        "additionalProperties": false
    }
})";

// An argument generate, set or unset skipped, and why.
constexpr char kSkippedArgumentSchema[] = R"({
    "type": "object",
    "required": ["argument", "kind", "message"],
    "properties": {
        "argument": {"type": "string"},
        "kind": {"enum": ["invalid-argument", "empty-value", "unknown-abbreviation",
                          "value-not-allowed", "server-name", "duplicate-argument"]},
        "message": {"type": "string"}
    },
    "additionalProperties": false
})";

// One attribute of the policy file a writer repaired: what it was and what it is now.
constexpr char kRepairSchema[] = R"({
    "type": "object",
    "required": ["attribute", "was", "now"],
    "properties": {
        "attribute": {"enum": ["owner", "group", "mode", "acl", "links"]},
        "was": {"type": "string"},
        "now": {"type": "string"}
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
        "policyFile": {"type": "string"},
        "settings": {
            "description": "show: what the client holds after the error, which it keeps: the defaults and the settings read before it, with --origin where each comes from",
            "anyOf": [{"type": "object", "additionalProperties": {"$ref": "#/$defs/settingValue"}},
                      {"$ref": "#/$defs/originSettings"}]}
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
    nlohmann::ordered_json result = nlohmann::ordered_json::parse(command.resultSchema);
    // A result's own definitions join the shared ones, where its references find them.
    nlohmann::ordered_json definitions = nlohmann::ordered_json::object();
    if (result.contains("$defs")) {
        definitions = result["$defs"];
        result.erase("$defs");
    }
    schema["oneOf"] = {result, {{"$ref", "#/$defs/errorDocument"}}};
    schema["$defs"]["errorDocument"] = nlohmann::ordered_json::parse(kErrorDocumentSchema);
    schema["$defs"]["error"] = nlohmann::ordered_json::parse(kErrorSchema);
    schema["$defs"]["finding"] = nlohmann::ordered_json::parse(kFindingSchema);
    schema["$defs"]["position"] = nlohmann::ordered_json::parse(kPositionSchema);
    schema["$defs"]["settingValue"] = nlohmann::ordered_json::parse(kSettingValueSchema);
    schema["$defs"]["originSettings"] = nlohmann::ordered_json::parse(kOriginSettingsSchema);
    schema["$defs"]["change"] = nlohmann::ordered_json::parse(kChangeSchema);
    schema["$defs"]["changeSide"] = nlohmann::ordered_json::parse(kChangeSideSchema);
    schema["$defs"]["audit"] = nlohmann::ordered_json::parse(kAuditSchema);
    schema["$defs"]["skippedArgument"] = nlohmann::ordered_json::parse(kSkippedArgumentSchema);
    schema["$defs"]["repair"] = nlohmann::ordered_json::parse(kRepairSchema);
    for (const auto& [name, definition] : definitions.items()) {
        schema["$defs"][name] = definition;
    }
    return schema.dump(2) + "\n";
}

std::string Synopsis(const CommandLine& line, const CommandLine::Entry& entry) {
    std::string synopsis = std::string("qnpolicy ") + entry.pInfo->name + " [OPTIONS]";
    // In declaration order; an option that excludes one already listed joins its brackets.
    std::vector<std::vector<const CLI::Option*>> groups;
    std::string positionals;
    for (const CLI::Option* option : entry.pApp->get_options()) {
        if (option->get_positional()) {
            positionals += " " + positionalUsage(option);
            continue;
        }
        if (isSharedOption(line, option)) {
            continue;
        }
        const auto excluded = [option](const std::vector<const CLI::Option*>& group) {
            return std::any_of(group.begin(), group.end(), [option](const CLI::Option* other) {
                const std::set<CLI::Option*> excludes = option->get_excludes();
                return excludes.count(const_cast<CLI::Option*>(other)) != 0;
            });
        };
        const auto group = std::find_if(groups.begin(), groups.end(), excluded);
        if (group == groups.end()) {
            groups.push_back({option});
        } else {
            group->push_back(option);
        }
    }
    for (const std::vector<const CLI::Option*>& group : groups) {
        std::vector<std::string> usages;
        usages.reserve(group.size());
        for (const CLI::Option* option : group) {
            usages.push_back(optionUsage(option));
        }
        // A required option stands without brackets.
        const bool bRequired = group.size() == 1 && group.front()->get_required();
        synopsis += bRequired ? " " + usages.front() : " [" + Join(usages, " | ") + "]";
        synopsis += group.front()->get_items_expected_max() > 1 ? "..." : "";
    }
    return synopsis + positionals;
}

std::string UsageText(const CommandLine& line) {
    std::string text;
    for (const CommandLine::Entry& entry : line.commands) {
        text += wrapped(Synopsis(line, entry),
                        std::string("qnpolicy  ").size() + std::string(entry.pInfo->name).size());
    }
    return text + "qnpolicy --version | --help | SUBCOMMAND --help\n";
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

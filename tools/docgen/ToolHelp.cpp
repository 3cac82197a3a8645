// SPDX-License-Identifier: Apache-2.0
#include "ToolHelp.h"

#include "CommandLine.h"
#include "QnBuildConfig.h"

namespace qndocgen {

namespace {

using qnpolicy::tool::CommandLine;

// The options and positionals of one CLI11 command, in the order it declares them.
ToolCommand describe(const CLI::App& app, const CommandLine& line, const std::string& name) {
    ToolCommand command;
    command.name = name;
    command.description = app.get_description();
    for (char& character : command.description) {
        character = character == '\n' ? ' ' : character;
    }
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) {
            ToolPositional positional;
            positional.name = option->get_name(true);
            positional.argument = option->get_type_name();
            positional.bRepeated = option->get_items_expected_max() > 1;
            positional.description = option->get_description();
            command.positionals.push_back(positional);
            continue;
        }
        ToolOption described;
        for (const std::string& shortName : option->get_snames()) {
            described.names.push_back("-" + shortName);
        }
        for (const std::string& longName : option->get_lnames()) {
            described.names.push_back("--" + longName);
        }
        if (option->get_type_size() != 0) {
            const std::string type = option->get_type_name();
            described.argument = type.substr(0, type.find(':'));  // without its checks
        }
        const auto choices = line.choices.find(option);
        if (choices != line.choices.end()) {
            described.choices = choices->second;
        }
        described.defaultValue = option->get_default_str();
        described.description = option->get_description();
        command.options.push_back(described);
    }
    return command;
}

}  // namespace

ToolHelp DescribeTool() {
    CommandLine line;
    qnpolicy::tool::BuildCommandLine(line);
    ToolHelp help;
    help.version = "qnpolicy " QN_CLIENT_VERSION;
    help.tool = describe(line.app, line, std::string());
    help.tool.usage = "qnpolicy --version | --help | SUBCOMMAND --help";
    for (const CommandLine::Entry& entry : line.commands) {
        help.subcommands.push_back(describe(*entry.pApp, line, entry.pInfo->name));
        help.subcommands.back().usage = qnpolicy::tool::Synopsis(line, entry);
    }
    for (const qnpolicy::tool::ExitCodeInfo& exitCode : qnpolicy::tool::kExitCodes) {
        help.exitCodes.push_back({std::to_string(exitCode.code), exitCode.meaning});
    }
    return help;
}

}  // namespace qndocgen

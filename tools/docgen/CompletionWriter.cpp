#include "CompletionWriter.h"

#include <string>
#include <vector>

#include "LocalPolicyKinds.h"
#include "LocalPolicySettings.h"

namespace qndocgen {

namespace {

// The type names after which the tool takes a directory or a file name.
constexpr char kDirectoryType[] = "DIR";
constexpr char kFileType[] = "FILE";
// The positional type of generate's installer arguments.
constexpr char kInstallerArgumentType[] = "ABBREV=VALUE";

// A word list for compgen -W, single-quoted for the shell.
std::string wordList(const std::vector<std::string>& words) {
    std::string list;
    for (const std::string& word : words) {
        list += (list.empty() ? "" : " ") + word;
    }
    std::string quoted = "'";
    for (const char character : list) {
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return quoted + "'";
}

std::vector<std::string> optionWords(const ToolCommand& command) {
    std::vector<std::string> words;
    for (const ToolOption& option : command.options) {
        words.insert(words.end(), option.names.begin(), option.names.end());
    }
    return words;
}

// The case patterns "SUBCOMMAND PREVIOUS-WORD" of every option taking a value, with the
// completion of that value.
void writeOptionValues(const ToolCommand& command, std::ostream& out) {
    for (const ToolOption& option : command.options) {
        if (option.argument.empty()) {
            continue;
        }
        for (const std::string& name : option.names) {
            out << "        '" << command.name << " " << name << "')\n";
            if (!option.choices.empty()) {
                out << "            COMPREPLY=($(compgen -W " << wordList(option.choices)
                    << " -- \"$cur\"))\n";
            } else if (option.argument == kDirectoryType) {
                out << "            _filedir -d\n";
            } else if (option.argument == kFileType) {
                out << "            _filedir\n";
            }
            out << "            return\n"
                << "            ;;\n";
        }
    }
}

// What the words after a subcommand's options are: installer arguments, file names, or
// nothing to offer.
void writeOperands(const ToolCommand& command, std::ostream& out) {
    for (const ToolPositional& positional : command.positionals) {
        if (positional.argument == kInstallerArgumentType) {
            out << "        " << command.name << ")\n"
                << "            _qnpolicy_installer_argument\n"
                << "            ;;\n";
            return;
        }
        if (positional.argument == kFileType) {
            out << "        " << command.name << ")\n"
                << "            _filedir\n"
                << "            ;;\n";
            return;
        }
    }
}

void writeInstallerArguments(std::ostream& out) {
    std::vector<std::string> abbreviations;
    out << "# The allowed values of an installer abbreviation; none where any text is taken.\n"
        << "_qnpolicy_allowed_values()\n{\n"
        << "    case $1 in\n";
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        if (setting.abbreviation.empty()) {
            continue;
        }
        abbreviations.push_back(setting.abbreviation);
        if (!setting.allowedValues.empty()) {
            out << "        " << setting.abbreviation << ") echo "
                << wordList(qnpolicy::WrittenValues(setting)) << " ;;\n";
        }
    }
    out << "    esac\n}\n\n"
        << "# ABBREV= from the vocabulary, then the abbreviation's allowed values. \"=\" "
           "separates\n"
        << "# words for readline, so a value is offered without its \"ABBREV=\".\n"
        << "_qnpolicy_installer_argument()\n{\n"
        << "    if [[ $cur == *=* ]]; then\n"
        << "        local abbreviation=${cur%%=*}\n"
        << "        COMPREPLY=($(compgen -W \"$(_qnpolicy_allowed_values \"$abbreviation\")\" -- "
           "\"${cur#*=}\"))\n"
        << "    else\n"
        << "        COMPREPLY=($(compgen -S = -W " << wordList(abbreviations) << " -- \"$cur\"))\n"
        << "        compopt -o nospace\n"
        << "    fi\n}\n\n";
}

}  // namespace

void WriteBashCompletion(const ToolHelp& help, std::ostream& out) {
    std::vector<std::string> subcommands;
    std::string subcommandPattern;
    for (const ToolCommand& command : help.subcommands) {
        subcommands.push_back(command.name);
        subcommandPattern += (subcommandPattern.empty() ? "" : "|") + command.name;
    }
    out << "# bash completion for qnpolicy                             -*- shell-script -*-\n"
        << "# Generated from " << help.version
        << " --help and the settings catalogue; do not edit.\n\n";
    writeInstallerArguments(out);
    out << "_qnpolicy()\n{\n"
        << "    local cur prev words cword\n"
        << "    _init_completion -n = || return\n\n"
        << "    local subcommand='' i\n"
        << "    for ((i = 1; i < cword; i++)); do\n"
        << "        case ${words[i]} in\n"
        << "            " << subcommandPattern << ")\n"
        << "                subcommand=${words[i]}\n"
        << "                break\n"
        << "                ;;\n"
        << "        esac\n"
        << "    done\n\n"
        << "    case \"$subcommand $prev\" in\n";
    writeOptionValues(help.tool, out);
    for (const ToolCommand& command : help.subcommands) {
        writeOptionValues(command, out);
    }
    out << "    esac\n\n"
        << "    if [[ $cur == -* ]]; then\n"
        << "        case $subcommand in\n"
        << "            '') COMPREPLY=($(compgen -W " << wordList(optionWords(help.tool))
        << " -- \"$cur\")) ;;\n";
    for (const ToolCommand& command : help.subcommands) {
        out << "            " << command.name << ") COMPREPLY=($(compgen -W "
            << wordList(optionWords(command)) << " -- \"$cur\")) ;;\n";
    }
    out << "        esac\n"
        << "        return\n"
        << "    fi\n\n"
        << "    case $subcommand in\n"
        << "        '')\n"
        << "            COMPREPLY=($(compgen -W " << wordList(subcommands) << " -- \"$cur\"))\n"
        << "            ;;\n";
    for (const ToolCommand& command : help.subcommands) {
        writeOperands(command, out);
    }
    out << "    esac\n"
        << "} &&\n"
        << "    complete -F _qnpolicy qnpolicy\n\n"
        << "# ex: filetype=sh\n";
}

}  // namespace qndocgen

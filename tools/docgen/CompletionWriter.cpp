// SPDX-License-Identifier: Apache-2.0
#include "CompletionWriter.h"

#include <cctype>
#include <cstddef>
#include <string>
#include <vector>

#include "LocalPolicyKinds.h"
#include "LocalPolicySettings.h"
#include "MessageText.h"

namespace qndocgen {

namespace {

// The type names after which the tool takes a directory or a file name.
constexpr char kDirectoryType[] = "DIR";
constexpr char kFileType[] = "FILE";
// The baseline comply reads, a file name too.
constexpr char kBaselineType[] = "BASELINE";

// Whether an option's argument is a file name.
bool takesFileName(const std::string& argument) {
    return argument == kFileType || argument == kBaselineType;
}
// The positional type of generate's installer arguments.
constexpr char kInstallerArgumentType[] = "ABBREV=VALUE";
// The positional type of a setting named by its element (show --origin).
constexpr char kSettingType[] = "SETTING";
// The positional type of unset's abbreviations.
constexpr char kAbbreviationType[] = "ABBREV";

// Text in single quotes for bash or zsh: taken literally, a quote included.
std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char character : text) {
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return quoted + "'";
}

std::string joined(const std::vector<std::string>& words) {
    return qnpolicy::Join(words, " ");
}

// A word list for compgen -W, single-quoted for the shell.
std::string wordList(const std::vector<std::string>& words) {
    return shellQuoted(joined(words));
}

// The first sentence of a description, without its full stop, for a one-line list entry: a
// sentence ends at a stop followed by a space and a capital letter, so "e.g. file-owner" does
// not end one.
std::string firstSentence(const std::string& text) {
    for (std::size_t i = 0; i + 2 < text.size(); ++i) {
        if (text[i] == '.' && text[i + 1] == ' ' &&
            std::isupper(static_cast<unsigned char>(text[i + 2])) != 0) {
            return text.substr(0, i);
        }
    }
    return !text.empty() && text.back() == '.' ? text.substr(0, text.size() - 1) : text;
}

// The settings an installer argument can name, in vocabulary order.
std::vector<const LocalPolicySettingInfo*> installerSettings() {
    std::vector<const LocalPolicySettingInfo*> settings;
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        if (!setting.abbreviation.empty()) {
            settings.push_back(&setting);
        }
    }
    return settings;
}

// The installer abbreviations, in vocabulary order.
std::vector<std::string> abbreviationWords() {
    std::vector<std::string> words;
    for (const LocalPolicySettingInfo* setting : installerSettings()) {
        words.push_back(setting->abbreviation);
    }
    return words;
}

// For each installer setting whose values the vocabulary restricts, in vocabulary order: its
// abbreviation and the values generation writes for it, each quoted by quote and the values
// joined by blanks; the case arms of the zsh and fish completions.
struct QuotedValues {
    std::string abbreviation;
    std::string values;
};
std::vector<QuotedValues> restrictedValues(std::string (*quote)(const std::string&)) {
    std::vector<QuotedValues> arms;
    for (const LocalPolicySettingInfo* setting : installerSettings()) {
        if (setting->allowedValues.empty()) {
            continue;
        }
        std::vector<std::string> values;
        for (const std::string& value : qnpolicy::WrittenValues(*setting)) {
            values.push_back(quote(value));
        }
        arms.push_back({quote(setting->abbreviation), joined(values)});
    }
    return arms;
}

// The element names a SETTING operand is offered: every setting's but the server name's,
// which names the server list's.
std::vector<std::string> settingNames() {
    std::vector<std::string> names;
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        if (setting.kind != LocalPolicySettingKind::SERVER_NAME) {
            names.push_back(setting.element);
        }
    }
    return names;
}

// What a subcommand's operands take: installer arguments, file names, setting names.
struct Operands {
    bool bInstallerArguments = false;
    bool bFiles = false;
    bool bSettings = false;
    bool bAbbreviations = false;
};
Operands operandsOf(const ToolCommand& command) {
    Operands operands;
    for (const ToolPositional& positional : command.positionals) {
        operands.bInstallerArguments |= positional.argument == kInstallerArgumentType;
        operands.bFiles |= positional.argument == kFileType;
        operands.bSettings |= positional.argument == kSettingType;
        operands.bAbbreviations |= positional.argument == kAbbreviationType;
    }
    return operands;
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
            } else if (takesFileName(option.argument)) {
                out << "            _filedir\n";
            }
            out << "            return\n"
                << "            ;;\n";
        }
    }
}

// What the words after a subcommand's options are: installer arguments, file names, setting
// names, or nothing to offer. A word that names a setting is one, any other a file, so where
// both are taken both are offered.
void writeOperands(const ToolCommand& command, std::ostream& out) {
    const Operands operands = operandsOf(command);
    if (!operands.bInstallerArguments && !operands.bFiles && !operands.bSettings &&
        !operands.bAbbreviations) {
        return;
    }
    out << "        " << command.name << ")\n";
    if (operands.bInstallerArguments) {
        out << "            _qnpolicy_installer_argument\n";
    }
    if (operands.bFiles) {
        out << "            _filedir\n";
    }
    if (operands.bSettings) {
        out << "            COMPREPLY+=($(compgen -W " << wordList(settingNames())
            << " -- \"$cur\"))\n";
    }
    if (operands.bAbbreviations) {
        out << "            COMPREPLY+=($(compgen -W " << wordList(abbreviationWords())
            << " -- \"$cur\"))\n";
    }
    out << "            ;;\n";
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

// --- zsh

// The text with a backslash before each character that compsys would read as syntax there, and
// before each backslash.
std::string zshEscaped(const std::string& text, const std::string& special) {
    std::string escaped;
    for (const char character : text) {
        if (character == '\\' || special.find(character) != std::string::npos) {
            escaped += '\\';
        }
        escaped += character;
    }
    return escaped;
}

// The _arguments action completing an option's value: its choices, directories, file names,
// or only the value's type name as a message.
std::string zshValueAction(const ToolOption& option) {
    if (!option.choices.empty()) {
        std::vector<std::string> choices;
        for (const std::string& choice : option.choices) {
            choices.push_back(zshEscaped(choice, " ()'\""));
        }
        return "(" + joined(choices) + ")";
    }
    if (option.argument == kDirectoryType) {
        return "_files -/";
    }
    if (takesFileName(option.argument)) {
        return "_files";
    }
    return " ";
}

// One _arguments entry per option name. "*" offers an option again after it was given, as the
// bash completion does (--ignore repeats); a long option's value may follow "=" or a space.
void writeZshOptionEntries(const ToolCommand& command, const std::string& indent,
                           std::ostream& out) {
    for (const ToolOption& option : command.options) {
        for (const std::string& name : option.names) {
            std::string entry = "*" + name;
            if (!option.argument.empty()) {
                entry += name.rfind("--", 0) == 0 ? "=" : "+";
            }
            entry += "[" + zshEscaped(firstSentence(option.description), "]") + "]";
            if (!option.argument.empty()) {
                entry += ":" + zshEscaped(option.argument, ":") + ":" + zshValueAction(option);
            }
            out << indent << shellQuoted(entry) << " \\\n";
        }
    }
}

// The _arguments entries of a subcommand's operands: installer arguments, file names, or only
// their type name as a message.
void writeZshOperandEntries(const ToolCommand& command, const std::string& indent,
                            std::ostream& out) {
    const Operands operands = operandsOf(command);
    for (const ToolPositional& positional : command.positionals) {
        std::string action = " ";
        if (positional.argument == kInstallerArgumentType) {
            action = "_qnpolicy_installer_argument";
        } else if (operands.bFiles && operands.bSettings &&
                   (positional.argument == kFileType || positional.argument == kSettingType)) {
            action = "_qnpolicy_file_or_setting";
        } else if (positional.argument == kFileType) {
            action = "_files";
        } else if (positional.argument == kAbbreviationType) {
            action = "(" + joined(abbreviationWords()) + ")";
        }
        out << indent
            << shellQuoted(std::string(positional.bRepeated ? "*" : "") + ":" +
                           zshEscaped(positional.argument, ":") + ":" + action)
            << " \\\n";
    }
}

void writeZshInstallerArguments(std::ostream& out) {
    out << "# An installer argument: ABBREV= from the vocabulary, then the abbreviation's allowed\n"
        << "# values; only a message where any text is taken.\n"
        << "_qnpolicy_installer_argument() {\n"
        << "    local -a expl values abbreviations\n"
        << "    if [[ $PREFIX == *=* ]]; then\n"
        << "        local abbreviation=${PREFIX%%=*}\n"
        << "        compset -P \"${(b)abbreviation}=\"\n"
        << "        case $abbreviation in\n";
    for (const QuotedValues& arm : restrictedValues(shellQuoted)) {
        out << "            (" << arm.abbreviation << ") values=(" << arm.values << ") ;;\n";
    }
    out << "        esac\n"
        << "        if (( $#values )); then\n"
        << "            _wanted values expl \"value of $abbreviation\" compadd -a values\n"
        << "        else\n"
        << "            _message -e values \"value of $abbreviation\"\n"
        << "        fi\n"
        << "    else\n"
        << "        abbreviations=(\n";
    for (const LocalPolicySettingInfo* setting : installerSettings()) {
        out << "            "
            << shellQuoted(zshEscaped(setting->abbreviation, ":") +
                           "=:" + firstSentence(setting->description))
            << "\n";
    }
    out << "        )\n"
        << "        _describe -t abbreviations 'installer abbreviation' abbreviations -S ''\n"
        << "    fi\n"
        << "}\n\n"
        << "# A file, or a setting named by its element: a word that names a setting is one.\n"
        << "_qnpolicy_file_or_setting() {\n"
        << "    local -a expl settings=(" << joined(settingNames()) << ")\n"
        << "    _alternative 'files:file:_files' \\\n"
        << "        'settings:setting:compadd -a settings'\n"
        << "}\n\n";
}

// --- fish

// Text in single quotes for fish, where a backslash escapes a quote or a backslash.
std::string fishQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char character : text) {
        if (character == '\\' || character == '\'') {
            quoted += '\\';
        }
        quoted += character;
    }
    return quoted + "'";
}

// The complete options naming an option: -s for "-h", -l for "--help", -o for "-long".
std::string fishOptionNames(const ToolOption& option) {
    std::string names;
    for (const std::string& name : option.names) {
        if (name.rfind("--", 0) == 0) {
            names += " -l " + fishQuoted(name.substr(2));
        } else if (name.size() == 2) {
            names += " -s " + fishQuoted(name.substr(1));
        } else {
            names += " -o " + fishQuoted(name.substr(1));
        }
    }
    return names;
}

// The condition of a command's completions: no subcommand yet, or this one.
std::string fishCondition(const ToolCommand& command) {
    return fishQuoted("__qnpolicy_using" +
                      (command.name.empty() ? std::string() : " " + command.name));
}

void writeFishOptions(const ToolCommand& command, std::ostream& out) {
    const std::string condition = fishCondition(command);
    for (const ToolOption& option : command.options) {
        out << "complete -c qnpolicy -n " << condition << fishOptionNames(option);
        if (!option.choices.empty()) {
            out << " -x -a " << fishQuoted(joined(option.choices));
        } else if (option.argument == kDirectoryType) {
            out << " -x -a '(__fish_complete_directories)'";
        } else if (takesFileName(option.argument)) {
            out << " -r -F";
        } else if (!option.argument.empty()) {
            out << " -x";
        }
        out << " -d " << fishQuoted(firstSentence(option.description)) << "\n";
    }
}

void writeFishOperands(const ToolCommand& command, std::ostream& out) {
    const Operands operands = operandsOf(command);
    if (operands.bInstallerArguments) {
        out << "complete -c qnpolicy -n " << fishCondition(command)
            << " -a '(__qnpolicy_installer_argument)'\n";
    }
    if (operands.bFiles) {
        out << "complete -c qnpolicy -n " << fishCondition(command) << " -F\n";
    }
    if (operands.bSettings) {
        out << "complete -c qnpolicy -n " << fishCondition(command) << " -a "
            << fishQuoted(joined(settingNames())) << " -d setting\n";
    }
    if (operands.bAbbreviations) {
        out << "complete -c qnpolicy -n " << fishCondition(command) << " -a "
            << fishQuoted(joined(abbreviationWords())) << " -d abbreviation\n";
    }
}

void writeFishInstallerArguments(std::ostream& out) {
    out << "# An installer argument: ABBREV= from the vocabulary, then the abbreviation's allowed\n"
        << "# values; none where any text is taken.\n"
        << "function __qnpolicy_installer_argument\n"
        << "    set -l token (commandline -ct)\n"
        << "    if string match -q -- '*=*' $token\n"
        << "        set -l abbreviation (string split -m 1 -- = $token)[1]\n"
        << "        set -l values\n"
        << "        switch $abbreviation\n";
    for (const QuotedValues& arm : restrictedValues(fishQuoted)) {
        out << "            case " << arm.abbreviation << "\n"
            << "                set values " << arm.values << "\n";
    }
    out << "        end\n"
        << "        printf '%s\\n' $abbreviation=$values\n"
        << "    else\n"
        << "        printf '%s\\t%s\\n' \\\n";
    const std::vector<const LocalPolicySettingInfo*> settings = installerSettings();
    for (std::size_t i = 0; i < settings.size(); ++i) {
        out << "            " << fishQuoted(settings[i]->abbreviation + "=") << " "
            << fishQuoted(firstSentence(settings[i]->description))
            << (i + 1 < settings.size() ? " \\\n" : "\n");
    }
    out << "    end\n"
        << "end\n\n";
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

void WriteZshCompletion(const ToolHelp& help, std::ostream& out) {
    out << "#compdef qnpolicy\n"
        << "# zsh completion for qnpolicy\n"
        << "# Generated from " << help.version
        << " --help and the settings catalogue; do not edit.\n\n";
    writeZshInstallerArguments(out);
    out << "_qnpolicy() {\n"
        << "    local curcontext=$curcontext state state_descr line ret=1\n"
        << "    local -A opt_args\n"
        << "    local -a subcommands=(\n";
    for (const ToolCommand& command : help.subcommands) {
        out << "        "
            << shellQuoted(zshEscaped(command.name, ":") + ":" + firstSentence(command.description))
            << "\n";
    }
    out << "    )\n\n"
        << "    # The tool's options, then a subcommand; the words after it, options included\n"
        << "    # (-A), are the subcommand's.\n"
        << "    _arguments -C -A '-*' \\\n";
    writeZshOptionEntries(help.tool, "        ", out);
    out << "        ': :->subcommand' \\\n"
        << "        '*:: :->argument' && ret=0\n\n"
        << "    case $state in\n"
        << "        (subcommand)\n"
        << "            _describe -t subcommands 'qnpolicy subcommand' subcommands && ret=0\n"
        << "            ;;\n"
        << "        (argument)\n"
        << "            curcontext=${curcontext%:*:*}:qnpolicy-$words[1]:\n"
        << "            case $words[1] in\n";
    for (const ToolCommand& command : help.subcommands) {
        out << "                (" << shellQuoted(command.name) << ")\n"
            << "                    _arguments \\\n";
        writeZshOptionEntries(command, "                        ", out);
        writeZshOperandEntries(command, "                        ", out);
        out << "                        && ret=0\n"
            << "                    ;;\n";
    }
    out << "            esac\n"
        << "            ;;\n"
        << "    esac\n"
        << "    return ret\n"
        << "}\n\n"
        << "# Autoloaded from $fpath, the file is the function's body; sourced, it registers it.\n"
        << "if [[ $funcstack[1] == _qnpolicy ]]; then\n"
        << "    _qnpolicy \"$@\"\n"
        << "else\n"
        << "    compdef _qnpolicy qnpolicy\n"
        << "fi\n";
}

void WriteFishCompletion(const ToolHelp& help, std::ostream& out) {
    std::vector<std::string> subcommands;
    for (const ToolCommand& command : help.subcommands) {
        subcommands.push_back(fishQuoted(command.name));
    }
    out << "# fish completion for qnpolicy\n"
        << "# Generated from " << help.version
        << " --help and the settings catalogue; do not edit.\n\n"
        << "# Whether the command line's subcommand is $argv[1], or, without an argument, that it\n"
        << "# has none yet.\n"
        << "function __qnpolicy_using\n"
        << "    set -l subcommand ''\n"
        << "    for word in (commandline -opc)[2..-1]\n"
        << "        if contains -- $word " << joined(subcommands) << "\n"
        << "            set subcommand $word\n"
        << "            break\n"
        << "        end\n"
        << "    end\n"
        << "    test \"$subcommand\" = \"$argv[1]\"\n"
        << "end\n\n";
    writeFishInstallerArguments(out);
    out << "# No file names but where a file is taken.\n"
        << "complete -c qnpolicy -f\n\n"
        << "# The subcommands and the tool's options before one.\n";
    for (const ToolCommand& command : help.subcommands) {
        out << "complete -c qnpolicy -n " << fishCondition(help.tool) << " -a "
            << fishQuoted(command.name) << " -d " << fishQuoted(firstSentence(command.description))
            << "\n";
    }
    writeFishOptions(help.tool, out);
    for (const ToolCommand& command : help.subcommands) {
        out << "\n# " << command.name << "\n";
        writeFishOptions(command, out);
        writeFishOperands(command, out);
    }
}

}  // namespace qndocgen

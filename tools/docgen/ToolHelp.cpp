#include "ToolHelp.h"

#include <sys/wait.h>

#include <cstdio>
#include <sstream>

namespace qndocgen {

namespace {

constexpr char kUsagePrefix[] = "Usage: ";
constexpr char kEntryIndent[] = "  ";
constexpr char kRepeatMark[] = "...";

std::string trim(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        return std::string();
    }
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

void appendSentence(std::string& text, const std::string& more) {
    if (!more.empty()) {
        text += (text.empty() ? "" : " ") + more;
    }
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, separator);) {
        pieces.push_back(piece);
    }
    return pieces;
}

// A section heading: a line that starts in the first column and ends with ':' or is an
// option group's "[Option Group: NAME]".
bool isHeading(const std::string& line) {
    return !line.empty() && line[0] != ' ' && (line.back() == ':' || line[0] == '[');
}

// "TYPE", "TYPE=default", "TYPE:{a,b}=default": the type, its choices and its default.
void parseArgument(const std::string& text, ToolOption& option) {
    const size_t choices = text.find(":{");
    const size_t choicesEnd = text.find('}');
    if (choices != std::string::npos && choicesEnd != std::string::npos) {
        option.argument = text.substr(0, choices);
        option.choices = split(text.substr(choices + 2, choicesEnd - choices - 2), ',');
        if (choicesEnd + 1 < text.size() && text[choicesEnd + 1] == '=') {
            option.defaultValue = text.substr(choicesEnd + 2);
        }
        return;
    }
    const size_t equals = text.find('=');
    option.argument = text.substr(0, equals);
    if (equals != std::string::npos) {
        option.defaultValue = text.substr(equals + 1);
    }
}

// A word the tool's help puts after an option's names that is not its value's type:
// "REQUIRED", "Excludes:", "Needs:".
bool isAnnotation(const std::string& word) {
    return word == "REQUIRED" || (!word.empty() && word.back() == ':');
}

ToolOption parseOption(const std::string& tag) {
    ToolOption option;
    const std::vector<std::string> words = split(tag, ' ');
    option.names = split(words.at(0), ',');
    if (words.size() > 1 && !isAnnotation(words[1])) {
        parseArgument(words[1], option);
    }
    return option;
}

ToolPositional parsePositional(const std::string& tag) {
    ToolPositional positional;
    const std::vector<std::string> words = split(tag, ' ');
    positional.name = words.at(0);
    positional.argument = words.size() > 1 && !isAnnotation(words[1]) ? words[1] : words[0];
    positional.bRepeated = tag.size() >= 3 && tag.compare(tag.size() - 3, 3, kRepeatMark) == 0;
    return positional;
}

// Runs a command; its standard output, or false when it cannot run or exits non-zero.
bool capture(const std::string& command, std::string& output) {
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return false;
    }
    char buffer[4096];
    for (size_t size; (size = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        output.append(buffer, size);
    }
    const int status = ::pclose(pipe);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char character : text) {
        result += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return result + "'";
}

}  // namespace

ToolCommand ParseCommandHelp(const std::string& name, const std::string& helpText,
                             std::vector<std::string>* subcommandNames,
                             std::vector<ToolExitCode>* exitCodes) {
    enum class Section { DESCRIPTION, OPTIONS, POSITIONALS, SUBCOMMANDS, EXIT_CODES, OTHER };
    ToolCommand command;
    command.name = name;
    Section section = Section::DESCRIPTION;
    std::string* lastDescription = nullptr;
    for (const std::string& line : split(helpText, '\n')) {
        if (line.rfind(kUsagePrefix, 0) == 0) {
            command.usage = line.substr(sizeof kUsagePrefix - 1);
            section = Section::OTHER;
            continue;
        }
        if (section == Section::DESCRIPTION) {
            appendSentence(command.description, trim(line));
            continue;
        }
        if (isHeading(line)) {
            section = line == "Options:"       ? Section::OPTIONS
                      : line == "Positionals:" ? Section::POSITIONALS
                      : line == "Subcommands:" ? Section::SUBCOMMANDS
                      : line == "Exit codes:"  ? Section::EXIT_CODES
                                               : Section::OTHER;
            lastDescription = nullptr;
            continue;
        }
        if (line.rfind(kEntryIndent, 0) != 0) {
            lastDescription = nullptr;
            continue;
        }
        if (line.size() > 2 && line[2] == ' ') {
            // A continuation: the description below a long tag, or a wrapped one.
            if (lastDescription != nullptr) {
                appendSentence(*lastDescription, trim(line));
            }
            continue;
        }
        const size_t gap = line.find("  ", 2);
        const std::string tag = trim(line.substr(2, gap == std::string::npos ? gap : gap - 2));
        const std::string description = gap == std::string::npos ? "" : trim(line.substr(gap));
        // An option group's own heading ("[Option Group: ...]", "Output:") lists options too.
        const bool bOption =
            section == Section::OPTIONS || (section == Section::OTHER && tag[0] == '-');
        switch (bOption ? Section::OPTIONS : section) {
            case Section::OPTIONS:
                command.options.push_back(parseOption(tag));
                command.options.back().description = description;
                lastDescription = &command.options.back().description;
                break;
            case Section::POSITIONALS:
                command.positionals.push_back(parsePositional(tag));
                command.positionals.back().description = description;
                lastDescription = &command.positionals.back().description;
                break;
            case Section::SUBCOMMANDS:
                if (subcommandNames != nullptr) {
                    subcommandNames->push_back(tag);
                }
                lastDescription = nullptr;
                break;
            case Section::EXIT_CODES:
                if (exitCodes != nullptr) {
                    exitCodes->push_back({tag, description});
                    lastDescription = &exitCodes->back().meaning;
                }
                break;
            default:
                lastDescription = nullptr;
        }
    }
    return command;
}

bool ReadToolHelp(const std::string& binary, ToolHelp& help, std::string& error) {
    std::string version;
    std::string mainHelp;
    if (!capture(quoted(binary) + " --version", version) ||
        !capture(quoted(binary) + " --help", mainHelp)) {
        error = binary + ": --version or --help failed";
        return false;
    }
    help.version = trim(version.substr(0, version.find('\n')));
    std::vector<std::string> names;
    help.tool = ParseCommandHelp("", mainHelp, &names, &help.exitCodes);
    for (const std::string& name : names) {
        std::string text;
        std::string command = quoted(binary);
        command.append(" ").append(quoted(name)).append(" --help");
        if (!capture(command, text)) {
            error = binary;
            error.append(" ").append(name).append(" --help failed");
            return false;
        }
        help.subcommands.push_back(ParseCommandHelp(name, text, nullptr, nullptr));
    }
    if (help.subcommands.empty()) {
        error = binary + " --help lists no subcommand";
        return false;
    }
    return true;
}

}  // namespace qndocgen

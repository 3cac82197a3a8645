// SPDX-License-Identifier: Apache-2.0
// qnpolicy: the command-line tool for installers and administrators of the local policy. Its
// usage, as --help prints it from the command table (a test holds this copy to it):
//
//   qnpolicy generate [OPTIONS] [--overwrite] [--lenient] [--dry-run | --diff]
//                     [--all-defaults | --args-from FILE] [--allow-unsafe-directory]
//                     [ABBREV=VALUE...]
//   qnpolicy set [OPTIONS] [--force] [--dry-run | --diff] [--allow-unsafe-directory]
//                [--args-from FILE] [ABBREV=VALUE...]
//   qnpolicy unset [OPTIONS] [--force] [--dry-run | --diff]
//                  [--allow-unsafe-directory] [--args-from FILE] [ABBREV...]
//   qnpolicy edit [OPTIONS] [--allow-unsafe-directory]
//   qnpolicy show [OPTIONS] [--origin] [--format FORMAT] [FILE] [SETTING...]
//   qnpolicy check [OPTIONS] [--ignore KIND]... [FILE...]
//   qnpolicy diff [OPTIONS] FILE [FILE]
//   qnpolicy comply [OPTIONS] --baseline BASELINE [--host NAME] [--format FORMAT]
//                   [--output OUTPUT] [FILE...]
//   qnpolicy scap [OPTIONS] --baseline BASELINE [--tailoring] [--host NAME]
//   qnpolicy vocabulary [OPTIONS]
//   qnpolicy schema [OPTIONS] [--json-schema COMMAND]
//   qnpolicy --version | --help | SUBCOMMAND --help
//
// The commands are one table (CommandTable.h); the set-up they share (signals, the checked
// standard output, the log sink, the install directory) is done here, once.

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "MessageText.h"
#include "output/Output.h"

namespace {

using qnpolicy::tool::CCheckedOutputBuffer;
using qnpolicy::tool::CJsonWriter;
using qnpolicy::tool::CommandInfo;
using qnpolicy::tool::CommandLine;
using qnpolicy::tool::CToolContext;

// Whether the command line asks for JSON: --json among the words before "--", and no
// subcommand named that does not take it. Read from the words themselves, so that a command
// line the parser refuses, or a run that ends in an internal error, still prints its object.
bool asksForJson(int argc, char** argv) {
    bool bJson = false;
    for (int i = 1; i < argc && std::string(argv[i]) != "--"; ++i) {
        bJson = bJson || std::string(argv[i]) == "--json";
        for (const CommandInfo& info : qnpolicy::tool::Commands()) {
            if (argv[i] == std::string(info.name) &&
                (info.flags & qnpolicy::tool::COMMAND_JSON) == 0) {
                return false;
            }
        }
    }
    return bJson;
}

// The one JSON object of a run that ends before any subcommand ran.
void printJsonError(const char* kind, const std::string& message) {
    CCheckedOutputBuffer outBuffer(STDOUT_FILENO);
    std::ostream out(&outBuffer);
    CJsonWriter json(out);
    json.BeginObject().Key("formatVersion").Number(1).Key("error").BeginObject();
    json.Key("kind").String(kind).Key("message").String(message);
    json.EndObject().EndObject().Finish();
}

// A usage error found before any subcommand ran: its message on standard error, and with
// --json its object on standard output.
int usageError(const std::string& message, bool bJson) {
    std::cerr << "qnpolicy: " << message << '\n';
    if (bJson) {
        printJsonError(qnpolicy::tool::errorkind::kUsage, message);
    }
    return qnpolicy::tool::kExitUsage;
}

// The usage error for what is left when no subcommand was recognised: an unknown name or
// option, with the nearest known one.
int reportUnknown(const CommandLine& line, bool bJson) {
    const std::vector<std::string>& remaining = line.app.remaining();
    std::vector<std::string> names;
    for (const CommandLine::Entry& entry : line.commands) {
        names.emplace_back(entry.pInfo->name);
    }
    const std::string list = qnpolicy::Join(names, ", ");
    if (remaining.empty()) {
        return usageError("a subcommand is required: " + list + " (qnpolicy --help)", bJson);
    }
    const std::string& word = remaining.front();
    const bool bOption = word.rfind('-', 0) == 0;
    std::vector<std::string> options = {"--help", "--version"};
    for (const CLI::Option* option : line.app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            options.push_back("--" + name);
        }
    }
    const std::string suggestion = qnpolicy::SuggestName(word, bOption ? options : names);
    std::string message = (bOption ? "unknown option '" : "unknown subcommand '") + word + "'";
    if (!suggestion.empty()) {
        message += "; did you mean '" + suggestion + "'?";
    } else if (!bOption) {
        message += "; the subcommands are " + list;
    }
    return usageError(message + " (qnpolicy --help lists the subcommands and options)", bJson);
}

// The subcommand the words name, as the parser will find it: the first word that is a
// subcommand's name and not the value of a main-command option, before any "--"; null when
// there is none.
const CommandInfo* namedCommand(int argc, char** argv) {
    for (int i = 1; i < argc && std::string(argv[i]) != "--"; ++i) {
        const std::string word = argv[i];
        if (word == "--install-dir" || word == "--log") {
            ++i;
            continue;
        }
        for (const CommandInfo& info : qnpolicy::tool::Commands()) {
            if (word == info.name) {
                return &info;
            }
        }
    }
    return nullptr;
}

// The command line parsed with only the named subcommand's options declared; when that parse
// fails or finds another subcommand, parsed again with the whole table, so that what is
// accepted, refused and printed is always the whole table's. Null when the run ends here
// (--help, --version, a usage error) with *pStatus.
std::unique_ptr<CommandLine> parseCommandLine(int argc, char** argv, bool bJson, int* pStatus) {
    const CommandInfo* pOnly = namedCommand(argc, argv);
    for (;;) {
        auto pLine = std::make_unique<CommandLine>();
        qnpolicy::tool::BuildCommandLine(*pLine, pOnly);
        try {
            pLine->app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            if (pOnly != nullptr) {
                pOnly = nullptr;
                continue;
            }
            // --help and --version end here with status 0; every real parse error is a usage
            // error, whatever CLI11's own code for it.
            *pStatus = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)
                           ? pLine->app.exit(error)
                           : usageError(error.what(), bJson);
            return nullptr;
        }
        const auto partial = [](const CommandLine::Entry& e) {
            return e.pApp->parsed() && !e.bComplete;
        };
        if (std::none_of(pLine->commands.begin(), pLine->commands.end(), partial)) {
            return pLine;
        }
        pOnly = nullptr;
    }
}

// Parses the command line and runs the chosen subcommand with the shared set-up.
int run(int argc, char** argv, bool bJson) {
    int status = qnpolicy::tool::kExitSuccess;
    const std::unique_ptr<CommandLine> pLine = parseCommandLine(argc, argv, bJson, &status);
    if (!pLine) {
        return status;
    }
    CommandLine& line = *pLine;
    for (CommandLine::Entry& entry : line.commands) {
        if (!entry.pApp->parsed()) {
            continue;
        }
        if (!line.app.remaining().empty()) {
            return reportUnknown(line, bJson);
        }
        // A shared option given before the name of a subcommand that does not take it is
        // refused, as it is after the name.
        std::string misplaced;
        for (const auto& [flag, name] :
             {std::pair<unsigned, const char*>{qnpolicy::tool::COMMAND_INSTALL_DIR,
                                               "--install-dir"},
              std::pair<unsigned, const char*>{qnpolicy::tool::COMMAND_JSON, "--json"}}) {
            const CLI::Option* option = line.app.get_option_no_throw(name);
            if ((entry.pInfo->flags & flag) == 0 && option != nullptr && option->count() > 0) {
                misplaced = name;
            }
        }
        entry.pCommand->AdjustSharedOptions(line.shared);
        if ((entry.pInfo->flags & qnpolicy::tool::COMMAND_JSON) == 0) {
            line.shared.bJson = false;
        }
        CCheckedOutputBuffer outBuffer(STDOUT_FILENO);
        std::ostream out(&outBuffer);
        CToolContext context(line.shared, entry.pInfo->name, out, std::cerr);
        if (!misplaced.empty()) {
            status = context.Fail(qnpolicy::tool::kExitUsage, qnpolicy::tool::errorkind::kUsage,
                                  misplaced + " does not apply to " + entry.pInfo->name);
        } else if ((entry.pInfo->flags & qnpolicy::tool::COMMAND_INSTALL_DIR) != 0 &&
                   entry.pCommand->UsesInstallDir()) {
            status = context.RequireInstallDir();
        }
        if (status == qnpolicy::tool::kExitSuccess) {
            status = entry.pCommand->Run(context);
        }
        out.flush();
        if (outBuffer.Error() == 0) {
            return status;
        }
        // A reader that went away (`| head`) ends the run quietly, as it expects.
        if (outBuffer.Error() != EPIPE) {
            context.Error(std::string("cannot write to standard output: ") +
                          std::strerror(outBuffer.Error()));
        }
        return qnpolicy::tool::kExitIoError;
    }
    return reportUnknown(line, bJson);
}

}  // namespace

int main(int argc, char** argv) {
    // A file-size limit (ulimit -f) makes a write fail with EFBIG, reported as "File too
    // large", instead of killing the process; a closed pipe makes a write fail with EPIPE.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    // The module throws nothing of its own; what can still arrive here (allocation
    // failures, the standard library's exceptions) ends the run with a message, not abort().
    const bool bJson = asksForJson(argc, argv);
    std::string message = "unknown exception";
    try {
        return run(argc, argv, bJson);
    } catch (const std::exception& error) {
        message = error.what();
    } catch (...) {
    }
    std::cerr << "qnpolicy: internal error: " << message << '\n';
    if (bJson) {
        printJsonError(qnpolicy::tool::errorkind::kInternal, "internal error: " + message);
    }
    return qnpolicy::tool::kExitInternal;
}

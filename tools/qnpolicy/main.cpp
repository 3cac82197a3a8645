// SPDX-License-Identifier: Apache-2.0
// qnpolicy: the command-line tool for installers and administrators of the local policy. Its
// usage, as --help prints it from the command table (a test holds this copy to it):
//
//   qnpolicy generate [OPTIONS] [--overwrite] [--lenient] [--dry-run | --diff]
//                     [--all-defaults] [--allow-unsafe-directory] [ABBREV=VALUE...]
//   qnpolicy show [OPTIONS] [--origin] [--format FORMAT] [FILE] [SETTING...]
//   qnpolicy check [OPTIONS] [--ignore KIND]... [FILE...]
//   qnpolicy diff [OPTIONS] FILE [FILE]
//   qnpolicy comply [OPTIONS] --baseline BASELINE [--host NAME] [FILE...]
//   qnpolicy vocabulary [OPTIONS]
//   qnpolicy schema [OPTIONS] [--json-schema COMMAND]
//   qnpolicy --version | --help | SUBCOMMAND --help
//
// The commands are one table (CommandTable.h); the set-up they share (signals, the checked
// standard output, the log sink, the install directory) is done here, once.

#include <unistd.h>

#include <csignal>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "CommandTable.h"
#include "MessageText.h"
#include "output/Output.h"

namespace {

using qnpolicy::tool::CCheckedOutputBuffer;
using qnpolicy::tool::CommandLine;
using qnpolicy::tool::CToolContext;

// The usage error for what is left when no subcommand was recognised: an unknown name or
// option, with the nearest known one.
int reportUnknown(const CommandLine& line) {
    const std::vector<std::string>& remaining = line.app.remaining();
    std::vector<std::string> names;
    for (const CommandLine::Entry& entry : line.commands) {
        names.emplace_back(entry.pInfo->name);
    }
    const std::string list = qnpolicy::Join(names, ", ");
    if (remaining.empty()) {
        std::cerr << "qnpolicy: a subcommand is required: " << list << " (qnpolicy --help)\n";
        return qnpolicy::tool::kExitUsage;
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
    std::cerr << "qnpolicy: " << (bOption ? "unknown option '" : "unknown subcommand '") << word
              << "'";
    if (!suggestion.empty()) {
        std::cerr << "; did you mean '" << suggestion << "'?";
    } else if (!bOption) {
        std::cerr << "; the subcommands are " << list;
    }
    std::cerr << " (qnpolicy --help lists the subcommands and options)\n";
    return qnpolicy::tool::kExitUsage;
}

// Parses the command line and runs the chosen subcommand with the shared set-up.
int run(int argc, char** argv) {
    CommandLine line;
    qnpolicy::tool::BuildCommandLine(line);
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // --help and --version end here with status 0; every real parse error is a usage
        // error, whatever CLI11's own code for it.
        const int status = line.app.exit(error);
        return status == qnpolicy::tool::kExitSuccess ? status : qnpolicy::tool::kExitUsage;
    }
    for (CommandLine::Entry& entry : line.commands) {
        if (!entry.pApp->parsed()) {
            continue;
        }
        if (!line.app.remaining().empty()) {
            return reportUnknown(line);
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
        int status = qnpolicy::tool::kExitSuccess;
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
    return reportUnknown(line);
}

}  // namespace

int main(int argc, char** argv) {
    // A file-size limit (ulimit -f) makes a write fail with EFBIG, reported as "File too
    // large", instead of killing the process; a closed pipe makes a write fail with EPIPE.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    // The module throws nothing of its own; what can still arrive here (allocation
    // failures, the standard library's exceptions) ends the run with a message, not abort().
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "qnpolicy: internal error: " << error.what() << '\n';
    } catch (...) {
        std::cerr << "qnpolicy: internal error: unknown exception\n";
    }
    return qnpolicy::tool::kExitInternal;
}

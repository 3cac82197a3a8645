// qnpolicy: the command-line tool for installers and administrators of the local policy.
//
//   qnpolicy generate [--overwrite] [--lenient] [--dry-run | --diff] ABBREV=VALUE...
//   qnpolicy show [FILE]
//   qnpolicy check [--ignore KIND]... [FILE|-]...
//   qnpolicy vocabulary
//   qnpolicy schema
//
// Every subcommand takes --install-dir DIR, --json, --quiet, -v and --log SINK, before or
// after its name. The dispatcher is one table of subcommands; the set-up they share (signals, the
// checked standard output, the log sink, the install directory) is done here, once.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "CheckedOutput.h"
#include "Commands.h"
#include "ExitCodes.h"
#include "NameSuggestion.h"
#include "QnBuildConfig.h"
#include "ToolLog.h"

namespace {

using qnpolicy::tool::CCheckedOutputBuffer;
using qnpolicy::tool::CommandArgs;
using qnpolicy::tool::CToolContext;
using qnpolicy::tool::CToolLog;
using qnpolicy::tool::kExitCodeHelp;
using qnpolicy::tool::kExitInternal;
using qnpolicy::tool::kExitIoError;
using qnpolicy::tool::kExitSuccess;
using qnpolicy::tool::kExitUsage;
using qnpolicy::tool::kLogSinkStderr;
using qnpolicy::tool::kLogSinkSyslog;
using qnpolicy::tool::SharedOptions;
using qnpolicy::tool::SuggestName;

constexpr char kInstallDirHelp[] =
    "Main installation directory holding QuillnetLocalPolicy.xml (a missing trailing '/' is "
    "added)";

// One subcommand: its name, what it does, its own options and its handler.
struct Subcommand {
    const char* name;
    const char* description;
    void (*addOptions)(CLI::App& command, CommandArgs& args);
    int (*run)(const CommandArgs& args, CToolContext& context);
};

const Subcommand kSubcommands[] = {
    {"generate",
     "Write the policy file from installer arguments \"policy_abbreviation=value\" (see "
     "`qnpolicy vocabulary`). Every argument is checked and the document that would be written "
     "is linted first: any unusable argument or finding refuses the run (exit 65) unless "
     "--lenient is given. An existing file is kept unless --overwrite is given, and left "
     "untouched when it already holds the same document.",
     &qnpolicy::tool::AddGenerateOptions, &qnpolicy::tool::RunGenerate},
    {"show",
     "Load the policy file (or FILE) as the client does and print the effective policy: the "
     "file's path and presence, its version, every setting in catalogue order and the "
     "authorized servers.",
     &qnpolicy::tool::AddShowOptions, &qnpolicy::tool::RunShow},
    {"check",
     "Lint policy files (default: the install directory's; - reads standard input): report, "
     "with line and column, every place where the client will not do what a file seems to "
     "say, and unsafe ownership or permissions of the file and the directories above it.",
     &qnpolicy::tool::AddCheckOptions, &qnpolicy::tool::RunCheck},
    {"vocabulary",
     "List the 29 installer abbreviations with their element, section, default, allowed "
     "values and meaning.",
     &qnpolicy::tool::AddVocabularyOptions, &qnpolicy::tool::RunVocabulary},
    {"schema",
     "Print the XML Schema of the policy file, QuillnetLocalPolicy.xsd, generated from the "
     "settings catalogue: a file valid against it is read by the client as it reads.",
     &qnpolicy::tool::AddSchemaOptions, &qnpolicy::tool::RunSchema},
};

// The options every subcommand shares, on the main command and on each subcommand, so that
// they are accepted on either side of the subcommand's name.
void addSharedOptions(CLI::App& command, SharedOptions& options) {
    command.add_option("--install-dir", options.installDir, kInstallDirHelp)
        ->type_name("DIR")
        ->capture_default_str()
        ->check([](const std::string& value) {
            return value.empty() ? std::string("the directory must not be empty") : std::string();
        });
    command.add_flag("--json", options.bJson, "Print one JSON object (\"formatVersion\": 1)");
    CLI::Option* quiet = command.add_flag("-q,--quiet", options.bQuiet, "Print only errors");
    command.add_flag("-v,--verbose", options.bVerbose, "Add the module's trace records")
        ->excludes(quiet);
    command
        .add_option("--log", options.logSink,
                    "Where the policy module's log records go: stderr, or syslog (as qnpolicy, "
                    "facility user)")
        ->type_name("SINK")
        ->check(CLI::IsMember({kLogSinkStderr, kLogSinkSyslog}))
        ->capture_default_str();
    command.footer(kExitCodeHelp);
}

// The usage error for what is left when no subcommand was recognised: an unknown name or
// option, with the nearest known one.
int reportUnknown(const std::vector<std::string>& remaining) {
    std::vector<std::string> names;
    for (const Subcommand& subcommand : kSubcommands) {
        names.emplace_back(subcommand.name);
    }
    if (remaining.empty()) {
        std::cerr << "qnpolicy: a subcommand is required: generate, show, check, vocabulary or "
                     "schema (qnpolicy --help)\n";
        return kExitUsage;
    }
    const std::string& word = remaining.front();
    const bool bOption = word.rfind('-', 0) == 0;
    const std::string suggestion =
        bOption ? SuggestName(word, {"--help", "--version", "--install-dir", "--json", "--quiet",
                                     "--verbose", "--log"})
                : SuggestName(word, names);
    std::cerr << "qnpolicy: " << (bOption ? "unknown option '" : "unknown subcommand '") << word
              << "'";
    if (!suggestion.empty()) {
        std::cerr << "; did you mean '" << suggestion << "'?";
    } else if (!bOption) {
        std::cerr << "; the subcommands are generate, show, check, vocabulary and schema";
    }
    std::cerr << " (qnpolicy --help lists the subcommands and options)\n";
    return kExitUsage;
}

// Parses the command line and runs the chosen subcommand with the shared set-up.
int run(int argc, char** argv) {
    CLI::App app{
        "qnpolicy " QN_CLIENT_VERSION
        ": generate, show and check the client's local policy file QuillnetLocalPolicy.xml.\n"
        "The policy module's log records are printed on standard error, one line each.",
        "qnpolicy"};
    app.set_version_flag("--version", "qnpolicy " QN_CLIENT_VERSION);
    app.require_subcommand(0, 1);

    SharedOptions shared;
    shared.installDir = QN_DEFAULT_MAIN_DIR;
    CommandArgs args;
    addSharedOptions(app, shared);
    std::vector<CLI::App*> commands;
    for (const Subcommand& subcommand : kSubcommands) {
        CLI::App* command = app.add_subcommand(subcommand.name, subcommand.description);
        addSharedOptions(*command, shared);
        subcommand.addOptions(*command, args);
        command->allow_extras(false);
        commands.push_back(command);
    }
    // Left-over words of the main command are an unknown subcommand or option, reported
    // below with a suggestion instead of CLI11's generic message.
    app.allow_extras(true);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // --help and --version end here with status 0; every real parse error is a usage
        // error, whatever CLI11's own code for it.
        const int status = app.exit(error);
        return status == kExitSuccess ? kExitSuccess : kExitUsage;
    }

    for (size_t i = 0; i < commands.size(); ++i) {
        if (!commands[i]->parsed()) {
            continue;
        }
        if (!app.remaining().empty()) {
            return reportUnknown(app.remaining());
        }
        CCheckedOutputBuffer outBuffer(STDOUT_FILENO);
        std::ostream out(&outBuffer);
        CToolContext context(shared, kSubcommands[i].name, out, std::cerr);
        const CToolLog log(context.GetVerbosity(), shared.logSink == kLogSinkSyslog);
        const int status = kSubcommands[i].run(args, context);
        out.flush();
        if (outBuffer.Error() == 0) {
            return status;
        }
        // A reader that went away (`| head`) ends the run quietly, as it expects.
        if (outBuffer.Error() != EPIPE) {
            context.Error(std::string("cannot write to standard output: ") +
                          std::strerror(outBuffer.Error()));
        }
        return kExitIoError;
    }
    return reportUnknown(app.remaining());
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
    return kExitInternal;
}

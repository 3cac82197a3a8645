// qnpolicy: the command-line tool for installers and administrators of the local policy.
//
//   qnpolicy generate [--overwrite] ARG...    write the policy file from installer arguments
//   qnpolicy show [--json]                    print the effective policy
//   qnpolicy check [--json] [FILE]            lint a policy file
//   qnpolicy vocabulary [--json]              list the installer abbreviations
//   qnpolicy schema                           print the policy file's XML Schema
//
// Every subcommand takes --install-dir DIR (default: the build-time main directory).

#include <syslog.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <string>
#include <vector>

#include "AppLog.h"
#include "Commands.h"
#include "ExitCodes.h"
#include "QnBuildConfig.h"
#include "SchemaWriter.h"

namespace {

using qnpolicy::tool::kExitCodeHelp;
using qnpolicy::tool::kExitInternal;
using qnpolicy::tool::kExitSuccess;
using qnpolicy::tool::kExitUsage;

constexpr char kInstallDirHelp[] =
    "Main installation directory holding QuillnetLocalPolicy.xml (a missing trailing '/' is "
    "added)";

// The options every subcommand shares.
void addInstallDir(CLI::App& command, std::string& installDir) {
    command.add_option("--install-dir", installDir, kInstallDirHelp)
        ->type_name("DIR")
        ->capture_default_str()
        ->check([](const std::string& value) {
            return value.empty() ? std::string("the directory must not be empty") : std::string();
        });
    command.footer(kExitCodeHelp);
}

// Parses the command line and runs the chosen subcommand.
int run(int argc, char** argv) {
    CLI::App app{
        "qnpolicy " QN_CLIENT_VERSION
        ": generate, show and check the client's local policy file QuillnetLocalPolicy.xml.\n"
        "The policy module's log records are printed on standard error, one line each.",
        "qnpolicy"};
    app.set_version_flag("--version", "qnpolicy " QN_CLIENT_VERSION);
    app.require_subcommand(1);
    app.footer(kExitCodeHelp);

    std::string installDir = QN_DEFAULT_MAIN_DIR;
    bool bOverwrite = false;
    bool bJson = false;
    std::vector<std::string> policyArgs;
    std::string checkFile;

    CLI::App* generate = app.add_subcommand(
        "generate",
        "Write the policy file from installer arguments \"policy_abbreviation=value\" (see "
        "`qnpolicy vocabulary`). An existing file is kept unless --overwrite is given; "
        "unusable arguments are skipped with a warning each.");
    addInstallDir(*generate, installDir);
    generate->add_flag("--overwrite", bOverwrite, "Replace an existing policy file");
    generate->add_option("ARG", policyArgs, "Installer arguments, passed on as given")
        ->type_name("ABBREV=VALUE");

    CLI::App* show = app.add_subcommand(
        "show",
        "Load the policy file and print the effective policy: the file's path and presence, "
        "its version, every setting and the authorized servers.");
    addInstallDir(*show, installDir);
    show->add_flag("--json", bJson, "Print one JSON object");

    CLI::App* check = app.add_subcommand(
        "check",
        "Lint a policy file: report, with line and column, every place where the client will "
        "not do what the file seems to say, and unsafe ownership or permissions.");
    addInstallDir(*check, installDir);
    check->add_flag("--json", bJson, "Print the findings as one JSON object");
    check
        ->add_option("FILE", checkFile,
                     "The file to check (default: the policy file in the install directory)")
        ->type_name("FILE");

    CLI::App* vocabulary = app.add_subcommand(
        "vocabulary",
        "List the 29 installer abbreviations with their element, section and allowed values.");
    addInstallDir(*vocabulary, installDir);
    vocabulary->add_flag("--json", bJson, "Print a JSON array");

    CLI::App* schema = app.add_subcommand(
        "schema",
        "Print the XML Schema of the policy file, QuillnetLocalPolicy.xsd, generated from the "
        "settings catalogue: a file valid against it is read by the client as it reads.");
    schema->footer(kExitCodeHelp);

    // --log: where the policy module's log records go, for the whole run.
    std::string logSink = "stderr";
    app.add_option("--log", logSink,
                   "Where the policy module's log records go: stderr (with the journal's "
                   "priority prefix when standard error is the journal), or syslog (as "
                   "qnpolicy, facility user)")
        ->type_name("SINK")
        ->check(CLI::IsMember({"stderr", "syslog"}))
        ->capture_default_str();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // --help and --version end here with status 0; every real parse error is a usage
        // error, whatever CLI11's own code for it.
        const int status = app.exit(error);
        return status == kExitSuccess ? kExitSuccess : kExitUsage;
    }

    if (logSink == "syslog") {
        ::openlog("qnpolicy", LOG_PID, LOG_USER);
        CAppLog::SetSink(CAppLog::SyslogSink());
    }
    if (schema->parsed()) {
        qndocgen::WritePolicySchema(std::cout);
        std::cout.flush();
        return std::cout ? kExitSuccess : qnpolicy::tool::kExitFailure;
    }

    if (generate->parsed()) {
        return qnpolicy::tool::RunGenerate(installDir, policyArgs, bOverwrite, std::cout,
                                           std::cerr);
    }
    if (show->parsed()) {
        return qnpolicy::tool::RunShow(installDir, bJson, std::cout, std::cerr);
    }
    if (check->parsed()) {
        return qnpolicy::tool::RunCheck(installDir, checkFile, bJson, std::cout, std::cerr);
    }
    return qnpolicy::tool::RunVocabulary(installDir, bJson, std::cout, std::cerr);
}

}  // namespace

int main(int argc, char** argv) {
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

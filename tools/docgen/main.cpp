// SPDX-License-Identifier: Apache-2.0
// qn-docgen: writes the generated documentation of the local policy module on standard output.
//
//   qn-docgen schema                          the XML Schema QuillnetLocalPolicy.xsd
//   qn-docgen policy-manpage                  scdoc source of QuillnetLocalPolicy.xml(5)
//   qn-docgen tool-manpage INCLUDE            scdoc source of qnpolicy(1)
//   qn-docgen baseline-manpage                scdoc source of qnpolicy-baseline(5)
//   qn-docgen bash-completion                 the bash completion of qnpolicy
//   qn-docgen zsh-completion                  the zsh completion of qnpolicy (_qnpolicy)
//   qn-docgen fish-completion                 the fish completion of qnpolicy
//   qn-docgen json-schemas DIR                DIR/qnpolicy-COMMAND.schema.json for each command
//                                             with --json: the JSON Schema of its output
//
// The tool's page and the completion follow qnpolicy's command table. The build runs these;
// the outputs are installed, never edited by hand.

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "CommandTable.h"
#include "CompletionWriter.h"
#include "ManualPageWriter.h"
#include "SchemaWriter.h"
#include "ToolHelp.h"

namespace {

// sysexits.h: EX_SOFTWARE for an unexpected failure, EX_NOINPUT, EX_IOERR for output.
constexpr int kExitToolFailed = 70;
constexpr int kExitNoInput = 66;
constexpr int kExitIoError = 74;

int run(int argc, char** argv) {
    CLI::App app{"Writes the generated documentation of the local policy module.", "qn-docgen"};
    app.require_subcommand(1);
    std::string includeFile;
    CLI::App* schema = app.add_subcommand("schema", "The XML Schema of the policy document");
    CLI::App* policyPage =
        app.add_subcommand("policy-manpage", "scdoc source of QuillnetLocalPolicy.xml(5)");
    CLI::App* baselinePage =
        app.add_subcommand("baseline-manpage", "scdoc source of qnpolicy-baseline(5)");
    CLI::App* toolPage = app.add_subcommand("tool-manpage", "scdoc source of qnpolicy(1)");
    toolPage->add_option("INCLUDE", includeFile, "Fixed sections appended")->required();
    CLI::App* bashCompletion = app.add_subcommand("bash-completion", "bash completion of qnpolicy");
    CLI::App* zshCompletion = app.add_subcommand("zsh-completion", "zsh completion of qnpolicy");
    app.add_subcommand("fish-completion", "fish completion of qnpolicy");
    std::string schemaDirectory;
    CLI::App* jsonSchemas =
        app.add_subcommand("json-schemas", "The JSON Schemas of qnpolicy's --json output");
    jsonSchemas->add_option("DIR", schemaDirectory, "Where to write them")->required();
    CLI11_PARSE(app, argc, argv);

    if (jsonSchemas->parsed()) {
        for (const qnpolicy::tool::CommandInfo& command : qnpolicy::tool::Commands()) {
            const std::string schemaText = qnpolicy::tool::OutputSchema(command);
            if (schemaText.empty()) {
                continue;
            }
            const std::string path = schemaDirectory + "/qnpolicy-" + command.name + ".schema.json";
            std::ofstream out(path, std::ios::binary | std::ios::trunc);
            out << schemaText;
            if (!out.flush()) {
                std::cerr << "qn-docgen: cannot write " << path << '\n';
                return kExitIoError;
            }
        }
        return 0;
    }

    const qndocgen::ToolHelp help = qndocgen::DescribeTool();
    if (schema->parsed()) {
        qndocgen::WritePolicySchema(std::cout);
    } else if (policyPage->parsed()) {
        qndocgen::WritePolicyFileManualPage(std::cout);
    } else if (baselinePage->parsed()) {
        qndocgen::WriteBaselineManualPage(std::cout);
    } else if (toolPage->parsed()) {
        std::ifstream include(includeFile);
        std::ostringstream includeText;
        includeText << include.rdbuf();
        if (!include) {
            std::cerr << "qn-docgen: cannot read " << includeFile << '\n';
            return kExitNoInput;
        }
        qndocgen::WriteToolManualPage(help, includeText.str(), std::cout);
    } else if (bashCompletion->parsed()) {
        qndocgen::WriteBashCompletion(help, std::cout);
    } else if (zshCompletion->parsed()) {
        qndocgen::WriteZshCompletion(help, std::cout);
    } else {
        qndocgen::WriteFishCompletion(help, std::cout);
    }
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "qn-docgen: cannot write standard output\n";
        return kExitIoError;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "qn-docgen: internal error: " << error.what() << '\n';
    } catch (...) {
        std::cerr << "qn-docgen: internal error: unknown exception\n";
    }
    return kExitToolFailed;
}

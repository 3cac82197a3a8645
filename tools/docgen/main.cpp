// qn-docgen: writes the generated documentation of the local policy module on standard output.
//
//   qn-docgen schema      the XML Schema QuillnetLocalPolicy.xsd
//
// The build runs it; the outputs are installed, never edited by hand.

#include <CLI/CLI.hpp>
#include <iostream>

#include "SchemaWriter.h"

int main(int argc, char** argv) {
    CLI::App app{"Writes the generated documentation of the local policy module.", "qn-docgen"};
    app.require_subcommand(1);
    CLI::App* schema = app.add_subcommand("schema", "The XML Schema of the policy document");
    CLI11_PARSE(app, argc, argv);

    if (schema->parsed()) {
        qndocgen::WritePolicySchema(std::cout);
    }
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "qn-docgen: cannot write standard output\n";
        return 74;
    }
    return 0;
}

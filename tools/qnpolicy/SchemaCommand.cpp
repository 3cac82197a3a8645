// qnpolicy schema: the XML Schema of the policy document, as the package installs it.

#include "Commands.h"
#include "ExitCodes.h"
#include "SchemaWriter.h"

namespace qnpolicy::tool {

void AddSchemaOptions(CLI::App& /*command*/, CommandArgs& /*args*/) {}

int RunSchema(const CommandArgs& /*args*/, CToolContext& context) {
    // A failed write to standard output is reported by the dispatcher (74).
    qndocgen::WritePolicySchema(context.Out());
    return kExitSuccess;
}

}  // namespace qnpolicy::tool

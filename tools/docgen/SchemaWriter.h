// SPDX-License-Identifier: Apache-2.0
#ifndef QNDOCGEN_SCHEMAWRITER_H
#define QNDOCGEN_SCHEMAWRITER_H

#include <ostream>

namespace qndocgen {

// Writes QuillnetLocalPolicy.xsd, the XML Schema of the local policy document, generated
// from the settings catalogue: the root with its version attribute, every setting with the
// texts the client's reader applies, the "UpdatePolicy" section and its server list, each
// setting at most once and in any order, every element annotated with its description.
//
//   std::ofstream schema("QuillnetLocalPolicy.xsd");
//   qndocgen::WritePolicySchema(schema);
//
// A document valid against the schema is read by the client exactly as it reads; what the
// reader would ignore, refuse or read differently from how it looks is invalid.
void WritePolicySchema(std::ostream& out);

}  // namespace qndocgen

#endif  // QNDOCGEN_SCHEMAWRITER_H

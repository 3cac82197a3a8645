// SPDX-License-Identifier: Apache-2.0
#ifndef QNDOCGEN_MANUALPAGEWRITER_H
#define QNDOCGEN_MANUALPAGEWRITER_H

#include <ostream>
#include <string>

#include "ToolHelp.h"

namespace qndocgen {

// Writes the scdoc(5) source of QuillnetLocalPolicy.xml(5), the manual page of the policy
// file: its location, layout and namespace, each element of the settings catalogue with its
// section, values, default, installer argument, repetition and what the client does with it;
// what the client does when the file is missing, unreadable or partly wrong, with the FIPS
// retention; and the ownership qnpolicy check advises (the client does not check it).
//
//   qndocgen::WritePolicyFileManualPage(std::cout);   // | scdoc > QuillnetLocalPolicy.xml.5
void WritePolicyFileManualPage(std::ostream& out);

// Writes the scdoc(5) source of qnpolicy-baseline(5), the baseline file of qnpolicy comply: its
// keys, what each setting of the catalogue may be compared with, file-safety and the errors.
void WriteBaselineManualPage(std::ostream& out);

// Writes the scdoc(5) source of qnpolicy(1) from the tool's own help: synopsis, options,
// every subcommand with its arguments and options, the exit codes, examples built from the
// settings catalogue, then the fixed sections of includeText (files, environment, see also).
void WriteToolManualPage(const ToolHelp& help, const std::string& includeText, std::ostream& out);

}  // namespace qndocgen

#endif  // QNDOCGEN_MANUALPAGEWRITER_H

// SPDX-License-Identifier: Apache-2.0
#ifndef QNDOCGEN_COMPLETIONWRITER_H
#define QNDOCGEN_COMPLETIONWRITER_H

#include <ostream>

#include "ToolHelp.h"

namespace qndocgen {

// Writes the bash completion of qnpolicy: the subcommands and options its --help lists,
// the allowed values of an option that lists them, directories after an option taking a
// DIR, file names where a FILE is taken, element names where a SETTING is (show --origin),
// and after "generate" each installer abbreviation of the settings catalogue with "=", then its
// allowed values.
//
//   qndocgen::WriteBashCompletion(help, std::cout);   // installed as completions/qnpolicy
//
// The script needs the bash-completion package (_init_completion, _filedir).
void WriteBashCompletion(const ToolHelp& help, std::ostream& out);

// Writes the zsh completion of qnpolicy, an autoloadable compsys function (#compdef qnpolicy)
// offering what the bash completion offers, each subcommand, option, abbreviation and allowed
// value with its description. Sourced after compinit instead, it registers itself with compdef.
//
//   qndocgen::WriteZshCompletion(help, std::cout);    // installed as _qnpolicy in $fpath
void WriteZshCompletion(const ToolHelp& help, std::ostream& out);

// Writes the fish completion of qnpolicy: complete commands offering what the bash completion
// offers, with descriptions.
//
//   qndocgen::WriteFishCompletion(help, std::cout);   // installed as qnpolicy.fish
void WriteFishCompletion(const ToolHelp& help, std::ostream& out);

}  // namespace qndocgen

#endif  // QNDOCGEN_COMPLETIONWRITER_H

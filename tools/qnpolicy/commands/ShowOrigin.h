// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_SHOWORIGIN_H
#define QNPOLICY_SHOWORIGIN_H

#include <string>
#include <vector>

#include "LocalPolicyDocument.h"
#include "ToolContext.h"
#include "output/PolicyViews.h"

namespace qnpolicy::tool {

// The words after show sorted into the FILE and the settings named: with --origin, a word
// that names a setting (by element or installer abbreviation) selects it, in the order given,
// and any other is the FILE; without it, every word is. error says why they cannot be sorted (a
// usage error): more than one FILE, or with --origin a word that names neither an existing
// file nor a setting, but is close to a setting's name.
struct ShowOperands {
    std::vector<std::string> files;
    SettingSelection selection;
    std::string error;
};
ShowOperands SortShowOperands(const std::vector<std::string>& words, bool bOrigin);

// show --origin: reads the policy file at path (or pContent, standard input named path) with
// the linter and the origin tracker on one pass, and prints every setting (or the selected
// ones) with where its value comes from, in text or JSON. 0; 2 when the file cannot be parsed,
// after saying what the client holds and listing what was read before the error, which the
// client keeps.
int ShowOrigins(CToolContext& context, const std::string& path, const std::string* pContent,
                const SettingSelection& selection);

// What the client holds after a read that failed: the defaults alone when nothing was parsed
// (the file could not be opened), else the defaults plus what was read before the error.
const char* FailedReadConsequence(const DocumentRead& read);

// "cannot load "PATH" at line LINE, column COLUMN: REASON ..." with what the client then
// holds: show's message for a file it cannot parse.
std::string CannotLoadMessage(const std::string& path, const DocumentRead& read);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_SHOWORIGIN_H

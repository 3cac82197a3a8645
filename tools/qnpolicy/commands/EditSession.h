// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_EDITSESSION_H
#define QNPOLICY_EDITSESSION_H

// qnpolicy edit's session with the administrator, in the manner of visudo: the document is
// copied to a working copy in the install directory (mode 0600, removed however the session
// ends; a stale one is removed by the next writer, under the writers' lock), the editor runs
// on it, and what comes back is checked: unchanged, nothing to do; findings, shown, then the
// question "(e)dit again, (x) exit without saving, (Q) save anyway", which saves anyway only on
// that explicit answer.
//
//   const EditOutcome outcome = RunEditSession(audit.directory, original, path, context);

#include <string>

#include "ToolContext.h"
#include "safety/PathAudit.h"

namespace qnpolicy::tool {

// The working copy's name in the install directory.
inline constexpr char kEditCopyName[] = ".QuillnetLocalPolicy.edit.xml";

struct EditOutcome {
    enum Result {
        SAVE,       // document holds what to store (checked, or saved anyway on request)
        UNCHANGED,  // the editor left the document as it was
        ABANDONED,  // the administrator chose to exit without saving
        FAILED,     // the working copy or the editor failed: failure says why
    };
    Result eResult = FAILED;
    std::string document;
    std::string failure;
};

// Removes a working copy a killed session left; a writer calls it under the lock.
void RemoveStaleEditCopy(const CDirectoryHandle& directory);

// Runs the session on original, the document to start from, for the policy file at path;
// answers are read from standard input (a terminal), messages go through context.
EditOutcome RunEditSession(const CDirectoryHandle& directory, const std::string& original,
                           const std::string& path, CToolContext& context);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_EDITSESSION_H

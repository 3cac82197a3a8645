// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_POLICYLINTER_H
#define QNPOLICY_POLICYLINTER_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "lint/PolicyTexts.h"

namespace qnpolicy::tool {

// How much a finding matters.
enum class Severity {
    ERROR,    // the client refuses the file, or silently weakens or drops a setting
    WARNING,  // the client does what the file says, but the file is misleading
};

// One place where a policy file will not do what its author probably meant.
struct LintFinding {
    unsigned long line = 0;    // 1-based; 0 for a finding about the file as a whole
    unsigned long column = 0;  // 1-based; 0 with line 0
    std::string kind;          // a findingkind name, stable for scripts
    Severity eSeverity = Severity::ERROR;
    std::string message;  // one readable sentence for the administrator
    std::string element;  // the element the finding is about; empty for the file as a whole
    // The client ignores what the finding is about (the element, its text or the attribute):
    // the setting keeps the value it had. False where the client applies it, if not as it reads.
    bool bIgnored = false;
};

// Every kind with its severity, in the order the README lists them.
struct FindingKindInfo {
    const char* kind;
    Severity eSeverity;
};
extern const std::vector<FindingKindInfo> kFindingKinds;

// The severity of a kind of kFindingKinds; "error" or "warning".
Severity SeverityOf(std::string_view kind);
const char* SeverityText(Severity eSeverity);

// The outcome of linting one document.
struct LintResult {
    // False when the document could not be read to its end (missing, unreadable, not
    // well-formed); failure says why and where (line 0: the file as a whole), and the findings
    // stop there.
    bool bReadable = true;
    unsigned long failureLine = 0;
    unsigned long failureColumn = 0;
    std::string failureReason;
    std::vector<LintFinding> findings;  // ordered by line, then column
    // The findings beyond kMaxFindingsPerKind of a kind, counted, not kept: kind to count.
    std::map<std::string, unsigned long> omitted;

    // Every finding, the omitted ones included.
    unsigned long Count() const;
};

// At most this many findings of one kind are kept for one document; the rest are counted. A
// hostile file of a million misspelt elements then costs no more than a hundred messages.
inline constexpr size_t kMaxFindingsPerKind = 100;

// Lints a policy document as the client reads it: the reader's own pass over the document,
// observed (LocalPolicyDocument.h), reports every place where the client will not do what the
// author probably meant: unknown elements, settings in the wrong section, texts the reader takes
// differently from how they read, settings given twice, a newer version. A document the client
// refuses (not well-formed, over a limit, with a DTD) is unreadable. Work per element is
// constant and memory grows only with the server names kept to find repeated ones.
//
//   LintResult result = LintPolicyFile("/opt/quillnet/QuillnetLocalPolicy.xml");
//
// What a text of each kind means comes from the kinds tables (LocalPolicyKinds.h, and
// PolicyTexts.h for what the findings say). Who can change the file is not looked at here
// (safety/PathAudit.h).
LintResult LintPolicyFile(const std::string& path);
// Lints an in-memory document; name stands for it.
LintResult LintPolicyBytes(std::string_view bytes, const std::string& name);
// Lints what fd delivers (standard input) as it arrives, under the parser's limits for a stream.
LintResult LintPolicyStream(int fd, const std::string& name);

// What a lint looks for.
enum class LintScope {
    EVERYTHING,  // check: every finding
    // Every finding but the repeated server names, the one search whose cost grows with the
    // list; the client lists a repeated server, so this scope still finds everything it
    // ignores (show --origin).
    ALL_BUT_REPEATED_SERVERS,
};

// The same lint with one more observer watching the same read: one pass over the document
// serves both (the linter sees each event first). The client's read is returned; the findings
// go to rLint. A document the client refuses is unreadable here as well.
DocumentRead ReadLintedPolicyFile(const std::string& path, ReadObserver& alsoWatching,
                                  LintScope eScope, LintResult& rLint);
DocumentRead ReadLintedPolicyBytes(std::string_view bytes, const std::string& name,
                                   ReadObserver& alsoWatching, LintScope eScope, LintResult& rLint);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_POLICYLINTER_H

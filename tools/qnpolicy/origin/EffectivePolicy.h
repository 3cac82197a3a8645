// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_EFFECTIVEPOLICY_H
#define QNPOLICY_EFFECTIVEPOLICY_H

// The effective policy of a document as the client reads it, with where each value comes from:
// every setting of the catalogue with its value, the element that decided it (or its default)
// and every element that contributed to it, each authorized server with its own element, the
// document's version with its element, and, when linted, what the client ignores and why.
//
// It is built from one read of the document: the reader's own pass, observed, so that it is the
// client's reading and never a second interpretation of the XML. Linted, the linter watches the
// same pass. The value of a setting comes from the record that read builds, through the kinds
// table; which elements contributed is found by replaying each applied text through the same
// table, and which other setting decides a value by flipping settings of the record.
//
//   EffectivePolicy policy = ReadEffectivePolicyFile(path, path, true);
//   for (const SettingOrigin& setting : policy.settings) {
//       if (!setting.origin.Known()) { ... the default ... }
//   }
//   for (const SettingChange& change : ComparePolicies(before, after)) { ... }

#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "LocalPolicyDocument.h"
#include "LocalPolicySettings.h"
#include "lint/PolicyLinter.h"

namespace qnpolicy::tool {

// Where an element starts in its document; line 0 stands for no element (the default).
struct SourcePosition {
    unsigned long line = 0;
    unsigned long column = 0;
    bool Known() const { return line != 0; }
};

// What one element did to a setting's value.
enum class Contribution {
    SETS,        // its text gives the value, replacing whatever came before
    ADDS,        // it adds to what earlier elements gave (caching options, another server list)
    OVERRIDDEN,  // applied, but a later element or another setting replaced what it gave
    UNCHANGED,   // read, but the reader left the setting as it was
    FORCES,      // an element of another setting, whose value decides this one whatever it says
};
const char* ContributionText(Contribution eContribution);  // "sets", "adds", ...

struct ContributingElement {
    std::string element;  // its name: the setting's own, or the forcing setting's
    SourcePosition position;
    std::string text;  // as the reader took it
    Contribution eContribution = Contribution::SETS;
};

// One setting of the catalogue as the client holds it.
struct SettingOrigin {
    const LocalPolicySettingInfo* pRow = nullptr;
    // The effective value as the kinds table shows it; for the server list, empty: its value
    // is the record's list itself (EffectivePolicy::Servers), which is not copied.
    std::vector<std::string> value;
    // The element that decided the value (the last that set or added to it, or the setting
    // that forces it); unknown: the default.
    SourcePosition origin;
    std::vector<ContributingElement> contributors;  // in document order
    // Overridden or unchanged elements left out beyond kMaxFindingsPerKind, counted.
    unsigned long omittedContributors = 0;
};

// When a change of the setting in the file takes effect in a running client.
enum class TakesEffect {
    NEXT_LOAD,   // at the client's next load of the file
    NEXT_START,  // FIPS mode: at the client's next start, since a process keeps the mode of its
                 // first load; but a missing or unreadable file turns it off at the next load
};
TakesEffect WhenChangeTakesEffect(const LocalPolicySettingInfo& row);
const char* TakesEffectText(TakesEffect eTakesEffect);  // "next-load", "next-start"
// What NEXT_START means, in one sentence for administrators.
extern const char kNextStartExplanation[];

struct EffectivePolicy {
    std::string file;   // the name its positions refer to: a path, "<stdin>", ...
    DocumentRead read;  // the client's read: status, presence, failure, the record
    std::vector<SettingOrigin> settings;        // catalogue order; every row but the server name's
    std::vector<SourcePosition> serverOrigins;  // one per server of the record, in order
    SourcePosition versionOrigin;
    // Linted: the findings, those about what the client ignores flagged; a repeated server
    // name, which the client lists, is not looked for (LintScope::ALL_BUT_REPEATED_SERVERS).
    LintResult lint;

    // Read to its end (or, from a path, no file there): what the client holds is what it says.
    bool Complete() const { return read.status == 0; }
    const std::list<std::string>& Servers() const { return read.record.GetAuthorizedServerList(); }
    const SettingOrigin& Of(const LocalPolicySettingInfo& row) const;
};

// Reads the document at path (a missing one gives the defaults, as the client's load does), or
// in memory, naming it file in positions; with bLint the linter watches the same pass.
EffectivePolicy ReadEffectivePolicyFile(const std::string& path, const std::string& file,
                                        bool bLint);
EffectivePolicy ReadEffectivePolicyBytes(std::string_view bytes, const std::string& file,
                                         bool bLint);

// A setting whose effective value differs between two policies.
struct SettingChange {
    const SettingOrigin* pOld = nullptr;  // into the two policies compared
    const SettingOrigin* pNew = nullptr;
    // The server list: the first position at which the lists differ (the shorter one's size
    // when it is the other's beginning).
    size_t firstDifference = 0;
};

// The settings the client reads differently in newPolicy than in oldPolicy, in catalogue order:
// effective values compared (so a reordered, re-indented or commented document is the same
// policy), server lists in order, since the client keeps their order. The document's version
// is no setting: the client applies both alike.
std::vector<SettingChange> ComparePolicies(const EffectivePolicy& oldPolicy,
                                           const EffectivePolicy& newPolicy);

// The row a word names, by element name or installer abbreviation, exactly or else ignoring
// case; the server name selects the server list; null for any other word.
const LocalPolicySettingInfo* FindSettingByName(std::string_view word);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_EFFECTIVEPOLICY_H

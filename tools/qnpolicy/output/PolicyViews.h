// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_POLICYVIEWS_H
#define QNPOLICY_POLICYVIEWS_H

// How show, diff and generate print an effective policy: with the origin of each value (text
// and JSON), flat for comparing hosts, the values alone as JSON, and the settings two policies
// read differently. Every value is the kinds table's text of it; a position is FILE:LINE:COLUMN
// in text, {"line", "column"} in JSON (null: the default).

#include <ostream>
#include <string>
#include <vector>

#include "LocalPolicySettings.h"
#include "LocalQNPolicyInfo.h"
#include "origin/EffectivePolicy.h"
#include "output/Output.h"

namespace qnpolicy::tool {

// The settings a run is about: all of them when empty, else these rows, in this order.
using SettingSelection = std::vector<const LocalPolicySettingInfo*>;

// show --origin: every setting (or the selected ones) with its value, origin and contributing
// elements, each server with its element, and, for the whole policy, the file, its version and
// when a change takes effect, then what the client ignores with the linter's reasons.
void PrintOrigins(std::ostream& out, const EffectivePolicy& policy,
                  const SettingSelection& selection);
// The same as the one JSON object of a loaded policy.
void WriteOriginsJson(std::ostream& out, const EffectivePolicy& policy,
                      const SettingSelection& selection);
// The "settings" object of that JSON alone: what the error object of a failed load lists, the
// values and origins read before the error, which the client keeps.
void WriteOriginSettingsJson(CJsonWriter& json, const EffectivePolicy& policy,
                             const SettingSelection& selection);

// A finding's members as every JSON output prints them, in this order: kind, severity, line,
// column, message (the caller opens and closes the object).
void WriteFindingMembers(CJsonWriter& json, const LintFinding& finding);

// The "settings" object of show --json: one member per element, each value typed by its shape.
void WriteSettingValuesJson(CJsonWriter& json, const LocalQNPolicyInfo& record);

// show --format=flat: "ElementName value", one line per setting in catalogue order and one per
// server, nothing else, so that two hosts' outputs compare with diff and grep finds a setting.
// A value that is empty or holds a blank, a quote, a backslash or a control character is
// quoted, so that no value can pass for another line.
void PrintFlat(std::ostream& out, const LocalQNPolicyInfo& record);

// One line per change, "Setting: OLD (ORIGIN) -> NEW (ORIGIN)"; a server list by its size, and
// its first differing server with both origins.
std::string ChangeLine(const SettingChange& change, const EffectivePolicy& oldPolicy,
                       const EffectivePolicy& newPolicy);
// The changes as a JSON array of {"setting", "old", "new"} (and "firstDifference" for the
// server list).
void WriteChangesJson(CJsonWriter& json, const std::vector<SettingChange>& changes,
                      const EffectivePolicy& oldPolicy, const EffectivePolicy& newPolicy);

// What the client would read differently once a document replaced the file it reads at path:
// the semantic summary of generate --diff.
class CDocumentChanges {
  public:
    CDocumentChanges(const std::string& path, const std::string& document,
                     const std::string& documentName);
    CDocumentChanges(const CDocumentChanges&) = delete;
    CDocumentChanges& operator=(const CDocumentChanges&) = delete;

    // "the client would read the same policy", or how many settings it would read
    // differently, then one indented line each.
    std::string Summary() const;
    // One "Element: old -> new" line a setting read differently, in catalogue order.
    std::vector<std::string> Lines() const;
    void WriteJson(CJsonWriter& json) const;

  private:
    EffectivePolicy m_old;
    EffectivePolicy m_new;
    std::vector<SettingChange> m_changes;
};

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_POLICYVIEWS_H

// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_BASELINE_H
#define QNPOLICY_BASELINE_H

// A baseline: what every host's effective policy must hold, as a security team writes it down
// (a YAML file, qnpolicy-baseline(5)), and the verdicts of one policy against it.
//
// The model is the parsed file: one rule per setting named, with its comparison, expected
// values, severity and rationale, the waivers with their host patterns and last day, and the
// implicit file-safety rule. Verdicts judge an EffectivePolicy, the reader's own reading with the
// origin of each value, never the XML again; file-safety takes the path audit's findings. The
// same model serves every writer of verdicts and of content derived from a baseline.
//
//   BaselineParse parse = ParseBaseline(text, "baseline.yml");
//   if (!parse.error.empty()) { ... parse.error.line, parse.error.column ... }
//   ComplianceVerdicts verdicts = JudgePolicy(parse.baseline, policy, auditFindings,
//                                             "lab-7", Today());

#include <string>
#include <string_view>
#include <vector>

#include "LocalPolicySettings.h"
#include "lint/PolicyLinter.h"
#include "origin/EffectivePolicy.h"

namespace qnpolicy::tool {

// The name of the rule every baseline holds: the path audit of the policy file passes.
inline constexpr char kFileSafetyRule[] = "file-safety";

// The largest baseline read, standard input included: a human-written file is far smaller.
inline constexpr size_t kMaxBaselineBytes = size_t{1} << 20;

// How a rule compares the effective value with its expected values.
enum class RuleComparison {
    EQUALS,       // the value (a server list: the same servers in the same order)
    ONE_OF,       // the value is one of the expected values
    SUBSET_OF,    // every entry of the value is expected (a list, the caching options)
    SUPERSET_OF,  // every expected entry is in the value
};
// "equals", "one_of", "subset_of", "superset_of": the keys a baseline writes them with.
const char* ComparisonText(RuleComparison eComparison);

enum class RuleSeverity { LOW, MEDIUM, HIGH };
const char* RuleSeverityText(RuleSeverity eSeverity);  // "low", "medium", "high"

// A place in the baseline file, 1-based.
struct BaselinePosition {
    unsigned long line = 0;
    unsigned long column = 0;
};

// A calendar day, UTC.
struct CalendarDay {
    int year = 0;
    int month = 0;
    int day = 0;
    // Days since 1970-01-01, so that two days compare and subtract.
    long DaysSinceEpoch() const;
    std::string Text() const;  // "2027-03-31"
};
// Today, UTC.
CalendarDay Today();

// One rule a setting of the catalogue must meet.
struct BaselineRule {
    const LocalPolicySettingInfo* pRow = nullptr;
    RuleComparison eComparison = RuleComparison::EQUALS;
    // The expected values as show --json prints them: "true", "tls", "Credentials", a server.
    std::vector<std::string> expected;
    RuleSeverity eSeverity = RuleSeverity::MEDIUM;
    std::string rationale;  // empty when the baseline gives none
    BaselinePosition position;
};

// A waiver: a rule that does not count on the hosts it names until the end of its last day.
struct BaselineWaiver {
    std::string rule;                       // the setting's element name
    std::vector<std::string> hostPatterns;  // globs; empty: every host
    std::string reason;
    CalendarDay expires;  // the last day it holds, UTC
    BaselinePosition position;

    // Whether it names host (glob, ignoring case as host names do); true without patterns.
    bool Covers(const std::string& host) const;
    // Whether today is not past its last day.
    bool HoldsOn(const CalendarDay& today) const;
};

struct Baseline {
    std::string file;                 // the name it was read under, for messages
    std::vector<BaselineRule> rules;  // in the file's order
    std::vector<BaselineWaiver> waivers;
    // The implicit rule's: high unless the baseline says otherwise.
    RuleSeverity fileSafetySeverity = RuleSeverity::HIGH;
    std::string fileSafetyRationale;

    const BaselineRule* RuleOf(const LocalPolicySettingInfo& row) const;
};

// What reading a baseline gave: the model, or the first reason it is malformed.
struct BaselineError {
    BaselinePosition position;  // line 0: the file as a whole (it cannot be read)
    std::string message;
    bool empty() const { return message.empty(); }
};
struct BaselineParse {
    Baseline baseline;
    BaselineError error;
};

// Reads a baseline from its text; file names it in the model. Any malformed part (an unknown
// key, an unknown setting, a value the setting cannot take, a duplicate key, a version other
// than 1, an incomplete waiver, a date that is no date, YAML that does not parse, anchors and
// aliases, more than one document, more than kMaxBaselineBytes) gives the error and no rules.
BaselineParse ParseBaseline(std::string_view text, const std::string& file);

// The verdict of one rule on one policy.
enum class VerdictState { PASS, FAIL, WAIVED };
const char* VerdictStateText(VerdictState eState);  // "pass", "fail", "waived"

// A list entry behind a failed list rule: an entry that is not allowed, with its element (the
// server's own), or an expected entry that is missing (no origin).
struct OffendingEntry {
    std::string value;
    SourcePosition origin;
    bool bMissing = false;
};

struct RuleVerdict {
    std::string rule;                     // the setting's element name, or kFileSafetyRule
    const BaselineRule* pRule = nullptr;  // null for file-safety
    VerdictState eState = VerdictState::PASS;
    std::vector<std::string> actual;        // the effective value; file-safety: "safe" or "unsafe"
    SourcePosition origin;                  // the element that decided it; unknown: the default
    std::vector<OffendingEntry> offending;  // a list rule's entries that make it fail
    std::vector<LintFinding> findings;      // file-safety: the audit's findings
    const BaselineWaiver* pWaiver = nullptr;  // WAIVED: the waiver that holds
};

struct ComplianceVerdicts {
    std::vector<RuleVerdict> verdicts;  // file-safety first, then the rules in file order
    // Waivers that hold for this host and end within kWaiverWarningDays.
    std::vector<const BaselineWaiver*> expiringSoon;

    // Every rule passes or is waived.
    bool Compliant() const;
};

// A waiver whose last day is at most this many days away is announced.
inline constexpr long kWaiverWarningDays = 14;

// Judges a completely read policy against baseline for host on day today: the value of each
// rule's setting as the reader computed it (EffectivePolicy), and file-safety from the path
// audit's findings of the policy file (none: safe). A waiver holds for a failing rule when it
// names the rule and host and today is not past its last day.
ComplianceVerdicts JudgePolicy(const Baseline& baseline, const EffectivePolicy& policy,
                               const std::vector<LintFinding>& auditFindings,
                               const std::string& host, const CalendarDay& today);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_BASELINE_H

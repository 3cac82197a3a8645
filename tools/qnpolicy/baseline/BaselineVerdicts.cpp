// SPDX-License-Identifier: Apache-2.0
// The verdicts of one effective policy against a baseline: each rule's comparison of the value
// the reader computed, file-safety from the path audit, and the waivers that hold.

#include <fnmatch.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <unordered_map>
#include <unordered_set>

#include "LocalPolicyKinds.h"
#include "baseline/Baseline.h"

namespace qnpolicy::tool {

const char* ComparisonText(RuleComparison eComparison) {
    switch (eComparison) {
        case RuleComparison::EQUALS:
            return "equals";
        case RuleComparison::ONE_OF:
            return "one_of";
        case RuleComparison::SUBSET_OF:
            return "subset_of";
        case RuleComparison::SUPERSET_OF:
            return "superset_of";
    }
    return "equals";
}

const char* RuleSeverityText(RuleSeverity eSeverity) {
    switch (eSeverity) {
        case RuleSeverity::LOW:
            return "low";
        case RuleSeverity::MEDIUM:
            return "medium";
        case RuleSeverity::HIGH:
            return "high";
    }
    return "medium";
}

const char* VerdictStateText(VerdictState eState) {
    switch (eState) {
        case VerdictState::PASS:
            return "pass";
        case VerdictState::FAIL:
            return "fail";
        case VerdictState::WAIVED:
            return "waived";
    }
    return "fail";
}

// The proleptic Gregorian count of days (H. Hinnant's days_from_civil).
long CalendarDay::DaysSinceEpoch() const {
    const long y = static_cast<long>(year) - (month <= 2 ? 1 : 0);
    const long era = (y >= 0 ? y : y - 399) / 400;
    const long yearOfEra = y - era * 400;
    const long dayOfYear = (153L * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const long dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

std::string CalendarDay::Text() const {
    char text[16];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", year, month, day);
    return text;
}

CalendarDay Today() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    return CalendarDay{utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday};
}

bool BaselineWaiver::Covers(const std::string& host) const {
    return hostPatterns.empty() ||
           std::any_of(hostPatterns.begin(), hostPatterns.end(), [&host](const std::string& glob) {
               return ::fnmatch(glob.c_str(), host.c_str(), FNM_CASEFOLD) == 0;
           });
}

bool BaselineWaiver::HoldsOn(const CalendarDay& today) const {
    return today.DaysSinceEpoch() <= expires.DaysSinceEpoch();
}

const BaselineRule* Baseline::RuleOf(const LocalPolicySettingInfo& row) const {
    for (const BaselineRule& rule : rules) {
        if (rule.pRow == &row) {
            return &rule;
        }
    }
    return nullptr;
}

bool ComplianceVerdicts::Compliant() const {
    return std::none_of(verdicts.begin(), verdicts.end(), [](const RuleVerdict& verdict) {
        return verdict.eState == VerdictState::FAIL;
    });
}

namespace {

// The caching options a value restricts, as a set: "Credentials,Thumbprints" gives both,
// "none" nothing.
std::unordered_set<std::string> cachingEntries(const std::string& text) {
    std::unordered_set<std::string> entries;
    const std::vector<std::string>& options = LocalPolicyCachingOptionTexts();
    size_t start = 0;
    while (start <= text.size()) {
        const size_t end = std::min(text.find(',', start), text.size());
        const std::string entry = text.substr(start, end - start);
        if (std::find(options.begin() + 1, options.end(), entry) != options.end()) {
            entries.insert(entry);
        }
        start = end + 1;
    }
    return entries;
}

bool containsAll(const std::unordered_set<std::string>& set,
                 const std::unordered_set<std::string>& subset) {
    return std::all_of(subset.begin(), subset.end(),
                       [&set](const std::string& entry) { return set.count(entry) != 0; });
}

// One value of an on/off setting, the tunnel or the caching options against the rule.
bool singleValueHolds(const BaselineRule& rule, const std::string& actual) {
    if (rule.pRow->kind != LocalPolicySettingKind::CACHING_LIST) {
        return std::find(rule.expected.begin(), rule.expected.end(), actual) != rule.expected.end();
    }
    const std::unordered_set<std::string> held = cachingEntries(actual);
    switch (rule.eComparison) {
        case RuleComparison::EQUALS:
        case RuleComparison::ONE_OF:
            return std::any_of(
                rule.expected.begin(), rule.expected.end(),
                [&held](const std::string& text) { return cachingEntries(text) == held; });
        case RuleComparison::SUBSET_OF:
            return containsAll({rule.expected.begin(), rule.expected.end()}, held);
        case RuleComparison::SUPERSET_OF:
            return containsAll(held, {rule.expected.begin(), rule.expected.end()});
    }
    return false;
}

// The server list against the rule; the entries that make it fail, up to the findings' cap. The
// list is the policy's own, never copied: a hundred thousand servers cost one pass.
void judgeServers(const BaselineRule& rule, const EffectivePolicy& policy, RuleVerdict& rVerdict) {
    const std::list<std::string>& servers = policy.Servers();
    const auto offend = [&rVerdict](OffendingEntry entry) {
        rVerdict.eState = VerdictState::FAIL;
        if (rVerdict.offending.size() < kMaxFindingsPerKind) {
            rVerdict.offending.push_back(std::move(entry));
        }
    };
    const auto originOf = [&policy](size_t index) {
        return index < policy.serverOrigins.size() ? policy.serverOrigins[index] : SourcePosition{};
    };
    if (rule.eComparison == RuleComparison::EQUALS) {
        const auto [expectedAt, actualAt] = std::mismatch(
            rule.expected.begin(), rule.expected.end(), servers.begin(), servers.end());
        if (actualAt != servers.end()) {
            offend({*actualAt,
                    originOf(static_cast<size_t>(std::distance(servers.begin(), actualAt)))});
        } else if (expectedAt != rule.expected.end()) {
            offend({*expectedAt, SourcePosition{}, true});
        }
        return;
    }
    // Each listed server once, and whether the policy holds it.
    std::unordered_map<std::string_view, bool> expected;
    for (const std::string& entry : rule.expected) {
        expected.emplace(entry, false);
    }
    size_t index = 0;
    for (const std::string& server : servers) {
        const auto at = expected.find(server);
        if (at != expected.end()) {
            at->second = true;
        } else if (rule.eComparison == RuleComparison::SUBSET_OF) {
            offend({server, originOf(index)});
        }
        ++index;
    }
    if (rule.eComparison == RuleComparison::SUPERSET_OF) {
        for (const std::string& entry : rule.expected) {
            if (!expected.at(entry)) {
                offend({entry, SourcePosition{}, true});
            }
        }
    }
}

RuleVerdict judgeRule(const BaselineRule& rule, const EffectivePolicy& policy) {
    const SettingOrigin& setting = policy.Of(*rule.pRow);
    RuleVerdict verdict;
    verdict.rule = rule.pRow->element;
    verdict.pRule = &rule;
    verdict.origin = setting.origin;
    if (KindOf(rule.pRow->kind).shape == ValueShape::LIST) {
        judgeServers(rule, policy, verdict);  // its value is the policy's list (actual stays empty)
        return verdict;
    }
    verdict.actual = setting.value;
    const std::string actual = setting.value.empty() ? std::string() : setting.value.front();
    verdict.eState = singleValueHolds(rule, actual) ? VerdictState::PASS : VerdictState::FAIL;
    return verdict;
}

}  // namespace

ComplianceVerdicts JudgePolicy(const Baseline& baseline, const EffectivePolicy& policy,
                               const std::vector<LintFinding>& auditFindings,
                               const std::string& host, const CalendarDay& today) {
    ComplianceVerdicts result;
    RuleVerdict safety;
    safety.rule = kFileSafetyRule;
    safety.eState = auditFindings.empty() ? VerdictState::PASS : VerdictState::FAIL;
    safety.actual = {auditFindings.empty() ? "safe" : "unsafe"};
    safety.findings = auditFindings;
    result.verdicts.push_back(std::move(safety));
    for (const BaselineRule& rule : baseline.rules) {
        RuleVerdict verdict = judgeRule(rule, policy);
        for (const BaselineWaiver& waiver : baseline.waivers) {
            if (verdict.eState == VerdictState::FAIL && waiver.rule == verdict.rule &&
                waiver.Covers(host) && waiver.HoldsOn(today)) {
                verdict.eState = VerdictState::WAIVED;
                verdict.pWaiver = &waiver;
            }
        }
        result.verdicts.push_back(std::move(verdict));
    }
    for (const BaselineWaiver& waiver : baseline.waivers) {
        const long daysLeft = waiver.expires.DaysSinceEpoch() - today.DaysSinceEpoch();
        if (waiver.Covers(host) && daysLeft >= 0 && daysLeft <= kWaiverWarningDays) {
            result.expiringSoon.push_back(&waiver);
        }
    }
    return result;
}

}  // namespace qnpolicy::tool

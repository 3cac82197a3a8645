// SPDX-License-Identifier: Apache-2.0
// comply's verdict in Prometheus' text exposition format (see ComplianceMetrics.h).

#include "output/ComplianceMetrics.h"

#include <cstdio>
#include <utility>
#include <vector>

#include "LocalPolicyKinds.h"

namespace qnpolicy::tool {

namespace {

using Labels = std::vector<std::pair<const char*, std::string>>;

// Appends one metric family: its HELP and TYPE lines, then each sample added.
class CMetricFamily {
  public:
    CMetricFamily(std::string& rText, const char* name, const char* help)
        : m_rText(rText), m_name(name) {
        m_rText += std::string("# HELP ") + name + ' ' + help + "\n# TYPE " + name + " gauge\n";
    }

    void Sample(const Labels& labels, const std::string& value) {
        m_rText += m_name;
        for (size_t i = 0; i < labels.size(); ++i) {
            m_rText += (i == 0 ? "{" : ",") + std::string(labels[i].first) + "=\"" +
                       EscapedLabelValue(labels[i].second) + '"';
        }
        m_rText += (labels.empty() ? " " : "} ") + value + '\n';
    }
    void Sample(const Labels& labels, bool bValue) {
        Sample(labels, std::string(bValue ? "1" : "0"));
    }
    void Sample(const Labels& labels, size_t count) { Sample(labels, std::to_string(count)); }

  private:
    std::string& m_rText;
    const char* m_name;
};

// Seconds since the epoch with milliseconds, never in exponent notation.
std::string secondsText(double seconds) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

constexpr RuleSeverity kSeverities[] = {RuleSeverity::LOW, RuleSeverity::MEDIUM,
                                        RuleSeverity::HIGH};
constexpr VerdictState kStates[] = {VerdictState::PASS, VerdictState::FAIL, VerdictState::WAIVED};

RuleSeverity severityOf(const RuleVerdict& verdict, const Baseline& baseline) {
    return verdict.pRule != nullptr ? verdict.pRule->eSeverity : baseline.fileSafetySeverity;
}

void appendVerdicts(std::string& rText, const Baseline& baseline,
                    const ComplianceVerdicts* pVerdicts) {
    CMetricFamily compliant(rText, "qnpolicy_compliant",
                            "Whether the policy file meets the baseline (1) or not (0); a file "
                            "that cannot be judged never does.");
    compliant.Sample({}, pVerdicts != nullptr && pVerdicts->Compliant());
    if (pVerdicts == nullptr) {
        return;
    }
    CMetricFamily findings(rText, "qnpolicy_findings",
                           "The baseline's rules that the policy file fails, unwaived, by the "
                           "rule's severity.");
    for (const RuleSeverity eSeverity : kSeverities) {
        size_t count = 0;
        for (const RuleVerdict& verdict : pVerdicts->verdicts) {
            count +=
                verdict.eState == VerdictState::FAIL && severityOf(verdict, baseline) == eSeverity;
        }
        findings.Sample({{"severity", RuleSeverityText(eSeverity)}}, count);
    }
    CMetricFamily rules(rText, "qnpolicy_baseline_rule",
                        "The verdict of each rule of the baseline: 1 for its status (pass, fail "
                        "or waived), 0 for the others.");
    for (const RuleVerdict& verdict : pVerdicts->verdicts) {
        for (const VerdictState eState : kStates) {
            rules.Sample({{"rule", verdict.rule}, {"status", VerdictStateText(eState)}},
                         verdict.eState == eState);
        }
    }
}

// Each on/off setting of the catalogue, as the kinds table reads it from the record.
void appendSettings(std::string& rText, const EffectivePolicy& policy) {
    CMetricFamily settings(rText, "qnpolicy_setting",
                           "The effective value of each on/off setting (1 true, 0 false), as the "
                           "client will hold it at its next start.");
    for (const SettingOrigin& setting : policy.settings) {
        if (KindOf(setting.pRow->kind).shape == ValueShape::BOOLEAN) {
            settings.Sample({{"name", setting.pRow->element}},
                            !setting.value.empty() && setting.value.front() == "true");
        }
    }
}

}  // namespace

std::string EscapedLabelValue(std::string_view value) {
    std::string escaped;
    escaped.reserve(value.size());
    for (const char character : value) {
        if (character == '\\' || character == '"') {
            escaped += '\\';
            escaped += character;
        } else if (character == '\n') {
            escaped += "\\n";
        } else {
            escaped += character;
        }
    }
    return escaped;
}

std::string ComplianceMetricsText(const MetricsSubject& subject) {
    std::string text;
    CMetricFamily success(text, "qnpolicy_check_success",
                          "Whether the baseline and the policy file were read and the file "
                          "judged (1), or not (0).");
    success.Sample({}, subject.pVerdicts != nullptr);
    if (subject.filePresent) {
        CMetricFamily present(text, "qnpolicy_file_present",
                              "Whether anything is at the policy file's path (1) or not (0); a "
                              "path that cannot be examined counts as present.");
        present.Sample({}, *subject.filePresent);
    }
    if (subject.pBaseline != nullptr) {
        appendVerdicts(text, *subject.pBaseline, subject.pVerdicts);
    }
    if (subject.pPolicy != nullptr) {
        appendSettings(text, *subject.pPolicy);
    }
    if (subject.modified) {
        CMetricFamily modified(text, "qnpolicy_file_modified_timestamp_seconds",
                               "The policy file's modification time, seconds since the epoch.");
        modified.Sample({}, secondsText(*subject.modified));
    }
    CMetricFamily checked(text, "qnpolicy_check_timestamp_seconds",
                          "When the policy file was judged, seconds since the epoch.");
    checked.Sample({}, secondsText(subject.checked));
    return text;
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_COMPLIANCEMETRICS_H
#define QNPOLICY_COMPLIANCEMETRICS_H

// comply's verdict on one policy file in Prometheus' text exposition format (version 0.0.4), as
// node_exporter's textfile collector reads it: HELP and TYPE lines, base units, label values
// escaped, no sample timestamps (the collector refuses a file that has them). Labels name rules,
// settings and severities only, never a server or a value a file states.
//
//   MetricsSubject subject;
//   subject.pBaseline = &baseline; subject.pPolicy = &policy; ...
//   const std::string text = ComplianceMetricsText(subject);

#include <optional>
#include <string>
#include <string_view>

#include "baseline/Baseline.h"
#include "origin/EffectivePolicy.h"

namespace qnpolicy::tool {

// What one comply run knows about its file. A null pointer stands for what the run never got:
// no usable baseline, no reading of the file (a FILE operand that is not there), no verdicts
// (the file could not be read to its end).
struct MetricsSubject {
    const Baseline* pBaseline = nullptr;
    const EffectivePolicy* pPolicy = nullptr;
    const ComplianceVerdicts* pVerdicts = nullptr;
    std::optional<bool> filePresent;  // unset: the run did not look (the baseline failed first)
    std::optional<double> modified;   // the file's modification time, seconds since the epoch
    double checked = 0;               // when the run judged it, seconds since the epoch
};

// The exposition of subject: qnpolicy_check_success is 1 only with verdicts; the findings by
// severity, the compliance and the per-rule states only with a baseline (the file never
// compliant without verdicts); each boolean setting of the catalogue as the client will hold it
// at its next start, whenever the file was read (an unreadable one: the defaults and what was
// read before the error, FIPS mode off).
std::string ComplianceMetricsText(const MetricsSubject& subject);

// A label value with backslash, double quote and line feed escaped as the format requires.
std::string EscapedLabelValue(std::string_view value);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_COMPLIANCEMETRICS_H

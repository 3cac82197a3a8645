// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_SCAPCONTENT_H
#define QNPOLICY_SCAPCONTENT_H

// A baseline as content for outside scanners: one source data stream holding an XCCDF 1.2
// benchmark (one rule per setting of the baseline, one for the file's plain form) and the OVAL
// definitions that check the policy file of one install directory; and the waivers of one host
// as an XCCDF tailoring file.
//
// The OVAL checks read the file with XPath 1.0, which cannot follow every rule of the client's
// reader. They are therefore written for the file's plain form only (the root, each setting in
// its section, no prefixes, no DOCTYPE, at most one caching list), and the plain-form rule fails
// on every other shape, so that a scanner never reports a pass the reader would not give.
//
//   ScapTarget target{"/opt/quillnet/", "/opt/quillnet/QuillnetLocalPolicy.xml", Now()};
//   std::cout << ScapDataStream(baseline, target);
//   std::cout << ScapTailoring(baseline, target, "lab-7", Today());

#include <string>

#include "baseline/Baseline.h"

namespace qnpolicy::tool {

// What the content checks, and when it was made.
struct ScapTarget {
    std::string installDir;  // with its trailing '/'
    std::string policyPath;  // the policy file in it
    std::string timestamp;   // UTC, "2026-11-26T10:00:00"
};

// The current time in UTC as content timestamps write it.
std::string ScapTimestamp();

// The XCCDF identifiers: a setting's rule ("xccdf_com.quillnet_rule_FipsMode"), the rule of
// the file's plain form, the profile that selects every rule and the one a tailoring derives.
std::string XccdfRuleId(const std::string& name);
extern const char kPlainFormRule[];
extern const char kBaselineProfileId[];
extern const char kTailoredProfileId[];

// The OVAL definitions document: the platform definition (the install directory exists), the
// plain-form definition and one definition per rule of baseline, in its order. A rule whose
// setting's default meets it passes when the file is absent, as the client then holds the
// defaults. The identifiers are OvalDefinitionId of kPlatformDefinition, kPlainFormDefinition
// and kFirstRuleDefinition plus the rule's index.
std::string OvalDefinitions(const Baseline& baseline, const ScapTarget& target);
std::string OvalDefinitionId(unsigned number);
inline constexpr unsigned kPlatformDefinition = 1;
inline constexpr unsigned kPlainFormDefinition = 2;
inline constexpr unsigned kFirstRuleDefinition = 100;

// The source data stream (SCAP 1.3) with the benchmark and the OVAL definitions.
std::string ScapDataStream(const Baseline& baseline, const ScapTarget& target);

// A tailoring of the benchmark that deselects the rules waived for host on today (the waivers
// JudgePolicy would apply), each with its reason and last day.
std::string ScapTailoring(const Baseline& baseline, const ScapTarget& target,
                          const std::string& host, const CalendarDay& today);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_SCAPCONTENT_H

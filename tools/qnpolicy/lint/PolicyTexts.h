// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_LINT_POLICYTEXTS_H
#define QNPOLICY_LINT_POLICYTEXTS_H

// What the tool and its documents say of policy documents, one row per kind of setting (the
// checks of a text, how the manual page and the schema describe it), the stable names of the
// findings, and what the client holds when it cannot use the file. The library's kinds table
// (LocalPolicyKinds.h) says how the client reads a kind; this says it to administrators.
//
//   std::vector<TextProblem> problems;
//   KindTextsOf(row.kind).check(row, "TRUE", problems);  // non-boolean-value: ...

#include <string>
#include <string_view>
#include <vector>

#include "LocalPolicySettings.h"

namespace qnpolicy::tool {

// The stable names of what a check finds, for scripts; the tool gives each its severity.
namespace findingkind {
inline constexpr char kUnknownElement[] = "unknown-element";
inline constexpr char kNestedRootElement[] = "nested-root-element";
inline constexpr char kIgnoredAttribute[] = "ignored-attribute";
inline constexpr char kNewerVersion[] = "newer-version";
inline constexpr char kNonBooleanValue[] = "non-boolean-value";
inline constexpr char kEmptyValue[] = "empty-value";
inline constexpr char kDuplicateSetting[] = "duplicate-setting";
inline constexpr char kUpdatePermissionOutsideSection[] = "update-permission-outside-section";
inline constexpr char kNestedUpdatePolicy[] = "nested-update-policy";
inline constexpr char kServerListOutsideSection[] = "server-list-outside-section";
inline constexpr char kServerNameOutsideList[] = "server-name-outside-list";
inline constexpr char kServerListText[] = "server-list-text";
inline constexpr char kPaddedServerName[] = "padded-server-name";
inline constexpr char kBlankInServerName[] = "blank-in-server-name";
inline constexpr char kDuplicateServerName[] = "duplicate-server-name";
inline constexpr char kUnknownCachingToken[] = "unknown-caching-token";
inline constexpr char kIgnoredCachingToken[] = "ignored-caching-token";
inline constexpr char kCachingRestrictionsCleared[] = "caching-restrictions-cleared";
inline constexpr char kTunnelValueNotApplied[] = "tunnel-value-not-applied";
inline constexpr char kOverriddenSetting[] = "overridden-setting";
inline constexpr char kFileOwner[] = "file-owner";
inline constexpr char kFilePermissions[] = "file-permissions";
inline constexpr char kUnsafePath[] = "unsafe-path";
}  // namespace findingkind

// One place where a text will not do what it seems to say.
struct TextProblem {
    const char* kind;     // a findingkind name
    std::string message;  // one sentence or two for an administrator
};

struct KindTexts {
    LocalPolicySettingKind kind;
    // The checks: appends what in text the client will not take as it reads.
    void (*check)(const LocalPolicySettingInfo& row, std::string_view text,
                  std::vector<TextProblem>& problems);
    // How the client reads a text of this kind, for the manual page and the schema.
    const char* reading;
    // What a later occurrence of the element does; null when a repetition is no finding.
    const char* repeated;
    // What the element does without text; null when that is no finding.
    const char* withoutText;
    // What the client does with the element where it does not count, and the finding that
    // says so; null when it counts anywhere.
    const char* misplaced;
    const char* misplacedFinding;
    // The schema's simple type of its text; null for element content.
    const char* schemaType;
    // How generation writes an installer value of this kind when the vocabulary lists no values
    // for it (any text is accepted); null for kinds whose values are listed.
    const char* installerValue;
};

const KindTexts& KindTextsOf(LocalPolicySettingKind kind);

// What the client holds after a load that finds no file, and after one that cannot parse the
// file, in words for administrators: the manual page, show and check describe the record of
// such a read with these sentences.
inline constexpr char kMissingFileConsequence[] =
    "The client then holds every setting at its default, with FIPS mode off.";
inline constexpr char kUnreadableFileConsequence[] =
    "The client then holds the defaults plus the settings read before the error, with FIPS mode "
    "off: a policy it cannot read restricts nothing, or only part of what it says.";

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_LINT_POLICYTEXTS_H

// SPDX-License-Identifier: Apache-2.0
#ifndef LOCALPOLICYKINDS_H
#define LOCALPOLICYKINDS_H

// Everything that depends on how a setting's text is read, one row per LocalPolicySettingKind:
// how the reader applies a text, what in a text will not do what it seems to say, how the
// setting's effective value reads in the record, and what the manual page and the schema say
// of it. The reader, the linter, the tool's show and generate, the schema and the manual page
// take what depends on a kind from here, so that a kind is described in one place.
//
//   const LocalPolicyKind& kind = KindOf(row.kind);
//   std::vector<TextProblem> problems;
//   kind.check(row, "TRUE", problems);   // non-boolean-value: "FipsMode" holds "TRUE", ...
//
// Internal to the library and the tool: not installed.

#include <string>
#include <string_view>
#include <vector>

#include "LocalPolicySettings.h"
#include "LocalQNPolicyInfo.h"

namespace qnpolicy {

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

// Whether the reader changed the record with a text.
enum class TextEffect { APPLIED, UNCHANGED };

// How a setting's effective value is shown: on or off, one text, or a list of texts.
enum class ValueShape { BOOLEAN, TEXT, LIST, NONE };

struct LocalPolicyKind {
    LocalPolicySettingKind kind;
    // The reader: applies the text of an element of this kind that counts where it stands.
    TextEffect (*apply)(const LocalPolicySettingInfo& row, const std::string& text,
                        LocalQNPolicyInfo& record, bool& bFileUseFIPSMode);
    // The checks: appends what in text the client will not take as it reads.
    void (*check)(const LocalPolicySettingInfo& row, std::string_view text,
                  std::vector<TextProblem>& problems);
    // show: the effective value as the record holds it, as texts of shape.
    ValueShape shape;
    std::vector<std::string> (*effective)(const LocalPolicySettingInfo& row,
                                          const LocalQNPolicyInfo& record);
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

const LocalPolicyKind& KindOf(LocalPolicySettingKind kind);

// The texts a setting of the row is read from that the reader applies exactly, in the order it
// knows them: "true" and "false" for an on/off setting, the tunnel texts, the caching option
// texts; empty for free text (server names).
std::vector<std::string> AppliedTexts(const LocalPolicySettingInfo& row);

// The spelling of an installer value that the reader applies: where the vocabulary's spelling
// of an accepted value (value) is not a text the reader applies, the applied text that equals
// it ignoring case ("TLS" gives "tls", "IPSec" "ipsec"); any other value as it is. What the
// command-line tool writes, so that every setting it writes takes effect; the library's own
// generation keeps the vocabulary's spelling.
std::string AppliedSpelling(const LocalPolicySettingInfo& row, const std::string& value);

// Whether a server name holds XML white space (space, tab, line feed, carriage return) or a
// control character (U+0000 to U+001F, U+007F to U+009F) anywhere. The reader keeps such a
// name whole, as one server, blanks included: "gw1 gw2" authorizes no server called gw1.
bool HasBlankOrControl(std::string_view name);

// The row's allowed installer values in the spelling the command-line tool writes them in
// (AppliedSpelling); empty for a free value, whose spelling is kept.
std::vector<std::string> WrittenValues(const LocalPolicySettingInfo& row);

}  // namespace qnpolicy

#endif  // LOCALPOLICYKINDS_H

#ifndef QNPOLICY_LINTFINDING_H
#define QNPOLICY_LINTFINDING_H

#include <string>

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
    std::string kind;          // stable identifier for scripts, e.g. "unknown-element"
    Severity eSeverity = Severity::ERROR;
    std::string message;  // one readable sentence for the administrator
    std::string element;  // the element the finding is about; empty for the file as a whole
};

// The stable kinds, one per way a file can miss its author's intent.
namespace findingkind {
inline constexpr char kDoctype[] = "doctype";
inline constexpr char kUnknownElement[] = "unknown-element";
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
inline constexpr char kDuplicateServerName[] = "duplicate-server-name";
inline constexpr char kUnknownCachingToken[] = "unknown-caching-token";
inline constexpr char kIgnoredCachingToken[] = "ignored-caching-token";
inline constexpr char kCachingRestrictionsCleared[] = "caching-restrictions-cleared";
inline constexpr char kTunnelValueNotApplied[] = "tunnel-value-not-applied";
inline constexpr char kFileOwner[] = "file-owner";
inline constexpr char kFilePermissions[] = "file-permissions";
}  // namespace findingkind

// Every kind with its severity, in the order the README lists them.
struct FindingKindInfo {
    const char* kind;
    Severity eSeverity;
};
inline constexpr FindingKindInfo kFindingKinds[] = {
    {findingkind::kDoctype, Severity::ERROR},
    {findingkind::kUnknownElement, Severity::ERROR},
    {findingkind::kIgnoredAttribute, Severity::ERROR},
    {findingkind::kNewerVersion, Severity::WARNING},
    {findingkind::kNonBooleanValue, Severity::ERROR},
    {findingkind::kEmptyValue, Severity::ERROR},
    {findingkind::kDuplicateSetting, Severity::WARNING},
    {findingkind::kUpdatePermissionOutsideSection, Severity::ERROR},
    {findingkind::kNestedUpdatePolicy, Severity::ERROR},
    {findingkind::kServerListOutsideSection, Severity::ERROR},
    {findingkind::kServerNameOutsideList, Severity::ERROR},
    {findingkind::kServerListText, Severity::ERROR},
    {findingkind::kPaddedServerName, Severity::WARNING},
    {findingkind::kDuplicateServerName, Severity::WARNING},
    {findingkind::kUnknownCachingToken, Severity::ERROR},
    {findingkind::kIgnoredCachingToken, Severity::ERROR},
    {findingkind::kCachingRestrictionsCleared, Severity::ERROR},
    {findingkind::kTunnelValueNotApplied, Severity::ERROR},
    {findingkind::kFileOwner, Severity::ERROR},
    {findingkind::kFilePermissions, Severity::ERROR},
};

// The severity of a kind of kFindingKinds.
Severity SeverityOf(const std::string& kind);
// "error" or "warning".
const char* SeverityText(Severity eSeverity);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_LINTFINDING_H

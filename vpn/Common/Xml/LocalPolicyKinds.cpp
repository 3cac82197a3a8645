// SPDX-License-Identifier: Apache-2.0
// The kinds of setting: one row each, with how the reader applies a text and how the value
// reads in the record.

#include "LocalPolicyKinds.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "LocalPolicyDocument.h"
#include "LocalQNPolicyOptionTexts.h"
#include "MessageText.h"

namespace qnpolicy {

namespace {

// The one text a boolean setting reads as true; every other text is false.
constexpr std::string_view kTrue = "true";
constexpr std::string_view kFalse = "false";

std::string booleanText(bool b) {
    return std::string(b ? kTrue : kFalse);
}

// ---- On/off settings: FIPS mode, flags, update permissions, exclusions ----

TextEffect applyFipsMode(const LocalPolicySettingInfo& /*row*/, const std::string& text,
                         LocalQNPolicyInfo& /*record*/, bool& bFileUseFIPSMode) {
    // The record's own FIPS flag is derived by the loader after the parse.
    bFileUseFIPSMode = text == kTrue;
    return TextEffect::APPLIED;
}

TextEffect applyFlag(const LocalPolicySettingInfo& row, const std::string& text,
                     LocalQNPolicyInfo& record, bool& /*bFileUseFIPSMode*/) {
    (record.*(row.setter))(text == kTrue);
    return TextEffect::APPLIED;
}

TextEffect applyExclusion(const LocalPolicySettingInfo& row, const std::string& text,
                          LocalQNPolicyInfo& record, bool& /*bFileUseFIPSMode*/) {
    // Anything but "true" makes no call: an exclusion once made stays.
    if (text != kTrue) {
        return TextEffect::UNCHANGED;
    }
    record.ExcludeCertStores(row.excludeMask);
    return TextEffect::APPLIED;
}

std::vector<std::string> booleanValue(const LocalPolicySettingInfo& row,
                                      const LocalQNPolicyInfo& record) {
    return {booleanText((record.*(row.getter))())};
}

std::string booleanDocumentText(const LocalPolicySettingInfo& row,
                                const LocalQNPolicyInfo& record) {
    return booleanText((record.*(row.getter))());
}

// ---- The preference-caching list ----

TextEffect applyCachingList(const LocalPolicySettingInfo& /*row*/, const std::string& text,
                            LocalQNPolicyInfo& record, bool& /*bFileUseFIPSMode*/) {
    // Tokens are looked up untrimmed; an unknown one counts as "false", which clears every
    // restriction and ends the list.
    const std::vector<std::string> tokens = SplitCachingList(text);
    for (const std::string& token : tokens) {
        RestrictPrefCachingOption option = RESTRICT_PREF_CACHING_FALSE;  // when it names none
        FindCachingOption(token, option);
        record.RestrictPrefCaching(option);
        if (option == RESTRICT_PREF_CACHING_FALSE) {
            break;
        }
    }
    return tokens.empty() ? TextEffect::UNCHANGED : TextEffect::APPLIED;
}

// What the caching options in force restrict, as the text that, written in the file, gives
// them: the restricting options in option order, without blanks; "none" when nothing is
// restricted. (The "false" mark the record always holds restricts nothing.)
std::vector<std::string> cachingValue(const LocalPolicySettingInfo& /*row*/,
                                      const LocalQNPolicyInfo& record) {
    const std::vector<bool> values = record.RestrictPrefCaching();
    const std::vector<std::string>& texts = LocalPolicyCachingOptionTexts();
    std::vector<std::string> restricted;
    for (size_t i = RESTRICT_PREF_CACHING_FALSE + 1; i < values.size() && i < texts.size(); ++i) {
        if (values[i]) {
            restricted.push_back(texts[i]);
        }
    }
    return {restricted.empty() ? std::string("none") : Join(restricted, ",")};
}

std::string cachingDocumentText(const LocalPolicySettingInfo& /*row*/,
                                const LocalQNPolicyInfo& record) {
    return record.RestrictPrefCachingStr();
}

// ---- The tunnel protocol ----

TextEffect applyTunnel(const LocalPolicySettingInfo& /*row*/, const std::string& text,
                       LocalQNPolicyInfo& record, bool& /*bFileUseFIPSMode*/) {
    // Only the applied texts, exactly, select an option; any other keeps the record's
    // setting. The texts are distinct, so the order they are tried in does not matter.
    const std::vector<std::string>& texts = LocalPolicyAppliedTunnelTexts();
    for (size_t option = 0; option < texts.size(); ++option) {
        if (text == texts[option]) {
            record.RestrictTunnelProtocols(static_cast<RestrictTunnelProtocolOption>(option));
            return TextEffect::APPLIED;
        }
    }
    return TextEffect::UNCHANGED;
}

std::vector<std::string> tunnelValue(const LocalPolicySettingInfo& /*row*/,
                                     const LocalQNPolicyInfo& record) {
    const std::string& text = LocalPolicyTunnelOptionText(record.RestrictTunnelProtocols());
    return {text.empty()
                ? "unknown (" + std::to_string(static_cast<int>(record.RestrictTunnelProtocols())) +
                      ")"
                : text};
}

std::string tunnelDocumentText(const LocalPolicySettingInfo& /*row*/,
                               const LocalQNPolicyInfo& record) {
    return LocalPolicyTunnelOptionText(record.RestrictTunnelProtocols());
}

// ---- The authorized server list and its names ----

TextEffect applyNothing(const LocalPolicySettingInfo& /*row*/, const std::string& /*text*/,
                        LocalQNPolicyInfo& /*record*/, bool& /*bFileUseFIPSMode*/) {
    return TextEffect::UNCHANGED;
}

std::vector<std::string> serverListValue(const LocalPolicySettingInfo& /*row*/,
                                         const LocalQNPolicyInfo& record) {
    const std::list<std::string>& servers = record.GetAuthorizedServerList();
    return std::vector<std::string>(servers.begin(), servers.end());
}

TextEffect applyServerName(const LocalPolicySettingInfo& /*row*/, const std::string& text,
                           LocalQNPolicyInfo& record, bool& /*bFileUseFIPSMode*/) {
    record.AddToAuthorizedServerList(text);  // kept as it came
    return TextEffect::APPLIED;
}

std::vector<std::string> noValue(const LocalPolicySettingInfo& /*row*/,
                                 const LocalQNPolicyInfo& /*record*/) {
    return {};
}

std::string noDocumentText(const LocalPolicySettingInfo& /*row*/,
                           const LocalQNPolicyInfo& /*record*/) {
    return std::string();
}

// Indexed by LocalPolicySettingKind.
constexpr std::array<LocalPolicyKind, 8> kKinds = {{
    {LocalPolicySettingKind::FIPS_MODE, applyFipsMode, ValueShape::BOOLEAN, booleanValue,
     booleanDocumentText},
    {LocalPolicySettingKind::FLAG, applyFlag, ValueShape::BOOLEAN, booleanValue,
     booleanDocumentText},
    {LocalPolicySettingKind::CERT_STORE_EXCLUSION, applyExclusion, ValueShape::BOOLEAN,
     booleanValue, booleanDocumentText},
    {LocalPolicySettingKind::CACHING_LIST, applyCachingList, ValueShape::TEXT, cachingValue,
     cachingDocumentText},
    {LocalPolicySettingKind::TUNNEL_PROTOCOL, applyTunnel, ValueShape::TEXT, tunnelValue,
     tunnelDocumentText},
    {LocalPolicySettingKind::UPDATE_PERMISSION, applyFlag, ValueShape::BOOLEAN, booleanValue,
     booleanDocumentText},
    {LocalPolicySettingKind::SERVER_LIST, applyNothing, ValueShape::LIST, serverListValue,
     noDocumentText},
    {LocalPolicySettingKind::SERVER_NAME, applyServerName, ValueShape::NONE, noValue,
     noDocumentText},
}};

constexpr bool rowsInKindOrder() {
    for (size_t i = 0; i < kKinds.size(); ++i) {
        if (static_cast<size_t>(kKinds[i].kind) != i) {
            return false;
        }
    }
    return true;
}
static_assert(rowsInKindOrder(), "kKinds is indexed by LocalPolicySettingKind");

}  // namespace

const LocalPolicyKind& KindOf(LocalPolicySettingKind kind) {
    return kKinds[static_cast<size_t>(kind)];
}

std::vector<std::string> AppliedTexts(const LocalPolicySettingInfo& row) {
    switch (KindOf(row.kind).shape) {
        case ValueShape::BOOLEAN:
            return {std::string(kTrue), std::string(kFalse)};
        case ValueShape::TEXT:
            return row.kind == LocalPolicySettingKind::CACHING_LIST
                       ? LocalPolicyCachingOptionTexts()
                       : LocalPolicyAppliedTunnelTexts();
        case ValueShape::LIST:
        case ValueShape::NONE:
            break;
    }
    return {};
}

std::string AppliedSpelling(const LocalPolicySettingInfo& row, const std::string& value) {
    if (row.allowedValues.empty()) {
        return value;  // a free value keeps its spelling (generation then splits a server list)
    }
    const std::vector<std::string> applied = AppliedTexts(row);
    if (std::find(applied.begin(), applied.end(), value) != applied.end()) {
        return value;
    }
    for (const std::string& text : applied) {
        if (SameTextIgnoringCase(text, value)) {
            return text;
        }
    }
    return value;
}

bool HasBlankOrControl(std::string_view name) {
    for (size_t i = 0; i < name.size(); ++i) {
        const auto c = static_cast<unsigned char>(name[i]);
        // C1 controls are U+0080 to U+009F, in UTF-8 0xC2 followed by 0x80 to 0x9F.
        const bool bC1 = c == 0xC2 && i + 1 < name.size() &&
                         static_cast<unsigned char>(name[i + 1]) <= 0x9F &&
                         static_cast<unsigned char>(name[i + 1]) >= 0x80;
        if (c <= 0x20 || c == 0x7F || bC1) {
            return true;
        }
    }
    return false;
}

std::vector<std::string> WrittenValues(const LocalPolicySettingInfo& row) {
    std::vector<std::string> written;
    for (const std::string& value : row.allowedValues) {
        written.push_back(AppliedSpelling(row, value));
    }
    return written;
}

}  // namespace qnpolicy

// SPDX-License-Identifier: Apache-2.0
// The kinds of setting: one row each, with how the reader applies a text, what the checks find
// in one, how the value shows and how the documents describe it.

#include "LocalPolicyKinds.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <utility>

#include "LocalPolicyDocument.h"
#include "LocalQNPolicyOptionTexts.h"
#include "MessageText.h"
#include "StringUtils.h"

namespace qnpolicy {

namespace {

// The one text a boolean setting reads as true; every other text is false.
constexpr std::string_view kTrue = "true";
constexpr std::string_view kFalse = "false";

std::string lowerCase(std::string_view text) {
    std::string lowered(text);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lowered;
}

std::string_view trimmed(std::string_view text) {
    const auto isSpace = [](unsigned char c) { return std::isspace(c) != 0; };
    while (!text.empty() && isSpace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return text;
}

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

void checkBoolean(const LocalPolicySettingInfo& row, std::string_view text,
                  std::vector<TextProblem>& problems) {
    if (text == kTrue || text == kFalse) {
        return;
    }
    const std::string consequence =
        row.kind == LocalPolicySettingKind::CERT_STORE_EXCLUSION
            ? "which the reader ignores (only \"true\" excludes the store group)"
            : "which the reader takes as false";
    const std::string meant = lowerCase(trimmed(text));
    const std::string hint = meant == kTrue || meant == kFalse
                                 ? " Write " + Quoted(meant) + " exactly."
                                 : " Write \"true\" or \"false\".";
    problems.push_back(
        {findingkind::kNonBooleanValue,
         Quoted(row.element) + " holds " + Quoted(text) + ", " + consequence + "." + hint});
}

std::vector<std::string> booleanValue(const LocalPolicySettingInfo& row,
                                      const LocalQNPolicyInfo& record) {
    return {booleanText((record.*(row.getter))())};
}

// ---- The preference-caching list ----

TextEffect applyCachingList(const LocalPolicySettingInfo& /*row*/, const std::string& text,
                            LocalQNPolicyInfo& record, bool& /*bFileUseFIPSMode*/) {
    // Text to option, the inverse of sg_restrictPrefCachingOptionToStrMap, built once per
    // process from it.
    static const std::map<std::string, RestrictPrefCachingOption>
        restrictPrefCachingStrToOptionMap = [] {
            std::map<std::string, RestrictPrefCachingOption> inverse;
            for (const auto& optionText : sg_restrictPrefCachingOptionToStrMap) {
                inverse.emplace(optionText.second, optionText.first);
            }
            return inverse;
        }();
    // Tokens are looked up untrimmed; an unknown one counts as "false", which clears every
    // restriction and ends the list.
    const std::vector<std::string> tokens =
        CStringUtils::tokenize(text, sg_restrictPrefCachingDelim);
    for (const std::string& token : tokens) {
        const auto found = restrictPrefCachingStrToOptionMap.find(token);
        const RestrictPrefCachingOption option = found != restrictPrefCachingStrToOptionMap.end()
                                                     ? found->second
                                                     : RESTRICT_PREF_CACHING_FALSE;
        record.RestrictPrefCaching(option);
        if (option == RESTRICT_PREF_CACHING_FALSE) {
            break;
        }
    }
    return tokens.empty() ? TextEffect::UNCHANGED : TextEffect::APPLIED;
}

void checkCachingList(const LocalPolicySettingInfo& row, std::string_view text,
                      std::vector<TextProblem>& problems) {
    const std::vector<std::string>& optionTexts = LocalPolicyCachingOptionTexts();
    const std::vector<std::string> tokens =
        CStringUtils::tokenize(std::string(text), sg_restrictPrefCachingDelim);
    if (tokens.empty()) {
        problems.push_back({findingkind::kEmptyValue,
                            Quoted(row.element) + " holds " + Quoted(text) +
                                ", which names no caching option: the setting stays unchanged."});
        return;
    }
    // The reader applies the tokens in order and stops at the first "false" or unknown one,
    // which clears every restriction set before it.
    for (auto token = tokens.begin(); token != tokens.end(); ++token) {
        const bool bKnown =
            std::find(optionTexts.begin(), optionTexts.end(), *token) != optionTexts.end();
        if (bKnown && *token != kFalse) {
            continue;
        }
        const std::vector<std::string> before(tokens.begin(), token);
        const std::string cleared =
            before.empty() ? std::string() : " (here " + Join(before, ", ", true) + ")";
        if (!bKnown) {
            // An option with blanks around it (as after ", ") is the commonest unknown one.
            const std::string_view bare = trimmed(*token);
            const bool bPadded =
                bare.size() != token->size() &&
                std::find(optionTexts.begin(), optionTexts.end(), bare) != optionTexts.end();
            std::string message = "Unknown caching option " + Quoted(*token) + " in " +
                                  Quoted(row.element) +
                                  ": the reader takes it as \"false\", which clears every "
                                  "caching restriction";
            message += cleared;
            message += bPadded ? ". The reader does not trim blanks: write " + Quoted(bare) +
                                     " with nothing around it but the commas."
                               : "." + DidYouMean(*token, optionTexts);
            problems.push_back({findingkind::kUnknownCachingToken, std::move(message)});
        } else if (!before.empty()) {
            problems.push_back({findingkind::kCachingRestrictionsCleared,
                                "\"false\" in " + Quoted(row.element) +
                                    " clears the restrictions before it (" +
                                    Join(before, ", ", true) + ")."});
        }
        if (token + 1 != tokens.end()) {
            const std::vector<std::string> after(token + 1, tokens.end());
            problems.push_back({findingkind::kIgnoredCachingToken,
                                "The caching options after " + Quoted(*token) + " in " +
                                    Quoted(row.element) +
                                    " are ignored: " + Join(after, ", ", true) + "."});
        }
        return;
    }
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

void checkTunnel(const LocalPolicySettingInfo& row, std::string_view text,
                 std::vector<TextProblem>& problems) {
    const std::vector<std::string>& applied = LocalPolicyAppliedTunnelTexts();
    if (std::find(applied.begin(), applied.end(), text) != applied.end()) {
        return;
    }
    std::string hint = " The reader applies only " + Join(applied, ", ", true) + ", exactly.";
    const std::string lowered = lowerCase(trimmed(text));
    if (std::find(applied.begin(), applied.end(), lowered) != applied.end()) {
        hint += " Write " + Quoted(lowered) + ".";
    }
    problems.push_back({findingkind::kTunnelValueNotApplied,
                        Quoted(row.element) + " holds " + Quoted(text) +
                            ", which the reader does not apply: the tunnel setting keeps its "
                            "previous value (by default, no restriction)." +
                            hint});
}

std::vector<std::string> tunnelValue(const LocalPolicySettingInfo& /*row*/,
                                     const LocalQNPolicyInfo& record) {
    const std::string& text = LocalPolicyTunnelOptionText(record.RestrictTunnelProtocols());
    return {text.empty()
                ? "unknown (" + std::to_string(static_cast<int>(record.RestrictTunnelProtocols())) +
                      ")"
                : text};
}

// ---- The authorized server list and its names ----

TextEffect applyNothing(const LocalPolicySettingInfo& /*row*/, const std::string& /*text*/,
                        LocalQNPolicyInfo& /*record*/, bool& /*bFileUseFIPSMode*/) {
    return TextEffect::UNCHANGED;
}

void checkServerListText(const LocalPolicySettingInfo& row, std::string_view text,
                         std::vector<TextProblem>& problems) {
    if (!trimmed(text).empty()) {
        problems.push_back({findingkind::kServerListText,
                            "The text " + Quoted(text) + " of " + Quoted(row.element) +
                                " is ignored: give each server in an element of its own (see "
                                "`qnpolicy generate --dry-run upal=...`)."});
    }
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

void checkServerName(const LocalPolicySettingInfo& /*row*/, std::string_view text,
                     std::vector<TextProblem>& problems) {
    if (!HasBlankOrControl(text)) {
        return;
    }
    const std::string_view inner = trimmed(text);
    if (!HasBlankOrControl(inner)) {
        problems.push_back({findingkind::kPaddedServerName,
                            "Server name " + Quoted(text) +
                                " has blanks around it; the reader keeps them, so the name is "
                                "authorized with them."});
        return;
    }
    problems.push_back({findingkind::kBlankInServerName,
                        "Server name " + Quoted(text) +
                            " holds white space or a control character: the reader keeps it "
                            "whole, as one name with the blank inside, so no server it may "
                            "have meant to list is authorized. Give each server its own "
                            "ServerName element."});
}

std::vector<std::string> noValue(const LocalPolicySettingInfo& /*row*/,
                                 const LocalQNPolicyInfo& /*record*/) {
    return {};
}

constexpr char kBooleanReading[] =
    "true turns it on; any other text, TRUE included, is taken as false.";
constexpr char kLastWins[] = "the last one wins.";
constexpr char kUnchanged[] = "the reader leaves the setting unchanged.";

// Indexed by LocalPolicySettingKind.
constexpr std::array<LocalPolicyKind, 8> kKinds = {{
    {LocalPolicySettingKind::FIPS_MODE, applyFipsMode, checkBoolean, ValueShape::BOOLEAN,
     booleanValue,
     "true turns it on; any other text, TRUE included, is taken as false. Which mode a load puts "
     "in force is decided by the FIPS retention (see FIPS mode below).",
     kLastWins, kUnchanged, nullptr, nullptr, "Boolean", nullptr},
    {LocalPolicySettingKind::FLAG, applyFlag, checkBoolean, ValueShape::BOOLEAN, booleanValue,
     kBooleanReading, kLastWins, kUnchanged, nullptr, nullptr, "Boolean", nullptr},
    {LocalPolicySettingKind::CERT_STORE_EXCLUSION, applyExclusion, checkBoolean,
     ValueShape::BOOLEAN, booleanValue,
     "true excludes the stores; any other text changes nothing, so an exclusion once made "
     "stays.",
     "an exclusion once made stays, whatever a later occurrence says.", kUnchanged, nullptr,
     nullptr, "Boolean", nullptr},
    {LocalPolicySettingKind::CACHING_LIST, applyCachingList, checkCachingList, ValueShape::TEXT,
     cachingValue,
     "Options separated by commas, each exactly as spelled: false, Credentials, Thumbprints, "
     "CredentialsAndThumbprints, AutomaticServerSelection or All. false clears every "
     "restriction; an unknown option is taken as false, and the options after either are "
     "ignored. Empty pieces are skipped, but blanks are not trimmed: \"Credentials, Thumbprints\" "
     "holds the unknown option \" Thumbprints\" and so restricts nothing.",
     "the lists are applied one after the other: a later list adds its options, and false or an "
     "unknown option in it clears every restriction before it, those of earlier lists included.",
     kUnchanged, nullptr, nullptr, "CachingList",
     "any text, written into the element unchanged and read as above"},
    {LocalPolicySettingKind::TUNNEL_PROTOCOL, applyTunnel, checkTunnel, ValueShape::TEXT,
     tunnelValue,
     "The client applies only false, tls and ipsec, exactly; any other text changes "
     "nothing.",
     "the last recognised value wins: a later text the client does not apply leaves the earlier "
     "value.",
     kUnchanged, nullptr, nullptr, "TunnelProtocol", nullptr},
    {LocalPolicySettingKind::UPDATE_PERMISSION, applyFlag, checkBoolean, ValueShape::BOOLEAN,
     booleanValue,
     "true allows these updates from any server; any other text is taken as false. Counts only "
     "inside UpdatePolicy; elsewhere it is ignored with a warning.",
     kLastWins, kUnchanged,
     "outside \"UpdatePolicy\": the reader ignores it (and logs \"Local Policy XML structure is "
     "incorrect.\"); move it into the \"UpdatePolicy\" section.",
     findingkind::kUpdatePermissionOutsideSection, "Boolean", nullptr},
    {LocalPolicySettingKind::SERVER_LIST, applyNothing, checkServerListText, ValueShape::LIST,
     serverListValue,
     "No text of its own: one ServerName element per server. Counts only inside UpdatePolicy; "
     "text written directly in it is ignored.",
     nullptr, nullptr,
     "outside \"UpdatePolicy\": the reader ignores it and every server name in it.",
     findingkind::kServerListOutsideSection, nullptr,
     "server names separated by commas or semicolons: each non-empty piece becomes one "
     "ServerName element, exactly as written, blanks included (\"gw1, gw2\" gives \"gw1\" and "
     "\" gw2\")"},
    {LocalPolicySettingKind::SERVER_NAME, applyServerName, checkServerName, ValueShape::NONE,
     noValue,
     "Counts only inside an AuthorizedServerList inside UpdatePolicy; every occurrence adds a "
     "server, duplicates included.",
     nullptr, "the reader adds no server for it.",
     "outside its list: the reader ignores it; authorized servers belong in "
     "UpdatePolicy/AuthorizedServerList.",
     findingkind::kServerNameOutsideList, "ServerName", nullptr},
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

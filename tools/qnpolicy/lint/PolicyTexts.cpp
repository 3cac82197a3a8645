// SPDX-License-Identifier: Apache-2.0
// What the tool and its documents say of each kind of setting: the checks of a text, the
// manual page's and the schema's wording, and the consequences of a file the client cannot use.

#include "lint/PolicyTexts.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "LocalPolicyKinds.h"
#include "LocalQNPolicyOptionTexts.h"
#include "MessageText.h"

namespace qnpolicy::tool {

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

void checkCachingList(const LocalPolicySettingInfo& row, std::string_view text,
                      std::vector<TextProblem>& problems) {
    const std::vector<std::string>& optionTexts = LocalPolicyCachingOptionTexts();
    const std::vector<std::string> tokens = SplitCachingList(std::string(text));
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

void checkServerListText(const LocalPolicySettingInfo& row, std::string_view text,
                         std::vector<TextProblem>& problems) {
    if (!trimmed(text).empty()) {
        problems.push_back({findingkind::kServerListText,
                            "The text " + Quoted(text) + " of " + Quoted(row.element) +
                                " is ignored: give each server in an element of its own (see "
                                "`qnpolicy generate --dry-run upal=...`)."});
    }
}

void checkServerName(const LocalPolicySettingInfo& /*row*/, std::string_view text,
                     std::vector<TextProblem>& problems) {
    if (!HasBlankOrControl(text)) {
        return;
    }
    if (!HasBlankOrControl(trimmed(text))) {
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

constexpr char kBooleanReading[] =
    "true turns it on; any other text, TRUE included, is taken as false.";
constexpr char kLastWins[] = "the last one wins.";
constexpr char kUnchanged[] = "the reader leaves the setting unchanged.";

// Indexed by LocalPolicySettingKind.
constexpr std::array<KindTexts, 8> kKindTexts = {{
    {LocalPolicySettingKind::FIPS_MODE, checkBoolean,
     "true turns it on; any other text, TRUE included, is taken as false. Which mode a load puts "
     "in force is decided by the FIPS retention (see FIPS mode below).",
     kLastWins, kUnchanged, nullptr, nullptr, "Boolean", nullptr},
    {LocalPolicySettingKind::FLAG, checkBoolean, kBooleanReading, kLastWins, kUnchanged, nullptr,
     nullptr, "Boolean", nullptr},
    {LocalPolicySettingKind::CERT_STORE_EXCLUSION, checkBoolean,
     "true excludes the stores; any other text changes nothing, so an exclusion once made "
     "stays.",
     "an exclusion once made stays, whatever a later occurrence says.", kUnchanged, nullptr,
     nullptr, "Boolean", nullptr},
    {LocalPolicySettingKind::CACHING_LIST, checkCachingList,
     "Options separated by commas, each exactly as spelled: false, Credentials, Thumbprints, "
     "CredentialsAndThumbprints, AutomaticServerSelection or All. false clears every "
     "restriction; an unknown option is taken as false, and the options after either are "
     "ignored. Empty pieces are skipped, but blanks are not trimmed: \"Credentials, Thumbprints\" "
     "holds the unknown option \" Thumbprints\" and so restricts nothing.",
     "the lists are applied one after the other: a later list adds its options, and false or an "
     "unknown option in it clears every restriction before it, those of earlier lists included.",
     kUnchanged, nullptr, nullptr, "CachingList",
     "any text, written into the element unchanged and read as above"},
    {LocalPolicySettingKind::TUNNEL_PROTOCOL, checkTunnel,
     "The client applies only false, tls and ipsec, exactly; any other text changes "
     "nothing.",
     "the last recognised value wins: a later text the client does not apply leaves the earlier "
     "value.",
     kUnchanged, nullptr, nullptr, "TunnelProtocol", nullptr},
    {LocalPolicySettingKind::UPDATE_PERMISSION, checkBoolean,
     "true allows these updates from any server; any other text is taken as false. Counts only "
     "inside UpdatePolicy; elsewhere it is ignored with a warning.",
     kLastWins, kUnchanged,
     "outside \"UpdatePolicy\": the reader ignores it (and logs \"Local Policy XML structure is "
     "incorrect.\"); move it into the \"UpdatePolicy\" section.",
     findingkind::kUpdatePermissionOutsideSection, "Boolean", nullptr},
    {LocalPolicySettingKind::SERVER_LIST, checkServerListText,
     "No text of its own: one ServerName element per server. Counts only inside UpdatePolicy; "
     "text written directly in it is ignored.",
     nullptr, nullptr,
     "outside \"UpdatePolicy\": the reader ignores it and every server name in it.",
     findingkind::kServerListOutsideSection, nullptr,
     "server names separated by commas or semicolons: each non-empty piece becomes one "
     "ServerName element, exactly as written, blanks included (\"gw1, gw2\" gives \"gw1\" and "
     "\" gw2\")"},
    {LocalPolicySettingKind::SERVER_NAME, checkServerName,
     "Counts only inside an AuthorizedServerList inside UpdatePolicy; every occurrence adds a "
     "server, duplicates included.",
     nullptr, "the reader adds no server for it.",
     "outside its list: the reader ignores it; authorized servers belong in "
     "UpdatePolicy/AuthorizedServerList.",
     findingkind::kServerNameOutsideList, "ServerName", nullptr},
}};

constexpr bool rowsInKindOrder() {
    for (size_t i = 0; i < kKindTexts.size(); ++i) {
        if (static_cast<size_t>(kKindTexts[i].kind) != i) {
            return false;
        }
    }
    return true;
}
static_assert(rowsInKindOrder(), "kKindTexts is indexed by LocalPolicySettingKind");

}  // namespace

const KindTexts& KindTextsOf(LocalPolicySettingKind kind) {
    return kKindTexts[static_cast<size_t>(kind)];
}

}  // namespace qnpolicy::tool

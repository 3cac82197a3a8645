// SPDX-License-Identifier: Apache-2.0
// What the documents say is what the client does, where a machine can tell. Every row of the
// settings catalogue, which `qnpolicy vocabulary`, the manual page, the schema and the completion
// print, is held against the real reader: the documented texts (AppliedTexts, the schema's
// enumerations) each read as themselves, and no other text does; the documented installer values
// are the ones the check accepts, and generation writes them as the documents say. The record is
// read through this suite's own accessors (PolicyModel.h), not through the catalogue's, so a
// text that leaves the record unchanged also holds the documented default against it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "LocalPolicySettings.h"
#include "LocalQNPolicyOptionTexts.h"
#include "PolicyModel.h"
#include "TestSupport.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace {

using Info = LocalQNPolicyInfo;

using qntest::el;

// Children placed where the row counts.
std::string placed(const LocalPolicySettingInfo& row, const std::string& children) {
    switch (row.section) {
        case LocalPolicySection::ROOT:
            return children;
        case LocalPolicySection::UPDATE_POLICY:
            return el("UpdatePolicy", children);
        case LocalPolicySection::AUTHORIZED_SERVER_LIST:
            return el("UpdatePolicy", el("AuthorizedServerList", children));
    }
    return children;
}

Info read(const std::string& children) {
    qnpolicy::ReadOptions options;
    options.bLog = false;
    const qnpolicy::DocumentRead document = qnpolicy::ReadPolicyBytes(
        "<QuillnetLocalPolicy qnversion=\"" + std::string(qnpolicy::kClientVersion) + "\">" +
            children + "</QuillnetLocalPolicy>",
        "p.xml", options);
    EXPECT_EQ(document.status, 0) << children;
    return document.record;
}

// The value of an element's setting in a record, as document text: "true" or "false", the
// tunnel text, the caching options set (or "false" for none).
std::string valueOf(const std::string& element, const Info& info) {
    for (const qntest::PolicyFlag& flag : qntest::kPolicyFlags) {
        if (element == flag.element) {
            return (info.*flag.get)() ? "true" : "false";
        }
    }
    for (const qntest::ExcludedStore& store : qntest::kExcludedStores) {
        if (element == store.element) {
            const uint32_t bits = info.ExcludeCertStores() & store.mask;
            return bits == store.mask ? "true" : bits == 0 ? "false" : "part of the group";
        }
    }
    if (element == "RestrictPreferenceCaching") {
        const std::vector<bool> set = info.RestrictPrefCaching();
        std::string options;
        for (size_t option = 1; option < set.size(); ++option) {
            if (set[option]) {
                options += (options.empty() ? "" : ",");
                options +=
                    qnpolicy::CachingOptionText(static_cast<RestrictPrefCachingOption>(option));
            }
        }
        return options.empty() ? "false" : options;
    }
    if (element == "RestrictTunnelProtocols") {
        const std::map<RestrictTunnelProtocolOption, std::string> texts = {
            {RESTRICT_TUNNEL_PROTOCOL_FALSE, "false"},
            {RESTRICT_TUNNEL_PROTOCOL_TLS, "tls"},
            {RESTRICT_TUNNEL_PROTOCOL_IPSEC, "ipsec"}};
        return texts.at(info.RestrictTunnelProtocols());
    }
    ADD_FAILURE() << "no accessor for " << element;
    return std::string();
}

// What a text the documents do not list reads as, by kind, as the manual page words it: an
// on/off setting and a caching option take it as "false"; an exclusion and the tunnel keep
// what they held (nullopt).
std::optional<std::string> otherTextReadsAs(LocalPolicySettingKind kind) {
    switch (kind) {
        case LocalPolicySettingKind::FIPS_MODE:
        case LocalPolicySettingKind::FLAG:
        case LocalPolicySettingKind::UPDATE_PERMISSION:
        case LocalPolicySettingKind::CACHING_LIST:
            return "false";
        default:
            return std::nullopt;
    }
}

// Texts an administrator could write for text and that differ from it only in spelling.
std::vector<std::string> nearMisses(const std::string& text) {
    std::string upper = text;
    std::string lower = text;
    std::transform(text.begin(), text.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    std::transform(text.begin(), text.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::string capitalized = lower;
    capitalized[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(capitalized[0])));
    return {upper, lower, capitalized, " " + text, text + " ", text + "\n", "1", "yes"};
}

// Each documented text, alone, reads as itself; a text that differs from one only in case,
// blanks or spelling reads as the kind's other texts do (as false, or as what came before).
TEST(PolicyDocuments, TheDocumentedTextsAreExactlyTheOnesTheReaderApplies) {
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        const std::vector<std::string> documented = qnpolicy::AppliedTexts(row);
        if (row.kind == LocalPolicySettingKind::SERVER_LIST ||
            row.kind == LocalPolicySettingKind::SERVER_NAME) {
            EXPECT_TRUE(documented.empty()) << row.element;  // free text: policy_reader_test
            continue;
        }
        ASSERT_FALSE(documented.empty()) << row.element;
        const std::string tag = row.element;
        for (const std::string& text : documented) {
            EXPECT_EQ(valueOf(tag, read(placed(row, el(tag, text)))), text) << tag << " " << text;
        }
        const std::optional<std::string> other = otherTextReadsAs(row.kind);
        for (const std::string& text : documented) {
            for (const std::string& miss : nearMisses(text)) {
                if (std::find(documented.begin(), documented.end(), miss) != documented.end()) {
                    continue;
                }
                SCOPED_TRACE(tag + " \"" + miss + "\"");
                EXPECT_EQ(valueOf(tag, read(placed(row, el(tag, miss)))),
                          other.value_or(LocalPolicyDefaultText(row)));
                // After each documented text: read as the others, or that text stays.
                for (const std::string& before : documented) {
                    EXPECT_EQ(valueOf(tag, read(placed(row, el(tag, before) + el(tag, miss)))),
                              other.value_or(before))
                        << "after " << before;
                }
            }
        }
    }
}

// The check accepts each row's documented values in any case and writes the documented
// spelling; it refuses other values. Read back, a documented value that is also a documented
// text applies; one that is not (the tunnel's "TLS" and "IPSec", as its description says)
// leaves the default. (The manager's copy of the rows: PolicyVocabulary's suite.)
TEST(PolicyDocuments, TheDocumentedInstallerValuesAreTheOnesTheCheckAccepts) {
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        if (row.abbreviation.empty()) {
            continue;
        }
        SCOPED_TRACE(row.abbreviation);
        const auto check = [](const std::string& argument) {
            const char* argv[] = {argument.c_str()};
            return qnpolicy::CheckInstallerArguments(argv, 1);
        };
        const std::vector<std::string> applied = qnpolicy::AppliedTexts(row);
        for (const std::string& value : row.allowedValues) {
            const std::string upper = nearMisses(value)[0];
            const qnpolicy::ArgumentCheck checked = check(row.abbreviation + "=" + upper);
            ASSERT_EQ(checked.accepted.size(), 1U) << value;
            EXPECT_EQ(checked.accepted[0].value, value);
            std::string document;
            ASSERT_EQ(qnpolicy::RenderPolicyDocument(checked.settings, "/", document), 0);
            const bool bApplied = std::find(applied.begin(), applied.end(), value) != applied.end();
            // Only the tunnel's reading says that some installer values are not applied.
            EXPECT_TRUE(bApplied || row.kind == LocalPolicySettingKind::TUNNEL_PROTOCOL) << value;
            qnpolicy::ReadOptions quiet;
            quiet.bLog = false;
            EXPECT_EQ(valueOf(row.element, qnpolicy::ReadPolicyBytes(document, "p", quiet).record),
                      bApplied ? value : LocalPolicyDefaultText(row))
                << value;
        }
        // Another word, or an allowed value with a letter more, is refused.
        const std::string longer = (row.allowedValues.empty() ? "" : row.allowedValues[0]) + "s";
        for (const std::string& other : {std::string("maybe"), longer}) {
            EXPECT_EQ(check(row.abbreviation + "=" + other).accepted.size(),
                      row.allowedValues.empty() ? 1U : 0U)
                << other;
        }
    }
}

// What a stricter caller asks of the check: each option refuses or respells exactly its own
// cases ("S" bStrict, "A" bAppliedSpelling, "P" bPlainServerNames, "M" a matcher that allows
// nothing), giving "accepted:VALUE" or the refusal and the name that broke the rule.
TEST(PolicyDocuments, TheArgumentCheckOptionsRefuseOrRespellOnlyTheirOwnCases) {
    using Refusal = qnpolicy::ArgumentRefusal;
    const std::map<Refusal, std::string> names = {{Refusal::EMPTY_VALUE, "empty"},
                                                  {Refusal::VALUE_NOT_ALLOWED, "not-allowed"},
                                                  {Refusal::SERVER_NAME, "server-name"}};
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {"rtp=TLS", "", "accepted:TLS"},
        {"rtp=TLS", "A", "accepted:tls"},
        {"rtp=ipsec", "SP", "accepted:IPSec"},
        {"upal=;,", "AP", "accepted:;,"},
        {"upal=;,", "S", "empty"},
        {"upal=gw1 gw2", "SA", "accepted:gw1 gw2"},
        {"upal=gw1 gw2", "P", "server-name gw1 gw2"},
        {"upal=gw1;gw2\ngw3", "P", "server-name gw2\ngw3"},
        {"upal=gw1,gw\x7F", "P", "server-name gw\x7F"},
        {"upal=gw\xC2\x85", "P", "server-name gw\xC2\x85"},
        {"upal=caf\xC3\xA9.example;gw2", "P", "accepted:caf\xC3\xA9.example;gw2"},
        {"fm=TRUE", "M", "not-allowed"},
    };
    for (const auto& [argument, flags, expected] : cases) {
        qnpolicy::ArgumentCheckOptions options;
        options.bStrict = flags.find('S') != std::string::npos;
        options.bAppliedSpelling = flags.find('A') != std::string::npos;
        options.bPlainServerNames = flags.find('P') != std::string::npos;
        if (flags.find('M') != std::string::npos) {
            options.matchValue = [](const LocalPolicySettingInfo&, std::string&) { return false; };
        }
        const char* argv[] = {argument.c_str()};
        const qnpolicy::ArgumentCheck checked = qnpolicy::CheckInstallerArguments(argv, 1, options);
        const std::string outcome =
            checked.refused.empty()
                ? "accepted:" + checked.accepted.at(0).value
                : names.at(checked.refused[0].eReason) +
                      (checked.refused[0].serverName.empty() ? ""
                                                             : " " + checked.refused[0].serverName);
        EXPECT_EQ(outcome, expected) << argument << " " << flags;
    }
}

}  // namespace

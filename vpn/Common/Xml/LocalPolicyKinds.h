// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_LOCALPOLICYKINDS_H
#define QUILLNET_LOCALPOLICYKINDS_H

// Everything the library knows that depends on how a setting's text is read, one row per
// LocalPolicySettingKind: how the reader applies a text, how the setting's value reads in the
// record, and which texts the reader applies exactly. What the tool and its documents say of a
// kind (its checks, the manual page's and the schema's wording) is the tool's, built on this.
//
//   const LocalPolicyKind& kind = KindOf(row.kind);
//   kind.apply(row, "true", record, bFileUseFIPSMode);
//
// Internal to the library and the tool: not installed.

#include <string>
#include <string_view>
#include <vector>

#include "LocalPolicySettings.h"
#include "LocalQNPolicyInfo.h"

namespace qnpolicy {

// Whether the reader changed the record with a text.
enum class TextEffect { APPLIED, UNCHANGED };

// How a setting's effective value is shown: on or off, one text, or a list of texts.
enum class ValueShape { BOOLEAN, TEXT, LIST, NONE };

struct LocalPolicyKind {
    LocalPolicySettingKind kind;
    // The reader: applies the text of an element of this kind that counts where it stands.
    TextEffect (*apply)(const LocalPolicySettingInfo& row, const std::string& text,
                        LocalQNPolicyInfo& record, bool& bFileUseFIPSMode);
    // The effective value as the record holds it, as texts of shape: a caching list reads as
    // the restricting options joined by ",", "none" when nothing is restricted.
    ValueShape shape;
    std::vector<std::string> (*effective)(const LocalPolicySettingInfo& row,
                                          const LocalQNPolicyInfo& record);
    // The record's value as the text a document states to give it ("true", "false",
    // "false,Credentials", "tls"); empty for the server list and its names.
    std::string (*documentText)(const LocalPolicySettingInfo& row, const LocalQNPolicyInfo& record);
};

const LocalPolicyKind& KindOf(LocalPolicySettingKind kind);

// The texts a setting of the row is read from that the reader applies exactly, in the order it
// knows them: "true" and "false" for an on/off setting, the tunnel texts, the caching option
// texts; empty for free text (server names).
std::vector<std::string> AppliedTexts(const LocalPolicySettingInfo& row);

// The spelling of an installer value that the reader applies: where the vocabulary's spelling
// of an accepted value (value) is not a text the reader applies, the applied text that equals
// it ignoring case ("TLS" gives "tls", "IPSec" "ipsec"); any other value as it is. The library's
// own generation keeps the vocabulary's spelling.
std::string AppliedSpelling(const LocalPolicySettingInfo& row, const std::string& value);

// Whether a server name holds XML white space (space, tab, line feed, carriage return) or a
// control character (U+0000 to U+001F, U+007F to U+009F) anywhere. The reader keeps such a
// name whole, as one server, blanks included: "gw1 gw2" authorizes no server called gw1.
bool HasBlankOrControl(std::string_view name);

// The row's allowed installer values in their applied spelling (AppliedSpelling); empty for a
// free value, whose spelling is kept.
std::vector<std::string> WrittenValues(const LocalPolicySettingInfo& row);

}  // namespace qnpolicy

#endif  // QUILLNET_LOCALPOLICYKINDS_H

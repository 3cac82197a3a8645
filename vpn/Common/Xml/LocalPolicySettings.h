// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_LOCALPOLICYSETTINGS_H
#define QUILLNET_LOCALPOLICYSETTINGS_H

// The settings catalogue: what every element of "QuillnetLocalPolicy.xml" means, in one table.
//
// Each row describes one element the policy reader acts on: its name, the section it counts
// in, how its text is read, the record accessor it sets, the installer abbreviation and values
// that generate it, and one sentence an administrator can read. Its default is the record's
// (LocalPolicyDefaultText).
// The reader, the vocabulary, the command-line tool, the schema and the manual pages all take
// what they know of a setting from here.
//
//   for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
//       std::cout << setting.element << ": " << setting.description << '\n';
//   }
//   const LocalPolicySettingInfo* row = FindLocalPolicySetting(elementName);  // or null
//
// The table is built at its first use and never changes afterwards; reading it is
// thread-safe.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "LocalQNPolicyInfo.h"
#include "QuillnetExport.h"

// How the reader turns an element's text into the record.
enum class LocalPolicySettingKind {
    FIPS_MODE,             // "true" or false; the loader applies it with the FIPS retention
    FLAG,                  // "true" sets the record flag, any other text clears it
    CERT_STORE_EXCLUSION,  // "true" ORs the row's mask into the exclude mask; else nothing
    CACHING_LIST,          // a list of caching option texts (LocalPolicyCachingOptionTexts)
    TUNNEL_PROTOCOL,       // one of LocalPolicyAppliedTunnelTexts; any other text changes nothing
    UPDATE_PERMISSION,     // a FLAG that counts only inside the update-policy section
    SERVER_LIST,           // the authorized server list: no text, holds the server names
    SERVER_NAME,           // one authorized server, kept exactly as written
};

// Where an element counts.
enum class LocalPolicySection {
    ROOT,                    // anywhere (written directly under the root)
    UPDATE_POLICY,           // only while the update-policy section is open
    AUTHORIZED_SERVER_LIST,  // only while the SERVER_LIST row's element inside it is open
};

// One row of the catalogue.
struct LocalPolicySettingInfo {
    std::string element;  // the element name, exact and case-sensitive
    LocalPolicySection section = LocalPolicySection::ROOT;  // follows from the kind
    LocalPolicySettingKind kind = LocalPolicySettingKind::FLAG;
    // CERT_STORE_EXCLUSION: the certificate-store group mask "true" adds; 0 otherwise.
    uint32_t excludeMask = 0;
    // The record's getter and the boolean setter the reader calls: both for FLAG and
    // UPDATE_PERMISSION; the getter alone for FIPS_MODE (the loader sets the flag) and
    // CERT_STORE_EXCLUSION; null for the other kinds.
    bool (LocalQNPolicyInfo::*getter)() const = nullptr;
    void (LocalQNPolicyInfo::*setter)(bool) = nullptr;
    std::string accessor;      // the name of the record getter that reads the setting
    std::string abbreviation;  // the installer abbreviation; empty for the server name
    // Installer values, matched ignoring case and written in this spelling; empty where any
    // value is accepted (how generation writes it then is the kind's, LocalPolicyKinds.h).
    std::vector<std::string> allowedValues;
    // For an administrator: what the setting is, and nothing the client is not known to do.
    std::string description;
};

// Every element the reader acts on: the installer settings in the order the vocabulary defines
// them (fm, bd, bdl, ...; not the ascending abbreviation order in which the vocabulary map
// iterates), then the SERVER_NAME row.
QUILLNET_API const std::vector<LocalPolicySettingInfo>& LocalPolicySettings();

// The setting's value in a record that holds the defaults, as a document states it ("false",
// "true"); empty for the server list and its names, which default to no servers.
QUILLNET_API std::string LocalPolicyDefaultText(const LocalPolicySettingInfo& row);

// The row of an element name, in constant time; null for a name the reader ignores (the
// root and the update-policy section included).
QUILLNET_API const LocalPolicySettingInfo* FindLocalPolicySetting(std::string_view element);

// The first row of a kind, in catalogue order; null when no row has it. SERVER_LIST and
// SERVER_NAME have one row each.
QUILLNET_API const LocalPolicySettingInfo* FindLocalPolicySettingOfKind(
    LocalPolicySettingKind kind);

// The preference-caching option texts, indexed by RestrictPrefCachingOption ("false",
// "Credentials", ...): the only texts a caching list may hold.
QUILLNET_API const std::vector<std::string>& LocalPolicyCachingOptionTexts();

// The tunnel texts the reader applies, exactly, indexed by RestrictTunnelProtocolOption:
// "false", "tls", "ipsec". LocalPolicyTunnelOptionText gives one option's text, or an empty
// text for a value outside the enumeration.
QUILLNET_API const std::vector<std::string>& LocalPolicyAppliedTunnelTexts();
QUILLNET_API const std::string& LocalPolicyTunnelOptionText(RestrictTunnelProtocolOption option);

#endif  // QUILLNET_LOCALPOLICYSETTINGS_H

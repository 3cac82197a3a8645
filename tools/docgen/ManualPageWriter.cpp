// SPDX-License-Identifier: Apache-2.0
#include "ManualPageWriter.h"

#include <string>
#include <vector>

#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "LocalPolicySettings.h"
#include "QnBuildConfig.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "baseline/Baseline.h"
#include "lint/PolicyTexts.h"

namespace qndocgen {

namespace {

constexpr char kExampleServers[] = "gw1.example.com;gw2.example.com";

// Text for scdoc: its markup characters taken literally.
std::string escape(const std::string& text) {
    std::string escaped;
    for (const char character : text) {
        if (character == '\\' || character == '*' || character == '_') {
            escaped += '\\';
        }
        escaped += character;
    }
    return escaped;
}

// A help text as a sentence: with its full stop.
std::string sentence(const std::string& text) {
    if (text.empty() || text.back() == '.') {
        return escape(text);
    }
    return escape(text + ".");
}

std::string bold(const std::string& text) {
    return "*" + escape(text) + "*";
}
std::string underline(const std::string& text) {
    return "_" + escape(text) + "_";
}

// "a, b or c", each in bold.
std::string boldList(const std::vector<std::string>& words, const char* lastJoin) {
    std::string list;
    for (size_t i = 0; i < words.size(); ++i) {
        if (i > 0) {
            list += i + 1 == words.size() ? lastJoin : ", ";
        }
        list += bold(words[i]);
    }
    return list;
}

std::string elementOfKind(LocalPolicySettingKind kind) {
    const LocalPolicySettingInfo* setting = FindLocalPolicySettingOfKind(kind);
    return setting != nullptr ? setting->element : std::string();
}

std::string policyPath() {
    return std::string(QN_DEFAULT_MAIN_DIR) + qnpolicy::kPolicyFileName;
}

std::string sectionOf(const LocalPolicySettingInfo& setting) {
    switch (setting.section) {
        case LocalPolicySection::ROOT:
            return "a child of " + bold(qnpolicy::kRootElement) +
                   " (the client reads it at any depth)";
        case LocalPolicySection::UPDATE_POLICY:
            return "a child of " + bold(qnpolicy::kUpdatePolicyElement);
        case LocalPolicySection::AUTHORIZED_SERVER_LIST:
            return "a child of " + bold(qnpolicy::kAuthorizedServerListElement);
    }
    return std::string();
}

std::string installerOf(const LocalPolicySettingInfo& setting) {
    if (setting.abbreviation.empty()) {
        const LocalPolicySettingInfo* list =
            FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_LIST);
        return "one element per name in the value of " + bold(list->abbreviation + "=");
    }
    std::string text = bold(setting.abbreviation + "=") + underline("VALUE") + ", ";
    if (setting.allowedValues.empty()) {
        return text + escape(qnpolicy::tool::KindTextsOf(setting.kind).installerValue);
    }
    const std::vector<std::string> written = qnpolicy::WrittenValues(setting);
    if (written != setting.allowedValues) {
        // The tool writes what the client applies; the library's own generation does not.
        std::vector<std::string> notApplied;
        for (size_t i = 0; i < written.size(); ++i) {
            if (written[i] != setting.allowedValues[i]) {
                notApplied.push_back(setting.allowedValues[i]);
            }
        }
        return text + "one of " + boldList(setting.allowedValues, " or ") +
               " (matched ignoring case). *qnpolicy generate* writes " + boldList(written, " or ") +
               ", the spelling the client applies; an installer that calls the library, or "
               "*qnpolicy generate --lenient*, writes the values as listed here, and the client "
               "does not apply " +
               boldList(notApplied, " or ");
    }
    return text + "one of " + boldList(setting.allowedValues, " or ") +
           " (matched ignoring case, written as listed)";
}

// The description from the catalogue; how the text is read, what a repetition does and how an
// installer value is written from the kinds table.
void writeSetting(const LocalPolicySettingInfo& setting, std::ostream& out) {
    const qnpolicy::tool::KindTexts& kind = qnpolicy::tool::KindTextsOf(setting.kind);
    const std::string defaultText = LocalPolicyDefaultText(setting);
    out << bold(setting.element) << "\n"
        << "\t" << escape(setting.description) << "\n\n"
        << "\t" << escape(kind.reading) << "\n\n"
        << "\tWhere: " << sectionOf(setting)
        << ". Default: " << (defaultText.empty() ? std::string("none") : bold(defaultText))
        << ". Installer argument: " << installerOf(setting) << ".";
    if (kind.repeated != nullptr) {
        out << " Given more than once: " << escape(kind.repeated);
    }
    out << "\n\n";
}

void writeSettings(LocalPolicySection section, std::ostream& out) {
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        if (setting.section == section) {
            writeSetting(setting, out);
        }
    }
}

// A document with one setting of the common kinds, as generation writes it.
void writeExampleDocument(std::ostream& out) {
    const LocalPolicySettingInfo* fips =
        FindLocalPolicySettingOfKind(LocalPolicySettingKind::FIPS_MODE);
    const LocalPolicySettingInfo* update =
        FindLocalPolicySettingOfKind(LocalPolicySettingKind::UPDATE_PERMISSION);
    out << "```\n"
        << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<" << qnpolicy::kRootElement << " xmlns=\"" << qnpolicy::kDocumentNamespace << "\"\n"
        << "    xmlns:xsi=\"" << qnpolicy::kSchemaInstanceNamespace << "\"\n"
        << "    xsi:schemaLocation=\"" << qnpolicy::kDocumentNamespace << " "
        << qnpolicy::kSchemaFile << "\"\n"
        << "    " << qnpolicy::kVersionAttribute << "=\"" << QN_CLIENT_VERSION << "\">\n"
        << "    <" << fips->element << ">true</" << fips->element << ">\n"
        << "    <" << qnpolicy::kUpdatePolicyElement << ">\n"
        << "        <" << update->element << ">false</" << update->element << ">\n"
        << "        <" << qnpolicy::kAuthorizedServerListElement << ">\n"
        << "            <" << qnpolicy::kServerNameElement << ">gw1.example.com</"
        << qnpolicy::kServerNameElement << ">\n"
        << "        </" << qnpolicy::kAuthorizedServerListElement << ">\n"
        << "    </" << qnpolicy::kUpdatePolicyElement << ">\n"
        << "</" << qnpolicy::kRootElement << ">\n"
        << "```\n\n";
}

void writeOptionEntry(const ToolOption& option, std::ostream& out) {
    std::string names;
    for (const std::string& name : option.names) {
        names += (names.empty() ? "" : ", ") + bold(name);
    }
    out << names;
    if (!option.argument.empty()) {
        out << " " << underline(option.argument);
    }
    out << "\n\t" << sentence(option.description);
    if (!option.choices.empty()) {
        out << " One of " << boldList(option.choices, " or ") << ".";
    }
    if (!option.defaultValue.empty()) {
        out << " Default: " << escape(option.defaultValue) << ".";
    }
    out << "\n\n";
}

void writeCommandEntries(const ToolCommand& command, std::ostream& out) {
    for (const ToolPositional& positional : command.positionals) {
        out << underline(positional.argument) << (positional.bRepeated ? "..." : "") << "\n\t"
            << sentence(positional.description) << "\n\n";
    }
    for (const ToolOption& option : command.options) {
        writeOptionEntry(option, out);
    }
}

bool hasSubcommand(const ToolHelp& help, const std::string& name) {
    for (const ToolCommand& command : help.subcommands) {
        if (command.name == name) {
            return true;
        }
    }
    return false;
}

// Examples with installer arguments taken from the catalogue; each only where the tool has
// the subcommand.
void writeExamples(const ToolHelp& help, std::ostream& out) {
    const LocalPolicySettingInfo* fips =
        FindLocalPolicySettingOfKind(LocalPolicySettingKind::FIPS_MODE);
    const LocalPolicySettingInfo* update =
        FindLocalPolicySettingOfKind(LocalPolicySettingKind::UPDATE_PERMISSION);
    const LocalPolicySettingInfo* servers =
        FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_LIST);
    out << "# EXAMPLES\n\n";
    if (hasSubcommand(help, "generate")) {
        out << "Write a policy with " << bold(fips->element) << " true, " << bold(update->element)
            << " false and two authorized servers:\n\n"
            << "```\nqnpolicy generate " << fips->abbreviation << "=true " << update->abbreviation
            << "=false '" << servers->abbreviation << "=" << kExampleServers << "'\n```\n\n";
    }
    if (hasSubcommand(help, "set")) {
        out << "Turn " << bold(fips->element) << " on and let " << bold(update->element)
            << " take its default again, keeping every other setting of the file:\n\n"
            << "```\nqnpolicy set " << fips->abbreviation << "=true\nqnpolicy unset "
            << update->abbreviation << "\n```\n\n";
    }
    if (hasSubcommand(help, "edit")) {
        out << "Edit the file with the administrator's editor, checked before it is saved:\n\n"
            << "```\nsudo EDITOR=nano qnpolicy edit\n```\n\n";
    }
    if (hasSubcommand(help, "show")) {
        out << "Print the effective policy of another installation as JSON:\n\n"
            << "```\nqnpolicy show --install-dir /srv/client/ --json\n```\n\n"
            << "Say where " << bold(fips->element) << " and the authorized servers come from "
            << "(the element of each, or default), and what the client ignores:\n\n"
            << "```\nqnpolicy show --origin " << fips->element << " " << servers->abbreviation
            << "\n```\n\n"
            << "Compare the effective policies of two hosts line by line:\n\n"
            << "```\ndiff <(ssh host1 qnpolicy show --format=flat) "
               "<(ssh host2 qnpolicy show --format=flat)\n```\n\n";
    }
    if (hasSubcommand(help, "diff")) {
        out << "Whether a policy kept elsewhere is the one in force, as the client reads both "
               "(exit 0: the same policy, 1: different):\n\n"
            << "```\nqnpolicy diff ./" << qnpolicy::kPolicyFileName << "\n```\n\n";
    }
    if (hasSubcommand(help, "check")) {
        out << "Report every place where the client will not do what a file seems to say:\n\n"
            << "```\nqnpolicy check ./" << qnpolicy::kPolicyFileName << "\n```\n\n";
    }
    if (hasSubcommand(help, "schema")) {
        out << "Validate a file with an independent validator:\n\n"
            << "```\nqnpolicy schema > /tmp/" << qnpolicy::kSchemaFile
            << "\nxmllint --noout --schema /tmp/" << qnpolicy::kSchemaFile << " " << policyPath()
            << "\n```\n\n";
    }
}

// What the client does with a file it cannot find, cannot parse, or reads only in part, and
// the FIPS retention, exactly as loading works.
void writeFailureSection(std::ostream& out) {
    out << "# WHAT THE CLIENT DOES WHEN THE FILE IS MISSING, UNREADABLE OR PARTLY WRONG\n\n"
        << "*No file.* The load succeeds. " << escape(qnpolicy::tool::kMissingFileConsequence)
        << " Nothing is restricted, and every kind of update is allowed from any server.\n\n"
        << "*A file the client cannot parse* (not well-formed, cut short, with a DOCTYPE "
           "declaration, over a parser limit): the load fails. "
        << escape(qnpolicy::tool::kUnreadableFileConsequence) << " A file cut short after its "
        << bold(elementOfKind(LocalPolicySettingKind::FLAG))
        << " element, for example, applies that setting and none after it; a refused DOCTYPE "
           "declaration comes before every element, so nothing applies.\n\n"
        << "*A file the client reads but does not take as it looks*:\n\n"
        << "- An element it does not know, with its text: a misspelt name silently does "
           "nothing.\n"
        << "- Attributes below the root element, and every root attribute but "
        << bold(qnpolicy::kVersionAttribute) << ".\n"
        << "- Update settings and " << bold(qnpolicy::kAuthorizedServerListElement) << " outside "
        << bold(qnpolicy::kUpdatePolicyElement) << ", and " << bold(qnpolicy::kServerNameElement)
        << " outside " << bold(qnpolicy::kAuthorizedServerListElement) << ".\n"
        << "- A value it does not apply: each setting above says how its text is read.\n"
        << "- A setting given more than once: each occurrence is applied in document order, "
           "with the result each setting above states.\n"
        << "- A setting another one overrides: each setting above says so where one does.\n\n"
        << "*qnpolicy check* reports each of these with its line and column.\n\n"
        << "## FIPS mode\n\n"
        << escape(FindLocalPolicySettingOfKind(LocalPolicySettingKind::FIPS_MODE)->description)
        << " The load notes when the file disagrees with the mode in force. So "
           "deleting or breaking the file turns FIPS mode off at the next load, while changing "
           "its value takes effect only in a new client process.\n\n";
}

// What a baseline may expect of one setting: its values and comparisons, from its kind.
std::string baselineValuesOf(const LocalPolicySettingInfo& setting) {
    const qnpolicy::ValueShape eShape = qnpolicy::KindOf(setting.kind).shape;
    if (eShape == qnpolicy::ValueShape::BOOLEAN) {
        return "*true* or *false*, unquoted; *equals* (a bare value) or *one_of*";
    }
    if (eShape == qnpolicy::ValueShape::LIST) {
        return "a list of server names, exact strings; *equals* (a bare list: the same servers in "
               "the same order), *subset_of* or *superset_of* (as sets)";
    }
    if (setting.kind == LocalPolicySettingKind::CACHING_LIST) {
        const std::vector<std::string>& options = LocalPolicyCachingOptionTexts();
        return "*none*, or option names joined by commas in any order (" +
               boldList(std::vector<std::string>(options.begin() + 1, options.end()), " and ") +
               "); *equals* (a bare value) or *one_of*, or *subset_of* and *superset_of* with a "
               "list of option names (as sets)";
    }
    std::vector<std::string> texts = qnpolicy::AppliedTexts(setting);
    for (std::string& text : texts) {
        text = text == "false" ? "\"false\"" : text;
    }
    return boldList(texts, " or ") +
           " (the text *\"false\"* in quotes: unquoted it is a boolean); *equals* (a bare value) "
           "or *one_of*";
}

}  // namespace

void WriteBaselineManualPage(std::ostream& out) {
    out << "qnpolicy-baseline(5) \"Quillnet " << QN_CLIENT_VERSION
        << "\" \"File Formats Manual\"\n\n"
        << "# NAME\n\n"
        << "qnpolicy-baseline - the local policy every host must meet, for *qnpolicy comply*\n\n"
        << "# SYNOPSIS\n\n"
        << "*qnpolicy comply --baseline* _BASELINE_ [_FILE_...]\n\n"
        << "# DESCRIPTION\n\n"
        << "A baseline is a YAML file (one document, comments welcome) that says what the "
           "effective policy of every host must hold: the value of each setting as the client "
           "reads the policy file at its next start, defaults included, not the file's text. "
           "*qnpolicy comply* judges each policy file against it, rule by rule, with the value "
           "the client reads and the element it comes from (*qnpolicy show --origin*).\n\n"
        << "# EXAMPLE\n\n"
        << "```\n"
        << "version: 1\n"
        << "settings:                       # element names, as `qnpolicy show` prints them\n"
        << "  FipsMode: true                # the effective value must equal this\n"
        << "  StrictCertificateTrust: true\n"
        << "  RestrictTunnelProtocols: {one_of: [tls, ipsec]}\n"
        << "  AllowSoftwareUpdatesFromAnyServer: false\n"
        << "  AuthorizedServerList: {subset_of: [gw1.example.com, gw2.example.com]}\n"
        << "severity:                       # optional, per setting: low, medium (default), high\n"
        << "  FipsMode: high\n"
        << "rationale:                      # optional, per setting\n"
        << "  FipsMode: Government customers require FIPS 140 validated cryptography.\n"
        << "waivers:\n"
        << "  - setting: StrictCertificateTrust\n"
        << "    hosts: [lab-*]              # optional; absent: every host\n"
        << "    reason: lab machines, ticket SEC-142\n"
        << "    expires: 2027-03-31         # the last day it holds, UTC\n"
        << "```\n\n"
        << "# KEYS\n\n"
        << "*version*\n\t*1*, required.\n\n"
        << "*settings*\n\tRequired: one rule per setting, named by its element as *qnpolicy "
           "show* prints it. A bare value must be equal to the effective value; a mapping with "
           "one key compares otherwise: *equals*, *one_of* (one of the listed values), "
           "*subset_of* (every entry of the value is listed) or *superset_of* (every listed "
           "entry is in the value). Values are written as *qnpolicy show --json* prints them.\n\n"
        << "*severity*\n\tOptional, per setting: *low*, *medium* (the default) or *high*.\n\n"
        << "*rationale*\n\tOptional, per setting: why the rule exists, shown in reports.\n\n"
        << "*waivers*\n\tOptional: a list of waivers, each with *setting* (a setting of "
           "*settings*), *reason*, *expires* (YYYY-MM-DD, the last day it holds, UTC) and "
           "optionally *hosts*, glob patterns of host names (fnmatch(3), ignoring case; absent: "
           "every host). A failing rule that a waiver names for the host, on or before its last "
           "day, is waived and counts as met. A waiver of the host that ends within "
        << qnpolicy::tool::kWaiverWarningDays << " days is a warning.\n\n"
        << "# SETTINGS AND THEIR VALUES\n\n";
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        if (setting.kind != LocalPolicySettingKind::SERVER_NAME) {
            out << bold(setting.element) << "\n\t" << baselineValuesOf(setting) << ".\n\n";
        }
    }
    out << "# FILE-SAFETY\n\n"
        << "Every baseline holds one more rule, *" << qnpolicy::tool::kFileSafetyRule
        << "*: the audit of who can change the policy file, as *qnpolicy check* makes it, finds "
           "nothing. A policy that others can change proves nothing about the host, so this rule "
           "cannot be waived. Its severity is *high* unless *severity* says otherwise.\n\n"
        << "# ERRORS\n\n"
        << "A malformed baseline is refused before any policy is judged, with "
           "_BASELINE_:_LINE_:_COLUMN_ and the reason, and *qnpolicy comply* exits 65: an "
           "unknown key, an unknown setting (with a did-you-mean), a value the setting cannot "
           "take (YAML 1.1's *yes*, *off* and the like are no booleans), a comparison the setting "
           "does not have, a duplicate key, a *version* other than 1, a waiver without *setting*, "
           "*reason* or *expires*, or of a setting the baseline does not set, a date that is not "
           "a date, YAML that does not parse, anchors, aliases and tags, more than one document, "
           "more than "
        << (qnpolicy::tool::kMaxBaselineBytes >> 20) << " MiB.\n\n"
        << "# SEE ALSO\n\n"
        << "*qnpolicy*(1), *QuillnetLocalPolicy.xml*(5)\n";
}

void WritePolicyFileManualPage(std::ostream& out) {
    out << qnpolicy::kPolicyFileName << "(5) \"Quillnet " << QN_CLIENT_VERSION
        << "\" \"File Formats Manual\"\n\n"
        << "# NAME\n\n"
        << escape(qnpolicy::kPolicyFileName)
        << " - local security policy of the Quillnet VPN client\n\n"
        << "# SYNOPSIS\n\n"
        << underline(policyPath()) << "\n\n"
        << "# DESCRIPTION\n\n"
        << "An administrator pins security restrictions of the client on one machine in this "
           "XML file, kept in the client's main installation directory. The client reads it "
           "when it loads its policy; what a missing, unreadable or partly wrong file does is "
           "said below. Installers write it with *qnpolicy generate* (see *qnpolicy*(1)).\n\n"
        << "The root element is " << bold(qnpolicy::kRootElement) << ", in the namespace "
        << bold(qnpolicy::kDocumentNamespace) << ". Its attribute "
        << bold(qnpolicy::kVersionAttribute)
        << " holds the version of the client that wrote the file; a client older than it reads "
           "the file with a warning. Its attribute *xsi:schemaLocation* names the schema "
        << bold(qnpolicy::kSchemaFile) << ", printed by *qnpolicy schema* and installed under "
        << escape(QN_SCHEMA_INSTALL_DIR) << ".\n\n"
        << "Each setting is one element whose text is its value; no element below the root "
           "carries attributes. Names and values are exact and case-sensitive, and the client "
           "trims nothing. Settings may come in any order; an absent setting keeps its "
           "default.\n\n"
        << "# EXAMPLE\n\n";
    writeExampleDocument(out);
    out << "# SETTINGS\n\n";
    writeSettings(LocalPolicySection::ROOT, out);
    out << "# UPDATE POLICY\n\n"
        << "The element " << bold(qnpolicy::kUpdatePolicyElement)
        << " holds where updates may come from. Generation writes it after the settings above, "
           "and only when an update setting was given.\n\n";
    writeSettings(LocalPolicySection::UPDATE_POLICY, out);
    writeSettings(LocalPolicySection::AUTHORIZED_SERVER_LIST, out);
    writeFailureSection(out);
    out << "# FILES\n\n"
        << underline(policyPath()) << "\n"
        << "\tThe policy file. The client does not check who owns it or who may change it. "
           "Advice, which *qnpolicy check* reports against: keep it, every directory above it "
           "and every symbolic link on its path owned by root, no directory writable by anyone "
           "else (a sticky one only above the directory that holds it), and the file with one "
           "link (generation writes it root:root, mode 0644, without an ACL), since whoever can "
           "change it can weaken the client's security.\n\n"
        << underline(std::string(QN_SCHEMA_INSTALL_DIR) + qnpolicy::kSchemaFile) << "\n"
        << "\tThe XML Schema of the file, registered in the system's XML catalog. It checks "
           "each element and its text on its own, not rules between elements.\n\n"
        << "# SEE ALSO\n\n"
        << "*qnpolicy*(1), *xmllint*(1)\n";
}

void WriteToolManualPage(const ToolHelp& help, const std::string& includeText, std::ostream& out) {
    out << "qnpolicy(1) \"" << escape(help.version) << "\" \"User Commands\"\n\n"
        << "# NAME\n\n"
        << "qnpolicy - generate, show and check the local policy file of the Quillnet VPN "
           "client\n\n"
        << "# SYNOPSIS\n\n";
    for (const ToolCommand& command : help.subcommands) {
        out << "*qnpolicy* " << escape(command.usage.substr(command.usage.find(' ') + 1)) << "\n\n";
    }
    out << "*qnpolicy* " << escape(help.tool.usage.substr(help.tool.usage.find(' ') + 1)) << "\n\n";
    out << "# DESCRIPTION\n\n"
        << escape(help.tool.description) << "\n\n"
        << "# OPTIONS\n\n"
        << "These go before or after the subcommand's name; a subcommand takes those of them "
           "its section lists, and refuses the others.\n\n";
    writeCommandEntries(help.tool, out);
    out << "# SUBCOMMANDS\n\n";
    for (const ToolCommand& command : help.subcommands) {
        out << "## " << command.name << "\n\n" << escape(command.description) << "\n\n";
        writeCommandEntries(command, out);
    }
    out << "# EXIT STATUS\n\n";
    for (const ToolExitCode& exitCode : help.exitCodes) {
        out << bold(exitCode.code) << "\n\t" << sentence(exitCode.meaning) << "\n\n";
    }
    writeExamples(help, out);
    out << includeText;
}

}  // namespace qndocgen

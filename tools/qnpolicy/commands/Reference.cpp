// qnpolicy vocabulary: the installer abbreviations that generate accepts, with what each
// setting means, taken from the settings catalogue.

#include <CLI/CLI.hpp>
#include <iomanip>
#include <stdexcept>

#include "Commands.h"
#include "ExitCodes.h"
#include "JsonWriter.h"
#include "LocalPolicySettings.h"
#include "ToolSession.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace qnpolicy::tool {

namespace {

constexpr char kRootSection[] = "root";
constexpr const char* kUpdateSection = kUpdatePolicyElement;
constexpr int kAbbreviationWidth = 7;
constexpr int kElementWidth = 47;
constexpr int kSectionWidth = 14;
constexpr int kDefaultWidth = 9;
constexpr char kDescriptionIndent[] = "       ";

const char* sectionOf(const LocalPolicySetting& setting) {
    return setting.bIsUpdatePolicy ? kUpdateSection : kRootSection;
}

std::string allowedText(const LocalPolicySetting& setting) {
    if (setting.listAllowedValues.empty()) {
        return "(any text)";
    }
    std::string text;
    for (const std::string& value : setting.listAllowedValues) {
        text += (text.empty() ? "" : ", ") + value;
    }
    return text;
}

// The catalogue row of a vocabulary row; every vocabulary element has one.
const LocalPolicySettingInfo& catalogueRow(const LocalPolicySetting& setting) {
    const LocalPolicySettingInfo* pRow = FindLocalPolicySetting(setting.tstrFullName);
    if (pRow == nullptr) {
        throw std::logic_error("no catalogue row for " + setting.tstrFullName);
    }
    return *pRow;
}

std::string defaultText(const LocalPolicySettingInfo& row) {
    return row.defaultValue.empty() ? "(none)" : row.defaultValue;
}

}  // namespace

void AddVocabularyOptions(CLI::App& /*command*/, CommandArgs& /*args*/) {}

int RunVocabulary(const CommandArgs& /*args*/, CToolContext& context) {
    // The vocabulary as generate checks arguments against it: the module's own table, in
    // ascending abbreviation order. Opened on the install directory, which it never reads.
    CToolSession session;
    if (session.Open(context.Options().installDir) != XMLLOCALQNPOLMGR_SUCCESS) {
        context.Error("cannot set up the policy module");
        return kExitInternal;
    }
    const std::map<std::string, LocalPolicySetting> vocabulary =
        session.Manager().GetPolicyTransTable();
    std::ostream& out = context.Out();
    if (context.Options().bJson) {
        CJsonWriter json(out);
        json.BeginObject().Key("formatVersion").Number(1).Key("vocabulary").BeginArray();
        for (const auto& [abbreviation, setting] : vocabulary) {
            const LocalPolicySettingInfo& row = catalogueRow(setting);
            json.BeginObject()
                .Key("abbreviation")
                .String(abbreviation)
                .Key("element")
                .String(setting.tstrFullName)
                .Key("section")
                .String(sectionOf(setting))
                .Key("allowedValues")
                .BeginArray();
            for (const std::string& value : setting.listAllowedValues) {
                json.String(value);
            }
            json.EndArray().Key("default").String(row.defaultValue);
            json.Key("description").String(row.description).EndObject();
        }
        json.EndArray().EndObject().Finish();
        return kExitSuccess;
    }
    out << std::left << std::setw(kAbbreviationWidth) << "abbrev" << std::setw(kElementWidth)
        << "element" << std::setw(kSectionWidth) << "section" << std::setw(kDefaultWidth)
        << "default"
        << "allowed values (matched ignoring case, written as listed)\n";
    for (const auto& [abbreviation, setting] : vocabulary) {
        const LocalPolicySettingInfo& row = catalogueRow(setting);
        out << std::left << std::setw(kAbbreviationWidth) << abbreviation
            << std::setw(kElementWidth) << setting.tstrFullName << std::setw(kSectionWidth)
            << sectionOf(setting) << std::setw(kDefaultWidth) << defaultText(row)
            << allowedText(setting) << '\n'
            << kDescriptionIndent << row.description << '\n';
    }
    return kExitSuccess;
}

}  // namespace qnpolicy::tool

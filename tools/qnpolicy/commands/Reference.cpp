// SPDX-License-Identifier: Apache-2.0
// qnpolicy vocabulary and qnpolicy schema: what the tool knows of the policy file, printed from
// the settings catalogue.

#include <iomanip>

#include "CommandTable.h"
#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "MessageText.h"
#include "SchemaWriter.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "output/Output.h"

namespace qnpolicy::tool {

const char kVocabularyResultSchema[] = R"({
    "type": "object",
    "required": ["formatVersion", "result", "vocabulary"],
    "properties": {
        "formatVersion": {"const": 1},
        "result": {"const": "listed"},
        "vocabulary": {"type": "array", "items": {
            "type": "object",
            "required": ["abbreviation", "element", "section", "allowedValues", "writtenValues",
                         "default", "description"],
            "properties": {
                "abbreviation": {"type": "string"},
                "element": {"type": "string"},
                "section": {"enum": ["root", "UpdatePolicy"]},
                "allowedValues": {"type": "array", "items": {"type": "string"}},
                "writtenValues": {"type": "array", "items": {"type": "string"}},
                "default": {"type": "string"},
                "description": {"type": "string"}
            },
            "additionalProperties": false}}
    },
    "additionalProperties": false
})";

namespace {

constexpr char kRootSection[] = "root";
constexpr int kAbbreviationWidth = 7;
constexpr int kElementWidth = 47;
constexpr int kSectionWidth = 14;
constexpr int kDefaultWidth = 9;
constexpr char kDescriptionIndent[] = "       ";

const char* sectionOf(const LocalPolicySettingInfo& setting) {
    return setting.section == LocalPolicySection::UPDATE_POLICY ? kUpdatePolicyElement
                                                                : kRootSection;
}

// The installer abbreviations that generate accepts, in ascending abbreviation order, with
// what each setting means.
class CVocabularyCommand : public CCommand {
  public:
    void AddOptions(COptionList& /*options*/) override {}
    bool UsesInstallDir() const override { return false; }

    int Run(CToolContext& context) override {
        std::ostream& out = context.Out();
        if (context.Options().bJson) {
            CJsonWriter json(out);
            json.BeginObject().Key("formatVersion").Number(1).Key("result").String("listed");
            json.Key("vocabulary").BeginArray();
            for (const LocalPolicySettingInfo* setting : InstallerSettings()) {
                const LocalPolicySettingInfo& row = *setting;
                json.BeginObject().Key("abbreviation").String(row.abbreviation);
                json.Key("element").String(row.element);
                json.Key("section").String(sectionOf(row)).Key("allowedValues").BeginArray();
                for (const std::string& value : row.allowedValues) {
                    json.String(value);
                }
                json.EndArray().Key("writtenValues").BeginArray();
                for (const std::string& value : WrittenValues(row)) {
                    json.String(value);
                }
                json.EndArray().Key("default").String(LocalPolicyDefaultText(row));
                json.Key("description").String(row.description).EndObject();
            }
            json.EndArray().EndObject().Finish();
            return kExitSuccess;
        }
        out << std::left << std::setw(kAbbreviationWidth) << "abbrev" << std::setw(kElementWidth)
            << "element" << std::setw(kSectionWidth) << "section" << std::setw(kDefaultWidth)
            << "default"
            << "allowed values (matched ignoring case; generate writes the client's spelling)\n";
        for (const LocalPolicySettingInfo* setting : InstallerSettings()) {
            const LocalPolicySettingInfo& row = *setting;
            const std::string defaultText = LocalPolicyDefaultText(row);
            out << std::left << std::setw(kAbbreviationWidth) << row.abbreviation
                << std::setw(kElementWidth) << row.element << std::setw(kSectionWidth)
                << sectionOf(row) << std::setw(kDefaultWidth)
                << (defaultText.empty() ? "(none)" : defaultText)
                << (row.allowedValues.empty() ? "(any text)" : Join(WrittenValues(row), ", "))
                << '\n'
                << kDescriptionIndent << row.description << '\n';
        }
        return kExitSuccess;
    }
};

// The XML Schema of the policy document, or the JSON Schema of a command's --json output, as
// the package installs them.
class CSchemaCommand : public CCommand {
  public:
    void AddOptions(COptionList& options) override {
        std::vector<std::string> names;
        for (const CommandInfo& info : Commands()) {
            if (info.resultSchema != nullptr) {
                names.emplace_back(info.name);
            }
        }
        options
            .Value("--json-schema", m_command,
                   "Print the JSON Schema of COMMAND's --json output instead")
            .TypeName("COMMAND")
            .Choices(names);
    }
    bool UsesInstallDir() const override { return false; }

    int Run(CToolContext& context) override {
        // A failed write to standard output is reported by the dispatcher (74).
        if (m_command.empty()) {
            qndocgen::WritePolicySchema(context.Out());
            return kExitSuccess;
        }
        for (const CommandInfo& info : Commands()) {
            if (m_command == info.name) {
                context.Out() << OutputSchema(info);
            }
        }
        return kExitSuccess;
    }

  private:
    std::string m_command;
};

}  // namespace

std::unique_ptr<CCommand> CreateVocabularyCommand() {
    return std::make_unique<CVocabularyCommand>();
}

std::unique_ptr<CCommand> CreateSchemaCommand() {
    return std::make_unique<CSchemaCommand>();
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
// qnpolicy show: the effective policy as the client sees it after loading the file, every
// setting named by its element in catalogue order.

#include <unistd.h>

#include <iomanip>

#include "CommandTable.h"
#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "MessageText.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "lint/PolicyTexts.h"
#include "output/Output.h"
#include "sysutils.h"

namespace qnpolicy::tool {

const char kShowResultSchema[] = R"({
    "type": "object",
    "required": ["formatVersion", "result", "loaded", "policyFile", "exists", "version",
                 "fipsModeModifiedOnDisk", "excludeCertStoreMask", "cachingOptions", "settings",
                 "descriptions"],
    "properties": {
        "formatVersion": {"const": 1},
        "result": {"enum": ["loaded", "defaults"]},
        "loaded": {"const": true},
        "policyFile": {"type": "string"},
        "exists": {"type": "boolean"},
        "version": {"type": ["string", "null"]},
        "fipsModeModifiedOnDisk": {"type": "boolean"},
        "excludeCertStoreMask": {"type": "string", "pattern": "^0x[0-9A-F]{8}$"},
        "cachingOptions": {"type": "array", "items": {"type": "string"}},
        "settings": {"type": "object", "additionalProperties": {
            "anyOf": [{"type": "boolean"}, {"type": "string"},
                      {"type": "array", "items": {"type": "string"}}]}},
        "descriptions": {"type": "object", "additionalProperties": {"type": "string"}}
    },
    "additionalProperties": false
})";

namespace {

constexpr int kNameWidth = 52;
constexpr char kStandardInput[] = "-";
constexpr char kStandardInputName[] = "<stdin>";

// One "name value" line, the values of all levels aligned in one column.
void printLine(std::ostream& out, const std::string& name, const std::string& value,
               int level = 1) {
    const int indent = 2 * level;
    out << std::string(static_cast<size_t>(indent), ' ') << std::left
        << std::setw(kNameWidth - indent) << name << value << '\n';
}

class CShowCommand : public CCommand {
  public:
    void AddOptions(CLI::App& command) override {
        command
            .add_option("FILE", m_files,
                        "A policy file elsewhere, read as the client would read it in the "
                        "install directory; - reads standard input")
            ->type_name("FILE")
            ->expected(0, 1);
    }

    bool UsesInstallDir() const override { return m_files.empty(); }

    int Run(CToolContext& context) override {
        std::string path = context.InstallPolicyPath();
        const bool bStandardInput = !m_files.empty() && m_files.front() == kStandardInput;
        if (bStandardInput) {
            path = kStandardInputName;
        } else if (!m_files.empty()) {
            path = m_files.front();
            // Only "nothing there" is a missing file; what cannot be examined fails the load.
            if (!qnsys::fileExists(path)) {
                return context.Fail(kExitNoInput, errorkind::kNoSuchFile,
                                    Quoted(path) + ": no such file");
            }
        }
        // Read as a fresh client's first load reads it: its FIPS mode is the file's; standard
        // input as it streams. Built in place: the record of a large list is not copied.
        const DocumentRead read = bStandardInput
                                      ? ReadPolicyStream(STDIN_FILENO, path, ReadOptions())
                                      : ReadPolicyFile(path, ReadOptions());
        if (read.status != 0) {
            reportFailure(context, path, read);
            return kExitUnreadable;
        }
        if (context.Options().bJson) {
            writeJson(context.Out(), path, read);
        } else {
            printText(context.Out(), path, read);
        }
        return kExitSuccess;
    }

  private:
    static void reportFailure(CToolContext& context, const std::string& path,
                              const DocumentRead& read) {
        if (context.Options().bJson) {
            CJsonWriter json(context.Out());
            json.BeginObject().Key("formatVersion").Number(1).Key("loaded").Bool(false);
            json.Key("policyFile").String(path).Key("error").BeginObject();
            json.Key("kind").String(errorkind::kUnreadable);
            json.Key("message").String(read.reason).Key("line").Number(read.line);
            json.Key("column").Number(read.column).EndObject().EndObject().Finish();
        }
        context.Error("cannot load " + Quoted(path) +
                      (read.line != 0 ? " at line " + std::to_string(read.line) + ", column " +
                                            std::to_string(read.column)
                                      : std::string()) +
                      ": " + read.reason + " (`qnpolicy check` lists every flaw). " +
                      (read.line != 0 ? kUnreadableFileConsequence : kMissingFileConsequence));
    }

    static void writeJson(std::ostream& out, const std::string& path, const DocumentRead& read) {
        const LocalQNPolicyInfo& info = read.record;
        CJsonWriter json(out);
        json.BeginObject().Key("formatVersion").Number(1);
        json.Key("result").String(read.bExists ? "loaded" : "defaults").Key("loaded").Bool(true);
        json.Key("policyFile").String(path).Key("exists").Bool(read.bExists).Key("version");
        if (info.GetQNVersion().empty()) {
            json.Null();
        } else {
            json.String(info.GetQNVersion());
        }
        // A fresh client's first load: its retained mode is the file's.
        json.Key("fipsModeModifiedOnDisk").Bool(false);
        json.Key("excludeCertStoreMask").String(HexText(info.ExcludeCertStores()));
        // The record's caching entries as they are, the "false" mark included.
        json.Key("cachingOptions").BeginArray();
        const std::vector<bool> caching = info.RestrictPrefCaching();
        for (size_t option = 0; option < caching.size(); ++option) {
            if (caching[option] && option < LocalPolicyCachingOptionTexts().size()) {
                json.String(LocalPolicyCachingOptionTexts()[option]);
            }
        }
        json.EndArray();
        json.Key("settings").BeginObject();
        for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
            const LocalPolicyKind& kind = KindOf(row.kind);
            const std::vector<std::string> values = kind.effective(row, info);
            switch (kind.shape) {
                case ValueShape::BOOLEAN:
                    json.Key(row.element).Bool(values.at(0) == "true");
                    break;
                case ValueShape::TEXT:
                    json.Key(row.element).String(values.at(0));
                    break;
                case ValueShape::LIST:
                    json.Key(row.element).BeginArray();
                    for (const std::string& value : values) {
                        json.String(value);
                    }
                    json.EndArray();
                    break;
                case ValueShape::NONE:
                    // The server names are the list's entries, not a setting of their own.
                    break;
            }
        }
        json.EndObject().Key("descriptions").BeginObject();
        for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
            json.Key(row.element).String(row.description);
        }
        json.EndObject().EndObject().Finish();
    }

    static void printText(std::ostream& out, const std::string& path, const DocumentRead& read) {
        const LocalQNPolicyInfo& info = read.record;
        out << "Policy file: " << DisplayName(path)
            << (read.bExists ? " (present)" : " (absent: defaults apply)") << '\n';
        // The version is the file's text: quoted, so that no text can forge a line.
        out << "Version:     "
            << (info.GetQNVersion().empty() ? "(none)" : Quoted(info.GetQNVersion())) << '\n';
        out << "FipsModeModifiedOnDisk: false\n";
        out << "Effective policy:\n";
        bool bInUpdateSection = false;
        for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
            const bool bUpdate = row.section != LocalPolicySection::ROOT;
            if (bUpdate && !bInUpdateSection) {
                out << "  " << kUpdatePolicyElement << ":\n";
                bInUpdateSection = true;
            }
            const int level = bUpdate ? 2 : 1;
            const LocalPolicyKind& kind = KindOf(row.kind);
            const std::vector<std::string> values = kind.effective(row, info);
            if (row.kind == LocalPolicySettingKind::SERVER_LIST) {
                printLine(out, row.element,
                          values.empty() ? "(none)" : std::to_string(values.size()) + " server(s)",
                          level);
                // Quoted, since a server name is kept exactly as written, blanks included.
                for (const std::string& server : values) {
                    out << "      " << Quoted(server) << '\n';
                }
            } else if (kind.shape != ValueShape::NONE) {
                printLine(out, row.element, Join(values, ","), level);
            }
        }
        printLine(out, "ExcludeCertStoreMask", HexText(info.ExcludeCertStores()));
    }

    std::vector<std::string> m_files;
};

}  // namespace

std::unique_ptr<CCommand> CreateShowCommand() {
    return std::make_unique<CShowCommand>();
}

}  // namespace qnpolicy::tool

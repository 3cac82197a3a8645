// SPDX-License-Identifier: Apache-2.0
// qnpolicy show: the effective policy as the client sees it after loading the file, every
// setting named by its element in catalogue order.

#include <unistd.h>

#include <iomanip>

#include "CommandTable.h"
#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "MessageText.h"
#include "ToolContext.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "commands/ShowOrigin.h"
#include "lint/PolicyTexts.h"
#include "origin/EffectivePolicy.h"
#include "output/Output.h"
#include "output/PolicyViews.h"
#include "sysutils.h"

namespace qnpolicy::tool {

const char kShowResultSchema[] = R"({"oneOf": [{
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
        "fipsModeModifiedOnDisk": {"type": "boolean", "description":
            "Whether the file states another FIPS mode than the one a running client fixed at its first load; show reads as a first load, which takes the file's mode, so false."},
        "excludeCertStoreMask": {"type": "string", "pattern": "^0x[0-9A-F]{8}$"},
        "cachingOptions": {"type": "array", "items": {"type": "string"}},
        "settings": {"type": "object", "additionalProperties": {
            "anyOf": [{"type": "boolean"}, {"type": "string"},
                      {"type": "array", "items": {"type": "string"}}]}},
        "descriptions": {"type": "object", "additionalProperties": {"type": "string"}}
    },
    "additionalProperties": false
}, {
    "type": "object",
    "description": "show --origin",
    "required": ["formatVersion", "result", "loaded", "policyFile", "exists", "version",
                 "versionOrigin", "settings", "ignored"],
    "properties": {
        "formatVersion": {"const": 1},
        "result": {"enum": ["loaded", "defaults"]},
        "loaded": {"const": true},
        "policyFile": {"type": "string"},
        "exists": {"type": "boolean"},
        "version": {"type": ["string", "null"]},
        "versionOrigin": {"$ref": "#/$defs/position"},
        "settings": {"$ref": "#/$defs/originSettings"},
        "ignored": {"type": "array", "items": {
            "$ref": "#/$defs/finding",
            "required": ["element"],
            "properties": {"element": {"type": "string"}},
            "unevaluatedProperties": false}},
        "omitted": {"type": "object", "additionalProperties": {"type": "integer", "minimum": 1}}
    },
    "additionalProperties": false
}]})";

namespace {

constexpr int kNameWidth = 52;
constexpr char kFormatText[] = "text";
constexpr char kFormatJson[] = "json";
constexpr char kFormatFlat[] = "flat";

// One "name value" line, the values of all levels aligned in one column.
void printLine(std::ostream& out, const std::string& name, const std::string& value,
               int level = 1) {
    const int indent = 2 * level;
    out << std::string(static_cast<size_t>(indent), ' ') << std::left
        << std::setw(kNameWidth - indent) << name << value << '\n';
}

class CShowCommand : public CCommand {
  public:
    void AddOptions(COptionList& options) override {
        options
            .Values("FILE", m_files,
                    "A policy file elsewhere, read as the client would read it in the install "
                    "directory; - reads standard input")
            .TypeName("FILE")
            .Expected(0, 1)
            .OneValueEach();
        options
            .Values("SETTING", m_settingWords,
                    "With --origin, only these settings, each named by its element or its "
                    "installer abbreviation (a word that names a setting is one; write ./fm for "
                    "a file named fm)")
            .TypeName("SETTING");
        options.Flag("--origin", m_bOrigin,
                     "Print where each value comes from: the element that set it "
                     "(FILE:LINE:COLUMN) or default, every element that contributed, each "
                     "server's element, what the client ignores and why, and when a change "
                     "takes effect");
        options
            .Value("--format", m_format,
                   "text (the default), json (as --json) or flat: one \"ElementName value\" "
                   "line per setting and per server, nothing else, for comparing hosts")
            .TypeName("FORMAT")
            .Choices(formats());
    }

    void AdjustSharedOptions(SharedOptions& rOptions) const override {
        rOptions.bJson = rOptions.bJson || m_format == kFormatJson;
    }

    bool UsesInstallDir() const override { return operands().files.empty(); }

    int Run(CToolContext& context) override {
        if (const int status = checkFormat(context); status != kExitSuccess) {
            return status;
        }
        const ShowOperands sorted = operands();
        if (!sorted.error.empty()) {
            return context.Fail(kExitUsage, errorkind::kUsage, sorted.error);
        }
        const std::vector<std::string>& files = sorted.files;
        std::string path = context.InstallPolicyPath();
        const bool bStandardInput = !files.empty() && files.front() == kStandardInput;
        if (bStandardInput) {
            path = kStandardInputName;
        } else if (!files.empty()) {
            path = files.front();
            // Only "nothing there" is a missing file; what cannot be examined fails the load.
            if (!qnsys::fileExists(path)) {
                return context.Fail(kExitNoInput, errorkind::kNoSuchFile,
                                    Quoted(path) + ": no such file");
            }
        }
        if (m_bOrigin) {
            std::string content;
            if (bStandardInput) {
                if (const int status = context.ReadStandardInput(content); status != kExitSuccess) {
                    return status;
                }
            }
            return ShowOrigins(context, path, bStandardInput ? &content : nullptr,
                               sorted.selection);
        }
        // Read as a fresh client's first load reads it: its FIPS mode is the file's; standard
        // input as it streams. Built in place: the record of a large list is not copied.
        const DocumentRead read = bStandardInput
                                      ? ReadPolicyStream(STDIN_FILENO, path, ReadOptions())
                                      : ReadPolicyFile(path, ReadOptions());
        // What the client holds is printed even when the file cannot be parsed: the defaults and
        // what was read before the error.
        if (read.status != 0) {
            reportFailure(context, path, read);
        }
        if (m_format == kFormatFlat) {
            PrintFlat(context.Out(), read.record);
        } else if (!context.Options().bJson) {
            printText(context.Out(), path, read);
        } else if (read.status == 0) {
            writeJson(context.Out(), path, read);
        }
        return read.status == 0 ? kExitSuccess : kExitUnreadable;
    }

  private:
    static const std::vector<std::string>& formats() {
        static const std::vector<std::string> names = {kFormatText, kFormatJson, kFormatFlat};
        return names;
    }

    ShowOperands operands() const {
        std::vector<std::string> words = m_files;
        words.insert(words.end(), m_settingWords.begin(), m_settingWords.end());
        return SortShowOperands(words, m_bOrigin);
    }

    // A usage error (64) for formats that exclude each other.
    int checkFormat(CToolContext& context) const {
        if (context.Options().bJson && (m_format == kFormatText || m_format == kFormatFlat)) {
            return context.Fail(kExitUsage, errorkind::kUsage,
                                "--json and --format=" + m_format + " exclude each other");
        }
        if (m_bOrigin && m_format == kFormatFlat) {
            return context.Fail(kExitUsage, errorkind::kUsage,
                                "--origin does not apply to --format=flat");
        }
        return kExitSuccess;
    }

    static void reportFailure(CToolContext& context, const std::string& path,
                              const DocumentRead& read) {
        if (context.Options().bJson) {
            CJsonWriter json(context.Out());
            json.BeginObject().Key("formatVersion").Number(1).Key("loaded").Bool(false);
            json.Key("policyFile").String(path).Key("error").BeginObject();
            json.Key("kind").String(errorkind::kUnreadable);
            json.Key("message").String(read.reason).Key("line").Number(read.line);
            json.Key("column").Number(read.column);
            json.Key("consequence").String(FailedReadConsequence(read)).EndObject();
            json.Key("settings");
            WriteSettingValuesJson(json, read.record);
            json.EndObject().Finish();
        }
        context.Error(CannotLoadMessage(path, read));
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
        json.Key("settings");
        WriteSettingValuesJson(json, info);
        json.Key("descriptions").BeginObject();
        for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
            json.Key(row.element).String(row.description);
        }
        json.EndObject().EndObject().Finish();
    }

    static void printText(std::ostream& out, const std::string& path, const DocumentRead& read) {
        const LocalQNPolicyInfo& info = read.record;
        out << "Policy file: " << DisplayName(path)
            << (read.status != 0 ? " (cannot be parsed: the client holds what was read before the "
                                   "error, with FIPS mode off)"
                : read.bExists   ? " (present)"
                                 : " (absent: defaults apply)")
            << '\n';
        // The version is the file's text: quoted, so that no text can forge a line.
        out << "Version:     "
            << (info.GetQNVersion().empty() ? "(none)" : Quoted(info.GetQNVersion())) << '\n';
        // What the manager's flag means for a running client; a first load cannot set it.
        out << "FipsModeModifiedOnDisk: false (read as a client's first load, which takes its FIPS "
               "mode from the file; "
            << kNextStartExplanation << ")\n";
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
    std::vector<std::string> m_settingWords;
    bool m_bOrigin = false;
    std::string m_format;  // empty: text, or json with --json
};

}  // namespace

std::unique_ptr<CCommand> CreateShowCommand() {
    return std::make_unique<CShowCommand>();
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
// qnpolicy diff: whether two policy files are the same policy as the client reads them, and
// where they differ.

#include "CommandTable.h"
#include "MessageText.h"
#include "ToolContext.h"
#include "commands/ShowOrigin.h"
#include "origin/EffectivePolicy.h"
#include "output/Output.h"
#include "output/PolicyViews.h"
#include "sysutils.h"

namespace qnpolicy::tool {

const char kDiffResultSchema[] = R"({
    "type": "object",
    "required": ["formatVersion", "result", "old", "new", "changes"],
    "properties": {
        "formatVersion": {"const": 1},
        "result": {"enum": ["same", "different"]},
        "old": {"$ref": "#/$defs/diffSide"},
        "new": {"$ref": "#/$defs/diffSide"},
        "changes": {"type": "array", "items": {"$ref": "#/$defs/change"}}
    },
    "additionalProperties": false,
    "$defs": {
        "diffSide": {
            "type": "object",
            "required": ["file", "exists", "version", "versionOrigin"],
            "properties": {
                "file": {"type": "string"},
                "exists": {"type": "boolean"},
                "version": {"type": ["string", "null"],
                            "description": "reported, but no difference: the client reads both alike"},
                "versionOrigin": {"$ref": "#/$defs/position"}
            },
            "additionalProperties": false
        }
    }
})";

namespace {

// Where one side of the comparison comes from: a FILE argument, standard input, or the install
// directory's file, which may be missing (then the client holds the defaults).
struct Source {
    std::string name;
    bool bStandardInput = false;
    bool bInstallFile = false;
};

void writeSide(CJsonWriter& json, const EffectivePolicy& policy) {
    const std::string& version = policy.read.record.GetQNVersion();
    json.BeginObject().Key("file").String(policy.file).Key("exists").Bool(policy.read.bExists);
    json.Key("version");
    if (version.empty()) {
        json.Null();
    } else {
        json.String(version);
    }
    json.Key("versionOrigin");
    if (policy.versionOrigin.Known()) {
        json.BeginObject().Key("line").Number(policy.versionOrigin.line);
        json.Key("column").Number(policy.versionOrigin.column).EndObject();
    } else {
        json.Null();
    }
    json.EndObject();
}

class CDiffCommand : public CCommand {
  public:
    void AddOptions(COptionList& options) override {
        options
            .Values("FILE", m_files,
                    "The policy files compared, old then new; with one, the install "
                    "directory's file (the defaults when it is missing) is the old one. "
                    "- reads standard input, for one of them")
            .TypeName("FILE")
            .Required()
            .Expected(1, 2);
    }

    bool UsesInstallDir() const override { return m_files.size() == 1; }

    int Run(CToolContext& context) override {
        std::vector<Source> sources;
        if (m_files.size() == 1) {
            sources.push_back({context.InstallPolicyPath(), false, true});
        }
        for (const std::string& file : m_files) {
            sources.push_back({file, file == kStandardInput, false});
        }
        if (sources[0].bStandardInput && sources[1].bStandardInput) {
            return context.Fail(kExitUsage, errorkind::kUsage,
                                "standard input (-) can be only one of the two files");
        }
        std::string input;
        for (Source& source : sources) {
            if (const int status = prepare(context, source, input); status != kExitSuccess) {
                return status;
            }
        }
        const EffectivePolicy oldPolicy = read(sources[0], input);
        const EffectivePolicy newPolicy = read(sources[1], input);
        for (const EffectivePolicy* policy : {&oldPolicy, &newPolicy}) {
            if (!policy->Complete()) {
                return context.Fail(kExitUnreadable, errorkind::kUnreadable,
                                    CannotLoadMessage(policy->file, policy->read));
            }
        }
        const std::vector<SettingChange> changes = ComparePolicies(oldPolicy, newPolicy);
        if (context.Options().bJson) {
            CJsonWriter json(context.Out());
            json.BeginObject().Key("formatVersion").Number(1);
            json.Key("result").String(changes.empty() ? "same" : "different").Key("old");
            writeSide(json, oldPolicy);
            json.Key("new");
            writeSide(json, newPolicy);
            json.Key("changes");
            WriteChangesJson(json, changes, oldPolicy, newPolicy);
            json.EndObject().Finish();
        } else {
            printText(context, changes, oldPolicy, newPolicy);
        }
        return changes.empty() ? kExitSuccess : kExitFindings;
    }

  private:
    // Reads standard input into rInput, or checks that a FILE argument exists: 0, or the exit
    // status of the failure (reported). The install directory's file may be missing.
    static int prepare(CToolContext& context, Source& rSource, std::string& rInput) {
        if (rSource.bStandardInput) {
            rSource.name = kStandardInputName;
            return context.ReadStandardInput(rInput);
        }
        // Only "nothing there" is a missing file; what cannot be examined fails its read.
        if (rSource.bInstallFile || qnsys::fileExists(rSource.name)) {
            return kExitSuccess;
        }
        return context.Fail(kExitNoInput, errorkind::kNoSuchFile,
                            Quoted(rSource.name) + ": no such file");
    }

    static EffectivePolicy read(const Source& source, const std::string& input) {
        return source.bStandardInput ? ReadEffectivePolicyBytes(input, source.name, false)
                                     : ReadEffectivePolicyFile(source.name, source.name, false);
    }

    // One line per change; unless --quiet, the versions where they differ and a summary.
    static void printText(CToolContext& context, const std::vector<SettingChange>& changes,
                          const EffectivePolicy& oldPolicy, const EffectivePolicy& newPolicy) {
        std::ostream& out = context.Out();
        for (const SettingChange& change : changes) {
            out << ChangeLine(change, oldPolicy, newPolicy) << '\n';
        }
        if (context.Options().bQuiet) {
            return;
        }
        const std::string oldVersion = oldPolicy.read.record.GetQNVersion();
        const std::string newVersion = newPolicy.read.record.GetQNVersion();
        if (oldVersion != newVersion) {
            out << "qnversion: " << Quoted(oldVersion) << " -> " << Quoted(newVersion)
                << " (no difference: the client reads both alike)\n";
        }
        out << oldPolicy.file << " and " << newPolicy.file << ": ";
        if (changes.empty()) {
            out << "the client reads the same policy\n";
        } else {
            out << changes.size()
                << (changes.size() == 1 ? " setting differs\n" : " settings differ\n");
        }
    }

    std::vector<std::string> m_files;
};

}  // namespace

std::unique_ptr<CCommand> CreateDiffCommand() {
    return std::make_unique<CDiffCommand>();
}

}  // namespace qnpolicy::tool

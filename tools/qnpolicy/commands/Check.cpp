// SPDX-License-Identifier: Apache-2.0
// qnpolicy check: the linter for administrators, over one or several files.

#include <unistd.h>

#include <algorithm>
#include <set>

#include "CommandTable.h"
#include "LocalPolicyDocument.h"
#include "MessageText.h"
#include "ToolContext.h"
#include "lint/PolicyLinter.h"
#include "output/Output.h"
#include "output/PolicyViews.h"
#include "safety/PathAudit.h"
#include "sysutils.h"

namespace qnpolicy::tool {

const char kCheckResultSchema[] = R"({
    "type": "object",
    "required": ["formatVersion", "result", "files"],
    "properties": {
        "formatVersion": {"const": 1},
        "result": {"enum": ["clean", "findings", "unreadable", "no-such-file"]},
        "files": {"type": "array", "items": {
            "type": "object",
            "required": ["file", "readable", "findings"],
            "properties": {
                "file": {"type": "string"},
                "exists": {"type": "boolean"},
                "readable": {"type": "boolean"},
                "error": {"$ref": "#/$defs/error"},
                "findings": {"type": "array", "items": {
                    "$ref": "#/$defs/finding", "unevaluatedProperties": false}},
                "omitted": {"type": "object",
                            "additionalProperties": {"type": "integer", "minimum": 1}}
            },
            "additionalProperties": false}}
    },
    "additionalProperties": false
})";

namespace {

// One checked input: the name it is reported under, its result, and whether it was missing
// (a FILE argument: no such file) or is the install directory's absent policy file (the
// client's normal "no policy").
struct CheckedFile {
    std::string name;
    LintResult result;
    bool bMissing = false;
    bool bAbsent = false;
};

// What a client that loads such a file holds: a failure without a position read nothing (no
// file, or none it could open).
const char* consequenceOf(const LintResult& result) {
    return result.failureLine != 0 ? kUnreadableFileConsequence : kMissingFileConsequence;
}

// Lints one file, or standard input for "-", as it streams; only "nothing there" is absent,
// and the path of a file is audited, present or not.
CheckedFile checkOne(const std::string& file, bool bInstallFile) {
    if (file == kStandardInput) {
        return {kStandardInputName, LintPolicyStream(STDIN_FILENO, kStandardInputName)};
    }
    CheckedFile checked{file, LintResult()};
    if (!qnsys::fileExists(file)) {
        checked.bMissing = !bInstallFile;
        checked.bAbsent = bInstallFile;
        if (checked.bMissing) {
            checked.result.bReadable = false;
            checked.result.failureReason = "no such file";
            return checked;
        }
    } else {
        checked.result = LintPolicyFile(file);
    }
    // Who can change the file leads its findings.
    const std::vector<LintFinding> path = PolicyPathFindings(file);
    checked.result.findings.insert(checked.result.findings.begin(), path.begin(), path.end());
    return checked;
}

// FILE:LINE:COLUMN: kind: message, so that editors can jump to each place; a finding about
// the whole file has no line and column.
void printFinding(std::ostream& out, const std::string& file, unsigned long line,
                  unsigned long column, const std::string& kind, const std::string& message) {
    out << DisplayName(file) << ':';
    if (line != 0) {
        out << line << ':' << column << ':';
    }
    out << ' ' << kind << ": " << message << '\n';
}

// The findings, the count of those left out, then (unless bQuiet) a summary line.
void printText(std::ostream& out, const CheckedFile& checked, bool bQuiet) {
    const LintResult& result = checked.result;
    if (checked.bAbsent && !bQuiet) {
        out << DisplayName(checked.name) << ": absent. " << kMissingFileConsequence << '\n';
    }
    for (const LintFinding& finding : result.findings) {
        printFinding(out, checked.name, finding.line, finding.column, finding.kind,
                     finding.message);
    }
    for (const auto& [kind, count] : result.omitted) {
        printFinding(out, checked.name, 0, 0, kind,
                     std::to_string(count) + " more finding" + (count == 1 ? "" : "s") +
                         " of this kind not shown (the first " +
                         std::to_string(kMaxFindingsPerKind) + " are)");
    }
    if (!result.bReadable) {
        printFinding(out, checked.name, result.failureLine, result.failureColumn, "unreadable",
                     result.failureReason + ". " + consequenceOf(result));
        return;
    }
    if (bQuiet) {
        return;
    }
    const unsigned long count = result.Count();
    out << DisplayName(checked.name) << ": "
        << (count == 0 ? std::string("no findings")
                       : std::to_string(count) + (count == 1 ? " finding" : " findings"))
        << '\n';
}

void writeJson(CJsonWriter& json, const CheckedFile& checked) {
    const LintResult& result = checked.result;
    json.BeginObject().Key("file").String(checked.name);
    json.Key("exists").Bool(!checked.bMissing && !checked.bAbsent);
    json.Key("readable").Bool(result.bReadable);
    if (!result.bReadable) {
        json.Key("error").BeginObject();
        json.Key("kind").String(checked.bMissing ? errorkind::kNoSuchFile : errorkind::kUnreadable);
        json.Key("message").String(result.failureReason);
        json.Key("line").Number(result.failureLine).Key("column").Number(result.failureColumn);
        json.Key("consequence").String(consequenceOf(result));
        json.EndObject();
    }
    json.Key("findings").BeginArray();
    for (const LintFinding& finding : result.findings) {
        json.BeginObject();
        WriteFindingMembers(json, finding);
        json.EndObject();
    }
    json.EndArray();
    if (!result.omitted.empty()) {
        json.Key("omitted").BeginObject();
        for (const auto& [kind, count] : result.omitted) {
            json.Key(kind).Number(count);
        }
        json.EndObject();
    }
    json.EndObject();
}

class CCheckCommand : public CCommand {
  public:
    void AddOptions(COptionList& options) override {
        options
            .Values("FILE", m_files,
                    "Files to check, - for standard input (default: the policy file in the "
                    "install directory)")
            .TypeName("FILE");
        options
            .Values("--ignore", m_ignoredKinds,
                    "Drop findings of this kind (repeatable), e.g. file-owner for files kept "
                    "in a repository")
            .TypeName("KIND")
            .OneValueEach()
            .Check([](const std::string& kind) {
                std::vector<std::string> kinds;
                for (const FindingKindInfo& info : kFindingKinds) {
                    if (kind == info.kind) {
                        return std::string();
                    }
                    kinds.emplace_back(info.kind);
                }
                const std::string suggestion = SuggestName(kind, kinds);
                return "unknown finding kind " + Quoted(kind) +
                       (suggestion.empty() ? std::string() : "; did you mean " + suggestion + "?");
            });
    }

    bool UsesInstallDir() const override { return m_files.empty(); }

    int Run(CToolContext& context) override {
        std::vector<std::string> files = m_files;
        const bool bInstallFile = files.empty();
        if (bInstallFile) {
            files.push_back(context.InstallPolicyPath());
        }
        const std::set<std::string> ignored(m_ignoredKinds.begin(), m_ignoredKinds.end());
        // Every file is read first: the result leads the JSON object.
        std::vector<CheckedFile> checkedFiles;
        bool bMissing = false;
        bool bUnreadable = false;
        bool bFindings = false;
        for (const std::string& file : files) {
            CheckedFile checked = checkOne(file, bInstallFile);
            LintResult& result = checked.result;
            result.findings.erase(std::remove_if(result.findings.begin(), result.findings.end(),
                                                 [&ignored](const LintFinding& finding) {
                                                     return ignored.count(finding.kind) != 0;
                                                 }),
                                  result.findings.end());
            for (const std::string& kind : ignored) {
                result.omitted.erase(kind);
            }
            bMissing = bMissing || checked.bMissing;
            bUnreadable = bUnreadable || (!result.bReadable && !checked.bMissing);
            bFindings = bFindings || result.Count() != 0;
            checkedFiles.push_back(std::move(checked));
        }
        // The gravest condition decides: a missing file, then one that cannot be read, then
        // findings.
        const char* outcome = bMissing      ? errorkind::kNoSuchFile
                              : bUnreadable ? errorkind::kUnreadable
                              : bFindings   ? "findings"
                                            : "clean";
        if (context.Options().bJson) {
            CJsonWriter json(context.Out());
            json.BeginObject().Key("formatVersion").Number(1).Key("result").String(outcome);
            json.Key("files").BeginArray();
            for (const CheckedFile& checked : checkedFiles) {
                writeJson(json, checked);
            }
            json.EndArray().EndObject().Finish();
        } else {
            for (const CheckedFile& checked : checkedFiles) {
                printText(context.Out(), checked, context.Options().bQuiet);
            }
        }
        if (bMissing) {
            return kExitNoInput;
        }
        if (bUnreadable) {
            return kExitUnreadable;
        }
        return bFindings ? kExitFindings : kExitSuccess;
    }

  private:
    std::vector<std::string> m_files;
    std::vector<std::string> m_ignoredKinds;
};

}  // namespace

std::unique_ptr<CCommand> CreateCheckCommand() {
    return std::make_unique<CCheckCommand>();
}

}  // namespace qnpolicy::tool

// qnpolicy check: the linter for administrators, over one or several files.

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <iterator>
#include <set>

#include "Commands.h"
#include "ExitCodes.h"
#include "JsonWriter.h"
#include "NameSuggestion.h"
#include "PolicyFileAttributes.h"
#include "PolicyLinter.h"
#include "TextFormat.h"

namespace qnpolicy::tool {

namespace {

constexpr char kStandardInput[] = "-";
constexpr char kStandardInputName[] = "<stdin>";

// One checked file: the name it is reported under and its result.
struct CheckedFile {
    std::string name;
    LintResult result;
};

// Lints one file, or standard input for "-"; the ownership audit applies to files only.
CheckedFile checkOne(const std::string& file, CPolicyLinter& linter) {
    CheckedFile checked;
    if (file == kStandardInput) {
        checked.name = kStandardInputName;
        const std::string content((std::istreambuf_iterator<char>(std::cin)),
                                  std::istreambuf_iterator<char>());
        if (std::cin.bad()) {
            checked.result.bReadable = false;
            checked.result.failure.message = "cannot read standard input";
            return checked;
        }
        checked.result = linter.LintBuffer(content, checked.name);
        return checked;
    }
    checked.name = file;
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) {
        const int error = errno;
        checked.result.bReadable = false;
        checked.result.failure.message =
            error == ENOENT ? std::string("no such file") : std::strerror(error);
        return checked;
    }
    checked.result = linter.LintFile(file);
    if (checked.result.bReadable) {
        std::vector<LintFinding> attributes = CheckPolicyFileAttributes(file);
        checked.result.findings.insert(checked.result.findings.begin(), attributes.begin(),
                                       attributes.end());
    }
    return checked;
}

// FILE:LINE:COLUMN: kind: message, so that editors can jump to each place; a finding about
// the whole file has no line and column.
void printFinding(std::ostream& out, const std::string& file, unsigned long line,
                  unsigned long column, const std::string& kind, const std::string& message) {
    out << file << ':';
    if (line != 0) {
        out << line << ':' << column << ':';
    }
    out << ' ' << kind << ": " << message << '\n';
}

// The findings, then (unless bQuiet) a summary line.
void printText(std::ostream& out, const CheckedFile& checked, bool bQuiet) {
    const LintResult& result = checked.result;
    for (const LintFinding& finding : result.findings) {
        printFinding(out, checked.name, finding.line, finding.column, finding.kind,
                     finding.message);
    }
    if (!result.bReadable) {
        printFinding(out, checked.name, result.failure.line, result.failure.column, "unreadable",
                     result.failure.message);
        return;
    }
    if (bQuiet) {
        return;
    }
    if (result.findings.empty()) {
        out << checked.name << ": no findings\n";
    } else {
        out << checked.name << ": " << result.findings.size()
            << (result.findings.size() == 1 ? " finding\n" : " findings\n");
    }
}

void writeJson(CJsonWriter& json, const CheckedFile& checked) {
    const LintResult& result = checked.result;
    json.BeginObject().Key("file").String(checked.name).Key("readable").Bool(result.bReadable);
    if (!result.bReadable) {
        json.Key("error").BeginObject().Key("message").String(result.failure.message);
        json.Key("line").Number(result.failure.line).Key("column").Number(result.failure.column);
        json.EndObject();
    }
    json.Key("findings").BeginArray();
    for (const LintFinding& finding : result.findings) {
        json.BeginObject().Key("kind").String(finding.kind);
        json.Key("severity").String(SeverityText(finding.eSeverity));
        json.Key("line").Number(finding.line).Key("column").Number(finding.column);
        json.Key("message").String(finding.message).EndObject();
    }
    json.EndArray().EndObject();
}

}  // namespace

void AddCheckOptions(CLI::App& command, CommandArgs& args) {
    command
        .add_option("FILE", args.files,
                    "Files to check, - for standard input (default: the policy file in the "
                    "install directory)")
        ->type_name("FILE");
    command
        .add_option("--ignore", args.ignoredKinds,
                    "Drop findings of this kind (repeatable), e.g. file-owner for files kept in "
                    "a repository")
        ->type_name("KIND")
        ->allow_extra_args(false)
        ->check([](const std::string& kind) {
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

int RunCheck(const CommandArgs& args, CToolContext& context) {
    std::vector<std::string> files = args.files;
    if (files.empty()) {
        if (const int status = context.RequireInstallDir(); status != kExitSuccess) {
            return status;
        }
        files.push_back(context.InstallPolicyPath());
    }
    const std::set<std::string> ignored(args.ignoredKinds.begin(), args.ignoredKinds.end());
    CPolicyLinter linter;
    CJsonWriter json(context.Out());
    if (context.Options().bJson) {
        json.BeginObject().Key("formatVersion").Number(1).Key("files").BeginArray();
    }
    bool bUnreadable = false;
    bool bFindings = false;
    for (const std::string& file : files) {
        CheckedFile checked = checkOne(file, linter);
        std::vector<LintFinding>& findings = checked.result.findings;
        findings.erase(std::remove_if(findings.begin(), findings.end(),
                                      [&ignored](const LintFinding& finding) {
                                          return ignored.count(finding.kind) != 0;
                                      }),
                       findings.end());
        bUnreadable = bUnreadable || !checked.result.bReadable;
        bFindings = bFindings || !findings.empty();
        if (context.Options().bJson) {
            writeJson(json, checked);
        } else {
            printText(context.Out(), checked, context.Options().bQuiet);
        }
    }
    if (context.Options().bJson) {
        json.EndArray().EndObject().Finish();
    }
    if (bUnreadable) {
        return kExitUnreadable;
    }
    return bFindings ? kExitFindings : kExitSuccess;
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
// qnpolicy generate: the installer's path to a policy file, failing closed.
//
// The document is rendered once, from the arguments as the library checks them; those bytes
// are linted in memory with check's rules, compared with the file on disk, and, when they must
// be written, stored as they are: what is linted is what is written, and nothing is created
// outside the install directory. Any refused argument or finding refuses the run unless
// --lenient is given, which is the installer's behaviour (skip what cannot be used, write the
// rest, in the library's spelling).
//
// The policy path is audited as the client resolves it (safety/PathAudit.h), and the store
// goes through the directory the audit ended on. A file that is written, kept or confirmed must
// be safe: owned by root (or by the user running the tool, when that is not root), root's group,
// mode 0644, no ACL, one link. A file that holds the document but is not safe is repaired by
// writing it anew, so that no descriptor opened on it before can change the policy; without
// --overwrite it is refused, as is anything but a regular file at the path.

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "CommandTable.h"
#include "ErrnoText.h"
#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "MessageText.h"
#include "commands/GenerateInputs.h"
#include "lint/PolicyLinter.h"
#include "output/Output.h"
#include "output/PolicyViews.h"
#include "output/UnifiedDiff.h"
#include "sysutils.h"

namespace qnpolicy::tool {

const char kGenerateResultSchema[] = R"({
    "type": "object",
    "required": ["formatVersion", "path", "result", "dryRun", "skipped", "findings", "repaired"],
    "properties": {
        "formatVersion": {"const": 1},
        "path": {"type": "string"},
        "result": {"enum": ["written", "unchanged", "repaired", "kept", "refused", "failed",
                            "not-synced"]},
        "dryRun": {"type": "boolean"},
        "document": {"type": "string"},
        "diff": {"type": "string"},
        "changes": {"type": "array", "items": {"$ref": "#/$defs/change"}},
        "skipped": {"type": "array", "items": {
            "type": "object",
            "required": ["argument", "kind", "message"],
            "properties": {
                "argument": {"type": "string"},
                "kind": {"enum": ["invalid-argument", "empty-value", "unknown-abbreviation",
                                  "value-not-allowed", "server-name", "duplicate-argument"]},
                "message": {"type": "string"}
            },
            "additionalProperties": false}},
        "findings": {"type": "array", "items": {
            "$ref": "#/$defs/finding",
            "required": ["argument"],
            "properties": {"argument": {"type": ["string", "null"]}},
            "unevaluatedProperties": false}},
        "repaired": {"type": "array", "items": {
            "type": "object",
            "required": ["attribute", "was", "now"],
            "properties": {
                "attribute": {"enum": ["owner", "group", "mode", "acl", "links"]},
                "was": {"type": "string"},
                "now": {"type": "string"}
            },
            "additionalProperties": false}},
        "error": {"$ref": "#/$defs/error"}
    },
    "additionalProperties": false
})";

namespace {

constexpr char kDiffAfterSuffix[] = " (generated)";
constexpr char kAbsentFile[] = "/dev/null";
// The most --diff reads of a file on disk: beyond it the diff says so instead of printing it.
constexpr size_t kMaxDiffBytes = size_t{1} << 20;

// What a run does, or with --dry-run and --diff would do.
enum class GenerateResult {
    WRITTEN,    // the file was (would be) written
    UNCHANGED,  // the file already holds the document, safely; left untouched
    REPAIRED,   // it held the document, but unsafely: written anew
    KEPT,       // a safe file exists and --overwrite was not given
    REFUSED,    // unusable arguments or findings, and not --lenient: nothing written
    FAILED,     // the file could not be written
    // The file was replaced, but the directory's sync failed: the new document is in place
    // and its durability is not confirmed. An installer must not roll back, nor call it done.
    NOT_SYNCED,
};

struct ResultRow {
    const char* name;  // "result" of the JSON output
    GenerateResult eResult;
    int exitStatus;
};

const ResultRow kResults[] = {
    {"written", GenerateResult::WRITTEN, kExitSuccess},
    {"unchanged", GenerateResult::UNCHANGED, kExitSuccess},
    {"repaired", GenerateResult::REPAIRED, kExitSuccess},
    {"kept", GenerateResult::KEPT, kExitSuccess},
    {"refused", GenerateResult::REFUSED, kExitDataError},
    {"failed", GenerateResult::FAILED, kExitIoError},
    {"not-synced", GenerateResult::NOT_SYNCED, kExitIoError},
};

const ResultRow& rowOf(GenerateResult eResult) {
    for (const ResultRow& row : kResults) {
        if (row.eResult == eResult) {
            return row;
        }
    }
    throw std::logic_error("generate: result without a row");
}

// An argument the library does not use, or the tool will not, in the tool's words.
struct SkippedArgument {
    std::string argument;  // as given
    std::string kind;
    std::string message;
};

// A finding of the would-be document, with the argument it came from (empty when none).
struct ArgumentFinding {
    std::string argument;
    LintFinding finding;
};

// Everything generate learns before it writes.
struct Plan {
    std::string document;
    std::vector<SkippedArgument> skipped;
    std::vector<ArgumentFinding> findings;
    PathAudit audit;             // the policy path, and the directory to store through
    ExistingFile existing;       // what is at the path, links followed
    bool bDanglingLink = false;  // the path holds a link to nothing
    std::string failure;         // why a write failed
    // A kept file that another writer made after this run looked: before the store began
    // (the store kept it) or while the new file was written (its name was taken meanwhile).
    const char* appeared = nullptr;
};

// Why the library does not use an argument: a message naming the argument, quoting its value,
// and suggesting the nearest abbreviation or listing the allowed values. The library skips an
// empty value silently; here it is reported like the others.
SkippedArgument describe(const RefusedArgument& refused,
                         const std::vector<std::string>& policyArgs) {
    const InstallerArgument& argument = refused.argument;
    switch (refused.eReason) {
        case ArgumentRefusal::MISSING_EQUALS:
            return {argument.text, "invalid-argument",
                    "no \"=\": arguments take the form abbreviation=value (see `qnpolicy "
                    "vocabulary`)"};
        case ArgumentRefusal::EMPTY_VALUE:
            return {argument.text, "empty-value",
                    argument.pSetting == nullptr
                        ? "the value is empty, so the setting would not be written"
                        : "the value names no server (names are separated by \",\" and \";\"), "
                          "so the list would be empty"};
        case ArgumentRefusal::UNKNOWN_ABBREVIATION: {
            std::vector<std::string> abbreviations;
            for (const LocalPolicySettingInfo* setting : InstallerSettings()) {
                abbreviations.push_back(setting->abbreviation);
            }
            const std::string suggestion = SuggestName(argument.abbreviation, abbreviations);
            return {argument.text, "unknown-abbreviation",
                    "unknown abbreviation " + Quoted(argument.abbreviation) +
                        (suggestion.empty() ? std::string()
                                            : "; did you mean " + Quoted(suggestion) + "?") +
                        " (abbreviations are case-sensitive)"};
        }
        case ArgumentRefusal::VALUE_NOT_ALLOWED:
            return {argument.text, "value-not-allowed",
                    Quoted(argument.value) + " is not an allowed value for " +
                        Quoted(argument.pSetting->element) + "; allowed (ignoring case): " +
                        Join(argument.pSetting->allowedValues, ", ", true)};
        case ArgumentRefusal::SERVER_NAME:
            return {argument.text, "server-name",
                    "the server name " + Quoted(refused.serverName) +
                        " holds white space or a control character, which the client would "
                        "keep as part of one name; separate names with \",\" or \";\" "
                        "(upal=gw1;gw2), and give a list too long for a command line as one "
                        "upal= line of --args-from"};
        case ArgumentRefusal::DUPLICATE:
            return {argument.text, "duplicate-argument",
                    Quoted(argument.pSetting->element) + " is already set by " +
                        Quoted(policyArgs.at(refused.usedIndex)) + ", whose value is used"};
    }
    return {};
}

// The argument a finding of the would-be document comes from: the one that set its element,
// or for a server name the one that set the list.
std::string argumentOf(const LintFinding& finding, const ArgumentCheck& check) {
    const LocalPolicySettingInfo* pRow = FindLocalPolicySetting(finding.element);
    const std::string& element =
        pRow != nullptr && pRow->kind == LocalPolicySettingKind::SERVER_NAME
            ? FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_LIST)->element
            : finding.element;
    for (const InstallerArgument& argument : check.accepted) {
        if (argument.pSetting->element == element) {
            return argument.text;
        }
    }
    return std::string();
}

// A run that cannot go on, with its exit status, JSON error kind, message and details.
struct Stop {
    int exitStatus = kExitSuccess;
    const char* kind = "";
    std::string message;
    std::vector<std::string> details;
};

class CGenerateCommand : public CCommand {
  public:
    void AddOptions(CLI::App& command) override;

    // Without arguments the run is a usage error before anything is looked at.
    bool UsesInstallDir() const override {
        return (m_policyArgs.empty() && m_argsFrom.empty()) == m_bAllDefaults;
    }

    int Run(CToolContext& context) override;

  private:
    int readArguments(CToolContext& context);
    int plan(CToolContext& context, Plan& rPlan) const;
    Stop unsafeTarget(const Plan& plan, const std::string& path, GenerateResult eResult) const;
    GenerateResult decide(const Plan& plan) const;
    GenerateResult store(Plan& rPlan, GenerateResult eDecided, int& rFailureStatus) const;
    void printProblems(const Plan& plan, CToolContext& context) const;
    void writeJson(std::ostream& out, const std::string& path, GenerateResult eResult,
                   const Plan& plan, const std::string& diff, const CDocumentChanges* pChanges,
                   int failureStatus) const;

    std::vector<std::string> m_policyArgs;
    std::string m_argsFrom;
    bool m_bOverwrite = false;
    bool m_bLenient = false;
    bool m_bDryRun = false;
    bool m_bDiff = false;
    bool m_bAllDefaults = false;
    bool m_bAllowUnsafeDirectory = false;
};

void CGenerateCommand::AddOptions(CLI::App& command) {
    command.add_flag("--overwrite", m_bOverwrite, "Replace an existing policy file");
    command.add_flag("--lenient", m_bLenient,
                     "Skip unusable arguments with a warning and write the rest in the "
                     "installer's spelling, as installers expect, instead of refusing the run");
    CLI::Option* dryRun = command.add_flag(
        "--dry-run", m_bDryRun, "Write nothing; print the document that would be written");
    command
        .add_flag("--diff", m_bDiff,
                  "Write nothing; print a unified diff from the file on disk to the document "
                  "that would be written (exit 1 when they differ)")
        ->excludes(dryRun);
    CLI::Option* allDefaults =
        command.add_flag("--all-defaults", m_bAllDefaults,
                         "Write a document that sets nothing, so that the client applies every "
                         "default; takes no ABBREV=VALUE");
    command.add_flag("--allow-unsafe-directory", m_bAllowUnsafeDirectory,
                     "Write even where check reports the path unsafe (a directory or link on the "
                     "way that others own or can write)");
    command
        .add_option("--args-from", m_argsFrom,
                    "Read more installer arguments from FILE, - for standard input: one per "
                    "line, nothing trimmed, empty lines skipped (for lists too long for a "
                    "command line)")
        ->type_name("FILE")
        ->excludes(allDefaults);
    command
        .add_option("ARG", m_policyArgs,
                    "Installer arguments, checked, then written (see `qnpolicy vocabulary`)")
        ->type_name("ABBREV=VALUE");
}

// Appends the arguments of --args-from; 0, or the exit status of a failure (reported).
int CGenerateCommand::readArguments(CToolContext& context) {
    if (!m_argsFrom.empty()) {
        const ArgumentFileFailure failure = ReadArgumentFile(m_argsFrom, m_policyArgs);
        if (failure.exitStatus != kExitSuccess) {
            return context.Fail(failure.exitStatus, failure.kind, failure.message);
        }
    }
    if (m_policyArgs.empty() == m_bAllDefaults) {
        return kExitSuccess;
    }
    return context.Fail(kExitUsage, errorkind::kUsage,
                        m_bAllDefaults ? "--all-defaults takes no ABBREV=VALUE"
                                       : "no arguments: give at least one ABBREV=VALUE (see "
                                         "`qnpolicy vocabulary`), or --all-defaults");
}

// Checks the arguments, renders the document once and lints those bytes; then audits the path
// and looks at what is there. 0, or the exit status of a failure (reported).
int CGenerateCommand::plan(CToolContext& context, Plan& rPlan) const {
    const std::string path = context.InstallPolicyPath();
    std::vector<const char*> argv;
    argv.reserve(m_policyArgs.size());
    for (const std::string& argument : m_policyArgs) {
        argv.push_back(argument.c_str());
    }
    // The tool writes what the client applies: where the vocabulary spells an accepted value in
    // a way the reader does not apply ("TLS", "IPSec"), the reader's spelling, so that every
    // setting can be deployed; and it refuses a server list that names no server or a name
    // with a blank. --lenient is the installer's behaviour: the library's spelling and names,
    // of which the linter then warns.
    ArgumentCheckOptions options;
    options.bStrict = true;
    options.bAppliedSpelling = !m_bLenient;
    options.bPlainServerNames = !m_bLenient;
    const ArgumentCheck check = CheckInstallerArguments(argv.data(), argv.size(), options);
    for (const RefusedArgument& refused : check.refused) {
        rPlan.skipped.push_back(describe(refused, m_policyArgs));
    }
    if (RenderPolicyDocument(check.settings, context.InstallDir(), rPlan.document) != 0) {
        return context.Fail(kExitDataError, errorkind::kRefused,
                            "the document cannot be written from these arguments: a value holds "
                            "text XML cannot carry (bytes that are not UTF-8, or a control "
                            "character other than tab, line feed and carriage return)");
    }
    const LintResult lint = LintPolicyBytes(rPlan.document, path);
    if (!lint.bReadable) {
        return context.Fail(kExitInternal, errorkind::kInternal,
                            "the generated document cannot be read back: " + lint.failureReason);
    }
    for (const LintFinding& finding : lint.findings) {
        rPlan.findings.push_back(ArgumentFinding{argumentOf(finding, check), finding});
    }
    rPlan.audit = AuditPolicyPath(path, Trust::WRITER);
    if (rPlan.audit.Reached()) {
        rPlan.existing = ExamineExistingFile(
            rPlan.audit.directory, rPlan.audit.name, m_bOverwrite || m_bDiff,
            m_bDiff ? std::max(kMaxDiffBytes, rPlan.document.size()) : rPlan.document.size());
    }
    rPlan.bDanglingLink = rPlan.existing.eKind == ExistingFile::NONE && qnsys::fileExists(path);
    if (rPlan.existing.readError != 0) {
        return context.Fail(
            kExitUnreadable, errorkind::kUnreadable,
            "cannot read " + Quoted(path) + ": " + qnsys::errnoText(rPlan.existing.readError));
    }
    return kExitSuccess;
}

GenerateResult CGenerateCommand::decide(const Plan& plan) const {
    if (!m_bLenient && (!plan.skipped.empty() || !plan.findings.empty())) {
        return GenerateResult::REFUSED;
    }
    const ExistingFile& existing = plan.existing;
    if (existing.eKind != ExistingFile::REGULAR) {
        return existing.eKind == ExistingFile::NONE || m_bOverwrite ? GenerateResult::WRITTEN
                                                                    : GenerateResult::KEPT;
    }
    if (!m_bOverwrite) {
        return GenerateResult::KEPT;
    }
    if (existing.bOversized || existing.content != plan.document) {
        return GenerateResult::WRITTEN;
    }
    return existing.repairs.empty() ? GenerateResult::UNCHANGED : GenerateResult::REPAIRED;
}

// Why the target must not be written, kept or confirmed as eResult says: an unsafe path
// (unless --allow-unsafe-directory), something other than a regular file where the run would
// keep it or cannot replace it, or a kept file that is not safe. A Stop with exit status 0
// lets the run go on.
Stop CGenerateCommand::unsafeTarget(const Plan& plan, const std::string& path,
                                    GenerateResult eResult) const {
    const PathAudit& audit = plan.audit;
    if (eResult == GenerateResult::REFUSED) {
        return {};
    }
    if (!audit.problems.empty() && !m_bAllowUnsafeDirectory) {
        Stop stop{kExitCannotCreate,
                  errorkind::kUnsafeDirectory,
                  "Nothing was written to " + Quoted(path) +
                      ": its path is unsafe (--allow-unsafe-directory writes anyway).",
                  {}};
        for (const PathProblem& problem : audit.problems) {
            stop.details.push_back(std::string(problem.kind) + ": " + problem.message);
        }
        return stop;
    }
    const ExistingFile::Kind eKind = plan.existing.eKind;
    const bool bKeptUnusable =
        !m_bOverwrite && (eKind == ExistingFile::OTHER || plan.bDanglingLink);
    if (!audit.Reached() || eKind == ExistingFile::DIRECTORY || eKind == ExistingFile::UNKNOWN ||
        bKeptUnusable) {
        const std::string what =
            !audit.Reached() ? "cannot be reached (" + qnsys::errnoText(audit.error) + ")"
            : eKind == ExistingFile::DIRECTORY ? std::string("is a directory")
            : eKind == ExistingFile::UNKNOWN   ? std::string("cannot be examined")
            : plan.bDanglingLink               ? std::string("is a symbolic link to nothing")
                                               : std::string("is not a regular file");
        return {kExitCannotCreate,
                errorkind::kNotRegularFile,
                Quoted(path) + " " + what + ": the client cannot load it as its policy" +
                    (bKeptUnusable ? ", and it is kept without --overwrite."
                                   : ", and no policy file can be written there.") +
                    " Nothing was changed.",
                {}};
    }
    if (eResult == GenerateResult::KEPT && !plan.existing.repairs.empty()) {
        std::string attributes;
        for (const Repair& repair : plan.existing.repairs) {
            attributes +=
                std::string(attributes.empty() ? "" : ", ") + repair.attribute + " " + repair.was;
        }
        return {kExitCannotCreate,
                errorkind::kUnsafeFile,
                "The existing policy file " + Quoted(path) + " is not safe (" + attributes +
                    "): nothing was changed; --overwrite writes it anew, safely.",
                {}};
    }
    return {};
}

// Stores the linted bytes through the audited directory: a new file, a rewrite of a different
// or unsafe one. A file that appeared meanwhile (without overwrite) is examined as a kept one;
// a replaced file whose directory sync failed is told apart from a failed write, and a failure
// to create the file (a directory the tool may not write) from one to write it.
GenerateResult CGenerateCommand::store(Plan& rPlan, GenerateResult eDecided,
                                       int& rFailureStatus) const {
    const CDirectoryHandle& directory = rPlan.audit.directory;
    const StoreResult stored = StorePolicyDocumentAt(
        directory.Fd(), directory.Path(), rPlan.audit.name, rPlan.document, m_bOverwrite);
    switch (stored.eOutcome) {
        case StoreResult::WRITTEN:
            return eDecided;
        case StoreResult::KEPT:
        case StoreResult::EXISTS:
            // Another writer's file, which is kept only if it is safe (examined again).
            rPlan.appeared = stored.eOutcome == StoreResult::KEPT ? "after this run looked"
                                                                  : "while this run wrote its own";
            rPlan.existing = ExamineExistingFile(directory, rPlan.audit.name, false, 0);
            return GenerateResult::KEPT;
        case StoreResult::NOT_SYNCED:
            rPlan.failure = stored.step + " failed: " + qnsys::errnoText(stored.error);
            return GenerateResult::NOT_SYNCED;
        case StoreResult::FAILED:
            break;
    }
    const bool bCannotCreate =
        stored.error == EACCES || stored.error == EPERM || stored.error == EROFS;
    rFailureStatus = bCannotCreate ? kExitCannotCreate : kExitIoError;
    rPlan.failure = stored.step + " failed: " + qnsys::errnoText(stored.error);
    return GenerateResult::FAILED;
}

// The problems in text, one line each on standard error: errors when they refuse the run,
// warnings when --lenient writes anyway.
void CGenerateCommand::printProblems(const Plan& plan, CToolContext& context) const {
    const auto print = [&context, this](const std::string& message) {
        if (m_bLenient) {
            context.Warning(message);
        } else {
            context.Error("error: " + message);
        }
    };
    for (const SkippedArgument& skipped : plan.skipped) {
        print(Quoted(skipped.argument) + ": " + skipped.message +
              (m_bLenient ? " (skipped)" : std::string()));
    }
    for (const ArgumentFinding& item : plan.findings) {
        print((item.argument.empty() ? std::string() : Quoted(item.argument) + ": ") +
              item.finding.kind + ": " + item.finding.message);
    }
}

void CGenerateCommand::writeJson(std::ostream& out, const std::string& path, GenerateResult eResult,
                                 const Plan& plan, const std::string& diff,
                                 const CDocumentChanges* pChanges, int failureStatus) const {
    CJsonWriter json(out);
    json.BeginObject().Key("formatVersion").Number(1).Key("path").String(path);
    json.Key("result").String(rowOf(eResult).name);
    json.Key("dryRun").Bool(m_bDryRun || m_bDiff);
    if (m_bDryRun) {
        json.Key("document").String(plan.document);
    }
    if (m_bDiff) {
        json.Key("diff").String(diff);
    }
    if (pChanges != nullptr) {
        json.Key("changes");
        pChanges->WriteJson(json);
    }
    json.Key("skipped").BeginArray();
    for (const SkippedArgument& skipped : plan.skipped) {
        json.BeginObject().Key("argument").String(skipped.argument);
        json.Key("kind").String(skipped.kind).Key("message").String(skipped.message).EndObject();
    }
    json.EndArray().Key("findings").BeginArray();
    for (const ArgumentFinding& item : plan.findings) {
        json.BeginObject().Key("argument");
        if (item.argument.empty()) {
            json.Null();
        } else {
            json.String(item.argument);
        }
        json.Key("kind").String(item.finding.kind);
        json.Key("severity").String(SeverityText(item.finding.eSeverity));
        json.Key("line").Number(item.finding.line).Key("column").Number(item.finding.column);
        json.Key("message").String(item.finding.message).EndObject();
    }
    json.EndArray().Key("repaired").BeginArray();
    if (eResult == GenerateResult::REPAIRED) {
        for (const Repair& repair : plan.existing.repairs) {
            json.BeginObject().Key("attribute").String(repair.attribute);
            json.Key("was").String(repair.was).Key("now").String(repair.now).EndObject();
        }
    }
    json.EndArray();
    if (eResult == GenerateResult::FAILED) {
        json.Key("error").BeginObject();
        json.Key("kind").String(failureStatus == kExitCannotCreate ? errorkind::kCannotCreate
                                                                   : errorkind::kIoError);
        json.Key("message").String(plan.failure).EndObject();
    }
    json.EndObject().Finish();
}

// The one line that says what happened (or would happen) to the file.
std::string resultText(GenerateResult eResult, const std::string& path, const Plan& plan,
                       bool bDryRun) {
    const std::string shown = DisplayName(path);
    switch (eResult) {
        case GenerateResult::WRITTEN:
            return (bDryRun ? "Would write the policy file " : "Wrote the policy file ") + shown +
                   ".";
        case GenerateResult::UNCHANGED:
            return "The policy file " + shown + " already holds this document; " +
                   (bDryRun ? "it would be" : "it was") + " left untouched.";
        case GenerateResult::REPAIRED: {
            std::string changes;
            for (const Repair& repair : plan.existing.repairs) {
                changes += std::string(changes.empty() ? "" : ", ") + repair.attribute + " " +
                           repair.was + " -> " + repair.now;
            }
            return std::string(bDryRun ? "Would rewrite" : "Rewrote") + " the policy file " +
                   shown + ", which already holds this document, as a new, safe file: " + changes +
                   ".";
        }
        case GenerateResult::KEPT:
            if (plan.appeared != nullptr) {
                return "Kept the policy file " + shown + " that another writer made " +
                       plan.appeared + " (use --overwrite to replace it).";
            }
            return (bDryRun ? "Would keep the existing policy file "
                            : "Kept the existing policy file ") +
                   shown + " (use --overwrite to replace it).";
        case GenerateResult::REFUSED:
            return "Refused: nothing written to " + shown +
                   " (fix the arguments above, or give --lenient to write the usable ones).";
        case GenerateResult::FAILED:
            return "The policy file " + shown + " was not written: " + plan.failure + ".";
        case GenerateResult::NOT_SYNCED:
            return "Replaced the policy file " + shown +
                   ", but its durability is not confirmed: " + plan.failure + ".";
    }
    return std::string();
}

// The diff from the file on disk to the document, or a line that says they differ when the
// file is too large to show.
std::string diffText(const Plan& plan, const std::string& path) {
    const bool bExists = plan.existing.eKind == ExistingFile::REGULAR;
    if (plan.existing.bOversized) {
        return "Files " + path + " and " + path + kDiffAfterSuffix + " differ: the file on disk " +
               "is larger than " + std::to_string(plan.existing.content.size()) +
               " bytes and is not shown\n";
    }
    return UnifiedDiff(bExists ? plan.existing.content : std::string(), plan.document,
                       bExists ? path : kAbsentFile, path + kDiffAfterSuffix);
}

int CGenerateCommand::Run(CToolContext& context) {
    if (const int status = readArguments(context); status != kExitSuccess) {
        return status;
    }
    const std::string path = context.InstallPolicyPath();
    Plan plan;
    if (const int status = this->plan(context, plan); status != kExitSuccess) {
        return status;
    }
    GenerateResult eResult = decide(plan);
    const bool bJson = context.Options().bJson;
    if (!bJson) {
        printProblems(plan, context);
    }
    if (const Stop stop = unsafeTarget(plan, path, eResult); stop.exitStatus != kExitSuccess) {
        return context.Fail(stop.exitStatus, stop.kind, stop.message, stop.details);
    }
    const std::string diff =
        m_bDiff && eResult != GenerateResult::REFUSED ? diffText(plan, path) : std::string();
    // Beside the textual patch, what the client would read differently (the file on disk read
    // as the client reads it), which decides nothing: the exit status stays the patch's.
    std::optional<CDocumentChanges> changes;
    if (m_bDiff && eResult != GenerateResult::REFUSED) {
        changes.emplace(path, plan.document, path + kDiffAfterSuffix);
        context.Note(changes->Summary());
    }
    int failureStatus = kExitIoError;
    const bool bWrites = eResult == GenerateResult::WRITTEN || eResult == GenerateResult::REPAIRED;
    if (!m_bDryRun && !m_bDiff && bWrites) {
        eResult = store(plan, eResult, failureStatus);
        if (const Stop stop = unsafeTarget(plan, path, eResult); stop.exitStatus != kExitSuccess) {
            return context.Fail(stop.exitStatus, stop.kind, stop.message, stop.details);
        }
    }

    if (bJson) {
        writeJson(context.Out(), path, eResult, plan, diff, changes ? &*changes : nullptr,
                  failureStatus);
    } else if (m_bDiff) {
        context.Out() << diff;
    } else if (m_bDryRun && eResult != GenerateResult::REFUSED) {
        context.Out() << plan.document;
    }
    const std::string text = resultText(eResult, path, plan, m_bDryRun || m_bDiff);
    if (eResult == GenerateResult::REFUSED || eResult == GenerateResult::FAILED ||
        eResult == GenerateResult::NOT_SYNCED) {
        context.Error(text);
    } else if (m_bDryRun || m_bDiff) {
        context.Note(text);
    } else if (!bJson && !context.Options().bQuiet) {
        context.Out() << text << '\n';
    }
    if (eResult == GenerateResult::FAILED) {
        return failureStatus;
    }
    if (m_bDiff && eResult != GenerateResult::REFUSED) {
        return diff.empty() ? kExitSuccess : kExitFindings;
    }
    return rowOf(eResult).exitStatus;
}

}  // namespace

std::unique_ptr<CCommand> CreateGenerateCommand() {
    return std::make_unique<CGenerateCommand>();
}

}  // namespace qnpolicy::tool

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
//
// set and unset are the same run over a document made from the file itself: its stated
// settings in its own order, the named ones changed (commands/PolicyEdits.h). Every writer holds
// the writers' lock while it reads, decides and stores, checks before it stores that the file is
// still the one it read (safety/WriterLock.h), and sends one audit record for each write
// (output/AuditTrail.h).

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "CommandTable.h"
#include "ErrnoText.h"
#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "MessageText.h"
#include "XmlParser.h"
#include "commands/EditSession.h"
#include "commands/GenerateInputs.h"
#include "commands/PolicyEdits.h"
#include "lint/PolicyLinter.h"
#include "output/AuditTrail.h"
#include "output/Output.h"
#include "output/PolicyViews.h"
#include "output/UnifiedDiff.h"
#include "safety/WriterLock.h"
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
        "skipped": {"type": "array", "items": {"$ref": "#/$defs/skippedArgument"}},
        "findings": {"type": "array", "items": {
            "$ref": "#/$defs/finding",
            "required": ["argument"],
            "properties": {"argument": {"type": ["string", "null"]}},
            "unevaluatedProperties": false}},
        "repaired": {"type": "array", "items": {"$ref": "#/$defs/repair"}},
        "audit": {"$ref": "#/$defs/audit"},
        "error": {"$ref": "#/$defs/error"}
    },
    "additionalProperties": false
})";

// set and unset: what generate prints, with the items of the file the run drops (or refuses
// to drop) and the findings about other settings, which do not refuse the run.
const char kChangeResultSchema[] = R"({
    "type": "object",
    "required": ["formatVersion", "path", "result", "dryRun", "skipped", "findings", "dropped",
                 "repaired"],
    "properties": {
        "formatVersion": {"const": 1},
        "path": {"type": "string"},
        "result": {"enum": ["written", "created", "unchanged", "repaired", "refused", "failed",
                            "not-synced"]},
        "dryRun": {"type": "boolean"},
        "document": {"type": "string"},
        "diff": {"type": "string"},
        "changes": {"type": "array", "items": {"$ref": "#/$defs/change"}},
        "skipped": {"type": "array", "items": {"$ref": "#/$defs/skippedArgument"}},
        "findings": {"type": "array", "items": {
            "$ref": "#/$defs/finding",
            "required": ["argument", "refuses"],
            "properties": {"argument": {"type": ["string", "null"]},
                           "refuses": {"type": "boolean"}},
            "unevaluatedProperties": false}},
        "dropped": {"type": "array", "items": {
            "type": "object",
            "required": ["line", "column", "what"],
            "properties": {
                "line": {"type": "integer", "minimum": 1},
                "column": {"type": "integer", "minimum": 1},
                "what": {"type": "string"}
            },
            "additionalProperties": false}},
        "repaired": {"type": "array", "items": {"$ref": "#/$defs/repair"}},
        "audit": {"$ref": "#/$defs/audit"},
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
    CREATED,    // set, unset: there was no file; it was (would be) made from the defaults
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
    {"created", GenerateResult::CREATED, kExitSuccess},
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
// set and unset: a finding about a setting the run does not change is a warning that does not
// refuse it.
struct ArgumentFinding {
    std::string argument;
    LintFinding finding;
    bool bRefuses = true;
};

// Which writer a run is.
enum class WriterMode {
    GENERATE,  // the document from the arguments alone
    SET,       // the file's own settings, the named ones given the values
    UNSET,     // the file's own settings, the named ones removed
    EDIT,      // what the administrator's editor leaves
};

// Everything generate learns before it writes.
struct Plan {
    std::string document;
    std::vector<SkippedArgument> skipped;
    std::vector<ArgumentFinding> findings;
    std::vector<DroppedItem> dropped;  // set, unset: what the file holds that the run drops
    std::vector<const LocalPolicySettingInfo*> named;  // set, unset: the settings named
    PathAudit audit;             // the policy path, and the directory to store through
    CWriterLock lock;            // held from before the file is read until after the store
    FileFingerprint read;        // the file as this run read it
    ExistingFile existing;       // what is at the path, links followed
    bool bDanglingLink = false;  // the path holds a link to nothing
    std::string failure;         // why a write failed
    // A kept file that another writer made after this run looked: before the store began
    // (the store kept it) or while the new file was written (its name was taken meanwhile).
    const char* appeared = nullptr;
    bool bEditUnchanged = false;  // edit: the editor left the document as it was
    bool bAudited = false;        // a write was made, and its audit record sent
    AuditDelivery delivery;       // how that went
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

// The name a writer's messages use for itself.
const char* modeName(WriterMode eMode) {
    switch (eMode) {
        case WriterMode::SET:
            return "set";
        case WriterMode::UNSET:
            return "unset";
        case WriterMode::EDIT:
            return "edit";
        case WriterMode::GENERATE:
            break;
    }
    return "generate";
}

// The file's stated settings rendered again unchanged must be the policy the client reads from
// the file itself: otherwise a rewrite would change a setting nobody named (0), and the run
// stops before anything is decided (70).
int checkRewriteKeepsPolicy(CToolContext& context, const std::string& content,
                            const StatedPolicy& stated) {
    std::string rewrite;
    const std::string path = context.InstallPolicyPath();
    if (RenderPolicyDocumentInOrder(stated.settings, context.InstallDir(), rewrite) != 0) {
        return context.Fail(kExitDataError, errorkind::kRefused,
                            Quoted(path) +
                                " states a value that cannot be written again "
                                "(bytes that are not UTF-8, or a control character)");
    }
    const EffectivePolicy before = ReadEffectivePolicyBytes(content, path, false);
    const EffectivePolicy after = ReadEffectivePolicyBytes(rewrite, path, false);
    const std::vector<SettingChange> changes = ComparePolicies(before, after);
    if (changes.empty()) {
        return kExitSuccess;
    }
    return context.Fail(kExitInternal, errorkind::kInternal,
                        "rewriting " + Quoted(path) + " would change " +
                            changes.front().pOld->pRow->element +
                            ", which no argument names: nothing was changed");
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
    explicit CGenerateCommand(WriterMode eMode) : m_eMode(eMode) {}

    void AddOptions(COptionList& options) override;

    // Without arguments the run is a usage error before anything is looked at.
    bool UsesInstallDir() const override {
        return m_eMode == WriterMode::EDIT ||
               (m_policyArgs.empty() && m_argsFrom.empty()) == m_bAllDefaults;
    }

    int Run(CToolContext& context) override;

  private:
    bool editsFile() const { return m_eMode != WriterMode::GENERATE; }
    int readArguments(CToolContext& context);
    int plan(CToolContext& context, Plan& rPlan) const;
    void checkArguments(Plan& rPlan, ArgumentCheck& rCheck) const;
    int examine(CToolContext& context, Plan& rPlan) const;
    int composeEdits(CToolContext& context, Plan& rPlan, const ArgumentCheck& check) const;
    int editInteractively(CToolContext& context, Plan& rPlan) const;
    int lintDocument(CToolContext& context, Plan& rPlan, const ArgumentCheck& check) const;
    bool mayStore(const Plan& plan) const;
    Stop unsafeTarget(const Plan& plan, const std::string& path, GenerateResult eResult) const;
    GenerateResult decide(const Plan& plan) const;
    int storeChecked(CToolContext& context, Plan& rPlan, GenerateResult& rResult,
                     int& rFailureStatus) const;
    GenerateResult store(Plan& rPlan, GenerateResult eDecided, int& rFailureStatus) const;
    void printProblems(const Plan& plan, CToolContext& context) const;
    void writeJson(std::ostream& out, const std::string& path, GenerateResult eResult,
                   const Plan& plan, const std::string& diff, const CDocumentChanges* pChanges,
                   int failureStatus) const;

    WriterMode m_eMode;
    std::vector<std::string> m_policyArgs;
    std::string m_argsFrom;
    bool m_bOverwrite = false;
    bool m_bLenient = false;
    bool m_bForce = false;
    bool m_bDryRun = false;
    bool m_bDiff = false;
    bool m_bAllDefaults = false;
    bool m_bAllowUnsafeDirectory = false;
};

void CGenerateCommand::AddOptions(COptionList& options) {
    // Every writer takes it; edit takes nothing else.
    const auto allowUnsafeDirectory = [this, &options] {
        options.Flag("--allow-unsafe-directory", m_bAllowUnsafeDirectory,
                     "Write even where check reports the path unsafe (a directory or link on the "
                     "way that others own or can write)");
    };
    if (m_eMode == WriterMode::EDIT) {
        allowUnsafeDirectory();
        return;
    }
    if (!editsFile()) {
        options.Flag("--overwrite", m_bOverwrite, "Replace an existing policy file");
        options.Flag("--lenient", m_bLenient,
                     "Skip unusable arguments with a warning and write the rest in the "
                     "installer's spelling, as installers expect, instead of refusing the run");
    } else {
        options.Flag("--force", m_bForce,
                     "Drop what the file holds that a rewrite cannot keep (comments, elements "
                     "and texts the client ignores) instead of refusing the run");
    }
    options.Flag("--dry-run", m_bDryRun, "Write nothing; print the document that would be written");
    options
        .Flag("--diff", m_bDiff,
              "Write nothing; print a unified diff from the file on disk to the document that "
              "would be written (exit 1 when they differ)")
        .Excludes("--dry-run");
    if (!editsFile()) {
        options.Flag("--all-defaults", m_bAllDefaults,
                     "Write a document that sets nothing, so that the client applies every "
                     "default; takes no ABBREV=VALUE");
    }
    allowUnsafeDirectory();
    OptionDecl& argsFrom =
        options
            .Value("--args-from", m_argsFrom,
                   "Read more arguments from FILE, - for standard input: one per line, nothing "
                   "trimmed, empty lines skipped (for lists too long for a command line)")
            .TypeName("FILE");
    if (!editsFile()) {
        argsFrom.Excludes("--all-defaults");
    }
    const bool bUnset = m_eMode == WriterMode::UNSET;
    options
        .Values("ARG", m_policyArgs,
                bUnset ? "Abbreviations of the settings to remove, so that their defaults hold "
                         "(see `qnpolicy vocabulary`)"
                       : "Installer arguments, checked, then written (see `qnpolicy "
                         "vocabulary`)")
        .TypeName(bUnset ? "ABBREV" : "ABBREV=VALUE");
}

// Appends the arguments of --args-from; 0, or the exit status of a failure (reported).
int CGenerateCommand::readArguments(CToolContext& context) {
    if (m_eMode == WriterMode::EDIT) {
        return ::isatty(STDIN_FILENO) == 1
                   ? kExitSuccess
                   : context.Fail(kExitUsage, errorkind::kUsage,
                                  "edit needs a terminal on standard input (use set or unset "
                                  "in scripts)");
    }
    if (!m_argsFrom.empty()) {
        const ArgumentFileFailure failure = ReadArgumentFile(m_argsFrom, m_policyArgs);
        if (failure.exitStatus != kExitSuccess) {
            return context.Fail(failure.exitStatus, failure.kind, failure.message);
        }
    }
    if (m_policyArgs.empty() == m_bAllDefaults) {
        return kExitSuccess;
    }
    if (editsFile()) {
        return context.Fail(kExitUsage, errorkind::kUsage,
                            std::string("no arguments: give at least one ") +
                                (m_eMode == WriterMode::UNSET ? "ABBREV" : "ABBREV=VALUE") +
                                " (see `qnpolicy vocabulary`)");
    }
    return context.Fail(kExitUsage, errorkind::kUsage,
                        m_bAllDefaults ? "--all-defaults takes no ABBREV=VALUE"
                                       : "no arguments: give at least one ABBREV=VALUE (see "
                                         "`qnpolicy vocabulary`), or --all-defaults");
}

// Checks the arguments as generation does (unset: each an abbreviation), noting refusals.
void CGenerateCommand::checkArguments(Plan& rPlan, ArgumentCheck& rCheck) const {
    if (m_eMode == WriterMode::UNSET) {
        for (const std::string& argument : m_policyArgs) {
            const LocalPolicySettingInfo* pRow = FindInstallerSetting(argument);
            if (pRow != nullptr) {
                rPlan.named.push_back(pRow);
                continue;
            }
            RefusedArgument refused;
            refused.argument.text = argument;
            refused.argument.abbreviation = argument;
            refused.eReason = ArgumentRefusal::UNKNOWN_ABBREVIATION;
            SkippedArgument skipped = describe(refused, m_policyArgs);
            if (argument.find('=') != std::string::npos) {
                skipped = {argument, "invalid-argument",
                           "unset takes abbreviations alone, without \"=\" and a value"};
            }
            rPlan.skipped.push_back(skipped);
        }
        return;
    }
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
    rCheck = CheckInstallerArguments(argv.data(), argv.size(), options);
    for (const RefusedArgument& refused : rCheck.refused) {
        rPlan.skipped.push_back(describe(refused, m_policyArgs));
    }
    for (const InstallerArgument& argument : rCheck.accepted) {
        rPlan.named.push_back(argument.pSetting);
    }
}

// Checks the arguments and, for generate, renders the document once and lints those bytes;
// then audits the path. 0, or the exit status of a failure (reported).
int CGenerateCommand::plan(CToolContext& context, Plan& rPlan) const {
    ArgumentCheck check;
    checkArguments(rPlan, check);
    if (!editsFile()) {
        if (RenderPolicyDocument(check.settings, context.InstallDir(), rPlan.document) != 0) {
            return context.Fail(kExitDataError, errorkind::kRefused,
                                "the document cannot be written from these arguments: a value "
                                "holds text XML cannot carry (bytes that are not UTF-8, or a "
                                "control character other than tab, line feed and carriage "
                                "return)");
        }
        if (const int status = lintDocument(context, rPlan, check); status != kExitSuccess) {
            return status;
        }
    }
    rPlan.audit = AuditPolicyPath(context.InstallPolicyPath(), Trust::WRITER);
    if (const int status = examine(context, rPlan); status != kExitSuccess) {
        return status;
    }
    return editsFile() ? composeEdits(context, rPlan, check) : kExitSuccess;
}

// Lints the document's bytes; a finding is the run's refusal unless it is about a setting
// set or unset does not change.
int CGenerateCommand::lintDocument(CToolContext& context, Plan& rPlan,
                                   const ArgumentCheck& check) const {
    const LintResult lint = LintPolicyBytes(rPlan.document, context.InstallPolicyPath());
    if (!lint.bReadable) {
        return context.Fail(kExitInternal, errorkind::kInternal,
                            "the generated document cannot be read back: " + lint.failureReason);
    }
    for (const LintFinding& finding : lint.findings) {
        const LocalPolicySettingInfo* pRow = FindSettingByName(finding.element);
        const bool bNamed =
            std::find(rPlan.named.begin(), rPlan.named.end(), pRow) != rPlan.named.end();
        rPlan.findings.push_back(
            ArgumentFinding{argumentOf(finding, check), finding, !editsFile() || bNamed});
    }
    return kExitSuccess;
}

// Takes the writers' lock when the run may store, then looks at what is at the path, as it is
// read under the lock. 0, or the exit status of a failure (reported): a file that cannot be
// read is reported before a lock that cannot be taken.
int CGenerateCommand::examine(CToolContext& context, Plan& rPlan) const {
    const std::string path = context.InstallPolicyPath();
    PathAudit& audit = rPlan.audit;
    if (!audit.Reached()) {
        return kExitSuccess;  // unsafeTarget says why
    }
    int lockError = 0;
    if (mayStore(rPlan)) {
        const LockAttempt attempt = rPlan.lock.Acquire(audit.directory, kWriterLockWait);
        if (attempt.eOutcome == LockAttempt::BUSY) {
            return context.Fail(
                kExitTempFail, errorkind::kLocked,
                "another writer" +
                    (attempt.holderPid.empty() ? std::string()
                                               : " (pid " + attempt.holderPid + ")") +
                    " has held the lock " + Quoted(audit.directory.Path() + kWriterLockName) +
                    " for " + std::to_string(kWriterLockWait.count() / 1000) +
                    " s: nothing was written; run again once it is done");
        }
        lockError = attempt.eOutcome == LockAttempt::FAILED ? attempt.error : 0;
        if (lockError == 0) {
            rPlan.read = FingerprintFileAt(audit.directory, audit.name);
            RemoveStaleEditCopy(audit.directory);
        }
    }
    const bool bRead = editsFile() || m_bOverwrite || m_bDiff;
    const size_t limit = editsFile() ? XmlParser::kMaxStreamBytes
                         : m_bDiff   ? std::max(kMaxDiffBytes, rPlan.document.size())
                                     : rPlan.document.size();
    rPlan.existing = ExamineExistingFile(audit.directory, audit.name, bRead, limit);
    rPlan.bDanglingLink = rPlan.existing.eKind == ExistingFile::NONE && qnsys::fileExists(path);
    if (rPlan.existing.readError != 0) {
        return context.Fail(
            kExitUnreadable, errorkind::kUnreadable,
            "cannot read " + Quoted(path) + ": " + qnsys::errnoText(rPlan.existing.readError));
    }
    if (lockError != 0) {
        // A run that may not create the lock file could not store the policy either.
        return context.Fail(kExitCannotCreate, errorkind::kCannotCreate,
                            "cannot take the writers' lock " +
                                Quoted(audit.directory.Path() + kWriterLockName) + ": " +
                                qnsys::errnoText(lockError) +
                                " (it must be a regular file the writer may open for writing); "
                                "nothing was written");
    }
    return kExitSuccess;
}

// set, unset: the file's stated settings with the named ones changed, rendered in the file's
// order and linted. A file the client cannot read is never guessed at (exit 2).
int CGenerateCommand::composeEdits(CToolContext& context, Plan& rPlan,
                                   const ArgumentCheck& check) const {
    const std::string path = context.InstallPolicyPath();
    const ExistingFile& existing = rPlan.existing;
    if (m_eMode == WriterMode::EDIT) {
        return editInteractively(context, rPlan);
    }
    StatedPolicy stated;
    if (existing.eKind == ExistingFile::REGULAR) {
        if (existing.bOversized) {
            return context.Fail(kExitUnreadable, errorkind::kUnreadable,
                                Quoted(path) +
                                    " is larger than the client reads: nothing was "
                                    "changed");
        }
        if (!ReadStatedPolicy(existing.content, path, stated)) {
            return context.Fail(kExitUnreadable, errorkind::kUnreadable,
                                "cannot parse " + Quoted(path) + " (line " +
                                    std::to_string(stated.failureLine) + ", column " +
                                    std::to_string(stated.failureColumn) + ": " +
                                    stated.failureReason + "): " + modeName(m_eMode) +
                                    " never guesses what a broken file meant; nothing was changed");
        }
    } else if (existing.eKind != ExistingFile::NONE) {
        return kExitSuccess;  // unsafeTarget refuses it
    }
    if (const int status = checkRewriteKeepsPolicy(context, existing.content, stated);
        status != kExitSuccess) {
        return status;
    }
    rPlan.dropped = std::move(stated.dropped);
    for (const LocalPolicySettingInfo* pRow : rPlan.named) {
        if (m_eMode == WriterMode::UNSET) {
            UnsetStatedSetting(stated.settings, *pRow);
            continue;
        }
        const auto& section = pRow->section == LocalPolicySection::ROOT
                                  ? check.settings.policies
                                  : check.settings.updatePolicies;
        SetStatedSetting(stated.settings, *pRow, section.at(pRow->element));
    }
    if (RenderPolicyDocumentInOrder(stated.settings, context.InstallDir(), rPlan.document) != 0) {
        return context.Fail(kExitDataError, errorkind::kRefused,
                            "the document cannot be written from these arguments: a value holds "
                            "text XML cannot carry");
    }
    return lintDocument(context, rPlan, check);
}

// edit: the editor session on the file (a missing one starts from the document that sets
// nothing); its outcome is the document, or the reason nothing is written.
int CGenerateCommand::editInteractively(CToolContext& context, Plan& rPlan) const {
    const ExistingFile& existing = rPlan.existing;
    if (!rPlan.lock.Held() ||
        (existing.eKind != ExistingFile::REGULAR && existing.eKind != ExistingFile::NONE)) {
        return kExitSuccess;  // unsafeTarget refuses it
    }
    if (existing.bOversized) {
        return context.Fail(kExitUnreadable, errorkind::kUnreadable,
                            Quoted(context.InstallPolicyPath()) +
                                " is larger than the client reads: nothing was changed");
    }
    std::string original = existing.content;
    if (existing.eKind == ExistingFile::NONE &&
        RenderPolicyDocument(PolicySettings(), context.InstallDir(), original) != 0) {
        return context.Fail(kExitInternal, errorkind::kInternal, "cannot render the defaults");
    }
    const EditOutcome outcome =
        RunEditSession(rPlan.audit.directory, original, context.InstallPolicyPath(), context);
    switch (outcome.eResult) {
        case EditOutcome::SAVE:
            rPlan.document = outcome.document;
            return kExitSuccess;
        case EditOutcome::UNCHANGED:
            rPlan.document = existing.content;
            rPlan.bEditUnchanged = true;
            return kExitSuccess;
        case EditOutcome::ABANDONED:
            context.Error("Exited without saving: nothing was written to " +
                          DisplayName(context.InstallPolicyPath()) + ".");
            return kExitFindings;
        case EditOutcome::FAILED:
            break;
    }
    context.Error(outcome.failure + ": nothing was written to " +
                  DisplayName(context.InstallPolicyPath()) + ".");
    return kExitFindings;
}

// Whether the run may come to store (and must take the lock): not a dry run, not refused
// already, over a path it may write.
bool CGenerateCommand::mayStore(const Plan& plan) const {
    const bool bRefused = std::any_of(plan.findings.begin(), plan.findings.end(),
                                      [](const ArgumentFinding& item) { return item.bRefuses; }) ||
                          !plan.skipped.empty();
    return !m_bDryRun && !m_bDiff && (m_bLenient || !bRefused) &&
           (plan.audit.problems.empty() || m_bAllowUnsafeDirectory) &&
           (editsFile() || m_bOverwrite || !plan.audit.bExists || !plan.audit.bExamined);
}

GenerateResult CGenerateCommand::decide(const Plan& plan) const {
    const bool bRefusing = std::any_of(plan.findings.begin(), plan.findings.end(),
                                       [](const ArgumentFinding& item) { return item.bRefuses; });
    if (!m_bLenient && (!plan.skipped.empty() || bRefusing)) {
        return GenerateResult::REFUSED;
    }
    if (!plan.dropped.empty() && !m_bForce) {
        return GenerateResult::REFUSED;
    }
    const ExistingFile& existing = plan.existing;
    if (plan.bEditUnchanged) {
        return GenerateResult::UNCHANGED;
    }
    if (editsFile() && existing.eKind == ExistingFile::NONE) {
        return GenerateResult::CREATED;
    }
    if (existing.eKind != ExistingFile::REGULAR) {
        return existing.eKind == ExistingFile::NONE || m_bOverwrite ? GenerateResult::WRITTEN
                                                                    : GenerateResult::KEPT;
    }
    if (!m_bOverwrite && !editsFile()) {
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
    const bool bOverwrite = m_bOverwrite || (editsFile() && eDecided != GenerateResult::CREATED);
    const StoreResult stored = StorePolicyDocumentAt(directory.Fd(), directory.Path(),
                                                     rPlan.audit.name, rPlan.document, bOverwrite);
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

// Stores the document once the file is known to be the one this run read (else 75, nothing
// written), then sends the write's audit record. 0, or the exit status of a failure (reported).
int CGenerateCommand::storeChecked(CToolContext& context, Plan& rPlan, GenerateResult& rResult,
                                   int& rFailureStatus) const {
    const std::string path = context.InstallPolicyPath();
    const CDirectoryHandle& directory = rPlan.audit.directory;
    const std::string changed = "; nothing was written: run again";
    if (FingerprintFileAt(directory, rPlan.audit.name) != rPlan.read) {
        return context.Fail(kExitTempFail, errorkind::kChanged,
                            Quoted(path) +
                                " changed while this run read it (a writer that does "
                                "not take the lock)" +
                                changed);
    }
    // What the record tells: read before the store replaces the file.
    const CDocumentChanges changes(path, rPlan.document, path);
    rResult = store(rPlan, rResult, rFailureStatus);
    if (editsFile() && rResult == GenerateResult::KEPT) {
        return context.Fail(kExitTempFail, errorkind::kChanged,
                            Quoted(path) + " appeared while this run wrote it" + changed);
    }
    if (rResult != GenerateResult::FAILED && rResult != GenerateResult::KEPT) {
        const AuditWrite write{
            modeName(m_eMode), path, changes.Lines(),
            rPlan.read.eKind == FileFingerprint::REGULAR ? rPlan.read.identity : std::string(),
            Sha256Hex(rPlan.document)};
        rPlan.delivery = SendAuditRecord(write);
        rPlan.bAudited = true;
        if (!rPlan.delivery.bDelivered) {
            context.Warning("the audit record of this write was not delivered (" +
                            rPlan.delivery.failure + "); the file was written");
        }
    }
    return kExitSuccess;
}

// The problems in text, one line each on standard error: errors when they refuse the run,
// warnings when --lenient writes anyway or when they are about settings set and unset leave
// as they are; what the run drops or refuses to drop.
void CGenerateCommand::printProblems(const Plan& plan, CToolContext& context) const {
    const auto print = [&context, this](const std::string& message, bool bRefuses) {
        if (m_bLenient || !bRefuses) {
            context.Warning(message);
        } else {
            context.Error("error: " + message);
        }
    };
    for (const SkippedArgument& skipped : plan.skipped) {
        print(Quoted(skipped.argument) + ": " + skipped.message +
                  (m_bLenient ? " (skipped)" : std::string()),
              true);
    }
    for (const ArgumentFinding& item : plan.findings) {
        print((item.argument.empty() ? std::string() : Quoted(item.argument) + ": ") +
                  item.finding.kind + ": " + item.finding.message,
              item.bRefuses);
    }
    for (const DroppedItem& item : plan.dropped) {
        print("line " + std::to_string(item.line) + ", column " + std::to_string(item.column) +
                  ": " + item.what + (m_bForce ? " (dropped)" : ", would be dropped"),
              !m_bForce);
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
        json.Key("message").String(item.finding.message);
        if (editsFile()) {
            json.Key("refuses").Bool(item.bRefuses);
        }
        json.EndObject();
    }
    json.EndArray();
    if (editsFile()) {
        json.Key("dropped").BeginArray();
        for (const DroppedItem& item : plan.dropped) {
            json.BeginObject().Key("line").Number(item.line).Key("column").Number(item.column);
            json.Key("what").String(item.what).EndObject();
        }
        json.EndArray();
    }
    json.Key("repaired").BeginArray();
    if (eResult == GenerateResult::REPAIRED) {
        for (const Repair& repair : plan.existing.repairs) {
            json.BeginObject().Key("attribute").String(repair.attribute);
            json.Key("was").String(repair.was).Key("now").String(repair.now).EndObject();
        }
    }
    json.EndArray();
    if (plan.bAudited) {
        json.Key("audit").BeginObject().Key("delivered").Bool(plan.delivery.bDelivered);
        if (!plan.delivery.bDelivered) {
            json.Key("failure").String(plan.delivery.failure);
        }
        json.EndObject();
    }
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
                       bool bDryRun, bool bEdits) {
    const std::string shown = DisplayName(path);
    switch (eResult) {
        case GenerateResult::WRITTEN:
            return (bDryRun ? "Would write the policy file " : "Wrote the policy file ") + shown +
                   ".";
        case GenerateResult::CREATED:
            return (bDryRun ? "Would create the policy file " : "Created the policy file ") +
                   shown + " (the settings not named hold their defaults).";
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
            if (bEdits && !plan.dropped.empty()) {
                return "Refused: nothing written to " + shown +
                       " (fix the arguments above; --force drops what the file holds that a "
                       "rewrite cannot keep).";
            }
            if (bEdits) {
                return "Refused: nothing written to " + shown + " (fix the arguments above).";
            }
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
std::string diffText(const Plan& plan, const std::string& path, const std::string& newName) {
    const bool bExists = plan.existing.eKind == ExistingFile::REGULAR;
    if (plan.existing.bOversized) {
        return "Files " + path + " and " + newName + " differ: the file on disk " +
               "is larger than " + std::to_string(plan.existing.content.size()) +
               " bytes and is not shown\n";
    }
    return UnifiedDiff(bExists ? plan.existing.content : std::string(), plan.document,
                       bExists ? path : kAbsentFile, newName);
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
    // What the document is called beside the file on disk: generate's is generated, the others'
    // is the file's new content.
    const std::string newName = path + (editsFile() ? " (new)" : kDiffAfterSuffix);
    const std::string diff = m_bDiff && eResult != GenerateResult::REFUSED
                                 ? diffText(plan, path, newName)
                                 : std::string();
    // Beside the textual patch, what the client would read differently (the file on disk read
    // as the client reads it), which decides nothing: the exit status stays the patch's.
    std::optional<CDocumentChanges> changes;
    if ((m_bDiff || m_bDryRun) && eResult != GenerateResult::REFUSED) {
        changes.emplace(path, plan.document, newName);
        if (m_bDiff || editsFile()) {
            context.Note(changes->Summary());
        }
    }
    int failureStatus = kExitIoError;
    const bool bWrites = eResult == GenerateResult::WRITTEN || eResult == GenerateResult::CREATED ||
                         eResult == GenerateResult::REPAIRED;
    if (!m_bDryRun && !m_bDiff && bWrites) {
        if (editsFile()) {
            changes.emplace(path, plan.document, newName);
        }
        if (const int status = storeChecked(context, plan, eResult, failureStatus);
            status != kExitSuccess) {
            return status;
        }
        if (const Stop stop = unsafeTarget(plan, path, eResult); stop.exitStatus != kExitSuccess) {
            return context.Fail(stop.exitStatus, stop.kind, stop.message, stop.details);
        }
        if (editsFile() && !bJson) {
            context.Note(changes->Summary());
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
    const std::string text = resultText(eResult, path, plan, m_bDryRun || m_bDiff, editsFile());
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
    return std::make_unique<CGenerateCommand>(WriterMode::GENERATE);
}

std::unique_ptr<CCommand> CreateSetCommand() {
    return std::make_unique<CGenerateCommand>(WriterMode::SET);
}

std::unique_ptr<CCommand> CreateUnsetCommand() {
    return std::make_unique<CGenerateCommand>(WriterMode::UNSET);
}

std::unique_ptr<CCommand> CreateEditCommand() {
    return std::make_unique<CGenerateCommand>(WriterMode::EDIT);
}

}  // namespace qnpolicy::tool

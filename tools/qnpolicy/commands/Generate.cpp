// SPDX-License-Identifier: Apache-2.0
// qnpolicy generate: the installer's path to a policy file, failing closed.
//
// The document is rendered once, from the arguments as the library checks them; those bytes
// are linted in memory with check's rules, compared with the file on disk, and, when they must
// be written, stored as they are: what is linted is what is written, and nothing is created
// outside the install directory. Any refused argument or finding refuses the run unless
// --lenient is given, which is the installer's behaviour (skip what cannot be used, write the
// rest, in the library's spelling). A file that is written or confirmed ends owned by root (by
// the user running the tool, when that is not root) with mode 0644, and nothing is written into
// a directory that others could change the policy through.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "CommandTable.h"
#include "ErrnoText.h"
#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "MessageText.h"
#include "UniqueFd.h"
#include "lint/PolicyLinter.h"
#include "output/Output.h"
#include "output/UnifiedDiff.h"

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
                "attribute": {"enum": ["owner", "mode"]},
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
// The mode of every policy file the tool writes or confirms: its owner writes, all read.
constexpr mode_t kPolicyFileMode = 0644;

// What a run does, or with --dry-run and --diff would do.
enum class GenerateResult {
    WRITTEN,    // the file was (would be) written
    UNCHANGED,  // the file already holds the document; left untouched
    REPAIRED,   // it held the document, but its owner or mode were repaired
    KEPT,       // a file exists and --overwrite was not given
    REFUSED,    // unusable arguments or findings, and not --lenient: nothing written
    FAILED,     // the file could not be written or repaired
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

// An owner or mode of the file on disk that is not the one a policy file must have.
struct Repair {
    const char* attribute;  // "owner" or "mode"
    std::string was;
    std::string now;
};

// Everything generate learns before it writes.
struct Plan {
    std::string document;
    std::vector<SkippedArgument> skipped;
    std::vector<ArgumentFinding> findings;
    bool bExists = false;   // something exists at the path
    bool bRegular = false;  // and it is a regular file, not a link or anything else
    std::string current;    // the file on disk, when it is read
    std::vector<Repair> repairs;
    std::string failure;  // why a write or a repair failed
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
                        "(upal=gw1;gw2), or give long lists with --args-from, one argument per "
                        "line"};
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

// Reads a whole file; false (with errno in rError) when it cannot be read.
bool readFile(const std::string& path, std::string& rContent, int& rError) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        rError = errno;
        return false;
    }
    std::ostringstream content;
    content << in.rdbuf();
    if (in.bad()) {
        rError = errno;
        return false;
    }
    rContent = content.str();
    return true;
}

// The owner a policy file the tool writes or confirms must have: root, or the user running the
// tool when that is not root (who could not give it to root).
uid_t expectedOwner() {
    return ::geteuid();
}

// What must change for the regular file with status to be owned and readable as a policy file.
std::vector<Repair> repairsOf(const struct stat& status) {
    std::vector<Repair> repairs;
    if (status.st_uid != expectedOwner()) {
        repairs.push_back(
            {"owner", std::to_string(status.st_uid), std::to_string(expectedOwner())});
    }
    if ((status.st_mode & 07777) != kPolicyFileMode) {
        repairs.push_back({"mode", OctalMode(status.st_mode), OctalMode(kPolicyFileMode)});
    }
    return repairs;
}

// Gives the file at path the owner and mode of a policy file, through a descriptor of the
// regular file itself (a link is never followed); false with the reason when it cannot.
bool repair(const std::string& path, std::string& rFailure) {
    const qnsys::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!fd.valid() || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        rFailure = "cannot open " + path + " to repair it: " + qnsys::errnoText(errno);
        return false;
    }
    if (status.st_uid != expectedOwner() &&
        ::fchown(fd.get(), expectedOwner(), static_cast<gid_t>(-1)) != 0) {
        rFailure = "cannot give " + path + " to user id " + std::to_string(expectedOwner()) + ": " +
                   qnsys::errnoText(errno);
        return false;
    }
    if (::fchmod(fd.get(), kPolicyFileMode) != 0) {
        rFailure = "cannot set the mode of " + path + ": " + qnsys::errnoText(errno);
        return false;
    }
    return true;
}

class CGenerateCommand : public CCommand {
  public:
    void AddOptions(CLI::App& command) override {
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
        command.add_flag("--all-defaults", m_bAllDefaults,
                         "Write a document that sets nothing, so that the client applies every "
                         "default; takes no ABBREV=VALUE");
        command.add_flag("--allow-unsafe-directory", m_bAllowUnsafeDirectory,
                         "Write even into a directory that check reports as changeable by others "
                         "(writable by group or others, or owned by another user), as it reports "
                         "for every directory above it too");
        command
            .add_option("ARG", m_policyArgs,
                        "Installer arguments, checked, then written (see `qnpolicy vocabulary`)")
            ->type_name("ABBREV=VALUE");
    }

    // Without arguments the run is a usage error before anything is looked at.
    bool UsesInstallDir() const override { return m_policyArgs.empty() == m_bAllDefaults; }

    int Run(CToolContext& context) override;

  private:
    int plan(CToolContext& context, Plan& rPlan) const;
    GenerateResult decide(const Plan& plan) const;
    GenerateResult store(Plan& rPlan, CToolContext& context, int& rFailureStatus) const;
    void printProblems(const Plan& plan, CToolContext& context) const;
    void writeJson(std::ostream& out, const std::string& path, GenerateResult eResult,
                   const Plan& plan, const std::string& diff, int failureStatus) const;

    std::vector<std::string> m_policyArgs;
    bool m_bOverwrite = false;
    bool m_bLenient = false;
    bool m_bDryRun = false;
    bool m_bDiff = false;
    bool m_bAllDefaults = false;
    bool m_bAllowUnsafeDirectory = false;
};

// Checks the arguments, renders the document once and lints those bytes; then looks at the
// file on disk. 0, or the exit status of a failure (reported).
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
                            "a character XML cannot carry (see the log lines)");
    }
    const LintResult lint = LintPolicyBytes(rPlan.document, path);
    if (!lint.bReadable) {
        return context.Fail(kExitInternal, errorkind::kInternal,
                            "the generated document cannot be read back: " + lint.failureReason);
    }
    for (const LintFinding& finding : lint.findings) {
        rPlan.findings.push_back(ArgumentFinding{argumentOf(finding, check), finding});
    }

    struct stat status {};
    rPlan.bExists = ::lstat(path.c_str(), &status) == 0;
    rPlan.bRegular = rPlan.bExists && S_ISREG(status.st_mode);
    if (rPlan.bRegular) {
        rPlan.repairs = repairsOf(status);
    }
    int error = 0;
    if (rPlan.bRegular && (m_bOverwrite || m_bDiff) && !readFile(path, rPlan.current, error)) {
        return context.Fail(kExitUnreadable, errorkind::kUnreadable,
                            "cannot read " + path + ": " + std::strerror(error));
    }
    return kExitSuccess;
}

GenerateResult CGenerateCommand::decide(const Plan& plan) const {
    if (!m_bLenient && (!plan.skipped.empty() || !plan.findings.empty())) {
        return GenerateResult::REFUSED;
    }
    if (plan.bExists && !m_bOverwrite) {
        return GenerateResult::KEPT;
    }
    // Anything but a regular file at the path (a link, say) is replaced by one.
    if (plan.bRegular && plan.current == plan.document) {
        return plan.repairs.empty() ? GenerateResult::UNCHANGED : GenerateResult::REPAIRED;
    }
    return GenerateResult::WRITTEN;
}

// Stores the linted bytes, or repairs the file that already holds them. A file that appeared
// since the plan is kept (without overwrite); a replaced file whose directory sync failed is
// told apart from a failed write, and a failure to create the file (a directory the tool may
// not write) from one to write it.
GenerateResult CGenerateCommand::store(Plan& rPlan, CToolContext& context,
                                       int& rFailureStatus) const {
    if (decide(rPlan) == GenerateResult::REPAIRED) {
        if (repair(context.InstallPolicyPath(), rPlan.failure)) {
            return GenerateResult::REPAIRED;
        }
        rFailureStatus = kExitCannotCreate;
        return GenerateResult::FAILED;
    }
    const StoreResult stored =
        StorePolicyDocument(context.InstallDir(), rPlan.document, m_bOverwrite);
    switch (stored.eOutcome) {
        case StoreResult::WRITTEN:
            return GenerateResult::WRITTEN;
        case StoreResult::KEPT:
        case StoreResult::EXISTS:
            return GenerateResult::KEPT;
        case StoreResult::NOT_SYNCED:
            return GenerateResult::NOT_SYNCED;
        case StoreResult::FAILED:
            break;
    }
    const bool bCannotCreate =
        stored.error == EACCES || stored.error == EPERM || stored.error == EROFS;
    rFailureStatus = bCannotCreate ? kExitCannotCreate : kExitIoError;
    rPlan.failure = stored.step.empty()
                        ? std::string("no directory")
                        : stored.step + " failed: " + qnsys::errnoText(stored.error);
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
                                 int failureStatus) const {
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
        for (const Repair& repair : plan.repairs) {
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
    switch (eResult) {
        case GenerateResult::WRITTEN:
            return (bDryRun ? "Would write the policy file " : "Wrote the policy file ") + path +
                   ".";
        case GenerateResult::UNCHANGED:
            return "The policy file " + path + " already holds this document; " +
                   (bDryRun ? "it would be" : "it was") + " left untouched.";
        case GenerateResult::REPAIRED: {
            std::string changes;
            for (const Repair& repair : plan.repairs) {
                changes += std::string(changes.empty() ? "" : ", ") + repair.attribute + " " +
                           repair.was + " -> " + repair.now;
            }
            return std::string(bDryRun ? "Would repair" : "Repaired") + " the policy file " + path +
                   ", which already holds this document: " + changes + ".";
        }
        case GenerateResult::KEPT:
            return (bDryRun ? "Would keep the existing policy file "
                            : "Kept the existing policy file ") +
                   path + " (use --overwrite to replace it).";
        case GenerateResult::REFUSED:
            return "Refused: nothing written to " + path +
                   " (fix the arguments above, or give --lenient to write the usable ones).";
        case GenerateResult::FAILED:
            return "The policy file " + path + " was not written (" + plan.failure +
                   "; see the log lines above).";
        case GenerateResult::NOT_SYNCED:
            return "Replaced the policy file " + path +
                   ", but its durability is not confirmed: the directory could not be synced "
                   "(see the log lines above).";
    }
    return std::string();
}

int CGenerateCommand::Run(CToolContext& context) {
    if (m_policyArgs.empty() == !m_bAllDefaults) {
        return context.Fail(kExitUsage, errorkind::kUsage,
                            m_bAllDefaults
                                ? "--all-defaults takes no ABBREV=VALUE"
                                : "no arguments: give at least one ABBREV=VALUE (see `qnpolicy "
                                  "vocabulary`), or --all-defaults");
    }
    const std::string path = context.InstallPolicyPath();
    Plan plan;
    if (const int status = this->plan(context, plan); status != kExitSuccess) {
        return status;
    }

    GenerateResult eResult = decide(plan);
    const bool bWouldWrite = eResult == GenerateResult::WRITTEN ||
                             eResult == GenerateResult::UNCHANGED ||
                             eResult == GenerateResult::REPAIRED;
    // Nothing is written or confirmed in a directory that others could change the policy
    // through: the file would not stay what was written.
    if (bWouldWrite && !m_bAllowUnsafeDirectory) {
        const std::vector<LintFinding> unsafe = CheckDirectoryAttributes(context.InstallDir());
        if (!unsafe.empty()) {
            std::string messages;
            for (const LintFinding& finding : unsafe) {
                messages += finding.message + "; ";
                if (!context.Options().bJson) {
                    context.Error("error: " + finding.kind + ": " + finding.message);
                }
            }
            return context.Fail(kExitCannotCreate, errorkind::kUnsafeDirectory,
                                messages +
                                    "nothing was written (--allow-unsafe-directory "
                                    "writes anyway).");
        }
    }
    const bool bJson = context.Options().bJson;
    if (!bJson) {
        printProblems(plan, context);
    }
    std::string diff;
    if (m_bDiff && eResult != GenerateResult::REFUSED) {
        diff = UnifiedDiff(plan.current, plan.document, plan.bExists ? path : kAbsentFile,
                           path + kDiffAfterSuffix);
    }
    int failureStatus = kExitIoError;
    if (!m_bDryRun && !m_bDiff &&
        (eResult == GenerateResult::WRITTEN || eResult == GenerateResult::REPAIRED)) {
        eResult = store(plan, context, failureStatus);
    }

    if (bJson) {
        writeJson(context.Out(), path, eResult, plan, diff, failureStatus);
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

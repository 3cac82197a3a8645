// qnpolicy generate: the installer's path to a policy file, failing closed.
//
// How generate finds out what it would do without touching the target. The module's
// GenerateLocalPolicy stays exactly as it is (it skips unusable arguments with a warning
// each and writes the rest); the tool adds its checks around it:
//
//  1. The module writes the document from the arguments, verbatim, into a private
//     directory (CPrivateDirectory): a session of the process-wide services is opened on
//     it, and released before anything else is opened. Those bytes are exactly what the
//     module would write into the install directory, since the document does not depend on
//     the directory.
//  2. The arguments are checked against the module's vocabulary with the module's own rules
//     (ArgumentCheck.h), and the would-be document is linted with check's rules.
//  3. The file on disk is read and compared byte for byte.
//  4. Only then, and only for the result "written", a session is opened on the install
//     directory and the module generates the file there, from the same arguments. An
//     identical file is left alone (same inode, same time stamp).
//
// Any skipped argument or finding refuses the run unless --lenient is given. The module's
// per-argument warnings are replaced by the tool's own messages, which name the argument
// and quote its value; every other record of the module passes through.

#include <unistd.h>

#include <sys/stat.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "ArgumentCheck.h"
#include "Commands.h"
#include "DeferredLog.h"
#include "ExitCodes.h"
#include "JsonWriter.h"
#include "LocalPolicySettings.h"
#include "PolicyLinter.h"
#include "PrivateDirectory.h"
#include "QNCSaxWriter.h"
#include "TextFormat.h"
#include "ToolSession.h"
#include "UnifiedDiff.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace qnpolicy::tool {

namespace {

// The operation whose warnings are the per-argument ones the tool reports itself.
constexpr char kGenerateOperation[] = "GenerateLocalPolicy";
constexpr char kDiffAfterSuffix[] = " (generated)";
constexpr char kAbsentFile[] = "/dev/null";

// What a run does, or with --dry-run and --diff would do.
enum class GenerateResult {
    WRITTEN,    // the file was (would be) written
    UNCHANGED,  // the file already holds the document; left untouched
    KEPT,       // a file exists and --overwrite was not given
    REFUSED,    // unusable arguments or findings, and not --lenient: nothing written
    FAILED,     // the module could not write the file
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

// A finding of the would-be document, with the argument it came from (empty when none).
struct ArgumentFinding {
    std::string argument;
    LintFinding finding;
};

// Everything generate learns before it writes.
struct Plan {
    std::string document;
    ArgumentCheck arguments;
    std::vector<ArgumentFinding> findings;
    bool bExists = false;
    std::string current;  // the file on disk, when it exists
};

bool isReplacedRecord(const CAppLogRecord& record) {
    return record.importance == Logging::DBG_Warning && record.function == kGenerateOperation;
}

// What the module's generation did, told apart by its result and its records.
enum class ModuleOutcome {
    WRITTEN,     // the new document is in place and synced
    KEPT,        // without overwrite, a file was there (or appeared meanwhile) and was kept
    NOT_SYNCED,  // the new document is in place, but the directory's sync failed
    FAILED,      // nothing was written
};

// Whether a record reports the writer's failed directory sync after the rename, or the
// existing file kept without overwrite.
bool isNotSyncedRecord(const CAppLogRecord& record) {
    return !record.callee.empty() &&
           record.code == static_cast<uint32_t>(QNCSAXWRITER_ERROR_NOT_SYNCED);
}
bool isKeptRecord(const CAppLogRecord& record) {
    return isReplacedRecord(record) && record.message == qnpolicy::kFileKeptMessage;
}

// Runs the module's generation on the session's directory with the arguments as given.
ModuleOutcome generateWithModule(XmlLocalQNPolMgr& manager,
                                 const std::vector<std::string>& policyArgs, bool bOverwrite) {
    // GenerateLocalPolicy takes mutable C strings; these copies live for the call.
    std::vector<std::string> copies = policyArgs;
    std::vector<char*> argv;
    argv.reserve(copies.size());
    for (std::string& copy : copies) {
        argv.push_back(copy.data());
    }
    CDeferredLog deferred;
    const bool bWritten =
        manager.GenerateLocalPolicy(argv.data(), static_cast<int>(argv.size()), bOverwrite);
    const std::vector<CAppLogRecord>& records = deferred.Records();
    ModuleOutcome eOutcome = bWritten ? ModuleOutcome::WRITTEN : ModuleOutcome::FAILED;
    if (std::any_of(records.begin(), records.end(), isNotSyncedRecord)) {
        eOutcome = ModuleOutcome::NOT_SYNCED;
    } else if (bWritten && std::any_of(records.begin(), records.end(), isKeptRecord)) {
        eOutcome = ModuleOutcome::KEPT;
    }
    deferred.ForwardExcept(isReplacedRecord);
    return eOutcome;
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

// Step 1: the document the module writes for these arguments, and its vocabulary. 0, or the
// exit status of the failure (reported).
int generateDocument(const std::vector<std::string>& policyArgs, std::string& rDocument,
                     std::map<std::string, LocalPolicySetting>& rVocabulary,
                     CToolContext& context) {
    CPrivateDirectory scratch;
    if (!scratch.Create()) {
        context.Error("cannot create a private directory to prepare the document");
        return kExitCannotCreate;
    }
    CToolSession session;
    if (session.Open(scratch.Path()) != XMLLOCALQNPOLMGR_SUCCESS) {
        context.Error("cannot set up the policy module");
        return kExitInternal;
    }
    rVocabulary = session.Manager().GetPolicyTransTable();
    int error = 0;
    if (generateWithModule(session.Manager(), policyArgs, true) != ModuleOutcome::WRITTEN ||
        !readFile(session.PolicyPath(), rDocument, error)) {
        // A file-size limit or a full temporary file system ends here (see the log lines).
        context.Error("cannot prepare the document in " + scratch.Path() + " (see the log lines)");
        return kExitIoError;
    }
    return kExitSuccess;
}

// The argument a finding of the would-be document comes from: the one that set its element,
// or for a server name the one that set the list.
std::string argumentOf(const LintFinding& finding, const ArgumentCheck& arguments) {
    std::string element = finding.element;
    const LocalPolicySettingInfo* pRow = FindLocalPolicySetting(element);
    if (pRow != nullptr && pRow->kind == LocalPolicySettingKind::SERVER_NAME) {
        for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
            if (row.kind == LocalPolicySettingKind::SERVER_LIST) {
                element = row.element;
            }
        }
    }
    const auto found = arguments.argumentOfElement.find(element);
    return found == arguments.argumentOfElement.end() ? std::string() : found->second;
}

GenerateResult decide(const CommandArgs& args, const Plan& plan) {
    if (!args.bLenient && (!plan.arguments.skipped.empty() || !plan.findings.empty())) {
        return GenerateResult::REFUSED;
    }
    if (plan.bExists && !args.bOverwrite) {
        return GenerateResult::KEPT;
    }
    if (plan.bExists && plan.current == plan.document) {
        return GenerateResult::UNCHANGED;
    }
    return GenerateResult::WRITTEN;
}

// The problems in text, one line each on standard error: errors when they refuse the run,
// warnings when --lenient writes anyway.
void printProblems(const Plan& plan, bool bLenient, CToolContext& context) {
    const auto print = [&context, bLenient](const std::string& message) {
        if (bLenient) {
            context.Warning(message);
        } else {
            context.Error("error: " + message);
        }
    };
    for (const SkippedArgument& skipped : plan.arguments.skipped) {
        print(Quoted(skipped.argument) + ": " + skipped.message +
              (bLenient ? " (skipped)" : std::string()));
    }
    for (const ArgumentFinding& item : plan.findings) {
        print((item.argument.empty() ? std::string() : Quoted(item.argument) + ": ") +
              item.finding.kind + ": " + item.finding.message);
    }
}

void writeJson(std::ostream& out, const std::string& path, GenerateResult eResult,
               const CommandArgs& args, const Plan& plan, const std::string& diff) {
    CJsonWriter json(out);
    json.BeginObject().Key("formatVersion").Number(1).Key("path").String(path);
    json.Key("result").String(rowOf(eResult).name);
    json.Key("dryRun").Bool(args.bDryRun || args.bDiff);
    if (args.bDryRun) {
        json.Key("document").String(plan.document);
    }
    if (args.bDiff) {
        json.Key("diff").String(diff);
    }
    json.Key("skipped").BeginArray();
    for (const SkippedArgument& skipped : plan.arguments.skipped) {
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
    json.EndArray().EndObject().Finish();
}

// The one line that says what happened (or would happen) to the file.
std::string resultText(GenerateResult eResult, const std::string& path, bool bDryRun) {
    switch (eResult) {
        case GenerateResult::WRITTEN:
            return (bDryRun ? "Would write the policy file " : "Wrote the policy file ") + path +
                   ".";
        case GenerateResult::UNCHANGED:
            return "The policy file " + path + " already holds this document; " +
                   (bDryRun ? "it would be" : "it was") + " left untouched.";
        case GenerateResult::KEPT:
            return (bDryRun ? "Would keep the existing policy file "
                            : "Kept the existing policy file ") +
                   path + " (use --overwrite to replace it).";
        case GenerateResult::REFUSED:
            return "Refused: nothing written to " + path +
                   " (fix the arguments above, or give --lenient to write the usable ones).";
        case GenerateResult::FAILED:
            return "The policy file " + path + " was not written (see the log lines above).";
        case GenerateResult::NOT_SYNCED:
            return "Replaced the policy file " + path +
                   ", but its durability is not confirmed: the directory could not be synced "
                   "(see the log lines above).";
    }
    return std::string();
}

// Step 4: the real generation. A file that appeared since the plan is kept (without
// overwrite) and reported as such; a replaced file whose directory sync failed is told apart
// from a failed write.
GenerateResult writePolicy(const CommandArgs& args, CToolContext& context) {
    CToolSession session;
    if (session.Open(context.Options().installDir) != XMLLOCALQNPOLMGR_SUCCESS) {
        context.Error("cannot set up the policy module");
        return GenerateResult::FAILED;
    }
    switch (generateWithModule(session.Manager(), args.policyArgs, args.bOverwrite)) {
        case ModuleOutcome::WRITTEN:
            return GenerateResult::WRITTEN;
        case ModuleOutcome::KEPT:
            return GenerateResult::KEPT;
        case ModuleOutcome::NOT_SYNCED:
            return GenerateResult::NOT_SYNCED;
        case ModuleOutcome::FAILED:
            break;
    }
    return GenerateResult::FAILED;
}

// The exit status of a failed write: the file cannot be created in a directory the tool may
// not write, otherwise writing it failed (a full disk, a file-size limit).
int failureStatus(const CToolContext& context) {
    return ::access(context.Options().installDir.c_str(), W_OK | X_OK) != 0 ? kExitCannotCreate
                                                                            : kExitIoError;
}

}  // namespace

void AddGenerateOptions(CLI::App& command, CommandArgs& args) {
    command.add_flag("--overwrite", args.bOverwrite, "Replace an existing policy file");
    command.add_flag("--lenient", args.bLenient,
                     "Skip unusable arguments with a warning and write the rest, as installers "
                     "expect, instead of refusing the run");
    CLI::Option* dryRun = command.add_flag(
        "--dry-run", args.bDryRun, "Write nothing; print the document that would be written");
    command
        .add_flag("--diff", args.bDiff,
                  "Write nothing; print a unified diff from the file on disk to the document "
                  "that would be written (exit 1 when they differ)")
        ->excludes(dryRun);
    command
        .add_option("ARG", args.policyArgs, "Installer arguments, checked, then passed on as given")
        ->type_name("ABBREV=VALUE");
}

int RunGenerate(const CommandArgs& args, CToolContext& context) {
    if (args.policyArgs.empty()) {
        context.Error("no arguments: give at least one ABBREV=VALUE (see `qnpolicy vocabulary`)");
        return kExitUsage;
    }
    if (const int status = context.RequireInstallDir(); status != kExitSuccess) {
        return status;
    }
    const std::string path = context.InstallPolicyPath();

    Plan plan;
    std::map<std::string, LocalPolicySetting> vocabulary;
    if (const int status = generateDocument(args.policyArgs, plan.document, vocabulary, context);
        status != kExitSuccess) {
        return status;
    }
    plan.arguments = CheckInstallerArguments(args.policyArgs, vocabulary);
    CPolicyLinter linter;
    const LintResult lint = linter.LintBuffer(plan.document, path);
    for (const LintFinding& finding : lint.findings) {
        plan.findings.push_back(ArgumentFinding{argumentOf(finding, plan.arguments), finding});
    }
    if (!lint.bReadable) {
        context.Error("the generated document cannot be read back: " + lint.failure.message);
        return kExitInternal;
    }
    struct stat status {};
    plan.bExists = ::lstat(path.c_str(), &status) == 0;
    int error = 0;
    if (plan.bExists && (args.bOverwrite || args.bDiff) && !readFile(path, plan.current, error)) {
        context.Error("cannot read " + path + ": " + std::strerror(error));
        return kExitIoError;
    }

    GenerateResult eResult = decide(args, plan);
    const bool bJson = context.Options().bJson;
    if (!bJson) {
        printProblems(plan, args.bLenient, context);
    }
    std::string diff;
    if (args.bDiff && eResult != GenerateResult::REFUSED) {
        diff = UnifiedDiff(plan.current, plan.document, plan.bExists ? path : kAbsentFile,
                           path + kDiffAfterSuffix);
    }
    if (!args.bDryRun && !args.bDiff && eResult == GenerateResult::WRITTEN) {
        eResult = writePolicy(args, context);
    }

    const ResultRow& row = rowOf(eResult);
    if (bJson) {
        writeJson(context.Out(), path, eResult, args, plan, diff);
    } else if (args.bDiff) {
        context.Out() << diff;
    } else if (args.bDryRun && eResult != GenerateResult::REFUSED) {
        context.Out() << plan.document;
    }
    const std::string text = resultText(eResult, path, args.bDryRun || args.bDiff);
    if (eResult == GenerateResult::REFUSED || eResult == GenerateResult::FAILED ||
        eResult == GenerateResult::NOT_SYNCED) {
        context.Error(text);
    } else if (args.bDryRun || args.bDiff) {
        context.Note(text);
    } else if (!bJson && !context.Options().bQuiet) {
        context.Out() << text << '\n';
    }
    if (eResult == GenerateResult::FAILED) {
        return failureStatus(context);
    }
    if (args.bDiff && eResult != GenerateResult::REFUSED) {
        return diff.empty() ? kExitSuccess : kExitFindings;
    }
    return row.exitStatus;
}

}  // namespace qnpolicy::tool

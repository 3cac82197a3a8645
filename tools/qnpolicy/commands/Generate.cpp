// qnpolicy generate: the installer's path to a policy file, failing closed.
//
// The document is rendered once, from the arguments as the library checks them; those bytes
// are linted in memory with check's rules, compared with the file on disk, and, when they must
// be written, stored as they are: what is linted is what is written, and nothing is created
// outside the install directory. Any refused argument or finding refuses the run unless
// --lenient is given, which is the installer's behaviour (skip what cannot be used, write the
// rest).

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "CommandTable.h"
#include "LocalPolicyDocument.h"
#include "MessageText.h"
#include "lint/PolicyLinter.h"
#include "output/Output.h"
#include "output/UnifiedDiff.h"

namespace qnpolicy::tool {

namespace {

constexpr char kDiffAfterSuffix[] = " (generated)";
constexpr char kAbsentFile[] = "/dev/null";

// What a run does, or with --dry-run and --diff would do.
enum class GenerateResult {
    WRITTEN,    // the file was (would be) written
    UNCHANGED,  // the file already holds the document; left untouched
    KEPT,       // a file exists and --overwrite was not given
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

// An argument the library does not use, in the tool's words.
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
    bool bExists = false;
    std::string current;  // the file on disk, when it exists
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
                    "the value is empty, so the setting would not be written"};
        case ArgumentRefusal::UNKNOWN_ABBREVIATION: {
            std::vector<std::string> abbreviations;
            for (const auto& row : LocalPolicyVocabulary()) {
                abbreviations.push_back(row.first);
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
                        Quoted(argument.pRow->tstrFullName) + "; allowed (ignoring case): " +
                        Join(argument.pRow->listAllowedValues, ", ", true)};
        case ArgumentRefusal::DUPLICATE:
            return {argument.text, "duplicate-argument",
                    Quoted(argument.pRow->tstrFullName) + " is already set by " +
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
        if (argument.pRow->tstrFullName == element) {
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

class CGenerateCommand : public CCommand {
  public:
    void AddOptions(CLI::App& command) override {
        command.add_flag("--overwrite", m_bOverwrite, "Replace an existing policy file");
        command.add_flag("--lenient", m_bLenient,
                         "Skip unusable arguments with a warning and write the rest, as "
                         "installers expect, instead of refusing the run");
        CLI::Option* dryRun = command.add_flag(
            "--dry-run", m_bDryRun, "Write nothing; print the document that would be written");
        command
            .add_flag("--diff", m_bDiff,
                      "Write nothing; print a unified diff from the file on disk to the document "
                      "that would be written (exit 1 when they differ)")
            ->excludes(dryRun);
        command
            .add_option("ARG", m_policyArgs,
                        "Installer arguments, checked, then passed on as given")
            ->type_name("ABBREV=VALUE");
    }

    // Without arguments the run is a usage error before anything is looked at.
    bool UsesInstallDir() const override { return !m_policyArgs.empty(); }

    int Run(CToolContext& context) override;

  private:
    GenerateResult decide(const Plan& plan) const;
    GenerateResult store(const Plan& plan, CToolContext& context, int& rFailureStatus) const;
    void printProblems(const Plan& plan, CToolContext& context) const;
    void writeJson(std::ostream& out, const std::string& path, GenerateResult eResult,
                   const Plan& plan, const std::string& diff) const;

    std::vector<std::string> m_policyArgs;
    bool m_bOverwrite = false;
    bool m_bLenient = false;
    bool m_bDryRun = false;
    bool m_bDiff = false;
};

GenerateResult CGenerateCommand::decide(const Plan& plan) const {
    if (!m_bLenient && (!plan.skipped.empty() || !plan.findings.empty())) {
        return GenerateResult::REFUSED;
    }
    if (plan.bExists && !m_bOverwrite) {
        return GenerateResult::KEPT;
    }
    if (plan.bExists && plan.current == plan.document) {
        return GenerateResult::UNCHANGED;
    }
    return GenerateResult::WRITTEN;
}

// Stores the linted bytes. A file that appeared since the plan is kept (without overwrite); a
// replaced file whose directory sync failed is told apart from a failed write, and a failure
// to create the file (a directory the tool may not write) from one to write it.
GenerateResult CGenerateCommand::store(const Plan& plan, CToolContext& context,
                                       int& rFailureStatus) const {
    const StoreResult stored =
        StorePolicyDocument(context.InstallDir(), plan.document, m_bOverwrite);
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
                                 const Plan& plan, const std::string& diff) const {
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

int CGenerateCommand::Run(CToolContext& context) {
    if (m_policyArgs.empty()) {
        context.Error("no arguments: give at least one ABBREV=VALUE (see `qnpolicy vocabulary`)");
        return kExitUsage;
    }
    const std::string path = context.InstallPolicyPath();

    std::vector<const char*> argv;
    argv.reserve(m_policyArgs.size());
    for (const std::string& argument : m_policyArgs) {
        argv.push_back(argument.c_str());
    }
    const ArgumentCheck check =
        CheckInstallerArguments(argv.data(), argv.size(), LocalPolicyVocabulary());
    Plan plan;
    for (const RefusedArgument& refused : check.refused) {
        plan.skipped.push_back(describe(refused, m_policyArgs));
    }
    if (RenderPolicyDocument(check.settings, context.InstallDir(), plan.document) != 0) {
        // A value XML cannot carry (see the writer's log line).
        context.Error("the document cannot be written from these arguments (see the log lines)");
        return kExitDataError;
    }
    const LintResult lint = LintPolicyBytes(plan.document, path);
    if (!lint.bReadable) {
        context.Error("the generated document cannot be read back: " + lint.failureReason);
        return kExitInternal;
    }
    for (const LintFinding& finding : lint.findings) {
        plan.findings.push_back(ArgumentFinding{argumentOf(finding, check), finding});
    }
    struct stat status {};
    plan.bExists = ::lstat(path.c_str(), &status) == 0;
    int error = 0;
    if (plan.bExists && (m_bOverwrite || m_bDiff) && !readFile(path, plan.current, error)) {
        context.Error("cannot read " + path + ": " + std::strerror(error));
        return kExitIoError;
    }

    GenerateResult eResult = decide(plan);
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
    if (!m_bDryRun && !m_bDiff && eResult == GenerateResult::WRITTEN) {
        eResult = store(plan, context, failureStatus);
    }

    if (bJson) {
        writeJson(context.Out(), path, eResult, plan, diff);
    } else if (m_bDiff) {
        context.Out() << diff;
    } else if (m_bDryRun && eResult != GenerateResult::REFUSED) {
        context.Out() << plan.document;
    }
    const std::string text = resultText(eResult, path, m_bDryRun || m_bDiff);
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

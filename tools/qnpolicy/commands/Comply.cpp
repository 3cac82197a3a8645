// SPDX-License-Identifier: Apache-2.0
// qnpolicy comply: each policy file's verdicts against a baseline, from the reader's own reading
// of the file with the origin of each value.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <iostream>
#include <list>

#include "AtomicFileReplace.h"
#include "CommandTable.h"
#include "LocalPolicyKinds.h"
#include "MessageText.h"
#include "baseline/Baseline.h"
#include "commands/ShowOrigin.h"
#include "origin/EffectivePolicy.h"
#include "output/ComplianceMetrics.h"
#include "output/Output.h"
#include "output/PolicyViews.h"
#include "safety/PathAudit.h"
#include "sysutils.h"

namespace qnpolicy::tool {

const char kComplyResultSchema[] = R"({
    "type": "object",
    "required": ["formatVersion", "result", "baseline", "host", "files"],
    "properties": {
        "formatVersion": {"const": 1},
        "result": {"enum": ["compliant", "not-compliant", "unreadable", "no-such-file"]},
        "baseline": {"type": "string"},
        "host": {"type": "string"},
        "files": {"type": "array", "items": {
            "type": "object",
            "required": ["file", "readable", "compliant", "verdicts", "expiringWaivers"],
            "properties": {
                "file": {"type": "string"},
                "readable": {"type": "boolean"},
                "compliant": {"type": "boolean"},
                "error": {"$ref": "#/$defs/error"},
                "verdicts": {"type": "array", "items": {"$ref": "#/$defs/verdict"}},
                "expiringWaivers": {"type": "array", "items": {"$ref": "#/$defs/waiver"}}
            },
            "additionalProperties": false}}
    },
    "additionalProperties": false,
    "$defs": {
        "verdict": {
            "type": "object",
            "required": ["rule", "state", "severity", "actual", "origin"],
            "properties": {
                "rule": {"type": "string"},
                "state": {"enum": ["pass", "fail", "waived"]},
                "severity": {"enum": ["low", "medium", "high"]},
                "rationale": {"type": "string"},
                "comparison": {"enum": ["equals", "one_of", "subset_of", "superset_of"]},
                "expected": {"type": "array", "items": {"$ref": "#/$defs/settingValue"}},
                "actual": {"$ref": "#/$defs/settingValue"},
                "origin": {"$ref": "#/$defs/position"},
                "offending": {"type": "array", "items": {
                    "type": "object",
                    "required": ["value", "origin", "missing"],
                    "properties": {"value": {"type": "string"},
                                   "origin": {"$ref": "#/$defs/position"},
                                   "missing": {"type": "boolean"}},
                    "additionalProperties": false}},
                "findings": {"type": "array", "items": {"$ref": "#/$defs/finding"}},
                "waiver": {"$ref": "#/$defs/waiver"}
            },
            "additionalProperties": false
        },
        "waiver": {
            "type": "object",
            "required": ["setting", "reason", "expires", "hosts", "line", "column"],
            "properties": {
                "setting": {"type": "string"},
                "reason": {"type": "string"},
                "expires": {"type": "string", "pattern": "^[0-9]{4}-[0-9]{2}-[0-9]{2}$"},
                "hosts": {"type": "array", "items": {"type": "string"}},
                "line": {"type": "integer", "minimum": 1},
                "column": {"type": "integer", "minimum": 1}
            },
            "additionalProperties": false
        }
    }
})";

namespace {

// One judged file: its verdicts, or why it could not be judged.
// A FILE argument that is not there is missing (only the system's "nothing there": a path that
// cannot be examined counts as present); the install directory's file is read as the client
// reads it, a missing one as the defaults. Without a baseline (one that could not be used) it
// is read and not judged. The policy is built in place (its record, a hundred thousand
// servers perhaps, has no move), so a judged file never moves either.
struct JudgedFile {
    JudgedFile(const std::string& path, bool bArgument, const Baseline* pBaseline,
               const std::string& host)
        : file(path),
          bMissing(bArgument && !qnsys::fileExists(path)),
          policy(bMissing ? EffectivePolicy{} : ReadEffectivePolicyFile(path, path, false)) {
        if (pBaseline != nullptr && !bMissing && policy.Complete()) {
            verdicts = JudgePolicy(*pBaseline, policy, PolicyPathFindings(path), host, Today());
            bJudged = true;
        }
    }
    JudgedFile(const JudgedFile&) = delete;
    JudgedFile& operator=(const JudgedFile&) = delete;

    std::string file;
    bool bMissing;
    EffectivePolicy policy;
    ComplianceVerdicts verdicts;
    bool bJudged = false;
};

// The baseline's text from a file or standard input, at most kMaxBaselineBytes and one more, so
// that a larger one is refused without reading it all. Empty error: read.
struct BaselineText {
    std::string text;
    std::string error;
    bool bMissing = false;
};

BaselineText readBaseline(const std::string& path) {
    BaselineText result;
    std::ifstream file;
    std::istream* pIn = &std::cin;
    if (path != kStandardInput) {
        file.open(path, std::ios::binary);
        if (!file) {
            const int error = errno;
            result.bMissing = error == ENOENT;
            result.error = "cannot read the baseline " + path + ": " +
                           (error == ENOENT ? std::string("no such file") : std::strerror(error));
            return result;
        }
        pIn = &file;
    }
    char buffer[size_t{1} << 16];
    while (result.text.size() <= kMaxBaselineBytes &&
           pIn->read(buffer, sizeof buffer).gcount() > 0) {
        result.text.append(buffer, static_cast<size_t>(pIn->gcount()));
    }
    if (pIn->bad()) {
        result.error = "cannot read the baseline " + path;
    }
    return result;
}

std::string positionText(const std::string& file, const SourcePosition& position) {
    return position.Known()
               ? file + ":" + std::to_string(position.line) + ":" + std::to_string(position.column)
               : std::string("the default");
}

// A list in brackets, a long one cut after its first few entries.
template <typename Values>
std::string listText(const Values& values) {
    constexpr size_t kShown = 5;
    std::string text = "[";
    size_t count = 0;
    for (auto at = values.begin(); at != values.end() && count < kShown; ++at, ++count) {
        text += (count == 0 ? "" : ", ") + *at;
    }
    if (values.size() > kShown) {
        text += ", ... " + std::to_string(values.size()) + " in all";
    }
    return text + "]";
}

std::string singleText(const std::vector<std::string>& values) {
    return values.empty() ? std::string() : values.front();
}

bool isList(const RuleVerdict& verdict) {
    return verdict.pRule != nullptr && KindOf(verdict.pRule->pRow->kind).shape == ValueShape::LIST;
}

RuleSeverity severityOf(const RuleVerdict& verdict, const Baseline& baseline) {
    return verdict.pRule != nullptr ? verdict.pRule->eSeverity : baseline.fileSafetySeverity;
}

// "  fail FipsMode [high]: expected true, actual false from the default".
void printVerdict(std::ostream& out, const RuleVerdict& verdict, const JudgedFile& judged,
                  const Baseline& baseline) {
    out << "  " << VerdictStateText(verdict.eState) << ' ' << verdict.rule << " ["
        << RuleSeverityText(severityOf(verdict, baseline)) << "]";
    if (verdict.pRule == nullptr) {
        for (const LintFinding& finding : verdict.findings) {
            out << "\n    " << finding.kind << ": " << finding.message;
        }
        out << '\n';
        return;
    }
    const BaselineRule& rule = *verdict.pRule;
    const bool bList = isList(verdict);
    out << ": ";
    if (verdict.eState != VerdictState::PASS) {
        out << "expected "
            << (rule.eComparison == RuleComparison::EQUALS && !bList
                    ? std::string()
                    : std::string(ComparisonText(rule.eComparison)) + " ")
            << (bList || rule.eComparison != RuleComparison::EQUALS ? listText(rule.expected)
                                                                    : singleText(rule.expected))
            << ", actual ";
    }
    out << (bList ? listText(judged.policy.Servers()) : singleText(verdict.actual)) << " from "
        << positionText(judged.file, verdict.origin);
    for (const OffendingEntry& entry : verdict.offending) {
        out << "; " << Quoted(entry.value)
            << (entry.bMissing
                    ? " is missing"
                    : " (" + positionText(judged.file, entry.origin) + ") is not expected");
    }
    if (verdict.pWaiver != nullptr) {
        out << "; waived until " << verdict.pWaiver->expires.Text() << ": "
            << verdict.pWaiver->reason;
    }
    out << '\n';
}

void printText(std::ostream& out, const JudgedFile& judged, const Baseline& baseline,
               const std::string& host, bool bQuiet) {
    if (judged.bMissing || !judged.policy.Complete()) {
        return;  // said on standard error
    }
    const ComplianceVerdicts& verdicts = judged.verdicts;
    size_t counts[3] = {};
    for (const RuleVerdict& verdict : verdicts.verdicts) {
        ++counts[static_cast<size_t>(verdict.eState)];
    }
    out << judged.file << ": " << (verdicts.Compliant() ? "compliant" : "not compliant") << " with "
        << baseline.file << " (host " << host
        << "): " << counts[static_cast<size_t>(VerdictState::FAIL)] << " failed, "
        << counts[static_cast<size_t>(VerdictState::WAIVED)] << " waived, "
        << counts[static_cast<size_t>(VerdictState::PASS)] << " passed\n";
    for (const RuleVerdict& verdict : verdicts.verdicts) {
        if (!bQuiet || verdict.eState == VerdictState::FAIL) {
            printVerdict(out, verdict, judged, baseline);
        }
    }
}

// A list of texts on one line.
template <typename Values>
void writeList(CJsonWriter& json, const Values& values) {
    json.BeginArray(CJsonWriter::Layout::INLINE);
    for (const std::string& value : values) {
        json.String(value);
    }
    json.EndArray();
}

// A value typed as show --json types it: a boolean, a text, or a list of texts.
void writeValue(CJsonWriter& json, const LocalPolicySettingInfo* pRow,
                const std::vector<std::string>& values, bool bList) {
    if (bList) {
        writeList(json, values);
        return;
    }
    const std::string value = singleText(values);
    if (pRow != nullptr && KindOf(pRow->kind).shape == ValueShape::BOOLEAN) {
        json.Bool(value == "true");
    } else {
        json.String(value);
    }
}

void writePosition(CJsonWriter& json, const SourcePosition& position) {
    if (!position.Known()) {
        json.Null();
        return;
    }
    json.BeginObject(CJsonWriter::Layout::INLINE).Key("line").Number(position.line);
    json.Key("column").Number(position.column).EndObject();
}

void writeWaiver(CJsonWriter& json, const BaselineWaiver& waiver) {
    json.BeginObject().Key("setting").String(waiver.rule).Key("reason").String(waiver.reason);
    json.Key("expires")
        .String(waiver.expires.Text())
        .Key("hosts")
        .BeginArray(CJsonWriter::Layout::INLINE);
    for (const std::string& pattern : waiver.hostPatterns) {
        json.String(pattern);
    }
    json.EndArray().Key("line").Number(waiver.position.line);
    json.Key("column").Number(waiver.position.column).EndObject();
}

void writeVerdictJson(CJsonWriter& json, const RuleVerdict& verdict, const Baseline& baseline,
                      const EffectivePolicy& policy) {
    const BaselineRule* pRule = verdict.pRule;
    const LocalPolicySettingInfo* pRow = pRule != nullptr ? pRule->pRow : nullptr;
    const bool bList = isList(verdict);
    json.BeginObject().Key("rule").String(verdict.rule);
    json.Key("state").String(VerdictStateText(verdict.eState));
    json.Key("severity").String(RuleSeverityText(severityOf(verdict, baseline)));
    const std::string& rationale =
        pRule != nullptr ? pRule->rationale : baseline.fileSafetyRationale;
    if (!rationale.empty()) {
        json.Key("rationale").String(rationale);
    }
    if (pRule != nullptr) {
        json.Key("comparison").String(ComparisonText(pRule->eComparison));
        json.Key("expected");
        // A list rule expects one list; any other expects one of its values.
        json.BeginArray(CJsonWriter::Layout::INLINE);
        if (bList) {
            writeValue(json, pRow, pRule->expected, true);
        } else {
            for (const std::string& value : pRule->expected) {
                writeValue(json, pRow, {value}, false);
            }
        }
        json.EndArray();
    }
    json.Key("actual");
    if (bList) {
        writeList(json, policy.Servers());
    } else {
        writeValue(json, pRow, verdict.actual, false);
    }
    json.Key("origin");
    writePosition(json, verdict.origin);
    if (!verdict.offending.empty()) {
        json.Key("offending").BeginArray();
        for (const OffendingEntry& entry : verdict.offending) {
            json.BeginObject(CJsonWriter::Layout::INLINE).Key("value").String(entry.value);
            json.Key("origin");
            writePosition(json, entry.origin);
            json.Key("missing").Bool(entry.bMissing).EndObject();
        }
        json.EndArray();
    }
    if (pRule == nullptr) {
        json.Key("findings").BeginArray();
        for (const LintFinding& finding : verdict.findings) {
            json.BeginObject();
            WriteFindingMembers(json, finding);
            json.EndObject();
        }
        json.EndArray();
    }
    if (verdict.pWaiver != nullptr) {
        json.Key("waiver");
        writeWaiver(json, *verdict.pWaiver);
    }
    json.EndObject();
}

void writeFileJson(CJsonWriter& json, const JudgedFile& judged, const Baseline& baseline) {
    const bool bReadable = judged.policy.Complete() && !judged.bMissing;
    json.BeginObject().Key("file").String(judged.file).Key("readable").Bool(bReadable);
    json.Key("compliant").Bool(bReadable && judged.verdicts.Compliant());
    if (!bReadable) {
        const DocumentRead& read = judged.policy.read;
        json.Key("error").BeginObject();
        json.Key("kind").String(judged.bMissing ? errorkind::kNoSuchFile : errorkind::kUnreadable);
        json.Key("message").String(judged.bMissing ? std::string("no such file") : read.reason);
        json.Key("line").Number(read.line).Key("column").Number(read.column);
        json.Key("consequence").String(kUnreadableFileConsequence).EndObject();
    }
    json.Key("verdicts").BeginArray();
    for (const RuleVerdict& verdict : judged.verdicts.verdicts) {
        writeVerdictJson(json, verdict, baseline, judged.policy);
    }
    json.EndArray().Key("expiringWaivers").BeginArray();
    for (const BaselineWaiver* pWaiver : judged.verdicts.expiringSoon) {
        writeWaiver(json, *pWaiver);
    }
    json.EndArray().EndObject();
}

constexpr char kFormatText[] = "text";
constexpr char kFormatJson[] = "json";
constexpr char kFormatPrometheus[] = "prometheus";

const std::vector<std::string>& formats() {
    static const std::vector<std::string> values = {kFormatText, kFormatJson, kFormatPrometheus};
    return values;
}

double secondsSinceEpoch(const struct timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// What the metrics say of one judged file: present as the client sees it (a FILE operand as
// comply's own test found it), its modification time when it can be examined.
MetricsSubject metricsSubject(const JudgedFile& judged, const Baseline* pBaseline) {
    MetricsSubject subject;
    subject.pBaseline = pBaseline;
    subject.filePresent = !judged.bMissing && judged.policy.read.bExists;
    if (!judged.bMissing) {
        subject.pPolicy = &judged.policy;
    }
    if (judged.bJudged) {
        subject.pVerdicts = &judged.verdicts;
    }
    struct stat status {};
    if (*subject.filePresent && ::stat(judged.file.c_str(), &status) == 0) {
        subject.modified = secondsSinceEpoch(status.st_mtim);
    }
    return subject;
}

int refuseBaseline(CToolContext& context, const std::string& name, const BaselineError& error) {
    const std::string where =
        name + (error.position.line != 0 ? ":" + std::to_string(error.position.line) + ":" +
                                               std::to_string(error.position.column)
                                         : std::string());
    context.Error(where + ": " + error.message);
    if (context.Options().bJson) {
        CJsonWriter json(context.Out());
        json.BeginObject().Key("formatVersion").Number(1).Key("error").BeginObject();
        json.Key("kind")
            .String(errorkind::kRefused)
            .Key("message")
            .String(where + ": " + error.message);
        json.Key("line").Number(error.position.line);
        json.Key("column").Number(error.position.column).EndObject().EndObject().Finish();
    }
    return kExitDataError;
}

class CComplyCommand : public CCommand {
  public:
    void AddOptions(COptionList& options) override {
        options
            .Value("--baseline", m_baseline,
                   "The baseline every file must meet, a YAML file (qnpolicy-baseline(5)); "
                   "- reads it from standard input")
            .TypeName("BASELINE")
            .Required();
        options
            .Value("--host", m_host,
                   "The host name that decides which waivers apply (default: this machine's)")
            .TypeName("NAME");
        options
            .Value("--format", m_format,
                   "text (the default), json (as --json) or prometheus: the verdict as metrics "
                   "in Prometheus' text format, for node_exporter's textfile collector (one "
                   "FILE at most)")
            .TypeName("FORMAT")
            .Choices(formats());
        options
            .Value("--output", m_output,
                   "With --format=prometheus: store the metrics in OUTPUT, replaced atomically "
                   "(mode 0644), and exit 0 once stored whatever the verdict")
            .TypeName("OUTPUT");
        options
            .Values("FILE", m_files,
                    "Policy files to judge (default: the policy file in the install directory, "
                    "judged as the client reads it: a missing one as the defaults)")
            .TypeName("FILE");
    }

    void AdjustSharedOptions(SharedOptions& rOptions) const override {
        rOptions.bJson = rOptions.bJson || m_format == kFormatJson;
    }

    bool UsesInstallDir() const override { return m_files.empty(); }

    int Run(CToolContext& context) override {
        if (const int status = checkFormat(context); status != kExitSuccess) {
            return status;
        }
        for (const std::string& file : m_files) {
            if (file == kStandardInput) {
                return context.Fail(kExitUsage, errorkind::kUsage,
                                    "FILE is a path: a policy read from standard input has no "
                                    "path to audit (--baseline - reads the baseline)");
            }
        }
        BaselineParse parse;
        const int loaded =
            LoadBaseline(context, m_baseline, parse, [&] { return deliverUnjudged(context); });
        if (loaded != kExitSuccess) {
            return loaded;
        }
        const std::string host = m_host.empty() ? MachineHostName() : m_host;
        std::vector<std::string> files = m_files;
        if (files.empty()) {
            files.push_back(context.InstallPolicyPath());
        }
        std::list<JudgedFile> judged;
        for (const std::string& file : files) {
            judged.emplace_back(file, !m_files.empty(), &parse.baseline, host);
        }
        const int status = report(context, judged, parse.baseline, host);
        if (m_format != kFormatPrometheus) {
            return status;
        }
        return deliverMetrics(context, metricsSubject(judged.front(), &parse.baseline),
                              m_output.empty() ? status : kExitSuccess);
    }

  private:
    int checkFormat(CToolContext& context) const {
        const bool bPrometheus = m_format == kFormatPrometheus;
        if (context.Options().bJson && bPrometheus) {
            return context.Fail(kExitUsage, errorkind::kUsage,
                                "--json and --format=prometheus exclude each other");
        }
        if (context.Options().bJson && m_format == kFormatText) {
            return context.Fail(kExitUsage, errorkind::kUsage,
                                "--json and --format=text exclude each other");
        }
        if (!m_output.empty() && !bPrometheus) {
            return context.Fail(kExitUsage, errorkind::kUsage,
                                "--output applies to --format=prometheus only");
        }
        if (bPrometheus && m_files.size() > 1) {
            return context.Fail(kExitUsage, errorkind::kUsage,
                                "--format=prometheus describes one policy file: give one FILE "
                                "at most");
        }
        return kExitSuccess;
    }

    // With --format=prometheus, the metrics of a run whose baseline could not be used: check
    // success 0, so that a scrape does not keep the last verdict, and the file as the client
    // reads it, whose settings need no baseline. 0, or the status of a failed store.
    int deliverUnjudged(CToolContext& context) const {
        if (m_format != kFormatPrometheus) {
            return kExitSuccess;
        }
        const JudgedFile judged(m_files.empty() ? context.InstallPolicyPath() : m_files.front(),
                                !m_files.empty(), nullptr, std::string());
        return deliverMetrics(context, metricsSubject(judged, nullptr), kExitSuccess);
    }

    // Prints the metrics, or with --output stores them atomically, so that a reader of OUTPUT
    // sees the previous file or this one whole. Returns status, or 74 when storing failed.
    int deliverMetrics(CToolContext& context, MetricsSubject subject, int status) const {
        if (subject.checked == 0) {
            subject.checked = secondsSinceEpoch(now());
        }
        const std::string text = ComplianceMetricsText(subject);
        if (m_output.empty()) {
            context.Out() << text;
            return status;
        }
        const qnfile::ReplaceResult stored =
            qnfile::replaceFileAtomically(m_output, text, 0644, qnfile::EXISTING_REPLACE);
        if (stored.outcome == qnfile::OUTCOME_FAILED) {
            return context.Fail(kExitIoError, errorkind::kIoError,
                                "cannot store the metrics in " + m_output + ": " + stored.step +
                                    ": " + std::strerror(stored.error));
        }
        if (stored.outcome == qnfile::OUTCOME_NOT_SYNCED) {
            context.Warning("stored the metrics in " + m_output + ", but " + stored.step +
                            " failed: " + std::strerror(stored.error));
        }
        return status;
    }

    static struct timespec now() {
        struct timespec time {};
        ::clock_gettime(CLOCK_REALTIME, &time);
        return time;
    }

    // Says on standard error what could not be judged and which waivers end soon, prints the
    // verdicts (not the metrics, which the caller delivers), and returns the gravest condition:
    // a missing file, then one that cannot be parsed, then one that is not compliant.
    int report(CToolContext& context, const std::list<JudgedFile>& judged, const Baseline& baseline,
               const std::string& host) const {
        bool bMissing = false;
        bool bUnreadable = false;
        bool bFailing = false;
        for (const JudgedFile& file : judged) {
            bMissing = bMissing || file.bMissing;
            const bool bRead = !file.bMissing && file.policy.Complete();
            bUnreadable = bUnreadable || (!file.bMissing && !bRead);
            bFailing = bFailing || (bRead && !file.verdicts.Compliant());
            if (file.bMissing) {
                context.Error(file.file + ": no such file");
            } else if (!bRead) {
                context.Error(CannotLoadMessage(file.file, file.policy.read) + " Never compliant.");
            }
            for (const BaselineWaiver* pWaiver : file.verdicts.expiringSoon) {
                context.Warning(file.file + ": the waiver of " + pWaiver->rule + " at " +
                                baseline.file + ":" + std::to_string(pWaiver->position.line) + ":" +
                                std::to_string(pWaiver->position.column) + " holds until " +
                                pWaiver->expires.Text() + " and no longer");
            }
        }
        const char* outcome = bMissing      ? errorkind::kNoSuchFile
                              : bUnreadable ? errorkind::kUnreadable
                              : bFailing    ? "not-compliant"
                                            : "compliant";
        if (context.Options().bJson) {
            CJsonWriter json(context.Out());
            json.BeginObject().Key("formatVersion").Number(1).Key("result").String(outcome);
            json.Key("baseline").String(baseline.file).Key("host").String(host);
            json.Key("files").BeginArray();
            for (const JudgedFile& file : judged) {
                writeFileJson(json, file, baseline);
            }
            json.EndArray().EndObject().Finish();
        } else if (m_format != kFormatPrometheus) {
            for (const JudgedFile& file : judged) {
                printText(context.Out(), file, baseline, host, context.Options().bQuiet);
            }
        }
        return bMissing      ? kExitNoInput
               : bUnreadable ? kExitUnreadable
               : bFailing    ? kExitFindings
                             : kExitSuccess;
    }

    std::string m_baseline;
    std::string m_host;
    std::string m_format;  // empty: text, or JSON with --json
    std::string m_output;
    std::vector<std::string> m_files;
};

}  // namespace

std::string MachineHostName() {
    char name[HOST_NAME_MAX + 1] = {};
    return ::gethostname(name, sizeof name - 1) == 0 ? std::string(name) : std::string();
}

int LoadBaseline(CToolContext& context, const std::string& path, BaselineParse& rParse,
                 const std::function<int()>& beforeRefusing) {
    const BaselineText text = readBaseline(path);
    const std::string name = path == kStandardInput ? kStandardInputName : path;
    if (text.error.empty()) {
        rParse = ParseBaseline(text.text, name);
        if (rParse.error.empty()) {
            return kExitSuccess;
        }
    }
    const int status = beforeRefusing ? beforeRefusing() : kExitSuccess;
    if (status != kExitSuccess) {
        return status;
    }
    return !text.error.empty() ? context.Fail(kExitNoInput, errorkind::kNoSuchFile, text.error)
                               : refuseBaseline(context, name, rParse.error);
}

std::unique_ptr<CCommand> CreateComplyCommand() {
    return std::make_unique<CComplyCommand>();
}

}  // namespace qnpolicy::tool

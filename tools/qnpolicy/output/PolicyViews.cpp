// SPDX-License-Identifier: Apache-2.0
#include "PolicyViews.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "LocalPolicyKinds.h"
#include "MessageText.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace qnpolicy::tool {

namespace {

constexpr int kNameWidth = 52;
constexpr size_t kMaxValueWidth = 24;
constexpr char kDefaultOrigin[] = "default";

// Lines of text for a terminal, written through one output buffer: a hundred thousand server
// lines cost their bytes. Knows how long the current line is, for aligning columns, and the
// file that positions are in.
class CTextBuffer {
  public:
    explicit CTextBuffer(std::ostream& out, const std::string& file = std::string())
        : m_buffer(out), m_filePrefix(file + ":") {}

    CTextBuffer& operator<<(std::string_view text) {
        m_buffer.Append(text);
        m_lineLength += text.size();
        return *this;
    }
    CTextBuffer& operator<<(char character) {
        m_buffer.Append(character);
        ++m_lineLength;
        return *this;
    }
    CTextBuffer& operator<<(unsigned long number) {
        char digits[24];
        return *this << std::string_view(
                   digits, static_cast<size_t>(WriteDecimal(digits, number) - digits));
    }
    // Blanks up to column width of the current line, at least two.
    CTextBuffer& PadTo(size_t width) {
        static constexpr std::string_view kBlanks = "                                        ";
        size_t blanks = m_lineLength + 2 <= width ? width - m_lineLength : 2;
        while (blanks > 0) {
            const size_t now = std::min(blanks, kBlanks.size());
            *this << kBlanks.substr(0, now);
            blanks -= now;
        }
        return *this;
    }
    // Text in double quotes, escaped as every message of the tool quotes a value.
    CTextBuffer& Quote(std::string_view text) {
        if (!IsPlainText(text)) {
            return *this << Quoted(text);
        }
        return *this << '"' << text << '"';
    }
    // A server's line: indent, its name quoted, then at column its origin. The common case, a
    // short name that needs no escape, is composed in place: it is a hundred thousand lines.
    void ServerLine(std::string_view indent, std::string_view name, size_t column,
                    const SourcePosition& position) {
        constexpr size_t kDigits = 20;  // of the largest unsigned long
        const size_t most =
            indent.size() + name.size() + column + m_filePrefix.size() + 2 * kDigits + 8;
        if (most > kMaxComposed || !position.Known() || !IsPlainText(name)) {
            *this << indent;
            Quote(name).PadTo(column).Origin(position).EndLine();
            return;
        }
        char* const start = m_buffer.Reserve(most);
        char* at = std::copy(indent.begin(), indent.end(), start);
        *at++ = '"';
        at = std::copy(name.begin(), name.end(), at);
        *at++ = '"';
        const auto used = static_cast<size_t>(at - start);
        const size_t blanks = used + 2 <= column ? column - used : 2;
        std::memset(at, ' ', blanks);
        at = std::copy(m_filePrefix.begin(), m_filePrefix.end(), at + blanks);
        at = WriteDecimal(at, position.line);
        *at++ = ':';
        at = WriteDecimal(at, position.column);
        *at++ = '\n';
        m_buffer.Commit(at);
        m_lineLength = 0;
    }
    // FILE:LINE:COLUMN, or "default".
    CTextBuffer& Origin(const SourcePosition& position) {
        if (!position.Known()) {
            return *this << kDefaultOrigin;
        }
        constexpr size_t kDigits = 20;  // of the largest unsigned long
        std::array<char, 2 * kDigits + 1> digits;
        char* at = WriteDecimal(digits.data(), position.line);
        *at++ = ':';
        at = WriteDecimal(at, position.column);
        return *this << m_filePrefix
                     << std::string_view(digits.data(), static_cast<size_t>(at - digits.data()));
    }
    void EndLine() {
        m_buffer.Append('\n');
        m_lineLength = 0;
    }

  private:
    static constexpr size_t kMaxComposed = 4096;

    COutputBuffer m_buffer;
    const std::string m_filePrefix;  // the file's name and a colon
    size_t m_lineLength = 0;         // of the line being written
};

bool isServerList(const SettingOrigin& setting) {
    return KindOf(setting.pRow->kind).shape == ValueShape::LIST;
}

std::string valueText(const SettingOrigin& setting) {
    return Join(setting.value, ",");
}

std::string serverCount(size_t count) {
    return std::to_string(count) + (count == 1 ? " server" : " servers");
}

bool selected(const SettingSelection& selection, const LocalPolicySettingInfo& row) {
    return selection.empty() ||
           std::find(selection.begin(), selection.end(), &row) != selection.end();
}

// The settings to print, in catalogue order or the selection's.
std::vector<const SettingOrigin*> settingsOf(const EffectivePolicy& policy,
                                             const SettingSelection& selection) {
    std::vector<const SettingOrigin*> settings;
    if (selection.empty()) {
        for (const SettingOrigin& setting : policy.settings) {
            settings.push_back(&setting);
        }
        return settings;
    }
    for (const LocalPolicySettingInfo* pRow : selection) {
        settings.push_back(&policy.Of(*pRow));
    }
    return settings;
}

// Whether a finding is about an element of the selection (a server name, of the list).
bool aboutSelection(const LintFinding& finding, const SettingSelection& selection) {
    const LocalPolicySettingInfo* pRow = FindLocalPolicySetting(finding.element);
    if (pRow != nullptr && pRow->kind == LocalPolicySettingKind::SERVER_NAME) {
        pRow = FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_LIST);
    }
    return selection.empty() || (pRow != nullptr && selected(selection, *pRow));
}

// The contributing elements below a setting's line, where there is more to say than its origin:
// several elements, or one that did not set the value.
void printContributors(CTextBuffer& text, const SettingOrigin& setting, const std::string& indent) {
    const bool bOriginAlone = setting.contributors.size() == 1 &&
                              setting.omittedContributors == 0 &&
                              setting.contributors.front().eContribution == Contribution::SETS;
    if (setting.contributors.empty() || bOriginAlone) {
        return;
    }
    for (const ContributingElement& element : setting.contributors) {
        text << indent;
        text.Origin(element.position)
            << ": " << ContributionText(element.eContribution) << ": " << element.element;
        if (!isServerList(setting)) {
            text << ' ';
            text.Quote(element.text);
        }
        text.EndLine();
    }
    if (setting.omittedContributors != 0) {
        text << indent << "and " << setting.omittedContributors
             << " more overridden or unchanged elements";
        text.EndLine();
    }
}

void printSetting(CTextBuffer& text, const EffectivePolicy& policy, const SettingOrigin& setting,
                  const std::string& indent, size_t valueWidth) {
    text << indent << setting.pRow->element;
    text.PadTo(kNameWidth);
    const size_t valueStart = kNameWidth;
    if (isServerList(setting)) {
        text << serverCount(policy.Servers().size());
    } else {
        text << valueText(setting);
    }
    text.PadTo(valueStart + valueWidth + 2);
    text.Origin(setting.origin);
    if (WhenChangeTakesEffect(*setting.pRow) == TakesEffect::NEXT_START) {
        text << " (a change takes effect at the client's next start)";
    }
    text.EndLine();
    printContributors(text, setting, indent + "    ");
    if (!isServerList(setting)) {
        return;
    }
    // Quoted, since a server name is kept exactly as written, blanks included.
    const std::string serverIndent = indent + "    ";
    size_t index = 0;
    for (const std::string& server : policy.Servers()) {
        text.ServerLine(
            serverIndent, server, valueStart,
            index < policy.serverOrigins.size() ? policy.serverOrigins[index] : SourcePosition());
        ++index;
    }
}

// A position as {"line": L, "column": C} on one line, or null for the default: rendered here,
// since a server list writes one per server.
void writePosition(CJsonWriter& json, const SourcePosition& position) {
    if (!position.Known()) {
        json.Null();
        return;
    }
    constexpr std::string_view kLine = "{\"line\": ";
    constexpr std::string_view kColumn = ", \"column\": ";
    constexpr size_t kDigits = 20;  // of the largest unsigned long
    std::array<char, kLine.size() + kColumn.size() + 2 * kDigits + 1> text;
    char* at = std::copy(kLine.begin(), kLine.end(), text.data());
    at = WriteDecimal(at, position.line);
    at = std::copy(kColumn.begin(), kColumn.end(), at);
    at = WriteDecimal(at, position.column);
    *at++ = '}';
    json.Raw(std::string_view(text.data(), static_cast<size_t>(at - text.data())));
}

// A value typed by its shape: on/off as a Boolean, one text as a string, a list as an array.
template <typename Texts>
void writeTypedValue(CJsonWriter& json, ValueShape shape, const Texts& values) {
    switch (shape) {
        case ValueShape::BOOLEAN:
            json.Bool(!values.empty() && *values.begin() == "true");
            break;
        case ValueShape::TEXT:
            json.String(values.empty() ? std::string_view() : std::string_view(*values.begin()));
            break;
        case ValueShape::LIST:
        case ValueShape::NONE:
            json.BeginArray();
            for (const std::string& value : values) {
                json.String(value);
            }
            json.EndArray();
            break;
    }
}

void writeSettingValue(CJsonWriter& json, const EffectivePolicy& policy,
                       const SettingOrigin& setting) {
    const ValueShape shape = KindOf(setting.pRow->kind).shape;
    if (shape == ValueShape::LIST) {
        writeTypedValue(json, shape, policy.Servers());
    } else {
        writeTypedValue(json, shape, setting.value);
    }
}

void writeOriginSetting(CJsonWriter& json, const EffectivePolicy& policy,
                        const SettingOrigin& setting) {
    json.Key(setting.pRow->element).BeginObject().Key("value");
    writeSettingValue(json, policy, setting);
    json.Key("origin");
    writePosition(json, setting.origin);
    json.Key("takesEffect").String(TakesEffectText(WhenChangeTakesEffect(*setting.pRow)));
    json.Key("contributors").BeginArray();
    for (const ContributingElement& element : setting.contributors) {
        json.BeginObject().Key("element").String(element.element);
        json.Key("line").Number(element.position.line);
        json.Key("column").Number(element.position.column).Key("text").String(element.text);
        json.Key("contribution").String(ContributionText(element.eContribution)).EndObject();
    }
    json.EndArray();
    if (setting.omittedContributors != 0) {
        json.Key("omittedContributors").Number(setting.omittedContributors);
    }
    if (isServerList(setting)) {
        // One per server, on one line: a hundred thousand lines of two numbers read no better.
        json.Key("valueOrigins").BeginArray(CJsonWriter::Layout::INLINE);
        for (size_t i = 0; i < policy.Servers().size(); ++i) {
            writePosition(
                json, i < policy.serverOrigins.size() ? policy.serverOrigins[i] : SourcePosition());
        }
        json.EndArray();
    }
    json.EndObject();
}

// The value of one side of a change, with its origin.
std::string sideText(const SettingOrigin& setting, const EffectivePolicy& policy) {
    std::string text =
        isServerList(setting) ? serverCount(policy.Servers().size()) : valueText(setting);
    text += " (";
    if (setting.origin.Known()) {
        text += policy.file + ":" + std::to_string(setting.origin.line) + ":" +
                std::to_string(setting.origin.column);
    } else {
        text += kDefaultOrigin;
    }
    return text + ")";
}

// The server at index of a policy with its origin, or "(none)" past its end.
std::string serverText(const EffectivePolicy& policy, size_t index) {
    if (index >= policy.Servers().size()) {
        return "(none)";
    }
    const SourcePosition position =
        index < policy.serverOrigins.size() ? policy.serverOrigins[index] : SourcePosition();
    return Quoted(*std::next(policy.Servers().begin(), static_cast<long>(index))) + " (" +
           policy.file + ":" + std::to_string(position.line) + ":" +
           std::to_string(position.column) + ")";
}

void writeChangeSide(CJsonWriter& json, const SettingOrigin& setting,
                     const EffectivePolicy& policy) {
    json.BeginObject().Key("value");
    writeSettingValue(json, policy, setting);
    json.Key("origin");
    writePosition(json, setting.origin);
    json.EndObject();
}

void writeServerSide(CJsonWriter& json, const EffectivePolicy& policy, size_t index) {
    if (index >= policy.Servers().size()) {
        json.Null();
        return;
    }
    json.BeginObject().Key("value").String(
        *std::next(policy.Servers().begin(), static_cast<long>(index)));
    json.Key("origin");
    writePosition(
        json, index < policy.serverOrigins.size() ? policy.serverOrigins[index] : SourcePosition());
    json.EndObject();
}

// Plain where a value can stand on its own in a line of words, quoted otherwise.
std::string flatValue(const std::string& value) {
    const bool bPlain = !value.empty() && std::all_of(value.begin(), value.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte > 0x20 && byte != 0x7F && byte != '"' && byte != '\\';
    });
    return bPlain ? value : Quoted(value);
}

}  // namespace

void PrintOrigins(std::ostream& out, const EffectivePolicy& policy,
                  const SettingSelection& selection) {
    CTextBuffer text(out, policy.file);
    const std::vector<const SettingOrigin*> settings = settingsOf(policy, selection);
    size_t valueWidth = 0;
    for (const SettingOrigin* setting : settings) {
        const size_t width = isServerList(*setting) ? serverCount(policy.Servers().size()).size()
                                                    : valueText(*setting).size();
        valueWidth = std::max(valueWidth, std::min(kMaxValueWidth, width));
    }
    const std::string& version = policy.read.record.GetQNVersion();
    if (selection.empty()) {
        text << "Policy file: " << policy.file
             << (!policy.Complete()    ? " (cannot be parsed: the client holds what was read "
                                         "before the error, with FIPS mode off)"
                 : policy.read.bExists ? " (present)"
                                       : " (absent: defaults apply)");
        text.EndLine();
        text << "Version:     " << (version.empty() ? std::string("(none)") : Quoted(version));
        if (policy.versionOrigin.Known()) {
            text << ", ";
            text.Origin(policy.versionOrigin);
        }
        text.EndLine();
        text << "A change takes effect at the client's next load; for FipsMode, "
             << kNextStartExplanation << '.';
        text.EndLine();
        text << "Effective policy, with the element each value comes from:";
        text.EndLine();
    }
    bool bInUpdateSection = false;
    for (const SettingOrigin* setting : settings) {
        std::string indent = selection.empty() ? "  " : "";
        if (selection.empty() && setting->pRow->section != LocalPolicySection::ROOT) {
            if (!bInUpdateSection) {
                text << "  " << kUpdatePolicyElement << ':';
                text.EndLine();
                bInUpdateSection = true;
            }
            indent += "  ";
        }
        printSetting(text, policy, *setting, indent, valueWidth);
    }
    std::vector<const LintFinding*> ignored;
    for (const LintFinding& finding : policy.lint.findings) {
        if (finding.bIgnored && aboutSelection(finding, selection)) {
            ignored.push_back(&finding);
        }
    }
    if (!ignored.empty()) {
        text << "Ignored by the client:";
        text.EndLine();
    }
    for (const LintFinding* finding : ignored) {
        text << "  " << policy.file << ':' << finding->line << ':' << finding->column << ": "
             << finding->kind << ": " << finding->message;
        text.EndLine();
    }
    if (selection.empty() && !policy.lint.omitted.empty()) {
        text << "  (more findings left out; `qnpolicy check` counts them)";
        text.EndLine();
    }
}

void WriteOriginSettingsJson(CJsonWriter& json, const EffectivePolicy& policy,
                             const SettingSelection& selection) {
    json.BeginObject();
    for (const SettingOrigin* setting : settingsOf(policy, selection)) {
        writeOriginSetting(json, policy, *setting);
    }
    json.EndObject();
}

void WriteOriginsJson(std::ostream& out, const EffectivePolicy& policy,
                      const SettingSelection& selection) {
    CJsonWriter json(out);
    const std::string& version = policy.read.record.GetQNVersion();
    json.BeginObject().Key("formatVersion").Number(1);
    json.Key("result").String(policy.read.bExists ? "loaded" : "defaults");
    json.Key("loaded").Bool(true).Key("policyFile").String(policy.file);
    json.Key("exists").Bool(policy.read.bExists).Key("version");
    if (version.empty()) {
        json.Null();
    } else {
        json.String(version);
    }
    json.Key("versionOrigin");
    writePosition(json, policy.versionOrigin);
    json.Key("settings");
    WriteOriginSettingsJson(json, policy, selection);
    json.Key("ignored").BeginArray();
    for (const LintFinding& finding : policy.lint.findings) {
        if (!finding.bIgnored || !aboutSelection(finding, selection)) {
            continue;
        }
        json.BeginObject().Key("element").String(finding.element);
        WriteFindingMembers(json, finding);
        json.EndObject();
    }
    json.EndArray();
    if (selection.empty() && !policy.lint.omitted.empty()) {
        json.Key("omitted").BeginObject();
        for (const auto& [kind, count] : policy.lint.omitted) {
            json.Key(kind).Number(count);
        }
        json.EndObject();
    }
    json.EndObject().Finish();
}

void WriteFindingMembers(CJsonWriter& json, const LintFinding& finding) {
    json.Key("kind").String(finding.kind).Key("severity").String(SeverityText(finding.eSeverity));
    json.Key("line").Number(finding.line).Key("column").Number(finding.column);
    json.Key("message").String(finding.message);
}

void WriteSettingValuesJson(CJsonWriter& json, const LocalQNPolicyInfo& record) {
    json.BeginObject();
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        const LocalPolicyKind& kind = KindOf(row.kind);
        if (kind.shape == ValueShape::NONE) {
            continue;  // the server names are the list's entries, not a setting of their own
        }
        json.Key(row.element);
        if (kind.shape == ValueShape::LIST) {
            writeTypedValue(json, kind.shape, record.GetAuthorizedServerList());
        } else {
            writeTypedValue(json, kind.shape, kind.effective(row, record));
        }
    }
    json.EndObject();
}

void PrintFlat(std::ostream& out, const LocalQNPolicyInfo& record) {
    CTextBuffer text(out);
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        const LocalPolicyKind& kind = KindOf(row.kind);
        if (kind.shape == ValueShape::LIST) {
            for (const std::string& server : record.GetAuthorizedServerList()) {
                text << row.element << ' ' << flatValue(server);
                text.EndLine();
            }
        } else if (kind.shape != ValueShape::NONE) {
            text << row.element << ' ' << flatValue(Join(kind.effective(row, record), ","));
            text.EndLine();
        }
    }
}

std::string ChangeLine(const SettingChange& change, const EffectivePolicy& oldPolicy,
                       const EffectivePolicy& newPolicy) {
    std::string line = change.pOld->pRow->element + ": " + sideText(*change.pOld, oldPolicy) +
                       " -> " + sideText(*change.pNew, newPolicy);
    if (isServerList(*change.pOld)) {
        line += "; first difference at server " + std::to_string(change.firstDifference + 1) +
                ": " + serverText(oldPolicy, change.firstDifference) + " -> " +
                serverText(newPolicy, change.firstDifference);
    }
    return line;
}

void WriteChangesJson(CJsonWriter& json, const std::vector<SettingChange>& changes,
                      const EffectivePolicy& oldPolicy, const EffectivePolicy& newPolicy) {
    json.BeginArray();
    for (const SettingChange& change : changes) {
        json.BeginObject().Key("setting").String(change.pOld->pRow->element).Key("old");
        writeChangeSide(json, *change.pOld, oldPolicy);
        json.Key("new");
        writeChangeSide(json, *change.pNew, newPolicy);
        if (isServerList(*change.pOld)) {
            json.Key("firstDifference").BeginObject().Key("index").Number(change.firstDifference);
            json.Key("old");
            writeServerSide(json, oldPolicy, change.firstDifference);
            json.Key("new");
            writeServerSide(json, newPolicy, change.firstDifference);
            json.EndObject();
        }
        json.EndObject();
    }
    json.EndArray();
}

CDocumentChanges::CDocumentChanges(const std::string& path, const std::string& document,
                                   const std::string& documentName)
    : m_old(ReadEffectivePolicyFile(path, path, false)),
      m_new(ReadEffectivePolicyBytes(document, documentName, false)),
      m_changes(ComparePolicies(m_old, m_new)) {}

std::string CDocumentChanges::Summary() const {
    if (m_changes.empty()) {
        return "with the new document the client would read the same policy";
    }
    std::string summary = "with the new document the client would read " +
                          std::to_string(m_changes.size()) +
                          (m_changes.size() == 1 ? " setting" : " settings") + " differently:";
    for (const std::string& line : Lines()) {
        summary += "\n  " + line;
    }
    return summary;
}

std::vector<std::string> CDocumentChanges::Lines() const {
    std::vector<std::string> lines;
    for (const SettingChange& change : m_changes) {
        lines.push_back(ChangeLine(change, m_old, m_new));
    }
    return lines;
}

void CDocumentChanges::WriteJson(CJsonWriter& json) const {
    WriteChangesJson(json, m_changes, m_old, m_new);
}

}  // namespace qnpolicy::tool

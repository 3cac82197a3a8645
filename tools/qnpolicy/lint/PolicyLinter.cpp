// SPDX-License-Identifier: Apache-2.0
// The linter: an observer of the reader's own pass over a document, plus its wording.

#include "PolicyLinter.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "MessageText.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlParser.h"

namespace qnpolicy::tool {

const std::vector<FindingKindInfo> kFindingKinds = {
    {findingkind::kUnknownElement, Severity::ERROR},
    {findingkind::kNestedRootElement, Severity::WARNING},
    {findingkind::kIgnoredAttribute, Severity::ERROR},
    {findingkind::kNewerVersion, Severity::WARNING},
    {findingkind::kNonBooleanValue, Severity::ERROR},
    {findingkind::kEmptyValue, Severity::ERROR},
    {findingkind::kDuplicateSetting, Severity::WARNING},
    {findingkind::kUpdatePermissionOutsideSection, Severity::ERROR},
    {findingkind::kNestedUpdatePolicy, Severity::ERROR},
    {findingkind::kServerListOutsideSection, Severity::ERROR},
    {findingkind::kServerNameOutsideList, Severity::ERROR},
    {findingkind::kServerListText, Severity::ERROR},
    {findingkind::kPaddedServerName, Severity::WARNING},
    {findingkind::kBlankInServerName, Severity::WARNING},
    {findingkind::kDuplicateServerName, Severity::WARNING},
    {findingkind::kUnknownCachingToken, Severity::ERROR},
    {findingkind::kIgnoredCachingToken, Severity::ERROR},
    {findingkind::kCachingRestrictionsCleared, Severity::ERROR},
    {findingkind::kTunnelValueNotApplied, Severity::ERROR},
    {findingkind::kOverriddenSetting, Severity::WARNING},
    {findingkind::kFileOwner, Severity::ERROR},
    {findingkind::kFilePermissions, Severity::ERROR},
    {findingkind::kUnsafePath, Severity::ERROR},
};

Severity SeverityOf(std::string_view kind) {
    for (const FindingKindInfo& info : kFindingKinds) {
        if (kind == info.kind) {
            return info.eSeverity;
        }
    }
    // Only kinds of the table are ever reported; an unlisted one counts as an error.
    return Severity::ERROR;
}

const char* SeverityText(Severity eSeverity) {
    return eSeverity == Severity::WARNING ? "warning" : "error";
}

unsigned long LintResult::Count() const {
    unsigned long count = findings.size();
    for (const auto& kindCount : omitted) {
        count += kindCount.second;
    }
    return count;
}

namespace {

constexpr std::string_view kRootName = kRootElement;
constexpr std::string_view kUpdatePolicyName = kUpdatePolicyElement;

// The names a misspelt element is compared with for "did you mean".
const std::vector<std::string>& knownNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> known = {kRootElement, kUpdatePolicyElement};
        for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
            known.push_back(setting.element);
        }
        return known;
    }();
    return names;
}

// Texts kept for as long as a lint runs, in chunks that never move, so that views of them stay
// valid: the server names compared for repetition cost their bytes and no allocation each. A
// chunk is not zero-filled: only the bytes copied into it are ever read.
class TextArena {
  public:
    std::string_view keep(std::string_view text) {
        if (text.size() > kChunk - m_used || m_chunks.empty()) {
            m_chunks.emplace_back(new char[std::max(kChunk, text.size())]);
            m_used = 0;
        }
        char* at = m_chunks.back().get() + m_used;
        std::copy(text.begin(), text.end(), at);
        m_used += text.size();
        return std::string_view(at, text.size());
    }

  private:
    static constexpr size_t kChunk = size_t{1} << 20;
    std::vector<std::unique_ptr<char[]>> m_chunks;
    size_t m_used = 0;
};

// The server names of a document with the line of each one's first occurrence: the entries
// in one vector, in the order they came, and one flat table of slots (open addressing, linear
// probing, at most half full, rebuilt twice as large when it would be fuller), each holding an
// entry's index and the upper half of its name's hash, so that a lookup mostly touches one slot
// of eight bytes and compares names only when their hashes agree. The names are views into a
// TextArena: a name costs its bytes and no allocation of its own. The count of names is not
// known before the read ends, hence the doubling.
class ServerNameSet {
  public:
    struct Entry {
        std::string_view name;
        unsigned long line = 0;
    };

    // Adds name, first seen at line, and returns null; or returns its earlier entry. Past
    // kMaxEntries names (a file of tens of gigabytes) the later ones are not looked for.
    const Entry* add(std::string_view name, unsigned long line) {
        if (m_entries.size() >= kMaxEntries) {
            return nullptr;
        }
        if (2 * (m_entries.size() + 1) > m_slots.size()) {
            grow();
        }
        const uint64_t hash = std::hash<std::string_view>()(name);
        uint64_t& slot = m_slots[find(name, hash)];
        if (slot != kFree) {
            return &m_entries[slot & kIndexMask];
        }
        slot = (hash & ~kIndexMask) | m_entries.size();
        m_entries.push_back(Entry{m_texts.keep(name), line});
        return nullptr;
    }

  private:
    static constexpr uint64_t kFree = ~uint64_t{0};
    static constexpr uint64_t kIndexMask = 0xFFFFFFFF;
    static constexpr size_t kInitialSlots = 1024;
    // The most names kept: far more than a stream may hold, and within an index's range.
    static constexpr size_t kMaxEntries = size_t{1} << 30;

    // The slot of name, or the free slot where it belongs.
    size_t find(std::string_view name, uint64_t hash) const {
        const size_t mask = m_slots.size() - 1;
        for (size_t at = hash & mask;; at = (at + 1) & mask) {
            const uint64_t slot = m_slots[at];
            if (slot == kFree ||
                (((slot ^ hash) & ~kIndexMask) == 0 && m_entries[slot & kIndexMask].name == name)) {
                return at;
            }
        }
    }

    // Twice the slots, filled again from the entries (their names are distinct).
    void grow() {
        m_slots.assign(std::max(kInitialSlots, 2 * m_slots.size()), kFree);
        for (size_t index = 0; index < m_entries.size(); ++index) {
            const uint64_t hash = std::hash<std::string_view>()(m_entries[index].name);
            m_slots[find(m_entries[index].name, hash)] = (hash & ~kIndexMask) | index;
        }
    }

    TextArena m_texts;
    std::vector<Entry> m_entries;
    std::vector<uint64_t> m_slots;  // a power of two of them
};

// The linter's own view of an open element: what the findings made at its text and at its end
// need. The reader's section state is the reader's; the observer is told what it did.
struct OpenElement {
    const LocalPolicySettingInfo* pRow = nullptr;  // the catalogue row, for a setting
    unsigned long line = 0;
    unsigned long column = 0;
    bool bRootName = false;      // named as the root: its attributes are the document's
    bool bUpdatePolicy = false;  // the update-policy section
    bool bIgnored = false;       // the reader ignores it; already reported
    bool bHasChildren = false;
    bool bHasText = false;
};

class CLinter final : public ReadObserver {
  public:
    CLinter(LintResult& rResult, LintScope eScope) : m_rResult(rResult), m_eScope(eScope) {}

    void OnRead(const ReadEvent& event) override {
        switch (event.eType) {
            case ReadEvent::START:
                onStart(event);
                break;
            case ReadEvent::ATTRIBUTE:
                onAttribute(event);
                break;
            case ReadEvent::TEXT:
                onText(event);
                break;
            case ReadEvent::END:
                onEnd();
                break;
        }
    }

    // Reports a finding, unless kMaxFindingsPerKind of its kind are kept already: then it is
    // counted, and its message, which message() builds, is never built.
    template <typename Message>
    void report(unsigned long line, unsigned long column, const char* kind, Message message,
                std::string_view element, bool bIgnored = false) {
        size_t& kept = m_kept[kind];
        if (kept >= kMaxFindingsPerKind) {
            ++m_rResult.omitted[kind];
            return;
        }
        ++kept;
        m_rResult.findings.push_back(LintFinding{line, column, kind, SeverityOf(kind), message(),
                                                 std::string(element), bIgnored});
    }

    // After the read: every on/off setting whose value in the record is not what the file's
    // last counting occurrence of it says, because another setting overrides it (a restricted
    // server certificate store always reads as strict certificate trust). The record is the
    // client's own reading, so no rule between settings is written down here; the overriding
    // setting is found by flipping each other on/off setting of the record in turn.
    void reportOverrides(const LocalQNPolicyInfo& record) {
        for (const auto& statedFlag : m_statedFlags) {
            const LocalPolicySettingInfo* row = statedFlag.first;
            const StatedFlag& stated = statedFlag.second;
            LocalQNPolicyInfo alone;
            bool bFileUseFIPSMode = false;
            const LocalPolicyKind& kind = KindOf(row->kind);
            kind.apply(*row, stated.text, alone, bFileUseFIPSMode);
            const std::string said = kind.effective(*row, alone).at(0);
            const std::string read = kind.effective(*row, record).at(0);
            if (said == read) {
                continue;
            }
            const LocalPolicySettingInfo* overriding = nullptr;
            for (const LocalPolicySettingInfo& other : LocalPolicySettings()) {
                if (&other == row || other.setter == nullptr) {
                    continue;
                }
                LocalQNPolicyInfo flipped = record;
                (flipped.*(other.setter))(!(record.*(other.getter))());
                if (kind.effective(*row, flipped).at(0) == said) {
                    overriding = &other;
                    break;
                }
            }
            report(
                stated.line, stated.column, findingkind::kOverriddenSetting,
                [row, &said, &read, overriding, &record] {
                    std::string message = Quoted(row->element) + " is " + said;
                    message += " here, but the client reads it as ";
                    message += read;
                    if (overriding == nullptr) {
                        message += ": another setting overrides it.";
                        return message;
                    }
                    message += ": " + Quoted(overriding->element) + " is ";
                    message += KindOf(overriding->kind).effective(*overriding, record).at(0);
                    message += ", which overrides it.";
                    return message;
                },
                row->element);
        }
    }

  private:
    template <typename Message>
    void report(const OpenElement& element, const char* kind, Message message,
                bool bIgnored = false) {
        report(element.line, element.column, kind, message,
               element.pRow != nullptr ? std::string_view(element.pRow->element)
               : element.bUpdatePolicy ? kUpdatePolicyName
                                       : std::string_view(),
               bIgnored);
    }

    void onStart(const ReadEvent& event) {
        const bool bFirst = m_openElements.empty() && !m_bSeenRoot;
        if (!m_openElements.empty()) {
            m_openElements.back().bHasChildren = true;
        }
        m_bSeenRoot = true;
        OpenElement element;
        element.pRow = event.pSetting;
        element.line = event.line;
        element.column = event.column;
        element.bRootName = event.pSetting == nullptr && event.element == kRootName;
        element.bUpdatePolicy = event.pSetting == nullptr && event.element == kUpdatePolicyName;
        const std::string_view name =
            event.element;  // valid for this call: messages are built in it
        switch (event.eAction) {
            case ReadAction::IGNORED_UNKNOWN:
                element.bIgnored = true;
                report(
                    element.line, element.column, findingkind::kUnknownElement,
                    [&name, bFirst] {
                        return (bFirst ? "The root element " + Quoted(name) + " is not " +
                                             Quoted(kRootName) +
                                             ": the settings inside it are still read, but "
                                             "its version attribute is not."
                                       : "Unknown element " + Quoted(name) +
                                             ": the reader ignores it and its text (known "
                                             "settings inside it still count).") +
                               DidYouMean(std::string(name), knownNames());
                    },
                    name, true);
                break;
            case ReadAction::IGNORED_OUTSIDE_SECTION:
            case ReadAction::IGNORED_OUTSIDE_LIST: {
                element.bIgnored = true;
                const KindTexts& kind = KindTextsOf(event.pSetting->kind);
                // Inside an ignored list the list's own finding already says so.
                if (event.eAction == ReadAction::IGNORED_OUTSIDE_SECTION ||
                    m_uiOpenServerLists == 0) {
                    report(
                        element, kind.misplacedFinding,
                        [&name, &kind] { return Quoted(name) + " " + kind.misplaced; }, true);
                }
                break;
            }
            case ReadAction::READ:
                if (element.bRootName && !bFirst) {
                    report(element, findingkind::kNestedRootElement, [] {
                        return std::string(
                            "\"QuillnetLocalPolicy\" inside the document: the reader takes it "
                            "like the root, so a qnversion attribute on it replaces the file's "
                            "version, and the settings inside it count.");
                    });
                }
                if (element.bUpdatePolicy && m_uiOpenUpdatePolicies > 0) {
                    report(element, findingkind::kNestedUpdatePolicy, [] {
                        return std::string(
                            "\"UpdatePolicy\" inside \"UpdatePolicy\": when the inner one "
                            "ends, the reader treats the rest of the outer one as outside the "
                            "section.");
                    });
                }
                if (element.pRow != nullptr) {
                    checkRepeated(element);
                }
                break;
            default:
                break;
        }
        if (element.bUpdatePolicy) {
            ++m_uiOpenUpdatePolicies;
        }
        if (element.pRow != nullptr && element.pRow->kind == LocalPolicySettingKind::SERVER_LIST) {
            ++m_uiOpenServerLists;
        }
        m_openElements.push_back(element);
    }

    // A setting given again: the reader applies each occurrence in document order.
    void checkRepeated(const OpenElement& element) {
        const char* repeated = KindTextsOf(element.pRow->kind).repeated;
        if (repeated == nullptr) {
            return;
        }
        const auto first = m_firstLines.emplace(element.pRow, element.line);
        if (first.second) {
            return;
        }
        report(element, findingkind::kDuplicateSetting, [&element, &first, repeated] {
            return Quoted(element.pRow->element) + " is given again (first at line " +
                   std::to_string(first.first->second) +
                   "): the reader applies every occurrence in document order, and " + repeated;
        });
    }

    void onAttribute(const ReadEvent& event) {
        if (m_openElements.empty()) {
            return;
        }
        const OpenElement& element = m_openElements.back();
        if (event.eAction == ReadAction::NEWER_VERSION) {
            report(element, findingkind::kNewerVersion, [&event] {
                return "The file's version " + Quoted(event.text) +
                       " is newer than this client's " + Quoted(kClientVersion) +
                       ": the client reads it anyway and warns that unexpected behaviour can "
                       "result.";
            });
            return;
        }
        if (event.eAction == ReadAction::IGNORED && !element.bRootName && !element.bIgnored) {
            report(
                element, findingkind::kIgnoredAttribute,
                [&event, &element] {
                    const std::string_view owner = element.pRow != nullptr
                                                       ? std::string_view(element.pRow->element)
                                                       : kUpdatePolicyName;
                    return "Attribute " + Quoted(event.name) + " of " + Quoted(owner) +
                           " is ignored: the reader takes a setting's value from the element's "
                           "text "
                           "only.";
                },
                true);
        }
    }

    void onText(const ReadEvent& event) {
        if (m_openElements.empty()) {
            return;
        }
        OpenElement& element = m_openElements.back();
        element.bHasText = true;
        if (element.bIgnored || element.pRow == nullptr) {
            return;
        }
        m_problems.clear();
        KindTextsOf(element.pRow->kind).check(*element.pRow, event.text, m_problems);
        // A text the reader did not apply leaves the setting as it was.
        const bool bIgnored = event.eAction != ReadAction::READ;
        for (TextProblem& problem : m_problems) {
            report(
                element, problem.kind, [&problem] { return std::move(problem.message); }, bIgnored);
        }
        if (element.pRow->kind == LocalPolicySettingKind::SERVER_NAME &&
            event.eAction == ReadAction::READ && m_eScope == LintScope::EVERYTHING) {
            checkRepeatedServer(element, event.text);
        }
        // An on/off setting's text that counts: the last one is what the file says.
        if (element.pRow->setter != nullptr && event.eAction == ReadAction::READ) {
            StatedFlag& stated = m_statedFlags[element.pRow];
            stated.text.assign(event.text);
            stated.line = element.line;
            stated.column = element.column;
        }
    }

    void checkRepeatedServer(const OpenElement& element, std::string_view server) {
        const ServerNameSet::Entry* first = m_servers.add(server, element.line);
        if (first == nullptr) {
            return;
        }
        report(element, findingkind::kDuplicateServerName, [first] {
            return "Server name " + Quoted(first->name) + " is listed again (first at line " +
                   std::to_string(first->line) + ").";
        });
    }

    void onEnd() {
        if (m_openElements.empty()) {
            return;
        }
        const OpenElement element = m_openElements.back();
        m_openElements.pop_back();
        if (element.bUpdatePolicy && m_uiOpenUpdatePolicies > 0) {
            --m_uiOpenUpdatePolicies;
        }
        if (element.pRow == nullptr) {
            return;
        }
        if (element.pRow->kind == LocalPolicySettingKind::SERVER_LIST && m_uiOpenServerLists > 0) {
            --m_uiOpenServerLists;
        }
        const char* withoutText = KindTextsOf(element.pRow->kind).withoutText;
        if (!element.bIgnored && !element.bHasText && withoutText != nullptr) {
            report(
                element, findingkind::kEmptyValue,
                [&element, withoutText] {
                    return Quoted(element.pRow->element) +
                           (element.bHasChildren ? " holds elements instead of a value"
                                                 : " has no value") +
                           ": " + withoutText;
                },
                true);
        }
    }

    LintResult& m_rResult;
    LintScope m_eScope;
    std::map<std::string_view, size_t> m_kept;  // findings kept per kind
    std::vector<OpenElement> m_openElements;
    bool m_bSeenRoot = false;
    unsigned int m_uiOpenUpdatePolicies = 0;
    unsigned int m_uiOpenServerLists = 0;
    std::map<const LocalPolicySettingInfo*, unsigned long> m_firstLines;
    ServerNameSet m_servers;
    std::vector<TextProblem> m_problems;  // reused for every text
    // The last counting text of each on/off setting, and where its element starts.
    struct StatedFlag {
        std::string text;
        unsigned long line = 0;
        unsigned long column = 0;
    };
    std::map<const LocalPolicySettingInfo*, StatedFlag> m_statedFlags;
};

// The linter and one more observer on the same read, in that order.
class CBothObservers : public ReadObserver {
  public:
    CBothObservers(CLinter& linter, ReadObserver& other) : m_linter(linter), m_other(other) {}
    void OnRead(const ReadEvent& event) override {
        m_linter.OnRead(event);
        m_other.OnRead(event);
    }

  private:
    CLinter& m_linter;
    ReadObserver& m_other;
};

// Reads with a linter watching (and pAlso, when given, on the same pass), as the client reads:
// a document it refuses (a DTD included) is unreadable, with the findings made before the
// refusal. Returns the client's read. With the linter alone no observer stands between it and
// the reader.
template <typename Read>
DocumentRead readLinted(Read read, ReadObserver* pAlso, LintScope eScope, LintResult& rResult) {
    ReadOptions options;
    options.bLog = false;
    // The lint needs the record's settings, not its list of servers; another observer may.
    options.bKeepServerNames = pAlso != nullptr;
    CLinter linter(rResult, eScope);
    std::optional<CBothObservers> both;
    options.pObserver = &linter;
    if (pAlso != nullptr) {
        options.pObserver = &both.emplace(linter, *pAlso);
    }
    DocumentRead document = read(options);
    linter.reportOverrides(document.record);
    if (!document.bExists) {
        rResult.bReadable = false;
        rResult.failureReason = "no such file";
    } else if (document.status != XMLPARSER_SUCCESS) {
        rResult.bReadable = false;
        rResult.failureLine = document.line;
        rResult.failureColumn = document.column;
        rResult.failureReason = document.reason;
    }
    std::stable_sort(rResult.findings.begin(), rResult.findings.end(),
                     [](const LintFinding& a, const LintFinding& b) {
                         return std::make_pair(a.line, a.column) < std::make_pair(b.line, b.column);
                     });
    return document;
}

}  // namespace

LintResult LintPolicyFile(const std::string& path) {
    LintResult result;
    readLinted([&path](const ReadOptions& options) { return ReadPolicyFile(path, options); },
               nullptr, LintScope::EVERYTHING, result);
    return result;
}

LintResult LintPolicyStream(int fd, const std::string& name) {
    LintResult result;
    readLinted(
        [fd, &name](const ReadOptions& options) { return ReadPolicyStream(fd, name, options); },
        nullptr, LintScope::EVERYTHING, result);
    return result;
}

LintResult LintPolicyBytes(std::string_view bytes, const std::string& name) {
    LintResult result;
    readLinted([bytes, &name](
                   const ReadOptions& options) { return ReadPolicyBytes(bytes, name, options); },
               nullptr, LintScope::EVERYTHING, result);
    return result;
}

DocumentRead ReadLintedPolicyFile(const std::string& path, ReadObserver& alsoWatching,
                                  LintScope eScope, LintResult& rLint) {
    return readLinted([&path](const ReadOptions& options) { return ReadPolicyFile(path, options); },
                      &alsoWatching, eScope, rLint);
}

DocumentRead ReadLintedPolicyBytes(std::string_view bytes, const std::string& name,
                                   ReadObserver& alsoWatching, LintScope eScope,
                                   LintResult& rLint) {
    return readLinted(
        [bytes, &name](const ReadOptions& options) {
            return ReadPolicyBytes(bytes, name, options);
        },
        &alsoWatching, eScope, rLint);
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
// Reading a baseline file: YAML events into a small tree that keeps every node's position and
// whether a scalar was written plain, then the tree checked key by key against what each
// setting of the catalogue can take (its kind's applied texts).

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "LocalPolicyKinds.h"
#include "MessageText.h"
#include "baseline/Baseline.h"

namespace qnpolicy::tool {

namespace {

// A node of the document as written: a scalar keeps its text and whether it was plain (no
// quotes, no tag), which decides whether `true` is the boolean or the text "true".
struct YamlNode {
    enum class Kind { NULL_VALUE, SCALAR, SEQUENCE, MAP };
    Kind eKind = Kind::NULL_VALUE;
    BaselinePosition position;
    bool bPlain = false;
    std::string text;
    std::vector<YamlNode> items;  // a sequence's entries; a map's key, value, key, value, ...
};

// Why a baseline is malformed; thrown from deep in the checks, caught once by ParseBaseline.
struct Malformed {
    BaselinePosition position;
    std::string message;
};

BaselinePosition positionOf(const YAML::Mark& mark) {
    return BaselinePosition{static_cast<unsigned long>(mark.line) + 1,
                            static_cast<unsigned long>(mark.column) + 1};
}

// Builds the tree from the parser's events. Anchors, aliases and explicit tags are refused: a
// baseline needs none, and an alias would let a small file stand for a large one.
class CTreeBuilder : public YAML::EventHandler {
  public:
    YamlNode root;
    bool bHasRoot = false;

    void OnDocumentStart(const YAML::Mark& /*mark*/) override {}
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
        add(YamlNode{YamlNode::Kind::NULL_VALUE, positionOf(mark), false, {}, {}}, anchor);
    }
    void OnAlias(const YAML::Mark& mark, YAML::anchor_t /*anchor*/) override {
        throw Malformed{positionOf(mark), "aliases are not accepted in a baseline"};
    }
    void OnAnchor(const YAML::Mark& mark, const std::string& /*name*/) override {
        throw Malformed{positionOf(mark), "anchors are not accepted in a baseline"};
    }
    void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                  const std::string& value) override {
        refuseTag(mark, tag);
        add(YamlNode{YamlNode::Kind::SCALAR, positionOf(mark), tag == "?", value, {}}, anchor);
    }
    void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                         YAML::EmitterStyle::value /*style*/) override {
        refuseTag(mark, tag);
        open(YamlNode{YamlNode::Kind::SEQUENCE, positionOf(mark), false, {}, {}}, anchor);
    }
    void OnSequenceEnd() override { m_open.pop_back(); }
    void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                    YAML::EmitterStyle::value /*style*/) override {
        refuseTag(mark, tag);
        open(YamlNode{YamlNode::Kind::MAP, positionOf(mark), false, {}, {}}, anchor);
    }
    void OnMapEnd() override { m_open.pop_back(); }

  private:
    static void refuseTag(const YAML::Mark& mark, const std::string& tag) {
        if (tag != "?" && tag != "!" && !tag.empty()) {
            throw Malformed{positionOf(mark), "tags are not accepted in a baseline: " + tag};
        }
    }
    YamlNode* add(YamlNode node, YAML::anchor_t /*anchor*/) {
        if (m_open.empty()) {
            root = std::move(node);
            bHasRoot = true;
            return &root;
        }
        YamlNode& parent = *m_open.back();
        if (parent.eKind == YamlNode::Kind::MAP && parent.items.size() % 2 == 0 &&
            node.eKind != YamlNode::Kind::SCALAR) {
            throw Malformed{node.position, "a key must be a plain name"};
        }
        parent.items.push_back(std::move(node));
        return &parent.items.back();
    }
    void open(YamlNode node, YAML::anchor_t anchor) {
        m_open.push_back(add(std::move(node), anchor));
    }

    // The open sequences and maps, innermost last; each lives in its parent's items, which do
    // not grow while it is open.
    std::vector<YamlNode*> m_open;
};

const char* kindText(YamlNode::Kind eKind) {
    switch (eKind) {
        case YamlNode::Kind::NULL_VALUE:
            return "nothing";
        case YamlNode::Kind::SCALAR:
            return "a single value";
        case YamlNode::Kind::SEQUENCE:
            return "a list";
        case YamlNode::Kind::MAP:
            return "a mapping";
    }
    return "nothing";
}

void expectKind(const YamlNode& node, YamlNode::Kind eKind, const std::string& what) {
    if (node.eKind != eKind) {
        throw Malformed{node.position,
                        what + " must be " + kindText(eKind) + ", not " + kindText(node.eKind)};
    }
}

// A map's entries in order, each key once: a repeated key is refused where it repeats.
std::vector<std::pair<const YamlNode*, const YamlNode*>> entriesOf(const YamlNode& map,
                                                                   const std::string& what) {
    expectKind(map, YamlNode::Kind::MAP, what);
    std::vector<std::pair<const YamlNode*, const YamlNode*>> entries;
    std::map<std::string, BaselinePosition> seen;
    for (size_t i = 0; i + 1 < map.items.size(); i += 2) {
        const YamlNode& key = map.items[i];
        const auto [at, bNew] = seen.emplace(key.text, key.position);
        if (!bNew) {
            throw Malformed{key.position, "duplicate key " + Quoted(key.text) + " (first at line " +
                                              std::to_string(at->second.line) + ")"};
        }
        entries.emplace_back(&key, &map.items[i + 1]);
    }
    return entries;
}

[[noreturn]] void unknownKey(const YamlNode& key, const std::string& where,
                             const std::vector<std::string>& known) {
    throw Malformed{key.position, "unknown key " + Quoted(key.text) + " in " + where + "; " +
                                      "the keys are " + Join(known, ", ") + "." +
                                      DidYouMean(key.text, known)};
}

// A non-empty text: a scalar, plain or quoted.
std::string textOf(const YamlNode& node, const std::string& what) {
    expectKind(node, YamlNode::Kind::SCALAR, what);
    if (node.text.empty()) {
        throw Malformed{node.position, what + " must not be empty"};
    }
    return node.text;
}

// The setting a key names, by its element name as show prints it; the rule of file-safety is
// no setting (null) where bFileSafety allows it.
const LocalPolicySettingInfo* settingNamed(const YamlNode& key, bool bFileSafety) {
    if (bFileSafety && key.text == kFileSafetyRule) {
        return nullptr;
    }
    const LocalPolicySettingInfo* pRow = FindLocalPolicySetting(key.text);
    if (pRow != nullptr && pRow->kind != LocalPolicySettingKind::SERVER_NAME) {
        return pRow;
    }
    std::vector<std::string> names;
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        if (row.kind != LocalPolicySettingKind::SERVER_NAME) {
            names.push_back(row.element);
        }
    }
    // An installer abbreviation or another case names its element.
    const LocalPolicySettingInfo* pMeant = FindSettingByName(key.text);
    const std::string hint = pMeant != nullptr ? " Did you mean " + Quoted(pMeant->element) + "?"
                                               : DidYouMean(key.text, names);
    throw Malformed{key.position, "unknown setting " + Quoted(key.text) +
                                      " (settings are named by their element, as `qnpolicy "
                                      "show` prints them)." +
                                      hint};
}

// What the caching options read as when nothing is restricted ("none"): the kinds table's text
// of a list that restricts nothing.
std::string unrestrictedCachingText(const LocalPolicySettingInfo& row) {
    LocalQNPolicyInfo record;
    bool bFips = false;
    const LocalPolicyKind& kind = KindOf(row.kind);
    kind.apply(row, LocalPolicyCachingOptionTexts().front(), record, bFips);
    return kind.effective(row, record).front();
}

// The caching options a setting's expected text or entry may name: every option text but the
// one that clears them.
std::vector<std::string> cachingOptionNames() {
    const std::vector<std::string>& texts = LocalPolicyCachingOptionTexts();
    return std::vector<std::string>(texts.begin() + 1, texts.end());
}

// One entry of a caching list ("Credentials"): exactly one of the option names.
std::string cachingEntry(const YamlNode& node, const LocalPolicySettingInfo& row) {
    std::string text = textOf(node, row.element);
    const std::vector<std::string> names = cachingOptionNames();
    if (std::find(names.begin(), names.end(), text) == names.end()) {
        throw Malformed{node.position, row.element + " has no option " + Quoted(text) +
                                           "; the options are " + Join(names, ", ") + "." +
                                           DidYouMean(text, names)};
    }
    return text;
}

// A caching value as show prints it, "none" or options joined by commas, in the catalogue's
// order whatever order it was written in.
std::string cachingValue(const YamlNode& node, const LocalPolicySettingInfo& row) {
    std::string text = textOf(node, row.element);
    const std::string none = unrestrictedCachingText(row);
    if (text == none) {
        return text;
    }
    std::vector<std::string> given;
    std::istringstream split(text);
    for (std::string entry; std::getline(split, entry, ',');) {
        YamlNode part = node;
        part.text = entry;
        given.push_back(cachingEntry(part, row));
    }
    std::vector<std::string> ordered;
    for (const std::string& name : cachingOptionNames()) {
        if (std::find(given.begin(), given.end(), name) != given.end()) {
            ordered.push_back(name);
        }
    }
    if (ordered.size() != given.size() || text.back() == ',') {
        throw Malformed{node.position,
                        row.element + " names an option twice or an empty one: " + Quoted(text)};
    }
    return Join(ordered, ",");
}

// One value of an on/off setting or of the tunnel, as show --json prints it.
std::string singleValue(const YamlNode& node, const LocalPolicySettingInfo& row) {
    if (row.kind == LocalPolicySettingKind::CACHING_LIST) {
        return cachingValue(node, row);
    }
    const std::vector<std::string> texts = AppliedTexts(row);
    const bool bBoolean = KindOf(row.kind).shape == ValueShape::BOOLEAN;
    std::string written = node.eKind == YamlNode::Kind::SCALAR ? node.text : "";
    const bool bKnown = std::find(texts.begin(), texts.end(), written) != texts.end();
    // A boolean is the plain word true or false; the tunnel is text, and its "false" is
    // the quoted text, not the boolean.
    const bool bBooleanWord = node.bPlain && (written == "true" || written == "false");
    if (node.eKind == YamlNode::Kind::SCALAR && bKnown && bBoolean == bBooleanWord) {
        return written;
    }
    std::string message =
        row.element + " takes " +
        (bBoolean ? std::string("true or false") : Join(texts, ", ", true)) + ", not " +
        (node.eKind == YamlNode::Kind::SCALAR ? (node.bPlain ? written : Quoted(written))
                                              : std::string(kindText(node.eKind)));
    if (bBoolean && bKnown) {
        message += " (a boolean is written without quotes)";
    } else if (!bBoolean && bKnown) {
        message += " (the text \"false\" is written in quotes; unquoted it is a boolean)";
    } else if (node.eKind == YamlNode::Kind::SCALAR) {
        message += "." + DidYouMean(written, texts);
    }
    throw Malformed{node.position, message};
}

std::vector<std::string> listOf(const YamlNode& node, const LocalPolicySettingInfo& row,
                                bool bCachingEntries) {
    expectKind(node, YamlNode::Kind::SEQUENCE, row.element + "'s entries");
    std::vector<std::string> values;
    values.reserve(node.items.size());
    for (const YamlNode& item : node.items) {
        values.push_back(bCachingEntries ? cachingEntry(item, row)
                                         : textOf(item, "an entry of " + row.element));
    }
    return values;
}

// A setting's rule: a bare value (equals), or one comparison key with its values.
BaselineRule ruleOf(const YamlNode& key, const YamlNode& value) {
    BaselineRule rule;
    rule.pRow = settingNamed(key, false);
    rule.position = key.position;
    const LocalPolicySettingInfo& row = *rule.pRow;
    const bool bServerList = KindOf(row.kind).shape == ValueShape::LIST;
    const bool bCaching = row.kind == LocalPolicySettingKind::CACHING_LIST;
    const YamlNode* pValues = &value;
    if (value.eKind == YamlNode::Kind::MAP) {
        const auto entries = entriesOf(value, row.element);
        const std::vector<std::string> comparisons = {"equals", "one_of", "subset_of",
                                                      "superset_of"};
        if (entries.size() != 1) {
            throw Malformed{value.position,
                            row.element + " takes one comparison: " + Join(comparisons, ", ")};
        }
        const YamlNode& name = *entries.front().first;
        const auto at = std::find(comparisons.begin(), comparisons.end(), name.text);
        if (at == comparisons.end()) {
            unknownKey(name, row.element, comparisons);
        }
        rule.eComparison = static_cast<RuleComparison>(at - comparisons.begin());
        pValues = entries.front().second;
    }
    const bool bSetComparison = rule.eComparison == RuleComparison::SUBSET_OF ||
                                rule.eComparison == RuleComparison::SUPERSET_OF;
    if ((bSetComparison && !bServerList && !bCaching) ||
        (rule.eComparison == RuleComparison::ONE_OF && bServerList)) {
        throw Malformed{value.position, std::string(ComparisonText(rule.eComparison)) +
                                            " does not apply to " + row.element +
                                            (bServerList ? ": a list takes equals, subset_of or "
                                                           "superset_of"
                                                         : ": it holds one value")};
    }
    if (bServerList || bSetComparison) {
        rule.expected = listOf(*pValues, row, bCaching);
    } else if (rule.eComparison == RuleComparison::ONE_OF) {
        expectKind(*pValues, YamlNode::Kind::SEQUENCE, "one_of");
        for (const YamlNode& item : pValues->items) {
            rule.expected.push_back(singleValue(item, row));
        }
    } else {
        rule.expected.push_back(singleValue(*pValues, row));
    }
    return rule;
}

bool isLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// YYYY-MM-DD, a day that exists.
CalendarDay dayOf(const YamlNode& node) {
    const std::string text = textOf(node, "expires");
    CalendarDay day;
    const bool bShape = text.size() == 10 && text[4] == '-' && text[7] == '-' &&
                        std::all_of(text.begin(), text.end(), [](char character) {
                            return character == '-' || (character >= '0' && character <= '9');
                        });
    if (bShape) {
        day = CalendarDay{std::stoi(text.substr(0, 4)), std::stoi(text.substr(5, 2)),
                          std::stoi(text.substr(8, 2))};
    }
    constexpr int kDaysInMonth[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool bMonth = day.month >= 1 && day.month <= 12;
    const int lastDay =
        bMonth ? kDaysInMonth[day.month - 1] + (day.month == 2 && isLeapYear(day.year) ? 1 : 0) : 0;
    if (!bShape || day.year < 1970 || !bMonth || day.day < 1 || day.day > lastDay) {
        throw Malformed{node.position,
                        "expires must be a date, YYYY-MM-DD (the last day the waiver holds, "
                        "UTC), not " +
                            Quoted(text)};
    }
    return day;
}

BaselineWaiver waiverOf(const YamlNode& node, const Baseline& baseline) {
    const std::vector<std::string> keys = {"setting", "hosts", "reason", "expires"};
    BaselineWaiver waiver;
    waiver.position = node.position;
    bool bExpires = false;
    for (const auto& [key, value] : entriesOf(node, "a waiver")) {
        if (key->text == "setting") {
            if (value->eKind == YamlNode::Kind::SCALAR && value->text == kFileSafetyRule) {
                throw Malformed{value->position,
                                "file-safety cannot be waived: a policy file others can change "
                                "proves nothing about the host"};
            }
            const LocalPolicySettingInfo* pRow = settingNamed(*value, false);
            if (baseline.RuleOf(*pRow) == nullptr) {
                throw Malformed{value->position, "the waiver names " + pRow->element +
                                                     ", which the baseline's settings do not"};
            }
            waiver.rule = pRow->element;
        } else if (key->text == "hosts") {
            expectKind(*value, YamlNode::Kind::SEQUENCE, "hosts");
            for (const YamlNode& host : value->items) {
                waiver.hostPatterns.push_back(textOf(host, "a host pattern"));
            }
        } else if (key->text == "reason") {
            waiver.reason = textOf(*value, "reason");
        } else if (key->text == "expires") {
            waiver.expires = dayOf(*value);
            bExpires = true;
        } else {
            unknownKey(*key, "a waiver", keys);
        }
    }
    for (const auto& [bGiven, name] :
         {std::pair<bool, const char*>{!waiver.rule.empty(), "setting"},
          {!waiver.reason.empty(), "reason"},
          {bExpires, "expires"}}) {
        if (!bGiven) {
            throw Malformed{node.position, std::string("a waiver needs ") + name +
                                               " (setting, reason and expires are required)"};
        }
    }
    return waiver;
}

// severity: or rationale: for a rule of the baseline (or file-safety).
template <typename Apply>
void perRule(const YamlNode& map, Baseline& rBaseline, const char* what, Apply apply) {
    for (const auto& [key, value] : entriesOf(map, what)) {
        const LocalPolicySettingInfo* pRow = settingNamed(*key, true);
        BaselineRule* pRule = nullptr;
        for (BaselineRule& rule : rBaseline.rules) {
            pRule = rule.pRow == pRow ? &rule : pRule;
        }
        if (pRow != nullptr && pRule == nullptr) {
            throw Malformed{key->position, std::string(what) + " of " + pRow->element +
                                               ", which the baseline's settings do not name"};
        }
        apply(pRule, *value);
    }
}

RuleSeverity severityOf(const YamlNode& node) {
    const std::vector<std::string> names = {"low", "medium", "high"};
    const std::string text = textOf(node, "a severity");
    const auto at = std::find(names.begin(), names.end(), text);
    if (at == names.end()) {
        throw Malformed{node.position, "a severity is low, medium or high, not " + Quoted(text)};
    }
    return static_cast<RuleSeverity>(at - names.begin());
}

Baseline baselineOf(const YamlNode& root, const std::string& file) {
    Baseline baseline;
    baseline.file = file;
    const std::vector<std::string> keys = {"version", "settings", "severity", "rationale",
                                           "waivers"};
    const auto entries = entriesOf(root, "a baseline");
    std::map<std::string, const YamlNode*> byKey;
    for (const auto& [key, value] : entries) {
        if (std::find(keys.begin(), keys.end(), key->text) == keys.end()) {
            unknownKey(*key, "a baseline", keys);
        }
        byKey[key->text] = value;
    }
    if (byKey.count("version") == 0 || byKey.count("settings") == 0) {
        throw Malformed{root.position, "a baseline starts with version: 1 and has settings:"};
    }
    const YamlNode& version = *byKey["version"];
    if (version.eKind != YamlNode::Kind::SCALAR || !version.bPlain || version.text != "1") {
        throw Malformed{version.position, "version must be 1, the only baseline version"};
    }
    for (const auto& [key, value] : entriesOf(*byKey["settings"], "settings")) {
        baseline.rules.push_back(ruleOf(*key, *value));
    }
    if (byKey.count("severity") != 0) {
        perRule(*byKey["severity"], baseline, "severity",
                [&](BaselineRule* pRule, const YamlNode& value) {
                    (pRule != nullptr ? pRule->eSeverity : baseline.fileSafetySeverity) =
                        severityOf(value);
                });
    }
    if (byKey.count("rationale") != 0) {
        perRule(*byKey["rationale"], baseline, "rationale",
                [&](BaselineRule* pRule, const YamlNode& value) {
                    (pRule != nullptr ? pRule->rationale : baseline.fileSafetyRationale) =
                        textOf(value, "a rationale");
                });
    }
    if (byKey.count("waivers") != 0) {
        expectKind(*byKey["waivers"], YamlNode::Kind::SEQUENCE, "waivers");
        for (const YamlNode& waiver : byKey["waivers"]->items) {
            baseline.waivers.push_back(waiverOf(waiver, baseline));
        }
    }
    return baseline;
}

}  // namespace

BaselineParse ParseBaseline(std::string_view text, const std::string& file) {
    BaselineParse parse;
    try {
        if (text.size() > kMaxBaselineBytes) {
            throw Malformed{
                {}, "a baseline holds at most " + std::to_string(kMaxBaselineBytes) + " bytes"};
        }
        std::istringstream in{std::string(text)};
        YAML::Parser parser(in);
        CTreeBuilder builder;
        if (!parser.HandleNextDocument(builder) || !builder.bHasRoot) {
            throw Malformed{{1, 1}, "the baseline is empty; it starts with version: 1"};
        }
        CTreeBuilder next;
        if (parser.HandleNextDocument(next)) {
            throw Malformed{{1, 1}, "a baseline is one YAML document"};
        }
        parse.baseline = baselineOf(builder.root, file);
    } catch (const Malformed& malformed) {
        parse.baseline = Baseline{};
        parse.error = BaselineError{malformed.position, malformed.message};
    } catch (const YAML::Exception& exception) {
        parse.baseline = Baseline{};
        parse.error = BaselineError{positionOf(exception.mark), "not valid YAML: " + exception.msg};
    }
    return parse;
}

}  // namespace qnpolicy::tool

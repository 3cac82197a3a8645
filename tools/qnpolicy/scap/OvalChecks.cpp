// SPDX-License-Identifier: Apache-2.0
// The OVAL definitions of a baseline: XPath 1.0 over the policy file's plain form, one
// definition per rule, the plain-form definition that fails on every other shape, and the
// platform definition. What an element means and how its text is read come from the settings
// catalogue and the kinds table; nothing here lists settings of its own.

#include <algorithm>
#include <sstream>

#include "LocalPolicyKinds.h"
#include "QnBuildConfig.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlWriterSyntax.h"
#include "scap/ScapContent.h"

namespace qnpolicy::tool {

namespace {

constexpr char kIdPrefix[] = "oval:com.quillnet.qnpolicy:";

using qnxml::escapedText;

// An XPath 1.0 string literal of any text: one that holds both quote characters is spelled
// with concat().
std::string literal(const std::string& text) {
    if (text.find('\'') == std::string::npos) {
        return "'" + text + "'";
    }
    std::string parts;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t quote = std::min(text.find('\'', start), text.size());
        parts += "'" + text.substr(start, quote - start) + "',";
        if (quote < text.size()) {
            parts += "\"'\",";
        }
        start = quote + 1;
    }
    parts.pop_back();
    return "concat(" + parts + ",'')";
}

// A text inside a PCRE pattern, every non-alphanumeric character escaped.
std::string regexQuoted(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 &&
            static_cast<unsigned char>(c) < 0x80) {
            out += '\\';
        }
        out += c;
    }
    return out;
}

std::string alternatives(const std::vector<std::string>& values) {
    std::string out;
    for (const std::string& value : values) {
        out += (out.empty() ? "" : "|") + regexQuoted(value);
    }
    return "(?:" + out + ")";
}

// An element matched by its local name: the reader matches the name as written and ignores the
// namespace an unprefixed element is in, and the plain form admits no prefix.
std::string step(const std::string& name) {
    return "/*[local-name()='" + name + "']";
}

std::string rootPath() {
    return step(kRootElement);
}

// The elements of a row where the plain form writes them, in document order.
std::string elementsOf(const LocalPolicySettingInfo& row) {
    std::string path = rootPath();
    if (row.section != LocalPolicySection::ROOT) {
        path += step(kUpdatePolicyElement);
    }
    if (row.section == LocalPolicySection::AUTHORIZED_SERVER_LIST) {
        path += step(kAuthorizedServerListElement);
    }
    return path + step(row.element);
}

// The last of the row's elements whose text the reader applies (a leaf without text changes
// nothing); with texts, only those texts count.
std::string lastApplied(const LocalPolicySettingInfo& row, const std::vector<std::string>& texts) {
    std::string filter;
    for (const std::string& text : texts) {
        filter += (filter.empty() ? "" : " or ") + std::string(".=") + literal(text);
    }
    return "(" + elementsOf(row) + "[" + (filter.empty() ? "string-length(.)>0" : filter) +
           "])[last()]";
}

std::string defaultValue(const LocalPolicySettingInfo& row) {
    const std::vector<std::string> value = KindOf(row.kind).effective(row, LocalQNPolicyInfo());
    return value.empty() ? std::string() : value.front();
}

// The row's own on/off value as an XPath boolean: the last applied text is "true", or, as the
// exclusions are never undone, any text is; the default where no element applies.
std::string ownBoolean(const LocalPolicySettingInfo& row) {
    const bool bDefault = defaultValue(row) == "true";
    if (row.kind == LocalPolicySettingKind::CERT_STORE_EXCLUSION) {
        return bDefault ? "true()" : "boolean(" + elementsOf(row) + "[.='true'])";
    }
    const std::string last = lastApplied(row, {});
    return bDefault ? "(not(" + last + ") or " + last + "='true')" : "(" + last + "='true')";
}

// Whether another setting being on forces the row's value, whatever its own elements say,
// found as EffectivePolicy finds an override: by applying texts to a record through the kinds
// table. The record computes such a value when it is read, so order does not matter.
struct Forcing {
    const LocalPolicySettingInfo* pOther = nullptr;
    bool bForcedOn = false;
};

std::vector<Forcing> forcingsOf(const LocalPolicySettingInfo& row) {
    std::vector<Forcing> forcings;
    const LocalPolicyKind& kind = KindOf(row.kind);
    for (const LocalPolicySettingInfo& other : LocalPolicySettings()) {
        if (&other == &row || KindOf(other.kind).shape != ValueShape::BOOLEAN) {
            continue;
        }
        for (const char* own : {"true", "false"}) {
            LocalQNPolicyInfo record;
            bool bFips = false;
            kind.apply(row, own, record, bFips);
            const std::vector<std::string> alone = kind.effective(row, record);
            KindOf(other.kind).apply(other, "true", record, bFips);
            const std::vector<std::string> forced = kind.effective(row, record);
            if (forced != alone) {
                forcings.push_back({&other, forced.front() == "true"});
                break;
            }
        }
    }
    return forcings;
}

// The effective value of an on/off setting, "true" or "false".
std::string booleanValue(const LocalPolicySettingInfo& row) {
    std::string value = ownBoolean(row);
    for (const Forcing& forcing : forcingsOf(row)) {
        value.insert(0, "(");
        value += forcing.bForcedOn ? " or " : " and not(";
        value += ownBoolean(*forcing.pOther);
        value += forcing.bForcedOn ? ")" : "))";
    }
    return "string(" + value + ")";
}

// A text, or the text given where the node set is empty.
std::string textOr(const std::string& nodes, const std::string& fallback) {
    return "concat(string(" + nodes + "),substring(" + literal(fallback) + ",1," +
           std::to_string(fallback.size()) + "*not(" + nodes + ")))";
}

// The caching options a set of expected texts names ("none" names none).
std::vector<std::string> cachingEntries(const std::vector<std::string>& texts) {
    const std::vector<std::string>& options = LocalPolicyCachingOptionTexts();
    std::vector<std::string> entries;
    for (const std::string& text : texts) {
        std::istringstream parts(text);
        for (std::string entry; std::getline(parts, entry, ',');) {
            if (std::find(options.begin() + 1, options.end(), entry) != options.end() &&
                std::find(entries.begin(), entries.end(), entry) == entries.end()) {
                entries.push_back(entry);
            }
        }
    }
    return entries;
}

// The pattern a caching list's text (the one list the plain form holds, or the default) must
// match. The reader applies the list only when every comma-separated piece, untrimmed, is a
// restricting option; any other piece, "false" included, leaves nothing restricted.
std::string cachingPattern(const BaselineRule& rule) {
    const std::vector<std::string>& options = LocalPolicyCachingOptionTexts();
    const auto allIn = [](const std::vector<std::string>& set) {
        const std::string one = alternatives(set);
        return one + "(?:," + one + ")*\\z";
    };
    const std::string restricts =
        allIn(std::vector<std::string>(options.begin() + 1, options.end()));
    const auto holds = [](const std::string& entry) {
        return "(?=(?:.*,)?" + regexQuoted(entry) + "(?:,|\\z))";
    };
    const auto exactly = [&](const std::vector<std::string>& set) {
        if (set.empty()) {
            return "^(?!" + restricts + ")";
        }
        std::string pattern = "^(?=" + allIn(set) + ")";
        for (const std::string& entry : set) {
            pattern += holds(entry);
        }
        return pattern;
    };
    const std::vector<std::string> expected = cachingEntries(rule.expected);
    switch (rule.eComparison) {
        case RuleComparison::EQUALS:
        case RuleComparison::ONE_OF: {
            std::string pattern;
            for (const std::string& text : rule.expected) {
                pattern += (pattern.empty() ? "" : "|") + exactly(cachingEntries({text}));
            }
            return pattern;
        }
        case RuleComparison::SUBSET_OF:
            return expected.empty() ? exactly({})
                                    : "^(?:(?=" + allIn(expected) + ")|(?!" + restricts + "))";
        case RuleComparison::SUPERSET_OF: {
            std::string pattern = "^(?=" + restricts + ")";
            for (const std::string& entry : expected) {
                pattern += holds(entry);
            }
            return expected.empty() ? std::string("^") : pattern;
        }
    }
    return "^$";
}

// Whether the authorized servers meet the rule, as an XPath boolean: names compared exactly,
// as sets, or in order for equals.
std::string serversHold(const BaselineRule& rule) {
    const LocalPolicySettingInfo* pName =
        FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_NAME);
    const std::string servers = "(" + elementsOf(*pName) + "[string-length(.)>0])";
    std::string condition;
    const auto join = [&condition](const std::string& word, const std::string& part) {
        condition += (condition.empty() ? "" : word) + part;
    };
    if (rule.eComparison == RuleComparison::SUBSET_OF) {
        std::string allowed;
        for (const std::string& name : rule.expected) {
            allowed += (allowed.empty() ? "" : " or ") + std::string(".=") + literal(name);
        }
        return "string(not(" + servers + (allowed.empty() ? "" : "[not(" + allowed + ")]") + "))";
    }
    if (rule.eComparison == RuleComparison::EQUALS) {
        join(" and ", "count(" + servers + ")=" + std::to_string(rule.expected.size()));
    }
    for (size_t i = 0; i < rule.expected.size(); ++i) {
        join(" and ", rule.eComparison == RuleComparison::EQUALS
                          ? servers + "[" + std::to_string(i + 1) + "]=" + literal(rule.expected[i])
                          : "boolean(" + servers + "[.=" + literal(rule.expected[i]) + "])");
    }
    return "string(" + (condition.empty() ? std::string("true()") : condition) + ")";
}

// "local-name()='A' or local-name()='B'" for the rows a predicate selects.
template <typename Predicate>
std::string namesOf(Predicate selects) {
    std::string names;
    for (const LocalPolicySettingInfo& row : LocalPolicySettings()) {
        if (selects(row)) {
            names +=
                (names.empty() ? "" : " or ") + std::string("local-name()='") + row.element + "'";
        }
    }
    return names.empty() ? "false()" : names;
}

// Whether the document is in the plain form as far as XPath can tell: its root the policy's,
// every setting in its own section and nowhere else, no section within another, no leaf with a
// child element (the reader drops such a leaf's text), at most one caching list. oscap's XPath
// sees no prefixes, so those, a DOCTYPE and a file cut short are found in the text.
std::string plainFormCondition() {
    const auto inSection = [](LocalPolicySection section) {
        return namesOf([section](const LocalPolicySettingInfo& row) {
            return row.section == section && row.kind != LocalPolicySettingKind::SERVER_LIST;
        });
    };
    const std::string root = inSection(LocalPolicySection::ROOT);
    const std::string update = inSection(LocalPolicySection::UPDATE_POLICY) + " or local-name()='" +
                               kAuthorizedServerListElement + "'";
    const std::string names = inSection(LocalPolicySection::AUTHORIZED_SERVER_LIST);
    const std::string leaves = namesOf([](const LocalPolicySettingInfo& row) {
        return row.kind != LocalPolicySettingKind::SERVER_LIST;
    });
    const std::string caching = namesOf([](const LocalPolicySettingInfo& row) {
        return row.kind == LocalPolicySettingKind::CACHING_LIST;
    });
    const std::string section = "*[local-name()='" + std::string(kUpdatePolicyElement) + "']";
    const std::string list = "*[local-name()='" + std::string(kAuthorizedServerListElement) + "']";
    return "string(name(/*)='" + std::string(kRootElement) + "' and count(//*[local-name()='" +
           kRootElement + "'])=1 and count(//*[" + root + "])=count(/*/*[" + root +
           "]) and count(//" + section + ")=count(/*/" + section + ") and count(//*[" + update +
           "])=count(/*/" + section + "/*[" + update + "]) and count(//*[" + names +
           "])=count(/*/" + section + "/" + list + "/*[" + names + "]) and not(//*[" + leaves +
           "][*]) and count(//*[" + caching + "])<=1)";
}

// Writes the tests, objects and states of the definitions, numbered in order.
class COvalWriter {
  public:
    explicit COvalWriter(const ScapTarget& target) : m_target(target) {}

    // A test that the XPath's value matches pattern; the file must be there.
    std::string ValueTest(const std::string& comment, const std::string& xpath,
                          const std::string& pattern) {
        const unsigned number = next();
        m_tests << "    <ind:xmlfilecontent_test id=\"" << id("tst", number)
                << "\" version=\"1\" check=\"all\" check_existence=\"at_least_one_exists\" "
                   "comment=\""
                << qnxml::escapedAttribute(comment) << "\">\n      <ind:object object_ref=\""
                << id("obj", number) << "\"/>\n      <ind:state state_ref=\"" << id("ste", number)
                << "\"/>\n"
                << "    </ind:xmlfilecontent_test>\n";
        m_objects << "    <ind:xmlfilecontent_object id=\"" << id("obj", number)
                  << "\" version=\"1\">\n      <ind:filepath>" << escapedText(m_target.policyPath)
                  << "</ind:filepath>\n      <ind:xpath>" << escapedText(xpath)
                  << "</ind:xpath>\n    </ind:xmlfilecontent_object>\n";
        m_states << "    <ind:xmlfilecontent_state id=\"" << id("ste", number)
                 << "\" version=\"1\">\n      <ind:value_of operation=\"pattern match\">"
                 << escapedText(pattern) << "</ind:value_of>\n    </ind:xmlfilecontent_state>\n";
        return id("tst", number);
    }

    // A test that path (a directory when bDirectory) exists, or with bAbsent that it does not.
    std::string FileTest(const std::string& comment, const std::string& path, bool bDirectory,
                         bool bAbsent) {
        const unsigned number = next();
        m_tests << "    <unix:file_test id=\"" << id("tst", number)
                << "\" version=\"1\" check=\"all\" check_existence=\""
                << (bAbsent ? "none_exist" : "at_least_one_exists") << "\" comment=\""
                << qnxml::escapedAttribute(comment) << "\">\n      <unix:object object_ref=\""
                << id("obj", number) << "\"/>\n    </unix:file_test>\n";
        m_objects << "    <unix:file_object id=\"" << id("obj", number) << "\" version=\"1\">\n";
        if (bDirectory) {
            m_objects << "      <unix:path>" << escapedText(path)
                      << "</unix:path>\n      <unix:filename xsi:nil=\"true\"/>\n";
        } else {
            m_objects << "      <unix:filepath>" << escapedText(path) << "</unix:filepath>\n";
        }
        m_objects << "    </unix:file_object>\n";
        return id("tst", number);
    }

    // A test that the file's text matches pattern (bPresent) or does not; with the file absent
    // the pattern is not there.
    std::string PatternTest(const std::string& comment, const std::string& pattern, bool bPresent) {
        const unsigned number = next();
        m_tests << "    <ind:textfilecontent54_test id=\"" << id("tst", number)
                << "\" version=\"1\" check=\"all\" check_existence=\""
                << (bPresent ? "at_least_one_exists" : "none_exist") << "\" comment=\""
                << qnxml::escapedAttribute(comment) << "\">\n      <ind:object object_ref=\""
                << id("obj", number) << "\"/>\n    </ind:textfilecontent54_test>\n";
        m_objects << "    <ind:textfilecontent54_object id=\"" << id("obj", number)
                  << "\" version=\"1\">\n      <ind:filepath>" << escapedText(m_target.policyPath)
                  << "</ind:filepath>\n      <ind:pattern operation=\"pattern match\">"
                  << escapedText(pattern)
                  << "</ind:pattern>\n      <ind:instance datatype=\"int\" "
                     "operation=\"greater than or equal\">1</ind:instance>\n"
                  << "    </ind:textfilecontent54_object>\n";
        return id("tst", number);
    }

    std::string Tests() const { return m_tests.str(); }
    std::string Objects() const { return m_objects.str(); }
    std::string States() const { return m_states.str(); }

  private:
    unsigned next() { return ++m_uiCount; }
    static std::string id(const char* kind, unsigned number) {
        return kIdPrefix + std::string(kind) + ":" + std::to_string(number);
    }

    const ScapTarget& m_target;
    unsigned m_uiCount = 0;
    std::ostringstream m_tests;
    std::ostringstream m_objects;
    std::ostringstream m_states;
};

std::string criterion(const std::string& test, const std::string& comment) {
    return "<criterion test_ref=\"" + test + "\" comment=\"" + qnxml::escapedAttribute(comment) +
           "\"/>";
}

// The value test of one rule.
std::string ruleTest(COvalWriter& writer, const BaselineRule& rule) {
    const LocalPolicySettingInfo& row = *rule.pRow;
    const std::string comment = row.element + " meets the baseline";
    switch (KindOf(row.kind).shape) {
        case ValueShape::BOOLEAN:
            return writer.ValueTest(comment, booleanValue(row),
                                    "^" + alternatives(rule.expected) + "$");
        case ValueShape::TEXT:
            if (row.kind == LocalPolicySettingKind::CACHING_LIST) {
                return writer.ValueTest(comment,
                                        textOr("(" + elementsOf(row) + "[string-length(.)>0])",
                                               LocalPolicyDefaultText(row)),
                                        cachingPattern(rule));
            }
            return writer.ValueTest(comment,
                                    textOr(lastApplied(row, AppliedTexts(row)), defaultValue(row)),
                                    "^" + alternatives(rule.expected) + "$");
        case ValueShape::LIST:
        case ValueShape::NONE:  // the server name's: a baseline names the list instead
            return writer.ValueTest(comment, serversHold(rule), "^true$");
    }
    return {};
}

struct Definition {
    unsigned number;
    const char* eClass;
    std::string title;
    std::string description;
    std::string criteria;
};

void writeDefinition(std::ostream& out, const Definition& definition) {
    out << "    <definition id=\"" << OvalDefinitionId(definition.number)
        << "\" version=\"1\" class=\"" << definition.eClass << "\">\n      <metadata>\n"
        << "        <title>" << escapedText(definition.title) << "</title>\n        <description>"
        << escapedText(definition.description) << "</description>\n      </metadata>\n      "
        << definition.criteria << "\n    </definition>\n";
}

}  // namespace

std::string OvalDefinitionId(unsigned number) {
    return kIdPrefix + std::string("def:") + std::to_string(number);
}

std::string OvalDefinitions(const Baseline& baseline, const ScapTarget& target) {
    COvalWriter writer(target);
    std::vector<Definition> definitions;
    std::string directory = target.installDir;
    if (directory.size() > 1 && directory.back() == '/') {
        directory.pop_back();
    }
    definitions.push_back(
        {kPlatformDefinition, "inventory", "The client is installed",
         "The client's main installation directory " + directory + " exists.",
         "<criteria>" +
             criterion(writer.FileTest("the install directory exists", directory, true, false),
                       "the install directory exists") +
             "</criteria>"});
    const std::string absent =
        writer.FileTest("the policy file is absent", target.policyPath, false, true);
    const std::string absentCriterion = criterion(absent, "no policy file: the defaults hold");
    definitions.push_back(
        {kPlainFormDefinition, "compliance",
         "The policy file is in the form the client reads plainly",
         "The policy file is absent, or it ends with the root element's end, has no DOCTYPE, "
         "and holds every setting unprefixed in its own section under the root element, at most "
         "one caching list. A file that does not parse gives an error where it is not cut short.",
         "<criteria operator=\"OR\">" + absentCriterion + "<criteria operator=\"AND\">" +
             criterion(
                 writer.ValueTest("the file is in the plain form", plainFormCondition(), "^true$"),
                 "the plain form") +
             criterion(writer.PatternTest("the file has no DOCTYPE", "<!DOCTYPE", false),
                       "no DOCTYPE") +
             criterion(
                 writer.PatternTest("no element name has a prefix", "<[^\\s!?/>][^\\s/>]*:", false),
                 "no prefix") +
             criterion(writer.PatternTest("the file ends with the root's end",
                                          "(?:</" + std::string(kRootElement) + "\\s*|<" +
                                              kRootElement + "(?:\\s[^>]*)?/)>\\s*\\z",
                                          true),
                       "not cut short") +
             "</criteria></criteria>"});
    const EffectivePolicy defaults =
        ReadEffectivePolicyBytes("<" + std::string(kRootElement) + "/>", "defaults", false);
    const ComplianceVerdicts atDefaults =
        JudgePolicy(baseline, defaults, {}, std::string(), CalendarDay{9999, 12, 31});
    for (size_t i = 0; i < baseline.rules.size(); ++i) {
        const BaselineRule& rule = baseline.rules[i];
        // verdicts[0] is file-safety; the rules follow in order.
        const bool bDefaultMeets = atDefaults.verdicts[i + 1].eState == VerdictState::PASS;
        std::string criteria = bDefaultMeets ? "<criteria operator=\"OR\">" + absentCriterion
                                             : std::string("<criteria>");
        criteria += criterion(ruleTest(writer, rule), "the effective value");
        criteria += "</criteria>";
        definitions.push_back({kFirstRuleDefinition + static_cast<unsigned>(i), "compliance",
                               rule.pRow->element + " meets the baseline", rule.pRow->description,
                               criteria});
    }
    std::ostringstream out;
    out << "<oval_definitions xmlns=\"http://oval.mitre.org/XMLSchema/oval-definitions-5\" "
           "xmlns:oval=\"http://oval.mitre.org/XMLSchema/oval-common-5\" "
           "xmlns:ind=\"http://oval.mitre.org/XMLSchema/oval-definitions-5#independent\" "
           "xmlns:unix=\"http://oval.mitre.org/XMLSchema/oval-definitions-5#unix\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n  <generator>\n"
           "    <oval:product_name>qnpolicy</oval:product_name>\n"
           "    <oval:product_version>" QN_CLIENT_VERSION
           "</oval:product_version>\n"
           "    <oval:schema_version>5.11.2</oval:schema_version>\n    <oval:timestamp>"
        << target.timestamp << "</oval:timestamp>\n  </generator>\n  <definitions>\n";
    for (const Definition& definition : definitions) {
        writeDefinition(out, definition);
    }
    out << "  </definitions>\n  <tests>\n"
        << writer.Tests() << "  </tests>\n  <objects>\n"
        << writer.Objects() << "  </objects>\n  <states>\n"
        << writer.States() << "  </states>\n</oval_definitions>\n";
    return out.str();
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
// The XCCDF benchmark of a baseline, the source data stream around it and its OVAL definitions,
// and the tailoring of one host's waivers. Titles and descriptions come from the settings
// catalogue, severities and rationales from the baseline, the checks from OvalDefinitions.

#include <ctime>
#include <sstream>

#include "LocalPolicyKinds.h"
#include "QnBuildConfig.h"
#include "XmlWriterSyntax.h"
#include "scap/ScapContent.h"

namespace qnpolicy::tool {

const char kPlainFormRule[] = "plain-form";
const char kBaselineProfileId[] = "xccdf_com.quillnet_profile_baseline";
const char kTailoredProfileId[] = "xccdf_com.quillnet_profile_baseline_waived";

namespace {

constexpr char kXccdfNamespace[] = "http://checklists.nist.gov/xccdf/1.2";
constexpr char kOvalSystem[] = "http://oval.mitre.org/XMLSchema/oval-definitions-5";
// The name the benchmark's checks give the OVAL component, which the data stream's catalog maps.
constexpr char kOvalHref[] = "qnpolicy-oval.xml";
constexpr char kXccdfName[] = "qnpolicy-xccdf.xml";
constexpr char kCpeDictionaryName[] = "qnpolicy-cpe-dictionary.xml";
// The benchmark applies where the client is installed (its install directory exists), a CPE name
// of the data stream's dictionary that the platform definition checks: elsewhere every rule is
// "notapplicable".
constexpr char kPlatformCpe[] = "cpe:/a:quillnet:client";

using qnxml::escapedText;

// A word for sh, in single quotes.
std::string shellWord(const std::string& text) {
    std::string out = "'";
    for (const char c : text) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

std::string joined(const std::vector<std::string>& values) {
    std::string out;
    for (const std::string& value : values) {
        out += (out.empty() ? "" : ",") + value;
    }
    return out;
}

// The qnpolicy command that makes the rule pass: set the setting to an expected value (a
// subset rule's smallest: nothing restricted, or no server), in the install directory.
std::string fixCommand(const BaselineRule& rule, const ScapTarget& target) {
    const LocalPolicySettingInfo& row = *rule.pRow;
    std::string value = rule.expected.empty() ? std::string() : rule.expected.front();
    if (KindOf(row.kind).shape == ValueShape::LIST ||
        rule.eComparison == RuleComparison::SUPERSET_OF) {
        value = joined(rule.expected);
    }
    if (rule.eComparison == RuleComparison::SUBSET_OF) {
        value.clear();
    }
    if (row.kind == LocalPolicySettingKind::CACHING_LIST && (value.empty() || value == "none")) {
        value = "false";
    }
    const std::string command = "qnpolicy --install-dir " + shellWord(target.installDir);
    return value.empty() ? command + " unset " + row.abbreviation
                         : command + " set " + shellWord(row.abbreviation + "=" + value);
}

std::string ruleCheck(unsigned definition) {
    return "      <check system=\"" + std::string(kOvalSystem) +
           "\">\n        <check-content-ref href=\"" + kOvalHref + "\" name=\"" +
           OvalDefinitionId(definition) + "\"/>\n      </check>\n";
}

void writeRule(std::ostream& out, const BaselineRule& rule, unsigned definition,
               const ScapTarget& target) {
    const LocalPolicySettingInfo& row = *rule.pRow;
    const std::string expected = std::string(ComparisonText(rule.eComparison)) + " " +
                                 (rule.expected.empty() ? "nothing" : joined(rule.expected));
    out << "    <Rule id=\"" << XccdfRuleId(row.element)
        << "\" selected=\"true\" weight=\"1.0\" role=\"full\" severity=\""
        << RuleSeverityText(rule.eSeverity) << "\">\n      <title>" << escapedText(row.element)
        << "</title>\n      <description>" << escapedText(row.description)
        << " The baseline expects its effective value to be " << escapedText(expected)
        << ".</description>\n";
    if (!rule.rationale.empty()) {
        out << "      <rationale>" << escapedText(rule.rationale) << "</rationale>\n";
    }
    out << "      <fix system=\"urn:xccdf:fix:script:sh\">" << escapedText(fixCommand(rule, target))
        << "</fix>\n"
        << ruleCheck(definition) << "    </Rule>\n";
}

void writePlainFormRule(std::ostream& out) {
    out << "    <Rule id=\"" << XccdfRuleId(kPlainFormRule)
        << "\" selected=\"true\" weight=\"1.0\" role=\"full\" severity=\"high\">\n"
           "      <title>The policy file is in the form the client reads plainly</title>\n"
           "      <description>The other rules read the policy file with XPath, which follows "
           "the client only where the file is plain: the root element QuillnetLocalPolicy, each "
           "setting unprefixed in its own section, no section within another, at most one "
           "caching list, no DOCTYPE, a file that parses. On any other shape this rule fails, "
           "and only qnpolicy comply judges the file as the client reads it.</description>\n"
           "      <rationale>A scanner that cannot follow the client's reading must not report "
           "a pass the client would not give.</rationale>\n"
        << "      <fixtext>Run qnpolicy check and rewrite the file with qnpolicy set or "
           "qnpolicy generate --overwrite, which write the plain form.</fixtext>\n"
        << ruleCheck(kPlainFormDefinition) << "    </Rule>\n";
}

std::string benchmark(const Baseline& baseline, const ScapTarget& target) {
    std::ostringstream out;
    out << "<Benchmark xmlns=\"" << kXccdfNamespace
        << "\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\" "
           "id=\"xccdf_com.quillnet_benchmark_local-policy\" resolved=\"1\" xml:lang=\"en\" "
           "style=\"SCAP_1.3\">\n  <status date=\""
        << target.timestamp.substr(0, 10)
        << "\">accepted</status>\n  <title>Quillnet local policy: " << escapedText(baseline.file)
        << "</title>\n  <description>The client's effective local policy, as it reads "
        << escapedText(target.policyPath) << " at its next start, against the baseline "
        << escapedText(baseline.file)
        << ". Generated by qnpolicy scap; qnpolicy comply gives the same verdict per "
           "rule.</description>\n"
           "  <platform idref=\""
        << kPlatformCpe
        << "\"/>\n"
           "  <version time=\""
        << target.timestamp
        << "\">" QN_CLIENT_VERSION
           "</version>\n  <metadata>\n    <dc:creator>qnpolicy scap</dc:creator>\n"
           "    <dc:publisher>Quillnet</dc:publisher>\n"
           "    <dc:contributor>qnpolicy " QN_CLIENT_VERSION "</dc:contributor>\n    <dc:source>"
        << escapedText(baseline.file) << "</dc:source>\n  </metadata>\n  <Profile id=\""
        << kBaselineProfileId << "\">\n    <title>Every rule of " << escapedText(baseline.file)
        << "</title>\n    <description>The plain form of the policy file and every setting of "
           "the baseline.</description>\n    <select idref=\""
        << XccdfRuleId(kPlainFormRule) << "\" selected=\"true\"/>\n";
    for (const BaselineRule& rule : baseline.rules) {
        out << "    <select idref=\"" << XccdfRuleId(rule.pRow->element)
            << "\" selected=\"true\"/>\n";
    }
    out << "  </Profile>\n";
    writePlainFormRule(out);
    for (size_t i = 0; i < baseline.rules.size(); ++i) {
        writeRule(out, baseline.rules[i], kFirstRuleDefinition + static_cast<unsigned>(i), target);
    }
    out << "</Benchmark>\n";
    return out.str();
}

}  // namespace

std::string ScapTimestamp() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    return text;
}

std::string XccdfRuleId(const std::string& name) {
    return "xccdf_com.quillnet_rule_" + name;
}

std::string ScapDataStream(const Baseline& baseline, const ScapTarget& target) {
    const std::string prefix = "scap_com.quillnet_";
    const auto componentRef = [&prefix](const std::string& name, const std::string& catalog) {
        return "      <ds:component-ref id=\"" + prefix + "cref_" + name + "\" xlink:href=\"#" +
               prefix + "comp_" + name + "\"" +
               (catalog.empty() ? "/>\n"
                                : ">\n        <cat:catalog>\n          <cat:uri name=\"" + catalog +
                                      "\" uri=\"#" + prefix + "cref_" + catalog +
                                      "\"/>\n        </cat:catalog>\n      </ds:component-ref>\n");
    };
    const auto component = [&prefix, &target](const std::string& name, const std::string& content) {
        return "  <ds:component id=\"" + prefix + "comp_" + name + "\" timestamp=\"" +
               target.timestamp + "\">\n" + content + "  </ds:component>\n";
    };
    // The dictionary and the benchmark find the OVAL definitions under kOvalHref.
    std::ostringstream out;
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<ds:data-stream-collection "
           "xmlns:ds=\"http://scap.nist.gov/schema/scap/source/1.2\" "
           "xmlns:xlink=\"http://www.w3.org/1999/xlink\" "
           "xmlns:cat=\"urn:oasis:names:tc:entity:xmlns:xml:catalog\" id=\""
        << prefix << "collection_qnpolicy\" schematron-version=\"1.3\">\n  <ds:data-stream id=\""
        << prefix << "datastream_qnpolicy\" scap-version=\"1.3\" use-case=\"CONFIGURATION\" "
        << "timestamp=\"" << target.timestamp << "\">\n    <ds:dictionaries>\n"
        << componentRef(kCpeDictionaryName, kOvalHref) << "    </ds:dictionaries>\n"
        << "    <ds:checklists>\n"
        << componentRef(kXccdfName, kOvalHref) << "    </ds:checklists>\n    <ds:checks>\n"
        << componentRef(kOvalHref, "") << "    </ds:checks>\n  </ds:data-stream>\n"
        << component(
               kCpeDictionaryName,
               "<cpe-list xmlns=\"http://cpe.mitre.org/dictionary/2.0\">\n  <cpe-item name=\"" +
                   std::string(kPlatformCpe) +
                   "\">\n    <title xml:lang=\"en-us\">The Quillnet client</title>\n"
                   "    <check system=\"" +
                   kOvalSystem + "\" href=\"" + kOvalHref + "\">" +
                   OvalDefinitionId(kPlatformDefinition) + "</check>\n  </cpe-item>\n</cpe-list>\n")
        << component(kOvalHref, OvalDefinitions(baseline, target))
        << component(kXccdfName, benchmark(baseline, target)) << "</ds:data-stream-collection>\n";
    return out.str();
}

std::string ScapTailoring(const Baseline& baseline, const ScapTarget& target,
                          const std::string& host, const CalendarDay& today) {
    std::ostringstream out;
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Tailoring xmlns=\"" << kXccdfNamespace
        << "\" id=\"xccdf_com.quillnet_tailoring_waivers\">\n  <version time=\"" << target.timestamp
        << "\">1</version>\n  <Profile id=\"" << kTailoredProfileId << "\" extends=\""
        << kBaselineProfileId << "\">\n    <title>Every rule of " << escapedText(baseline.file)
        << " but those waived for " << escapedText(host) << " on " << today.Text() << "</title>\n";
    for (const BaselineWaiver& waiver : baseline.waivers) {
        if (waiver.Covers(host) && waiver.HoldsOn(today)) {
            out << "    <select idref=\"" << XccdfRuleId(waiver.rule)
                << "\" selected=\"false\">\n      <remark>" << escapedText(waiver.reason)
                << " (waived through " << waiver.expires.Text() << ")</remark>\n    </select>\n";
        }
    }
    out << "  </Profile>\n</Tailoring>\n";
    return out.str();
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
#include "SchemaWriter.h"

#include <string>
#include <string_view>
#include <vector>

#include "LocalPolicyKinds.h"
#include "LocalPolicySettings.h"
#include "QnBuildConfig.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlWriterSyntax.h"
#include "lint/PolicyTexts.h"

namespace qndocgen {

namespace {

constexpr char kIndent[] = "    ";
// The version attribute's type; the types of setting texts are named by the kinds table.
constexpr char kVersionType[] = "Version";
// A dotted version of decimal components, as the writer puts the client's own.
constexpr char kVersionPattern[] = "[0-9]+(\\.[0-9]+)*";
// A server name the reader keeps as written: not empty, no white space or control character
// anywhere (the reader would keep it as part of one name).
constexpr char kServerNamePattern[] = "[^\\s\\p{Cc}]+";

// Element content and attribute values, escaped by the rules the policy document's writer
// follows.
using qnxml::escapedAttribute;
using qnxml::escapedText;

// A literal inside an XML Schema regular expression.
std::string escapeRegex(std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        if (std::string_view("\\|.-^?*+{}()[]$").find(character) != std::string_view::npos) {
            escaped += '\\';
        }
        escaped += character;
    }
    return escaped;
}

std::string indent(int depth) {
    std::string text;
    for (int level = 0; level < depth; ++level) {
        text += kIndent;
    }
    return text;
}

void writeDocumentation(std::ostream& out, int depth, const std::string& text) {
    out << indent(depth) << "<xs:annotation>\n"
        << indent(depth + 1) << "<xs:documentation>" << escapedText(text) << "</xs:documentation>\n"
        << indent(depth) << "</xs:annotation>\n";
}

// The caching list as the reader applies it: option texts separated by commas (empty pieces
// are dropped), either the clearing text alone or restrictions only. A list that mixes the
// two, or holds an unknown text, clears restrictions it seems to set, so it is invalid.
std::string cachingListPattern() {
    const std::vector<std::string>& texts = LocalPolicyCachingOptionTexts();
    const std::string clearing = escapeRegex(texts.at(RESTRICT_PREF_CACHING_FALSE));
    std::string restriction;
    for (size_t option = 0; option < texts.size(); ++option) {
        if (option != RESTRICT_PREF_CACHING_FALSE) {
            restriction += (restriction.empty() ? "" : "|") + escapeRegex(texts[option]);
        }
    }
    restriction = "(" + restriction + ")";
    return ",*" + clearing + ",*|,*" + restriction + "(,+" + restriction + ")*,*";
}

// The schema type of a setting's text, as the kinds table names it; null for element content.
const char* typeOf(LocalPolicySettingKind kind) {
    return qnpolicy::tool::KindTextsOf(kind).schemaType;
}

void writeSimpleTypes(std::ostream& out) {
    out << indent(1) << "<xs:simpleType name=\"" << typeOf(LocalPolicySettingKind::FLAG) << "\">\n";
    writeDocumentation(out, 2,
                       "Exactly true or false: the client never takes another text, TRUE included, "
                       "as true.");
    // The texts an on/off setting is read from, as the kinds table lists them for the reader.
    out << indent(2) << "<xs:restriction base=\"xs:string\">\n";
    for (const std::string& text :
         qnpolicy::AppliedTexts(*FindLocalPolicySettingOfKind(LocalPolicySettingKind::FLAG))) {
        out << indent(3) << "<xs:enumeration value=\"" << escapedAttribute(text) << "\"/>\n";
    }
    out << indent(2) << "</xs:restriction>\n" << indent(1) << "</xs:simpleType>\n";

    out << indent(1) << "<xs:simpleType name=\"" << typeOf(LocalPolicySettingKind::CACHING_LIST)
        << "\">\n";
    writeDocumentation(out, 2,
                       "Preference-caching options separated by commas, exactly as spelled "
                       "here: the client reads an unknown option as the clearing one.");
    out << indent(2) << "<xs:restriction base=\"xs:string\">\n"
        << indent(3) << "<xs:pattern value=\"" << escapedAttribute(cachingListPattern()) << "\"/>\n"
        << indent(2) << "</xs:restriction>\n"
        << indent(1) << "</xs:simpleType>\n";

    out << indent(1) << "<xs:simpleType name=\"" << typeOf(LocalPolicySettingKind::TUNNEL_PROTOCOL)
        << "\">\n";
    writeDocumentation(out, 2,
                       "The tunnel texts the client applies, exactly as spelled here: any "
                       "other text changes nothing.");
    out << indent(2) << "<xs:restriction base=\"xs:string\">\n";
    for (const std::string& text : LocalPolicyAppliedTunnelTexts()) {
        out << indent(3) << "<xs:enumeration value=\"" << escapedAttribute(text) << "\"/>\n";
    }
    out << indent(2) << "</xs:restriction>\n" << indent(1) << "</xs:simpleType>\n";

    out << indent(1) << "<xs:simpleType name=\"" << typeOf(LocalPolicySettingKind::SERVER_NAME)
        << "\">\n";
    writeDocumentation(out, 2,
                       "A server name: the client keeps white space and control characters "
                       "in a name as part of it.");
    out << indent(2) << "<xs:restriction base=\"xs:string\">\n"
        << indent(3) << "<xs:pattern value=\"" << escapedAttribute(kServerNamePattern) << "\"/>\n"
        << indent(2) << "</xs:restriction>\n"
        << indent(1) << "</xs:simpleType>\n";

    out << indent(1) << "<xs:simpleType name=\"" << kVersionType << "\">\n";
    writeDocumentation(out, 2, "A dotted version such as " + std::string(QN_CLIENT_VERSION) + ".");
    out << indent(2) << "<xs:restriction base=\"xs:string\">\n"
        << indent(3) << "<xs:pattern value=\"" << escapedAttribute(kVersionPattern) << "\"/>\n"
        << indent(2) << "</xs:restriction>\n"
        << indent(1) << "</xs:simpleType>\n";
}

// The annotation of a catalogue row: its description, default and installer abbreviation.
std::string describe(const LocalPolicySettingInfo& setting) {
    std::string text = setting.description;
    const std::string defaultText = LocalPolicyDefaultText(setting);
    if (!defaultText.empty()) {
        text += " Default: " + defaultText + ".";
    }
    if (!setting.abbreviation.empty()) {
        text += " Installer abbreviation: " + setting.abbreviation + ".";
    }
    return text;
}

void writeSettings(std::ostream& out, int depth, LocalPolicySection section);

void writeSetting(std::ostream& out, int depth, const LocalPolicySettingInfo& setting) {
    out << indent(depth) << "<xs:element name=\"" << setting.element << "\"";
    if (setting.section == LocalPolicySection::AUTHORIZED_SERVER_LIST) {
        out << " minOccurs=\"0\" maxOccurs=\"unbounded\"";
    } else {
        out << " minOccurs=\"0\"";
    }
    const char* type = typeOf(setting.kind);
    if (type != nullptr) {
        out << " type=\"qn:" << type << "\">\n";
        writeDocumentation(out, depth + 1, describe(setting));
        out << indent(depth) << "</xs:element>\n";
        return;
    }
    out << ">\n";
    writeDocumentation(out, depth + 1, describe(setting));
    out << indent(depth + 1) << "<xs:complexType>\n" << indent(depth + 2) << "<xs:sequence>\n";
    writeSettings(out, depth + 3, LocalPolicySection::AUTHORIZED_SERVER_LIST);
    out << indent(depth + 2) << "</xs:sequence>\n"
        << indent(depth + 1) << "</xs:complexType>\n"
        << indent(depth) << "</xs:element>\n";
}

// Every row of one section, in catalogue order.
void writeSettings(std::ostream& out, int depth, LocalPolicySection section) {
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        if (setting.section == section) {
            writeSetting(out, depth, setting);
        }
    }
}

}  // namespace

void WritePolicySchema(std::ostream& out) {
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<!-- Generated from the settings catalogue of the local policy module. -->\n"
        << "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\" xmlns:qn=\""
        << qnpolicy::kDocumentNamespace << "\" targetNamespace=\"" << qnpolicy::kDocumentNamespace
        << "\" elementFormDefault=\"qualified\" version=\"" << QN_CLIENT_VERSION << "\">\n";
    writeDocumentation(out, 1,
                       std::string("The local policy file ") + qnpolicy::kPolicyFileName +
                           " of the client's main installation directory. Each setting occurs "
                           "at most once, in any order; an absent setting keeps its default. The "
                           "schema checks each element and its text on its own, not rules "
                           "between elements: a file valid against it can still hold a setting "
                           "that another one overrides (see each setting's description), which "
                           "qnpolicy check reports.");
    writeSimpleTypes(out);
    out << indent(1) << "<xs:element name=\"" << qnpolicy::kRootElement << "\">\n";
    writeDocumentation(out, 2,
                       std::string("The policy. Its attribute ") + qnpolicy::kVersionAttribute +
                           " is the version of the client that wrote the file; the client warns "
                           "when it is newer than its own.");
    out << indent(2) << "<xs:complexType>\n" << indent(3) << "<xs:all>\n";
    writeSettings(out, 4, LocalPolicySection::ROOT);
    out << indent(4) << "<xs:element name=\"" << qnpolicy::kUpdatePolicyElement
        << "\" minOccurs=\"0\">\n";
    writeDocumentation(out, 5,
                       "Where updates may come from. Update permissions and the authorized "
                       "server list count only inside this element.");
    out << indent(5) << "<xs:complexType>\n" << indent(6) << "<xs:all>\n";
    writeSettings(out, 7, LocalPolicySection::UPDATE_POLICY);
    out << indent(6) << "</xs:all>\n"
        << indent(5) << "</xs:complexType>\n"
        << indent(4) << "</xs:element>\n"
        << indent(3) << "</xs:all>\n"
        << indent(3) << "<xs:attribute name=\"" << qnpolicy::kVersionAttribute
        << "\" type=\"qn:" << kVersionType << "\"/>\n"
        << indent(2) << "</xs:complexType>\n"
        << indent(1) << "</xs:element>\n"
        << "</xs:schema>\n";
}

}  // namespace qndocgen

// qnpolicy vocabulary: the installer abbreviations that generate accepts.

#include <iomanip>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "ExitCodes.h"
#include "ToolSession.h"

namespace qnpolicy::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr char kRootSection[] = "root";
constexpr char kUpdateSection[] = "UpdatePolicy";
constexpr int kAbbreviationWidth = 7;
constexpr int kElementWidth = 47;
constexpr int kSectionWidth = 14;

const char* sectionOf(const LocalPolicySetting& setting) {
    return setting.bIsUpdatePolicy ? kUpdateSection : kRootSection;
}

std::string allowedText(const LocalPolicySetting& setting) {
    if (setting.listAllowedValues.empty()) {
        return "(any text)";
    }
    std::string text;
    for (const std::string& value : setting.listAllowedValues) {
        text += (text.empty() ? "" : ", ") + value;
    }
    return text;
}

}  // namespace

int RunVocabulary(const std::string& installDir, bool bJson, std::ostream& out, std::ostream& err) {
    CToolSession session;
    if (session.Open(installDir) != XMLLOCALQNPOLMGR_SUCCESS) {
        err << "qnpolicy vocabulary: cannot set up the policy module\n";
        return kExitFailure;
    }
    // Ascending abbreviation order, the table's own order.
    const std::map<std::string, LocalPolicySetting> vocabulary =
        session.Manager().GetPolicyTransTable();
    if (bJson) {
        Json rows = Json::array();
        for (const auto& entry : vocabulary) {
            Json row = Json::object();
            row["abbreviation"] = entry.first;
            row["element"] = entry.second.tstrFullName;
            row["section"] = sectionOf(entry.second);
            row["allowedValues"] = entry.second.listAllowedValues;
            rows.push_back(row);
        }
        out << rows.dump(2) << '\n';
        return kExitSuccess;
    }
    out << std::left << std::setw(kAbbreviationWidth) << "abbrev" << std::setw(kElementWidth)
        << "element" << std::setw(kSectionWidth) << "section"
        << "allowed values (matched ignoring case, written as listed)\n";
    for (const auto& entry : vocabulary) {
        out << std::left << std::setw(kAbbreviationWidth) << entry.first << std::setw(kElementWidth)
            << entry.second.tstrFullName << std::setw(kSectionWidth) << sectionOf(entry.second)
            << allowedText(entry.second) << '\n';
    }
    out << "\nrpc takes a comma-separated list of Credentials, Thumbprints,\n"
           "CredentialsAndThumbprints, AutomaticServerSelection, All or false; upal takes\n"
           "server names separated by \",\" or \";\". rtp=tls and rtp=ipsec are written as\n"
           "\"TLS\" and \"IPSec\", which the client's policy reader does not apply (it reads\n"
           "only lower case); generate warns when that happens.\n";
    return kExitSuccess;
}

}  // namespace qnpolicy::tool

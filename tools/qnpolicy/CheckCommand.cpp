// qnpolicy check: the linter for administrators.

#include <cstdio>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "ExitCodes.h"
#include "PolicyFileAttributes.h"
#include "PolicyLinter.h"
#include "ToolSession.h"
#include "XmlParser.h"

namespace qnpolicy::tool {

namespace {

using Json = nlohmann::ordered_json;

std::string statusText(STATUSCODE status) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned int>(status));
    return text;
}

// Compiler style, so that editors can jump to each place: FILE:LINE:COLUMN: kind: message.
void printText(std::ostream& out, const std::string& file, const LintResult& result) {
    for (const LintFinding& finding : result.findings) {
        out << file << ':';
        if (finding.line != 0) {
            out << finding.line << ':' << finding.column << ':';
        }
        out << ' ' << finding.kind << ": " << finding.message << '\n';
    }
    if (result.findings.empty()) {
        out << file << ": no findings\n";
    } else {
        out << file << ": " << result.findings.size()
            << (result.findings.size() == 1 ? " finding\n" : " findings\n");
    }
}

Json toJson(const std::string& file, const LintResult& result) {
    Json findings = Json::array();
    for (const LintFinding& finding : result.findings) {
        Json entry = Json::object();
        entry["kind"] = finding.kind;
        entry["line"] = finding.line;
        entry["column"] = finding.column;
        entry["message"] = finding.message;
        findings.push_back(entry);
    }
    Json document = Json::object();
    document["file"] = file;
    document["readable"] = result.parseStatus == XMLPARSER_SUCCESS;
    if (result.parseStatus != XMLPARSER_SUCCESS) {
        document["status"] = statusText(result.parseStatus);
    }
    document["findings"] = findings;
    return document;
}

}  // namespace

int RunCheck(const std::string& installDir, const std::string& file, bool bJson, std::ostream& out,
             std::ostream& err) {
    CToolSession session;
    if (session.Open(installDir) != XMLLOCALQNPOLMGR_SUCCESS) {
        err << "qnpolicy check: cannot set up the policy module\n";
        return kExitFailure;
    }
    const std::string path = file.empty() ? session.PolicyPath() : file;

    CPolicyLinter linter(session.Manager().GetPolicyTransTable());
    LintResult result = linter.LintFile(path);
    const bool bReadable = result.parseStatus == XMLPARSER_SUCCESS;
    if (bReadable) {
        std::vector<LintFinding> attributes = CheckPolicyFileAttributes(path);
        result.findings.insert(result.findings.begin(), attributes.begin(), attributes.end());
    } else {
        err << "qnpolicy check: " << path
            << " is missing, unreadable or not well-formed XML (status "
            << statusText(result.parseStatus) << "; see the log lines above)\n";
    }

    if (bJson) {
        out << toJson(path, result).dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    } else if (bReadable) {
        printText(out, path, result);
    }
    if (!bReadable) {
        return kExitUnreadable;
    }
    return result.findings.empty() ? kExitSuccess : kExitFailure;
}

}  // namespace qnpolicy::tool

// Policy generation: installer arguments to a validated pair of setting maps, and the maps to
// the policy document.

#include <map>
#include <string>

#include "AppLogHere.h"
#include "LocalPolicySettings.h"
#include "QNCSaxWriter.h"
#include "TokenParser.h"
#include "TstringPairList.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlLocalQNPolMgrConstants.h"

using qnpolicy::kAppLogSourceFile;

namespace {

// The SOAP 1.1 encoding namespace: the document's default namespace and its schema location.
constexpr const char* kSoapEncodingNamespace = qnpolicy::kDocumentNamespace;
using qnpolicy::kSchemaFile;
using qnpolicy::kSchemaInstanceNamespace;
constexpr char kServerListDelimiters[] = ",;";

// Without overwrite, an existing policy file is kept, whether it was there when generation
// began or appeared while the new one was being written.
void logExistingFileKept(int line) {
    CAppLog::LogDebugMessage("GenerateLocalPolicy", qnpolicy::kAppLogSourceFile, line,
                             Logging::DBG_Warning, "%s", qnpolicy::kFileKeptMessage);
}

}  // namespace

bool XmlLocalQNPolMgr::GenerateLocalPolicy(char** policyArgs, int numPolicyArgs, bool overwrite) {
    if (policyArgs == nullptr || numPolicyArgs < 0) {
        APPLOG_MESSAGE(DBG_Error, "Invalid Arguments");
        return false;
    }
    if (!overwrite && LocalPolicyFileExists()) {
        logExistingFileKept(__LINE__);
        return true;
    }

    std::map<std::string, std::string> policiesToGen;
    std::map<std::string, std::string> updatePoliciesToGen;
    for (int i = 0; i < numPolicyArgs; ++i) {
        if (policyArgs[i] == nullptr) {
            continue;
        }
        const std::string currArg(policyArgs[i]);
        const std::string::size_type posOfEqual = currArg.find('=');
        if (posOfEqual == std::string::npos) {
            APPLOG_MESSAGE(DBG_Warning,
                           "ignoring invalid argument %s. Arguments in the form "
                           "policy_abbreviation=value expected",
                           currArg.c_str());
            continue;
        }
        const std::string policyAbbrev = currArg.substr(0, posOfEqual);
        std::string policyValue = currArg.substr(posOfEqual + 1);
        if (policyValue.empty()) {
            continue;  // an abbreviation without a value asks for nothing
        }
        const auto row = m_policyTransTable.find(policyAbbrev);
        if (row == m_policyTransTable.end()) {
            APPLOG_MESSAGE(DBG_Warning, "ignoring undefined abbreviation %s", policyAbbrev.c_str());
            continue;
        }
        const LocalPolicySetting& setting = row->second;
        // A refused value is left as given, so the warning quotes the installer's text.
        if (!valueIsAllowed(setting, policyValue)) {
            APPLOG_MESSAGE(DBG_Warning, "%s is not an allowed value for policy %s",
                           policyValue.c_str(), setting.tstrFullName.c_str());
            continue;
        }
        std::map<std::string, std::string>& target =
            setting.bIsUpdatePolicy ? updatePoliciesToGen : policiesToGen;
        std::string& storedValue = target[setting.tstrFullName];
        if (!storedValue.empty()) {
            APPLOG_MESSAGE(DBG_Warning,
                           "ignoring duplicate policy arg %s. The first value will be used",
                           setting.tstrFullName.c_str());
            continue;
        }
        storedValue = policyValue;
    }
    return writeLocalPolicy(policiesToGen, updatePoliciesToGen, overwrite);
}

bool XmlLocalQNPolMgr::writeLocalPolicy(const std::map<std::string, std::string>& policyMap,
                                        const std::map<std::string, std::string>& updatePolicyMap,
                                        bool bReplaceExisting) const {
    QNCSaxWriter xmlWriter(getLocalSecurityPolicyDir(), qnpolicy::kPolicyFileName,
                           qnpolicy::kRootElement);
    xmlWriter.keepExistingFile(!bReplaceExisting);
    TStrPairList rootAttrs;
    rootAttrs.emplace_back("xmlns", kSoapEncodingNamespace);
    rootAttrs.emplace_back("xmlns:xsi", kSchemaInstanceNamespace);
    rootAttrs.emplace_back("xsi:schemaLocation",
                           std::string(kSoapEncodingNamespace) + " " + kSchemaFile);
    rootAttrs.emplace_back(qnpolicy::kVersionAttribute, qnpolicy::kClientVersion);

    // The statuses of the building calls are not examined: the writer records the first
    // failure and writeDocument reports it.
    const std::string& serverListElement =
        FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_LIST)->element;
    const std::string& serverNameElement =
        FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_NAME)->element;
    xmlWriter.startDocument(&rootAttrs);
    for (const auto& policy : policyMap) {
        xmlWriter.startElement(policy.first, nullptr);
        xmlWriter.characters(policy.second);
        xmlWriter.endElement(policy.first);
    }
    if (!updatePolicyMap.empty()) {
        xmlWriter.startElement(qnpolicy::kUpdatePolicyElement, nullptr);
        for (const auto& policy : updatePolicyMap) {
            xmlWriter.startElement(policy.first, nullptr);
            if (policy.first == serverListElement) {
                TTokenParser<char> authorizedListParser(policy.second);
                std::string tstrServerValue;
                while (authorizedListParser.NextToken(tstrServerValue, kServerListDelimiters)) {
                    if (tstrServerValue.empty()) {
                        continue;  // adjacent, leading or trailing separators name no server
                    }
                    xmlWriter.startElement(serverNameElement, nullptr);
                    xmlWriter.characters(tstrServerValue);
                    xmlWriter.endElement(serverNameElement);
                }
            } else {
                xmlWriter.characters(policy.second);
            }
            xmlWriter.endElement(policy.first);
        }
        xmlWriter.endElement(qnpolicy::kUpdatePolicyElement);
    }
    xmlWriter.endDocument();

    const STATUSCODE status = xmlWriter.writeDocument();
    if (status == QNCSAXWRITER_ERROR_FILE_EXISTS) {
        logExistingFileKept(__LINE__);  // another writer's file appeared meanwhile
        return true;
    }
    // QNCSAXWRITER_ERROR_NOT_SYNCED too is reported with its status: the file holds the new
    // document, but the result stays false because its durability is not confirmed.
    if (status != QNCSAXWRITER_SUCCESS) {
        APPLOG_RETURN_CODE(DBG_Error, "QNCSaxWriter::writeDocument", status);
        return false;
    }
    return true;
}

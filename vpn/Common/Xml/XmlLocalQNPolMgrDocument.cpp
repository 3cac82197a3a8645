// SPDX-License-Identifier: Apache-2.0
// Policy generation and the reader, as the manager's operations: thin wrappers over the
// document layer (LocalPolicyDocument.h) that log exactly what the manager logs.

#include <string>

#include "AppLogHere.h"
#include "LocalPolicyDocument.h"
#include "LocalPolicyReader.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlLocalQNPolMgrConstants.h"

using qnpolicy::kAppLogSourceFile;

// The vocabulary's rows are the catalogue's settings that have an abbreviation.
void XmlLocalQNPolMgr::initializePolicyMap() {
    m_policyTransTable = qnpolicy::LocalPolicyVocabulary();
}

bool XmlLocalQNPolMgr::valueIsAllowed(const LocalPolicySetting& policy,
                                      std::string& policyValue) const {
    return qnpolicy::MatchAllowedValue(policy.listAllowedValues, policyValue);
}

bool XmlLocalQNPolMgr::GenerateLocalPolicy(char** policyArgs, int numPolicyArgs, bool overwrite) {
    if (policyArgs == nullptr || numPolicyArgs < 0) {
        APPLOG_MESSAGE(DBG_Error, "Invalid Arguments");
        return false;
    }
    if (!overwrite && LocalPolicyFileExists()) {
        APPLOG_MESSAGE(DBG_Warning, "%s", qnpolicy::kFileKeptMessage);
        return true;
    }
    // The table is looked up and values matched as the vocabulary's operations do.
    qnpolicy::ArgumentCheckOptions options;
    options.findSetting = [this](const std::string& abbreviation) {
        const auto row = m_policyTransTable.find(abbreviation);
        return row == m_policyTransTable.end() ? nullptr
                                               : FindLocalPolicySetting(row->second.tstrFullName);
    };
    options.matchValue = [this](const LocalPolicySettingInfo& setting, std::string& value) {
        return valueIsAllowed(m_policyTransTable.at(setting.abbreviation), value);
    };
    const qnpolicy::ArgumentCheck check =
        qnpolicy::CheckInstallerArguments(policyArgs, static_cast<size_t>(numPolicyArgs), options);
    // One warning per refused argument, in argument order; an empty value asks for nothing
    // and draws none.
    for (const qnpolicy::RefusedArgument& refused : check.refused) {
        const qnpolicy::InstallerArgument& argument = refused.argument;
        switch (refused.eReason) {
            case qnpolicy::ArgumentRefusal::MISSING_EQUALS:
                APPLOG_MESSAGE(DBG_Warning,
                               "ignoring invalid argument %s. Arguments in the form "
                               "policy_abbreviation=value expected",
                               argument.text.c_str());
                break;
            case qnpolicy::ArgumentRefusal::EMPTY_VALUE:
            case qnpolicy::ArgumentRefusal::SERVER_NAME:  // not asked for: never given here
                break;
            case qnpolicy::ArgumentRefusal::UNKNOWN_ABBREVIATION:
                APPLOG_MESSAGE(DBG_Warning, "ignoring undefined abbreviation %s",
                               argument.abbreviation.c_str());
                break;
            case qnpolicy::ArgumentRefusal::VALUE_NOT_ALLOWED:
                APPLOG_MESSAGE(DBG_Warning, "%s is not an allowed value for policy %s",
                               argument.value.c_str(), argument.pSetting->element.c_str());
                break;
            case qnpolicy::ArgumentRefusal::DUPLICATE:
                APPLOG_MESSAGE(DBG_Warning,
                               "ignoring duplicate policy arg %s. The first value will be used",
                               argument.pSetting->element.c_str());
                break;
        }
    }
    return writeLocalPolicy(check.settings.policies, check.settings.updatePolicies, overwrite);
}

bool XmlLocalQNPolMgr::writeLocalPolicy(const std::map<std::string, std::string>& policyMap,
                                        const std::map<std::string, std::string>& updatePolicyMap,
                                        bool bReplaceExisting) const {
    const std::string directory = getLocalSecurityPolicyDir();
    std::string document;
    const STATUSCODE status =
        qnpolicy::RenderPolicyDocument({policyMap, updatePolicyMap}, directory, document);
    if (status != XMLLOCALQNPOLMGR_SUCCESS) {
        APPLOG_RETURN_CODE(DBG_Error, "QNCSaxWriter::writeDocument", status);
        return false;
    }
    switch (qnpolicy::StorePolicyDocument(directory, document, bReplaceExisting).eOutcome) {
        case qnpolicy::StoreResult::WRITTEN:
            return true;
        case qnpolicy::StoreResult::KEPT:
        case qnpolicy::StoreResult::EXISTS:
            // Another writer's file appeared since GenerateLocalPolicy looked: kept, as if it
            // had been there from the start.
            APPLOG_MESSAGE_AS("GenerateLocalPolicy", DBG_Warning, "%s", qnpolicy::kFileKeptMessage);
            return true;
        case qnpolicy::StoreResult::NOT_SYNCED:
        case qnpolicy::StoreResult::FAILED:
            break;  // logged by the store; a replaced file that is not synced counts as failed
    }
    return false;
}

// The reader: the parse events of the policy file, applied to the manager's own fields. The
// view is built inline for each event, so that the reader's work is all a callback costs.

inline qnpolicy::ReaderState XmlLocalQNPolMgr::readerState() {
    return {m_LocalQNPolicyInfo, m_bFileUseFIPSMode,      m_currentElement,
            m_pCurrentSetting,   m_bAuthorizedServerList, m_bUpdatePolicySection};
}

void XmlLocalQNPolMgr::addElement(const std::string& elementName) {
    if (!m_retiredServers.empty()) {
        m_retiredServers.clear();  // the parser's buffers are in place (see the load)
    }
    qnpolicy::ReaderState state = readerState();
    qnpolicy::reader::addElement(state, elementName);
}

void XmlLocalQNPolMgr::endElement(const std::string& elementName) {
    qnpolicy::ReaderState state = readerState();
    qnpolicy::reader::endElement(state, elementName);
}

void XmlLocalQNPolMgr::setElementValue(const std::string& elementValue) {
    qnpolicy::ReaderState state = readerState();
    qnpolicy::reader::setElementValue(state, elementValue);
}

void XmlLocalQNPolMgr::addAttribute(const std::string& attributeName,
                                    const std::string& attributeValue) {
    qnpolicy::ReaderState state = readerState();
    qnpolicy::reader::addAttribute(state, attributeName, attributeValue);
}

// SPDX-License-Identifier: Apache-2.0
// The manager: its lifecycle, the policy file's location, loading with FIPS retention,
// generation, and every log record of the module. A record names this file's path and the line
// of the statement that wrote it; the reader and the document layer write theirs through the
// functions of XmlLocalQNPolMgrRecords.h, defined at the end of this file.

#include "XmlLocalQNPolMgr.h"

#include <string>

#include "AppLog.h"
#include "InstanceSmartPtr.h"
#include "LocalPolicyDocument.h"
#include "LocalPolicyReader.h"
#include "ProcessWideInstance.h"
#include "StoragePath.h"
#include "XmlLocalQNPolMgrRecords.h"
#include "sysutils.h"

namespace {

// The source path every record of the module names; the client's log readers know it.
constexpr char kModuleSource[] = "vpn/Common/Xml/XmlLocalQNPolMgr";

// The warning of a generation that keeps an existing file (no overwrite).
constexpr char kFileKeptMessage[] =
    "Local Security Policy file already exists and therefore will not be generated";

}  // namespace

// The lock is defined first so that it is constructed before any other static object of
// the module; its constructor is constexpr, so it is constant-initialised and usable from any
// other static initialiser. sm_pInstance and sm_uiAcquisitionCount are constant-initialised.
CManualLock XmlLocalQNPolMgr::sm_instanceLock(500);
XmlLocalQNPolMgr* XmlLocalQNPolMgr::sm_pInstance = nullptr;
unsigned int XmlLocalQNPolMgr::sm_uiAcquisitionCount = 0;

XmlLocalQNPolMgr::XmlLocalQNPolMgr()
    : m_bFileUseFIPSMode(false),
      m_retainedFipsMode(NONE),
      m_bFipsModeModifiedOnDisk(false),
      m_bAuthorizedServerList(false),
      m_bUpdatePolicySection(false),
      m_pReader(std::make_unique<qnpolicy::PolicyReader>(
          m_LocalQNPolicyInfo, m_bFileUseFIPSMode, m_currentElement, m_pCurrentSetting,
          m_bAuthorizedServerList, m_bUpdatePolicySection)) {
    initializePolicyMap();
}

XmlLocalQNPolMgr::~XmlLocalQNPolMgr() = default;

STATUSCODE XmlLocalQNPolMgr::createSingletonInstance(XmlLocalQNPolMgr*& rpXmlLocalQNPolMgr) {
    // The registration owns the manager until the last releaseInstance deletes it.
    return qnprocesswide::create(rpXmlLocalQNPolMgr, sm_pInstance, sm_uiAcquisitionCount,
                                 sm_instanceLock, XMLLOCALQNPOLMGR_ERROR_ALREADY_INITIALIZED,
                                 [] { return new XmlLocalQNPolMgr(); });
}

XmlLocalQNPolMgr* XmlLocalQNPolMgr::acquireInstance() {
    return qnprocesswide::acquire(sm_pInstance, sm_uiAcquisitionCount, sm_instanceLock);
}

void XmlLocalQNPolMgr::releaseInstance() {
    // The destructor runs under the lock; it calls none of the instance operations.
    qnprocesswide::release(this, sm_pInstance, sm_uiAcquisitionCount, sm_instanceLock,
                           [this] { delete this; });
}

unsigned int XmlLocalQNPolMgr::GetAcquisitionCount() {
    return qnprocesswide::count(sm_uiAcquisitionCount, sm_instanceLock);
}

LocalQNPolicyInfo XmlLocalQNPolMgr::GetLocalPolicyInfo() {
    return m_LocalQNPolicyInfo;
}

void XmlLocalQNPolMgr::ResetLocalPolicyInfo() {
    m_LocalQNPolicyInfo.Reset();
}

std::map<std::string, LocalPolicySetting> XmlLocalQNPolMgr::GetPolicyTransTable() {
    return m_policyTransTable;
}

// ---- The policy file's location ----

STATUSCODE XmlLocalQNPolMgr::getLocalSecurityPolicyDir(
    std::string& rtstrLocalSecurityPolicyDir) const {
    rtstrLocalSecurityPolicyDir.clear();
    CInstanceSmartPtr<CStoragePath> ispStoragePath(CStoragePath::acquireInstance());
    if (ispStoragePath == nullptr) {
        CAppLog::LogReturnCode("getLocalSecurityPolicyDir", kModuleSource, __LINE__,
                               Logging::DBG_Error, "CInstanceSmartPtr<StoragePath>",
                               CSTORAGEPATH_ERROR_NO_INSTANCE, nullptr, nullptr);
        return CSTORAGEPATH_ERROR_NO_INSTANCE;
    }
    rtstrLocalSecurityPolicyDir = ispStoragePath->GetMainPath(0, false);
    return XMLLOCALQNPOLMGR_SUCCESS;
}

std::string XmlLocalQNPolMgr::getLocalSecurityPolicyDir() const {
    std::string tstrDir;
    const STATUSCODE status = getLocalSecurityPolicyDir(tstrDir);
    if (status != XMLLOCALQNPOLMGR_SUCCESS) {
        CAppLog::LogReturnCode("getLocalSecurityPolicyDir", kModuleSource, __LINE__,
                               Logging::DBG_Error, "XmlLocalQNPolMgr::getLocalSecurityPolicyDir",
                               static_cast<uint32_t>(status), nullptr, nullptr);
        return std::string();
    }
    return tstrDir;
}

bool XmlLocalQNPolMgr::LocalPolicyFileExists() {
    return qnsys::fileExists(getLocalSecurityPolicyDir() + qnpolicy::kPolicyFileName);
}

STATUSCODE XmlLocalQNPolMgr::GetLocalPolicyLocation(std::string& rtstrLocalPolicyDirPath,
                                                    std::string& rtstrLocalPolicyFileName) const {
    const STATUSCODE status = getLocalSecurityPolicyDir(rtstrLocalPolicyDirPath);
    if (status != XMLLOCALQNPOLMGR_SUCCESS) {
        CAppLog::LogReturnCode("GetLocalPolicyLocation", kModuleSource, __LINE__,
                               Logging::DBG_Error, "XmlLocalQNPolMgr::getLocalSecurityPolicyDir",
                               static_cast<uint32_t>(status), nullptr, nullptr);
        return status;
    }
    rtstrLocalPolicyFileName = qnpolicy::kPolicyFileName;
    return XMLLOCALQNPOLMGR_SUCCESS;
}

// ---- Loading ----

STATUSCODE XmlLocalQNPolMgr::LoadLocalQuillnetPolicy() {
    // The record is reset first, as always; its server names, which may be a hundred thousand
    // small blocks, are released only once the parser has made its large allocations (at the
    // first element; see addElement). Freed before those, they would be merged back into large
    // free blocks by the allocator and carved up again one by one for the new list; freed just
    // before the new list is built, each block is taken again at once. Either way they are gone
    // when the load returns.
    m_retiredServers.swap(m_LocalQNPolicyInfo.msl_AuthorizedServerList);
    struct RetiredRelease {
        std::list<std::string>& rRetired;
        ~RetiredRelease() { rRetired.clear(); }
    } release{m_retiredServers};
    m_LocalQNPolicyInfo.Reset();
    if (!LocalPolicyFileExists()) {
        return XMLLOCALQNPOLMGR_SUCCESS;
    }
    // The directory is looked up a second time, as the client's load always has.
    const std::string tstrPath = getLocalSecurityPolicyDir() + qnpolicy::kPolicyFileName;
    const qnpolicy::PolicyLoad load =
        qnpolicy::LoadPolicyDocument(tstrPath, qnpolicy::DocumentSource(), *this, *m_pReader,
                                     qnpolicy::ReadOptions(), m_retainedFipsMode);
    if (load.status == XMLLOCALQNPOLMGR_SUCCESS) {
        m_bFipsModeModifiedOnDisk = load.bFileDisagrees;
    }
    return load.status;
}

// The reader: the parse events of the policy file, handed to the reader bound to the
// manager's own fields.

void XmlLocalQNPolMgr::addElement(const std::string& elementName) {
    if (!m_retiredServers.empty()) {
        m_retiredServers.clear();  // the parser's buffers are in place (see the load)
    }
    m_pReader->addElement(elementName);
}

void XmlLocalQNPolMgr::endElement(const std::string& elementName) {
    m_pReader->endElement(elementName);
}

void XmlLocalQNPolMgr::setElementValue(const std::string& elementValue) {
    m_pReader->setElementValue(elementValue);
}

void XmlLocalQNPolMgr::addAttribute(const std::string& attributeName,
                                    const std::string& attributeValue) {
    m_pReader->addAttribute(attributeName, attributeValue);
}

// ---- Generation ----

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
        CAppLog::LogDebugMessage("GenerateLocalPolicy", kModuleSource, __LINE__, Logging::DBG_Error,
                                 "Invalid Arguments");
        return false;
    }
    if (!overwrite && LocalPolicyFileExists()) {
        CAppLog::LogDebugMessage("GenerateLocalPolicy", kModuleSource, __LINE__,
                                 Logging::DBG_Warning, "%s", kFileKeptMessage);
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
                CAppLog::LogDebugMessage("GenerateLocalPolicy", kModuleSource, __LINE__,
                                         Logging::DBG_Warning,
                                         "ignoring invalid argument %s. Arguments in the form "
                                         "policy_abbreviation=value expected",
                                         argument.text.c_str());
                break;
            case qnpolicy::ArgumentRefusal::EMPTY_VALUE:
            case qnpolicy::ArgumentRefusal::SERVER_NAME:  // not asked for: never given here
                break;
            case qnpolicy::ArgumentRefusal::UNKNOWN_ABBREVIATION:
                CAppLog::LogDebugMessage("GenerateLocalPolicy", kModuleSource, __LINE__,
                                         Logging::DBG_Warning, "ignoring undefined abbreviation %s",
                                         argument.abbreviation.c_str());
                break;
            case qnpolicy::ArgumentRefusal::VALUE_NOT_ALLOWED:
                CAppLog::LogDebugMessage(
                    "GenerateLocalPolicy", kModuleSource, __LINE__, Logging::DBG_Warning,
                    "%s is not an allowed value for policy %s", argument.value.c_str(),
                    argument.pSetting->element.c_str());
                break;
            case qnpolicy::ArgumentRefusal::DUPLICATE:
                CAppLog::LogDebugMessage(
                    "GenerateLocalPolicy", kModuleSource, __LINE__, Logging::DBG_Warning,
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
        CAppLog::LogReturnCode("writeLocalPolicy", kModuleSource, __LINE__, Logging::DBG_Error,
                               "QNCSaxWriter::writeDocument", static_cast<uint32_t>(status),
                               nullptr, nullptr);
        return false;
    }
    switch (qnpolicy::StorePolicyDocument(directory, document, bReplaceExisting).eOutcome) {
        case qnpolicy::StoreResult::WRITTEN:
            return true;
        case qnpolicy::StoreResult::KEPT:
        case qnpolicy::StoreResult::EXISTS:
            // Another writer's file appeared since GenerateLocalPolicy looked: kept, as if it
            // had been there from the start.
            CAppLog::LogDebugMessage("GenerateLocalPolicy", kModuleSource, __LINE__,
                                     Logging::DBG_Warning, "%s", kFileKeptMessage);
            return true;
        case qnpolicy::StoreResult::NOT_SYNCED:
        case qnpolicy::StoreResult::FAILED:
            break;  // logged by the store; a replaced file that is not synced counts as failed
    }
    return false;
}

// ---- The records written on behalf of the reader and the document layer ----

namespace qnpolicy::records {

void StructureIncorrect() {
    CAppLog::LogDebugMessage("setElementValue", kModuleSource, __LINE__, Logging::DBG_Warning, "%s",
                             "Local Policy XML structure is incorrect.");
}

void NewerVersion() {
    CAppLog::LogDebugMessage("addAttribute", kModuleSource, __LINE__, Logging::DBG_Warning, "%s",
                             "The parsed Local Security Policy File version is newer than the "
                             "current Quillnet Client. Unexpected behaviors can result.");
}

void LoadFailed(const char* callee, STATUSCODE status) {
    CAppLog::LogReturnCode("LoadLocalQuillnetPolicy", kModuleSource, __LINE__, Logging::DBG_Error,
                           callee, static_cast<uint32_t>(status), nullptr, nullptr);
}

void FipsMode(bool bEnabled) {
    CAppLog::LogDebugMessage("LoadLocalQuillnetPolicy", kModuleSource, __LINE__,
                             Logging::DBG_Informational, "FIPS mode is %s.",
                             bEnabled ? "enabled" : "disabled");
}

void StoreFailed(STATUSCODE status) {
    CAppLog::LogReturnCode("writeLocalPolicy", kModuleSource, __LINE__, Logging::DBG_Error,
                           "QNCSaxWriter::writeDocument", static_cast<uint32_t>(status), nullptr,
                           nullptr);
}

}  // namespace qnpolicy::records

// SPDX-License-Identifier: Apache-2.0
// The manager's lifecycle, the policy file's location, and loading with FIPS retention.

#include "XmlLocalQNPolMgr.h"

#include "AppLogHere.h"
#include "InstanceSmartPtr.h"
#include "LocalPolicyDocument.h"
#include "ProcessWideInstance.h"
#include "StoragePath.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlParser.h"
#include "sysutils.h"

using qnpolicy::kAppLogSourceFile;

// The lock is defined first so that it is constructed before any other static object of
// the module. sm_pInstance and sm_uiAcquisitionCount are constant-initialised.
CManualLock XmlLocalQNPolMgr::sm_instanceLock(500);
XmlLocalQNPolMgr* XmlLocalQNPolMgr::sm_pInstance = nullptr;
unsigned int XmlLocalQNPolMgr::sm_uiAcquisitionCount = 0;

XmlLocalQNPolMgr::XmlLocalQNPolMgr()
    : m_bFileUseFIPSMode(false),
      m_retainedFipsMode(NONE),
      m_bFipsModeModifiedOnDisk(false),
      m_bAuthorizedServerList(false),
      m_bUpdatePolicySection(false) {
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

STATUSCODE XmlLocalQNPolMgr::getLocalSecurityPolicyDir(
    std::string& rtstrLocalSecurityPolicyDir) const {
    rtstrLocalSecurityPolicyDir.clear();
    CInstanceSmartPtr<CStoragePath> ispStoragePath(CStoragePath::acquireInstance());
    if (ispStoragePath == nullptr) {
        APPLOG_RETURN_CODE(DBG_Error, "CInstanceSmartPtr<StoragePath>",
                           CSTORAGEPATH_ERROR_NO_INSTANCE);
        return CSTORAGEPATH_ERROR_NO_INSTANCE;
    }
    rtstrLocalSecurityPolicyDir = ispStoragePath->GetMainPath(0, false);
    return XMLLOCALQNPOLMGR_SUCCESS;
}

std::string XmlLocalQNPolMgr::getLocalSecurityPolicyDir() const {
    std::string tstrDir;
    const STATUSCODE status = getLocalSecurityPolicyDir(tstrDir);
    if (status != XMLLOCALQNPOLMGR_SUCCESS) {
        APPLOG_RETURN_CODE(DBG_Error, "XmlLocalQNPolMgr::getLocalSecurityPolicyDir", status);
        return std::string();
    }
    return tstrDir;
}

bool XmlLocalQNPolMgr::LocalPolicyFileExists() {
    return fileExists(getLocalSecurityPolicyDir() + qnpolicy::kPolicyFileName);
}

STATUSCODE XmlLocalQNPolMgr::GetLocalPolicyLocation(std::string& rtstrLocalPolicyDirPath,
                                                    std::string& rtstrLocalPolicyFileName) const {
    const STATUSCODE status = getLocalSecurityPolicyDir(rtstrLocalPolicyDirPath);
    if (status != XMLLOCALQNPOLMGR_SUCCESS) {
        APPLOG_RETURN_CODE(DBG_Error, "XmlLocalQNPolMgr::getLocalSecurityPolicyDir", status);
        return status;
    }
    rtstrLocalPolicyFileName = qnpolicy::kPolicyFileName;
    return XMLLOCALQNPOLMGR_SUCCESS;
}

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

    XmlParser xmlParser(this);
    m_bFileUseFIPSMode = false;
    // A parse that stopped inside a section must not change how the next file is read.
    m_currentElement = std::string_view();
    m_pCurrentSetting = nullptr;
    m_bAuthorizedServerList = false;
    m_bUpdatePolicySection = false;

    const std::string tstrPath = getLocalSecurityPolicyDir() + qnpolicy::kPolicyFileName;
    const STATUSCODE status = xmlParser.parseFile(tstrPath, true);
    if (status != XMLLOCALQNPOLMGR_SUCCESS) {
        APPLOG_RETURN_CODE(DBG_Error, "XmlParser::parseFile", status);
        return status;
    }

    m_bFipsModeModifiedOnDisk = qnpolicy::ApplyFipsRetention(m_retainedFipsMode, m_bFileUseFIPSMode,
                                                             m_LocalQNPolicyInfo, true);
    return XMLLOCALQNPOLMGR_SUCCESS;
}

// SPDX-License-Identifier: Apache-2.0
#include "StoragePath.h"

#include "ProcessWideInstance.h"

CStoragePath* CStoragePath::sm_pInstance = nullptr;
unsigned int CStoragePath::sm_uiAcquisitionCount = 0;
CManualLock CStoragePath::sm_instanceLock(500);

CStoragePath::CStoragePath(const std::string& tstrMainPath) : m_tstrMainPath(tstrMainPath) {}

STATUSCODE CStoragePath::createSingletonInstance(CStoragePath*& rpStoragePath,
                                                 const std::string& tstrMainPath) {
    return qnprocesswide::create(rpStoragePath, sm_pInstance, sm_uiAcquisitionCount,
                                 sm_instanceLock, CSTORAGEPATH_ERROR_ALREADY_INITIALIZED,
                                 [&tstrMainPath] { return new CStoragePath(tstrMainPath); });
}

CStoragePath* CStoragePath::acquireInstance() {
    return qnprocesswide::acquire(sm_pInstance, sm_uiAcquisitionCount, sm_instanceLock);
}

void CStoragePath::releaseInstance() {
    qnprocesswide::release(this, sm_pInstance, sm_uiAcquisitionCount, sm_instanceLock,
                           [this] { delete this; });
}

unsigned int CStoragePath::GetAcquisitionCount() {
    return qnprocesswide::count(sm_uiAcquisitionCount, sm_instanceLock);
}

std::string CStoragePath::GetMainPath(long /*lPathType*/, bool /*bCreate*/) const {
    return m_tstrMainPath;
}

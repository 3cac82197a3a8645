#include "StoragePath.h"

CStoragePath* CStoragePath::sm_pInstance = nullptr;
unsigned int CStoragePath::sm_uiAcquisitionCount = 0;
CManualLock CStoragePath::sm_instanceLock(500);

CStoragePath::CStoragePath(const std::string& tstrMainPath) : m_tstrMainPath(tstrMainPath) {}

STATUSCODE CStoragePath::createSingletonInstance(CStoragePath*& rpStoragePath,
                                                 const std::string& tstrMainPath) {
    rpStoragePath = nullptr;
    CAutoLockT<CManualLock> guard(sm_instanceLock);
    if (sm_pInstance != nullptr || sm_uiAcquisitionCount != 0) {
        return CSTORAGEPATH_ERROR_ALREADY_INITIALIZED;
    }
    sm_pInstance = new CStoragePath(tstrMainPath);
    sm_uiAcquisitionCount = 1;
    rpStoragePath = sm_pInstance;
    return CSTORAGEPATH_SUCCESS;
}

CStoragePath* CStoragePath::acquireInstance() {
    CAutoLockT<CManualLock> guard(sm_instanceLock);
    if (sm_pInstance != nullptr) {
        ++sm_uiAcquisitionCount;
    }
    return sm_pInstance;
}

void CStoragePath::releaseInstance() {
    CAutoLockT<CManualLock> guard(sm_instanceLock);
    if (this == sm_pInstance) {
        if (--sm_uiAcquisitionCount > 0) {
            return;
        }
        sm_pInstance = nullptr;
    }
    delete this;
}

unsigned int CStoragePath::GetAcquisitionCount() {
    CAutoLockT<CManualLock> guard(sm_instanceLock);
    return sm_uiAcquisitionCount;
}

std::string CStoragePath::GetMainPath(long /*lPathType*/, bool /*bCreate*/) const {
    return m_tstrMainPath;
}

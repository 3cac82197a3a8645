// SPDX-License-Identifier: Apache-2.0
#include "StoragePath.h"

#include "ProcessWideInstance.h"

CStoragePath* CStoragePath::sm_pInstance = nullptr;
unsigned int CStoragePath::sm_uiAcquisitionCount = 0;
CManualLock CStoragePath::sm_instanceLock(500);

namespace {

// path with exactly one trailing separator; an empty path stays empty.
std::string withOneTrailingSeparator(const std::string& path) {
    if (path.empty()) {
        return path;
    }
    const std::string::size_type last = path.find_last_not_of('/');
    return (last == std::string::npos ? std::string() : path.substr(0, last + 1)) + '/';
}

}  // namespace

CStoragePath::CStoragePath(const std::string& tstrMainPath)
    : m_tstrMainPath(withOneTrailingSeparator(tstrMainPath)) {}

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

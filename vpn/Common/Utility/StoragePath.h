// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_STORAGEPATH_H
#define QUILLNET_STORAGEPATH_H

#include <string>

#include "GenDefs.h"
#include "GlobalStatuscodes.h"
#include "Locks.h"
#include "QuillnetExport.h"

// Status codes of the installation-path service (block 0x9E).
enum CSTORAGEPATH_ERRORS : STATUSCODE {
    CSTORAGEPATH_SUCCESS = 0,
    CSTORAGEPATH_NOTERROR_BASEVALUE = STATUSCODE_BLOCK_BASE(0x9E),
    CSTORAGEPATH_ERROR_NOT_IMPLEMENTED =
        CSTORAGEPATH_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_NOT_IMPLEMENTED,
    CSTORAGEPATH_ERROR_BAD_PARAMETER =
        CSTORAGEPATH_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_BAD_PARAMETER,
    CSTORAGEPATH_ERROR_BAD_HANDLE = CSTORAGEPATH_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_BAD_HANDLE,
    CSTORAGEPATH_ERROR_MEMALLOC_FAILED =
        CSTORAGEPATH_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_MEMALLOC_FAILED,
    CSTORAGEPATH_ERROR_NULL_POINTER =
        CSTORAGEPATH_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_NULL_POINTER,
    CSTORAGEPATH_ERROR_INSUFFICIENT_BUFFER =
        CSTORAGEPATH_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_INSUFFICIENT_BUFFER,
    CSTORAGEPATH_ERROR_NOT_INITIALIZED =
        CSTORAGEPATH_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_NOT_INITIALIZED,
    CSTORAGEPATH_ERROR_ALREADY_INITIALIZED =
        CSTORAGEPATH_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_ALREADY_INITIALIZED,
    CSTORAGEPATH_ERROR_UNEXPECTED = CSTORAGEPATH_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_UNEXPECTED,
    CSTORAGEPATH_ERROR_NO_INSTANCE =
        CSTORAGEPATH_NOTERROR_BASEVALUE + STATUSCODE_OFFSET_NO_INSTANCE,
    CSTORAGEPATH_ERROR_UNKNOWN = CSTORAGEPATH_NOTERROR_BASEVALUE + 11,
};

// CStoragePath is the client's installation-path service: one process-wide object that
// knows the main installation directory.
//
//   CStoragePath* pStoragePath = nullptr;
//   CStoragePath::createSingletonInstance(pStoragePath, "/opt/quillnet/");  // count 1
//   ...
//   CInstanceSmartPtr<CStoragePath> isp(CStoragePath::acquireInstance()); // count + 1
//   std::string dir = isp->GetMainPath(0, false);
//   ...
//   pStoragePath->releaseInstance();  // the last release destroys the service
//
// The main path is a directory kept with exactly one trailing separator, however it was given:
// "/opt/client", "/opt/client/" and "/opt/client//" are all "/opt/client/", so the policy
// file's path, the directory followed by the file name, is always inside it. An empty text
// stays empty: no installation directory.
//
// A second creation while one is registered fails with CSTORAGEPATH_ERROR_ALREADY_INITIALIZED
// and a null out-parameter. All four instance operations are serialised by one lock.
class QUILLNET_API CStoragePath {
  public:
    static STATUSCODE createSingletonInstance(CStoragePath*& rpStoragePath,
                                              const std::string& tstrMainPath);
    // The registered service, counted; null (count unchanged) when none is registered.
    static CStoragePath* acquireInstance();
    // Gives back one acquisition; the last one destroys the service.
    void releaseInstance();
    static unsigned int GetAcquisitionCount();

    // The main path given at creation, with exactly one trailing separator (empty when it was
    // given empty). Both arguments are ignored.
    std::string GetMainPath(long lPathType, bool bCreate) const;

    CStoragePath(const CStoragePath&) = delete;
    CStoragePath& operator=(const CStoragePath&) = delete;

  private:
    explicit CStoragePath(const std::string& tstrMainPath);
    virtual ~CStoragePath() = default;

    std::string m_tstrMainPath;

    static CStoragePath* sm_pInstance;
    static unsigned int sm_uiAcquisitionCount;
    static CManualLock sm_instanceLock;
};

#endif  // QUILLNET_STORAGEPATH_H

// SPDX-License-Identifier: Apache-2.0
// A client with a Locks.h of its own (tests/consumer/include/), included before the library's
// headers, which include their own Locks.h: each header keeps its declarations, and the manager
// loads as usual.

#include "Locks.h"  // the client's own

#include <cstdio>

#include <quillnet/StoragePath.h>
#include <quillnet/XmlLocalQNPolMgr.h>

int main() {
    ClientLock clientLock;  // declared by the client's Locks.h
    clientLock.holders = 1;
    CManualLock libraryLock(500);  // declared by the library's Locks.h
    CAutoLockT<CManualLock> guard(libraryLock);

    CStoragePath* pStoragePath = nullptr;
    XmlLocalQNPolMgr* pMgr = nullptr;
    if (CStoragePath::createSingletonInstance(pStoragePath, "/nonexistent-quillnet/") != 0 ||
        XmlLocalQNPolMgr::createSingletonInstance(pMgr) != XMLLOCALQNPOLMGR_SUCCESS) {
        std::fprintf(stderr, "client_header_named_locks: cannot register the services\n");
        return 1;
    }
    const STATUSCODE status = pMgr->LoadLocalQuillnetPolicy();
    pMgr->releaseInstance();
    pStoragePath->releaseInstance();
    if (status != XMLLOCALQNPOLMGR_SUCCESS || clientLock.holders != 1) {
        std::fprintf(stderr, "client_header_named_locks: load returned 0x%lX\n",
                     static_cast<unsigned long>(status));
        return 1;
    }
    return 0;
}

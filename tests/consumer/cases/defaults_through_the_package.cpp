// SPDX-License-Identifier: Apache-2.0
// Uses the installed package the way a client component does: registers the installation
// path, creates the manager, loads (no file: defaults) and reads the record, and lists the
// settings from the installed catalogue: every one with an abbreviation is in the vocabulary.
// The client has a Locks.h of its own (tests/consumer/include/), included before the library's
// headers, which include their own Locks.h: each header keeps its declarations.

#include "Locks.h"  // the client's own

#include <cstdio>

#include <quillnet/LocalPolicySettings.h>
#include <quillnet/StoragePath.h>
#include <quillnet/StringUtils.h>
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
        std::fprintf(stderr, "consumer: cannot register the services\n");
        return 1;
    }
    const bool bLoaded = pMgr->LoadLocalQuillnetPolicy() == XMLLOCALQNPOLMGR_SUCCESS;
    const LocalQNPolicyInfo info = pMgr->GetLocalPolicyInfo();
    size_t installerSettings = 0;
    for (const LocalPolicySettingInfo& setting : LocalPolicySettings()) {
        installerSettings += setting.abbreviation.empty() ? 0 : 1;
    }
    const bool bDefaults = !info.UseFIPSMode() && info.IsSoftwareUpdateAllowed() &&
                           installerSettings > 0 &&
                           pMgr->GetPolicyTransTable().size() == installerSettings;
    const SecureString<std::string> secret("consumer");
    pMgr->releaseInstance();
    pStoragePath->releaseInstance();
    if (!bLoaded || !bDefaults || secret.length() != 8 || clientLock.holders != 1) {
        std::fprintf(stderr, "consumer: unexpected result (loaded %d, defaults %d)\n", bLoaded,
                     bDefaults);
        return 1;
    }
    std::printf("consumer: defaults read through the installed package\n");
    return 0;
}

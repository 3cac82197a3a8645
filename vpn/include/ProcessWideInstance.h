// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_PROCESSWIDEINSTANCE_H
#define QUILLNET_PROCESSWIDEINSTANCE_H

// The bookkeeping shared by the client's process-wide services: one registered instance, its
// count of outstanding acquisitions, and the lock that guards both. Each service keeps the
// three as its own statics and implements its four instance operations with these helpers,
// so that every service counts, refuses and destroys exactly alike. Internal: not installed.

#include "GenDefs.h"
#include "Locks.h"

namespace qnprocesswide {

// Registers the instance made by makeInstance() and counts it as the first acquisition.
// While one is registered (or still counted) nothing is made, rpOut stays null and
// alreadyInitialized is returned.
template <typename T, typename MakeInstance>
STATUSCODE create(T*& rpOut, T*& rpRegistered, unsigned int& ruiCount, CManualLock& rLock,
                  STATUSCODE alreadyInitialized, MakeInstance makeInstance) {
    rpOut = nullptr;
    CAutoLockT<CManualLock> guard(rLock);
    if (rpRegistered != nullptr || ruiCount != 0) {
        return alreadyInitialized;
    }
    rpRegistered = makeInstance();
    ruiCount = 1;
    rpOut = rpRegistered;
    return 0;
}

// The registered instance, counted; null, and the count unchanged, when none is registered.
template <typename T>
T* acquire(T* const& rpRegistered, unsigned int& ruiCount, CManualLock& rLock) {
    CAutoLockT<CManualLock> guard(rLock);
    if (rpRegistered != nullptr) {
        ++ruiCount;
    }
    return rpRegistered;
}

// Gives back one acquisition of pInstance. The last one unregisters it and runs destroy()
// while still holding the lock; an instance that is not the registered one is destroyed at
// once and the count is not touched. destroy() must not call these operations.
template <typename T, typename Destroy>
void release(const T* pInstance, T*& rpRegistered, unsigned int& ruiCount, CManualLock& rLock,
             Destroy destroy) {
    CAutoLockT<CManualLock> guard(rLock);
    if (pInstance == rpRegistered) {
        if (--ruiCount > 0) {
            return;
        }
        rpRegistered = nullptr;
    }
    destroy();
}

inline unsigned int count(const unsigned int& ruiCount, CManualLock& rLock) {
    CAutoLockT<CManualLock> guard(rLock);
    return ruiCount;
}

}  // namespace qnprocesswide

#endif  // QUILLNET_PROCESSWIDEINSTANCE_H

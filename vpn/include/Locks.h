// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_LOCKS_H
#define QUILLNET_LOCKS_H

#include <mutex>

// CManualLock is a non-recursive mutual-exclusion lock with explicit Lock() and Unlock().
// The constructor's argument (historically a spin count) is accepted and ignored: the lock
// is a plain mutex. Prefer CAutoLockT to pairing Lock() and Unlock() by hand.
//
// The constructor is constexpr so that a lock with static storage duration is constant-
// initialised: it is usable from any other static initialiser, whatever the order in which
// translation units are initialised.
class CManualLock {
  public:
    constexpr explicit CManualLock(unsigned long /*ulSpinCount*/) {}
    virtual ~CManualLock() = default;
    CManualLock(const CManualLock&) = delete;
    CManualLock& operator=(const CManualLock&) = delete;

    void Lock() { m_mutex.lock(); }
    void Unlock() { m_mutex.unlock(); }

  private:
    std::mutex m_mutex;
};

// CAutoLockT holds a lock for its own lifetime: it locks the given lock when constructed
// and unlocks it when destroyed, also when the scope is left by an exception.
//
//   CAutoLockT<CManualLock> guard(sm_instanceLock);
template <typename LockT>
class CAutoLockT {
  public:
    explicit CAutoLockT(LockT& rLock) : m_rLock(rLock) { m_rLock.Lock(); }
    ~CAutoLockT() { m_rLock.Unlock(); }
    CAutoLockT(const CAutoLockT&) = delete;
    CAutoLockT& operator=(const CAutoLockT&) = delete;

  private:
    LockT& m_rLock;
};

#endif  // QUILLNET_LOCKS_H

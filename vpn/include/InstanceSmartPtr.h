// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_INSTANCESMARTPTR_H
#define QUILLNET_INSTANCESMARTPTR_H

#include <cstddef>

// CInstanceSmartPtr holds one acquisition of a process-wide service and gives it back:
// when it goes out of scope (normally or by an exception) it calls releaseInstance() on the
// pointer it holds, unless that pointer is null.
//
//   CInstanceSmartPtr<CStoragePath> ispStoragePath(CStoragePath::acquireInstance());
//   if (ispStoragePath == nullptr) { ... no service ... }
//   ispStoragePath->GetMainPath(0, false);
template <typename T>
class CInstanceSmartPtr {
  public:
    explicit CInstanceSmartPtr(T* pInstance) : m_pInstance(pInstance) {}
    ~CInstanceSmartPtr() {
        if (m_pInstance != nullptr) {
            m_pInstance->releaseInstance();
        }
    }
    CInstanceSmartPtr(const CInstanceSmartPtr&) = delete;
    CInstanceSmartPtr& operator=(const CInstanceSmartPtr&) = delete;

    T* get() const { return m_pInstance; }
    T* operator->() const { return m_pInstance; }
    T& operator*() const { return *m_pInstance; }
    bool operator==(std::nullptr_t) const { return m_pInstance == nullptr; }
    bool operator!=(std::nullptr_t) const { return m_pInstance != nullptr; }

  private:
    T* m_pInstance;
};

#endif  // QUILLNET_INSTANCESMARTPTR_H

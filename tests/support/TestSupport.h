#ifndef QN_TESTS_TESTSUPPORT_H
#define QN_TESTS_TESTSUPPORT_H

// Helpers shared by the test suites.

#include <mutex>
#include <string>
#include <vector>

#include "AppLog.h"
#include "StoragePath.h"
#include "XmlLocalQNPolMgr.h"

namespace qntest {

// A fresh directory under $TMPDIR (or /tmp), removed with its content on destruction.
// path() ends with '/'.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    // Writes content to path() + name and returns the full path.
    std::string write(const std::string& name, const std::string& content) const;

  private:
    std::string m_path;
};

// Reads a whole file; empty when it cannot be read.
std::string readFile(const std::string& path);

// Captures every log record while it lives, then restores the previous sink.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<CAppLogRecord> records() const;
    void clear();

  private:
    mutable std::mutex m_lock;
    std::vector<CAppLogRecord> m_records;
    CAppLogSink m_previous;
};

// Registers the installation-path service on a directory for its lifetime.
class StoragePathScope {
  public:
    explicit StoragePathScope(const std::string& mainPath);
    ~StoragePathScope();
    StoragePathScope(const StoragePathScope&) = delete;
    StoragePathScope& operator=(const StoragePathScope&) = delete;

  private:
    CStoragePath* m_pStoragePath = nullptr;
};

// Registers the process-wide manager for its lifetime (creation is the first acquisition).
class ManagerScope {
  public:
    ManagerScope();
    ~ManagerScope();
    ManagerScope(const ManagerScope&) = delete;
    ManagerScope& operator=(const ManagerScope&) = delete;

    XmlLocalQNPolMgr* operator->() const { return m_pMgr; }
    XmlLocalQNPolMgr& operator*() const { return *m_pMgr; }
    XmlLocalQNPolMgr* get() const { return m_pMgr; }

  private:
    XmlLocalQNPolMgr* m_pMgr = nullptr;
};

}  // namespace qntest

#endif  // QN_TESTS_TESTSUPPORT_H

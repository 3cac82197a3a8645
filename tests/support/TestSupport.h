#ifndef QN_TESTS_TESTSUPPORT_H
#define QN_TESTS_TESTSUPPORT_H

// Helpers shared by the test suites.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
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
    TempDir() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern =
            std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/qnpolicy-test-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            ADD_FAILURE() << "mkdtemp failed for " << pattern;
        }
        m_path = pattern + "/";
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    // Writes content to path() + name and returns the full path.
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(m_path + name, std::ios::binary | std::ios::trunc) << content;
        return m_path + name;
    }

  private:
    std::string m_path;
};

// Reads a whole file; empty when it cannot be read.
inline std::string readFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

// Captures every log record while it lives, then restores the previous sink. Neither
// copyable nor movable, so the sink may keep its address.
class LogCapture {
  public:
    LogCapture()
        : m_previous(CAppLog::SetSink([this](const CAppLogRecord& record) {
              std::lock_guard<std::mutex> guard(m_lock);
              m_records.push_back(record);
          })) {}
    ~LogCapture() { CAppLog::SetSink(m_previous); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<CAppLogRecord> records() const {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_records;
    }
    void clear() {
        std::lock_guard<std::mutex> guard(m_lock);
        m_records.clear();
    }

  private:
    mutable std::mutex m_lock;
    std::vector<CAppLogRecord> m_records;
    CAppLogSink m_previous;
};

// Registers the installation-path service on a directory for its lifetime.
class StoragePathScope {
  public:
    explicit StoragePathScope(const std::string& mainPath) {
        if (CStoragePath::createSingletonInstance(m_pStoragePath, mainPath) !=
            CSTORAGEPATH_SUCCESS) {
            ADD_FAILURE() << "installation-path service already registered";
        }
    }
    ~StoragePathScope() {
        if (m_pStoragePath != nullptr) {
            m_pStoragePath->releaseInstance();
        }
    }
    StoragePathScope(const StoragePathScope&) = delete;
    StoragePathScope& operator=(const StoragePathScope&) = delete;

  private:
    CStoragePath* m_pStoragePath = nullptr;
};

// Registers the process-wide manager for its lifetime (creation is the first acquisition).
class ManagerScope {
  public:
    ManagerScope() {
        if (XmlLocalQNPolMgr::createSingletonInstance(m_pMgr) != XMLLOCALQNPOLMGR_SUCCESS) {
            ADD_FAILURE() << "policy manager already registered";
        }
    }
    ~ManagerScope() {
        if (m_pMgr != nullptr) {
            m_pMgr->releaseInstance();
        }
    }
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

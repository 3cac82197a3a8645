#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace qntest {

TempDir::TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/qnpolicy-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        ADD_FAILURE() << "mkdtemp failed for " << pattern;
    }
    m_path = pattern + "/";
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string TempDir::write(const std::string& name, const std::string& content) const {
    const std::string full = m_path + name;
    std::ofstream(full, std::ios::binary | std::ios::trunc) << content;
    return full;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

// The capture is neither copyable nor movable, so the sink may keep its address.
LogCapture::LogCapture()
    : m_previous(CAppLog::SetSink([this](const CAppLogRecord& record) {
          std::lock_guard<std::mutex> guard(m_lock);
          m_records.push_back(record);
      })) {}

LogCapture::~LogCapture() {
    CAppLog::SetSink(m_previous);
}

std::vector<CAppLogRecord> LogCapture::records() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_records;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> guard(m_lock);
    m_records.clear();
}

StoragePathScope::StoragePathScope(const std::string& mainPath) {
    if (CStoragePath::createSingletonInstance(m_pStoragePath, mainPath) != CSTORAGEPATH_SUCCESS) {
        ADD_FAILURE() << "installation-path service already registered";
    }
}

StoragePathScope::~StoragePathScope() {
    if (m_pStoragePath != nullptr) {
        m_pStoragePath->releaseInstance();
    }
}

ManagerScope::ManagerScope() {
    if (XmlLocalQNPolMgr::createSingletonInstance(m_pMgr) != XMLLOCALQNPOLMGR_SUCCESS) {
        ADD_FAILURE() << "policy manager already registered";
    }
}

ManagerScope::~ManagerScope() {
    if (m_pMgr != nullptr) {
        m_pMgr->releaseInstance();
    }
}

}  // namespace qntest

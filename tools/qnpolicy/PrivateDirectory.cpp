#include "PrivateDirectory.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "AppLog.h"

namespace qnpolicy::tool {

namespace {

constexpr char kSourceFile[] = "tools/qnpolicy/PrivateDirectory";
constexpr char kTemplate[] = "qnpolicy-XXXXXX";

}  // namespace

CPrivateDirectory::~CPrivateDirectory() {
    if (m_path.empty()) {
        return;
    }
    std::error_code error;
    std::filesystem::remove_all(m_path, error);
    if (error) {
        CAppLog::LogDebugMessage("~CPrivateDirectory", kSourceFile, __LINE__, Logging::DBG_Warning,
                                 "cannot remove %s: %s", m_path.c_str(), error.message().c_str());
    }
}

bool CPrivateDirectory::Create() {
    std::error_code error;
    const std::filesystem::path base = std::filesystem::temp_directory_path(error);
    if (error) {
        CAppLog::LogDebugMessage("Create", kSourceFile, __LINE__, Logging::DBG_Error,
                                 "no temporary directory: %s", error.message().c_str());
        return false;
    }
    const std::string pattern = (base / kTemplate).string();
    std::vector<char> path(pattern.begin(), pattern.end());
    path.push_back('\0');
    if (::mkdtemp(path.data()) == nullptr) {
        const int code = errno;
        CAppLog::LogDebugMessage("Create", kSourceFile, __LINE__, Logging::DBG_Error,
                                 "mkdtemp %s failed: %s", pattern.c_str(), std::strerror(code));
        return false;
    }
    m_path = std::string(path.data()) + '/';
    return true;
}

}  // namespace qnpolicy::tool

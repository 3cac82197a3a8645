#include "ToolSession.h"

#include "AppLog.h"

namespace qnpolicy::tool {

namespace {

constexpr char kSourceFile[] = "tools/qnpolicy/ToolSession";

}  // namespace

std::string NormalizeInstallDir(const std::string& installDir) {
    std::string normalized = installDir;
    if (normalized.empty() || normalized.back() != '/') {
        normalized.push_back('/');
    }
    return normalized;
}

CToolSession::~CToolSession() {
    if (m_pManager != nullptr) {
        m_pManager->releaseInstance();
    }
    if (m_pStoragePath != nullptr) {
        m_pStoragePath->releaseInstance();
    }
}

STATUSCODE CToolSession::Open(const std::string& installDir) {
    const STATUSCODE pathStatus =
        CStoragePath::createSingletonInstance(m_pStoragePath, NormalizeInstallDir(installDir));
    if (pathStatus != CSTORAGEPATH_SUCCESS) {
        CAppLog::LogReturnCode("Open", kSourceFile, __LINE__, Logging::DBG_Error,
                               "CStoragePath::createSingletonInstance",
                               static_cast<uint32_t>(pathStatus), nullptr, nullptr);
        return pathStatus;
    }
    const STATUSCODE managerStatus = XmlLocalQNPolMgr::createSingletonInstance(m_pManager);
    if (managerStatus != XMLLOCALQNPOLMGR_SUCCESS) {
        CAppLog::LogReturnCode("Open", kSourceFile, __LINE__, Logging::DBG_Error,
                               "XmlLocalQNPolMgr::createSingletonInstance",
                               static_cast<uint32_t>(managerStatus), nullptr, nullptr);
        return managerStatus;
    }
    return XMLLOCALQNPOLMGR_SUCCESS;
}

std::string CToolSession::PolicyPath() const {
    std::string directory;
    std::string fileName;
    if (m_pManager->GetLocalPolicyLocation(directory, fileName) != XMLLOCALQNPOLMGR_SUCCESS) {
        return std::string();
    }
    return directory + fileName;
}

}  // namespace qnpolicy::tool

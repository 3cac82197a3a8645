#include "ToolContext.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "ExitCodes.h"
#include "TextFormat.h"
#include "ToolSession.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace qnpolicy::tool {

CToolContext::CToolContext(const SharedOptions& options, const std::string& command,
                           std::ostream& out, std::ostream& err)
    : m_options(options), m_prefix("qnpolicy " + command + ": "), m_out(out), m_err(err) {}

Verbosity CToolContext::GetVerbosity() const {
    if (m_options.bQuiet) {
        return Verbosity::QUIET;
    }
    return m_options.bVerbose ? Verbosity::VERBOSE : Verbosity::NORMAL;
}

void CToolContext::Error(const std::string& message) {
    m_err << m_prefix << message << '\n' << std::flush;
}

void CToolContext::Warning(const std::string& message) {
    if (!m_options.bQuiet) {
        m_err << m_prefix << "warning: " << message << '\n' << std::flush;
    }
}

void CToolContext::Note(const std::string& message) {
    if (!m_options.bQuiet) {
        m_err << m_prefix << message << '\n' << std::flush;
    }
}

int CToolContext::RequireInstallDir() {
    struct stat status {};
    const std::string& dir = m_options.installDir;
    if (::stat(dir.c_str(), &status) != 0) {
        const int error = errno;
        Error("install directory " + Quoted(dir) + ": " +
              (error == ENOENT ? std::string("no such directory") : std::strerror(error)));
        return kExitNoInput;
    }
    if (!S_ISDIR(status.st_mode)) {
        Error("install directory " + Quoted(dir) + ": no such directory (not a directory)");
        return kExitNoInput;
    }
    return kExitSuccess;
}

std::string CToolContext::InstallPolicyPath() const {
    return NormalizeInstallDir(m_options.installDir) + kPolicyFileName;
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
#include "ToolContext.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "MessageText.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlParser.h"
#include "output/Output.h"

namespace qnpolicy::tool {

CToolContext::CToolContext(const SharedOptions& options, const std::string& command,
                           std::ostream& out, std::ostream& err)
    : m_options(options), m_prefix("qnpolicy " + command + ": "), m_out(out), m_err(err) {
    const Verbosity eVerbosity = verbosity();
    if (m_options.logSink == kLogSinkSyslog) {
        ::openlog("qnpolicy", LOG_PID, LOG_USER);
        m_previousSink = CAppLog::SetSink(
            [eVerbosity, sink = CAppLog::SyslogSink()](const CAppLogRecord& record) {
                if (Shows(eVerbosity, record.importance)) {
                    sink(record);
                }
            });
        return;
    }
    m_previousSink = CAppLog::SetSink([eVerbosity](const CAppLogRecord& record) {
        if (Shows(eVerbosity, record.importance)) {
            WriteLogLine(record);
        }
    });
}

CToolContext::~CToolContext() {
    CAppLog::SetSink(m_previousSink);
}

Verbosity CToolContext::verbosity() const {
    if (m_options.bQuiet) {
        return Verbosity::QUIET;
    }
    return m_options.bVerbose ? Verbosity::VERBOSE : Verbosity::NORMAL;
}

void CToolContext::Error(const std::string& message) {
    m_err << m_prefix << message << '\n' << std::flush;
}

int CToolContext::Fail(int exitCode, const char* kind, const std::string& message,
                       const std::vector<std::string>& details) {
    std::string whole;
    for (const std::string& detail : details) {
        Error("error: " + detail);
        whole += detail + "\n";  // each detail ends with a command to run: a line of its own
    }
    Error(message);
    if (m_options.bJson) {
        CJsonWriter json(m_out);
        json.BeginObject().Key("formatVersion").Number(1).Key("error").BeginObject();
        json.Key("kind").String(kind).Key("message").String(whole + message);
        json.EndObject().EndObject().Finish();
    }
    return exitCode;
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
        if (error != ENOENT && error != ENOTDIR) {
            // Cannot tell (EACCES, ELOOP, ...): the directory may be there, so it is not
            // reported absent; the command's own read or path audit says what it cannot examine.
            return kExitSuccess;
        }
        return Fail(kExitNoInput, errorkind::kNoSuchDirectory,
                    "install directory " + Quoted(dir) + ": no such directory");
    }
    if (!S_ISDIR(status.st_mode)) {
        return Fail(kExitNoInput, errorkind::kNoSuchDirectory,
                    "install directory " + Quoted(dir) + ": no such directory (not a directory)");
    }
    return kExitSuccess;
}

int CToolContext::ReadStandardInput(std::string& rContent) {
    int error = 0;
    if (!ReadAtMost(STDIN_FILENO, XmlParser::kMaxStreamBytes, rContent, error)) {
        return Fail(kExitIoError, errorkind::kIoError,
                    std::string("cannot read standard input: ") + std::strerror(error));
    }
    if (rContent.size() > XmlParser::kMaxStreamBytes) {
        return Fail(kExitUnreadable, errorkind::kUnreadable,
                    "standard input: more than " + std::to_string(XmlParser::kMaxStreamBytes) +
                        " bytes of input, the most a stream may hold");
    }
    return kExitSuccess;
}

std::string CToolContext::InstallDir() const {
    std::string dir = m_options.installDir;
    if (dir.empty() || dir.back() != '/') {
        dir.push_back('/');
    }
    return dir;
}

std::string CToolContext::InstallPolicyPath() const {
    return InstallDir() + kPolicyFileName;
}

void CToolContext::WriteLogLine(const CAppLogRecord& record) {
    std::fprintf(stderr, "%s%s\n", CAppLog::StandardErrorPrefix(record.importance).c_str(),
                 OneLine(CAppLog::FormatRecord(record)).c_str());
}

bool CToolContext::Shows(Verbosity eVerbosity, Logging::DebugImportance eImportance) {
    switch (eVerbosity) {
        case Verbosity::QUIET:
            return eImportance == Logging::DBG_Error;
        case Verbosity::NORMAL:
            return eImportance != Logging::DBG_Trace;
        case Verbosity::VERBOSE:
            return true;
    }
    return true;
}

bool ReadAtMost(int fd, size_t limit, std::string& rContent, int& rError) {
    constexpr size_t kPiece = size_t{64} << 10;
    rContent.reserve(rContent.size() + limit + 1);
    char piece[kPiece];
    const size_t start = rContent.size();
    while (rContent.size() - start <= limit) {
        const ssize_t got =
            ::read(fd, piece, std::min(sizeof piece, limit + 1 - (rContent.size() - start)));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            rError = errno;
            return false;
        }
        if (got == 0) {
            break;
        }
        rContent.append(piece, static_cast<size_t>(got));
    }
    return true;
}

}  // namespace qnpolicy::tool

// SPDX-License-Identifier: Apache-2.0
#ifndef QN_TESTS_TESTSUPPORT_H
#define QN_TESTS_TESTSUPPORT_H

// Helpers shared by the test suites.

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "AppLog.h"
#include "StoragePath.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace qntest {

// Where every scratch directory of the suites is made, whatever TMPDIR says: /tmp is owned by
// root and sticky on every Linux system, so the path audit of qnpolicy accepts it above a policy
// file, and a test's verdict does not depend on who owns the caller's own temporary directory.
inline constexpr char kScratchBase[] = "/tmp";

// A fresh directory under kScratchBase, owned by the user running the test with mode 0700,
// removed with its content on destruction. path() ends with '/'.
class TempDir {
  public:
    TempDir() : m_path(std::string(kScratchBase) + "/qnpolicy-test-XXXXXX") {
        if (::mkdtemp(m_path.data()) == nullptr) {
            ADD_FAILURE() << "mkdtemp failed for " << m_path;
        }
        m_path += '/';
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

// The declaration and the root's start tag as generation writes them, up to the tag's end.
inline const std::string kPolicyRootOpen =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<QuillnetLocalPolicy "
    "xmlns=\"http://schemas.xmlsoap.org/soap/encoding/\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xsi:schemaLocation=\"http://schemas.xmlsoap.org/soap/encoding/ QuillnetLocalPolicy.xsd\" "
    "qnversion=\"" +
    std::string(qnpolicy::kClientVersion) + "\"";

// Reads a whole file; empty when it cannot be read.
inline std::string readFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

// The source line a record names (its file and line), read from the tree: the file is the
// source path without its extension (".cpp", else ".h"), as the library and the tool name their
// files. Empty when there is no such file or line.
inline std::string sourceLineOf(const std::string& file, int line) {
    static std::mutex lock;
    static std::map<std::string, std::vector<std::string>> files;
    std::lock_guard<std::mutex> guard(lock);
    auto found = files.find(file);
    if (found == files.end()) {
        std::vector<std::string> lines;
        for (const char* extension : {".cpp", ".h"}) {
            std::ifstream in(std::string(QN_SOURCE_DIR) + "/" + file + extension);
            for (std::string text; std::getline(in, text);) {
                lines.push_back(text);
            }
            if (!lines.empty()) {
                break;
            }
        }
        found = files.emplace(file, std::move(lines)).first;
    }
    const std::vector<std::string>& lines = found->second;
    return line >= 1 && static_cast<size_t>(line) <= lines.size()
               ? lines[static_cast<size_t>(line) - 1]
               : std::string();
}

// Captures every log record while it lives, then restores the previous sink. Neither
// copyable nor movable, so the sink may keep its address. Every record captured, in every
// suite, must lead to the statement that wrote it: at its file and line (what `sed -n LINEp`
// shows) stands a logging call that passes __LINE__.
class LogCapture {
  public:
    LogCapture()
        : m_previous(CAppLog::SetSink([this](const CAppLogRecord& record) {
              std::lock_guard<std::mutex> guard(m_lock);
              m_records.push_back(record);
              m_locations.emplace(record.file, record.line);
          })) {}
    ~LogCapture() {
        CAppLog::SetSink(m_previous);
        for (const auto& [file, line] : m_locations) {
            const std::string statement = sourceLineOf(file, line);
            EXPECT_NE(statement.find("__LINE__"), std::string::npos)
                << file << ":" << line << " does not lead to the statement that logged there: \""
                << statement << "\"";
        }
    }
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
    std::set<std::pair<std::string, int>> m_locations;  // of every record, cleared or not
    CAppLogSink m_previous;
};

// Registers a process-wide service (the installation path, the policy manager) for its
// lifetime: creation is the first acquisition, destruction releases it.
template <typename Service>
class Registered {
  public:
    template <typename... Args>
    explicit Registered(const Args&... args) {
        if (Service::createSingletonInstance(m_pService, args...) != 0) {
            ADD_FAILURE() << "service already registered";
        }
    }
    ~Registered() {
        if (m_pService != nullptr) {
            m_pService->releaseInstance();
        }
    }
    Registered(const Registered&) = delete;
    Registered& operator=(const Registered&) = delete;

    Service* operator->() const { return m_pService; }
    Service& operator*() const { return *m_pService; }

  private:
    Service* m_pService = nullptr;
};
using StoragePathScope = Registered<CStoragePath>;
using ManagerScope = Registered<XmlLocalQNPolMgr>;

// Runs work on this many threads at once and waits for all of them.
inline void onThreads(int threads, const std::function<void()>& work) {
    std::vector<std::thread> running;
    running.reserve(static_cast<size_t>(threads));
    for (int t = 0; t < threads; ++t) {
        running.emplace_back(work);
    }
    for (std::thread& thread : running) {
        thread.join();
    }
}

// The unprivileged user and group tests drop to: nobody and nogroup on Debian.
inline constexpr uid_t kNobody = 65534;

// Runs work in a forked child that has dropped to kNobody (groups, group, then user) and
// returns the text work returned there, or "(cannot drop to nobody)". Only root can drop, so
// the caller skips the test for anyone else. The text is all that comes back from the child.
inline std::string asNobody(const std::function<std::string()>& work) {
    int fds[2];
    if (::pipe(fds) != 0) {
        return "(no pipe)";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(fds[0]);
        const gid_t group = kNobody;
        const bool bDropped =
            ::setgroups(1, &group) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0;
        const std::string text = bDropped ? work() : "(cannot drop to nobody)";
        const bool bWritten =
            ::write(fds[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        ::_exit(bWritten ? 0 : 1);
    }
    ::close(fds[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = ::read(fds[0], buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<size_t>(got));
    }
    ::close(fds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return text;
}

// Generates the policy from these installer arguments, passed as an installer passes them:
// a null entry stays null, and the array itself is never null.
inline bool generate(XmlLocalQNPolMgr& mgr, const std::vector<const char*>& args,
                     bool bOverwrite = true) {
    std::vector<std::string> copies(args.size());
    std::vector<char*> argv;
    for (size_t i = 0; i < args.size(); ++i) {
        copies[i] = args[i] != nullptr ? args[i] : "";
        argv.push_back(args[i] != nullptr ? copies[i].data() : nullptr);
    }
    argv.push_back(nullptr);
    return mgr.GenerateLocalPolicy(argv.data(), static_cast<int>(args.size()), bOverwrite);
}

}  // namespace qntest

#endif  // QN_TESTS_TESTSUPPORT_H

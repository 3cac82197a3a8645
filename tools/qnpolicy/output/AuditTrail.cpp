// SPDX-License-Identifier: Apache-2.0
// The audit record of a write, and its delivery to the system logger (see AuditTrail.h).

#include "output/AuditTrail.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>

#include "ErrnoText.h"
#include "MessageText.h"
#include "UniqueFd.h"

namespace qnpolicy::tool {

namespace {

constexpr char kLogSocket[] = "/dev/log";
constexpr char kTag[] = "qnpolicy";
// The most of one change a record holds: a long server list is cut, the others fit.
constexpr size_t kMaxChangeBytes = 300;

// Who runs the tool: the uid and the login uid the kernel gives, and what sudo says it was
// called by, which the caller's environment could forge.
std::string callerText() {
    std::string loginUid;
    std::ifstream("/proc/self/loginuid") >> loginUid;
    std::string text = "uid=" + std::to_string(::getuid()) +
                       " loginuid=" + (loginUid.empty() ? std::string("unknown") : loginUid);
    for (const char* name : {"SUDO_USER", "SUDO_UID"}) {
        if (const char* value = std::getenv(name); value != nullptr) {
            text += " " + std::string(name) + "=" + Quoted(value) + " (claimed)";
        }
    }
    return text;
}

std::string cut(const std::string& text, size_t most) {
    return text.size() <= most ? text : text.substr(0, most) + "...";
}

}  // namespace

std::string AuditRecordText(const AuditWrite& write) {
    std::string text = write.command + " wrote " + Quoted(write.path) + " by " + callerText() +
                       "; sha256 before=" + (write.before.empty() ? "none" : write.before) +
                       " after=" + write.after + "; ";
    const size_t count = write.changes.size();
    text += std::to_string(count) + (count == 1 ? " setting changed" : " settings changed");
    for (size_t i = 0; i < count && i < kMaxAuditedChanges; ++i) {
        text += (i == 0 ? ": " : "; ") + OneLine(cut(write.changes[i], kMaxChangeBytes));
    }
    if (count > kMaxAuditedChanges) {
        text += "; and " + std::to_string(count - kMaxAuditedChanges) + " more";
    }
    return cut(text, kMaxAuditRecordBytes - 64);
}

AuditDelivery SendAuditRecord(const AuditWrite& write) {
    AuditDelivery delivery;
    char stamp[32] = "";
    const std::time_t now = std::time(nullptr);
    struct tm local {};
    if (::localtime_r(&now, &local) != nullptr) {
        std::strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", &local);
    }
    const std::string datagram = "<" + std::to_string(LOG_AUTHPRIV | LOG_NOTICE) + ">" + stamp +
                                 " " + kTag + "[" + std::to_string(::getpid()) +
                                 "]: " + AuditRecordText(write);
    qnsys::UniqueFd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, kLogSocket, sizeof address.sun_path - 1);
    const char* step = "socket";
    if (fd.valid()) {
        step = "connect to /dev/log";
        if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            step = "send to /dev/log";
            delivery.bDelivered = ::send(fd.get(), datagram.data(), datagram.size(),
                                         MSG_NOSIGNAL) == static_cast<ssize_t>(datagram.size());
        }
    }
    if (!delivery.bDelivered) {
        delivery.failure = std::string(step) + ": " + qnsys::errnoText(errno);
    }
    return delivery;
}

}  // namespace qnpolicy::tool

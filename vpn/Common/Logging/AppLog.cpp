// SPDX-License-Identifier: Apache-2.0
#include "AppLog.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

namespace {

// The variable systemd sets for a service whose standard error is a journal stream:
// "DEVICE:INODE" of that stream, both decimal.
constexpr char kJournalStreamVariable[] = "JOURNAL_STREAM";

// The sink and the lock that serialises every record through it. Function-local statics, so
// that logging works from any static initialiser and survives until process exit.
struct SinkState {
    std::mutex lock;
    CAppLogSink sink;
};

SinkState& sinkState() {
    static SinkState* state = new SinkState();  // never destroyed: loggable during exit
    return *state;
}

// True when standard error is the stream JOURNAL_STREAM names. Checked for each record, as a
// process may redirect standard error after start; a child that inherits the variable with
// another standard error writes plain lines.
bool standardErrorIsJournal() {
    const char* journalStream = std::getenv(kJournalStreamVariable);
    if (journalStream == nullptr) {
        return false;
    }
    unsigned long long device = 0;
    unsigned long long inode = 0;
    if (std::sscanf(journalStream, "%llu:%llu", &device, &inode) != 2) {
        return false;
    }
    struct stat status {};
    if (::fstat(STDERR_FILENO, &status) != 0) {
        return false;
    }
    return status.st_dev == device && status.st_ino == inode;
}

void writeToStandardError(const CAppLogRecord& record) {
    std::string line = CAppLog::StandardErrorPrefix(record.importance);
    line += CAppLog::FormatRecord(record);
    line.push_back('\n');
    std::fwrite(line.data(), 1, line.size(), stderr);
}

std::string formatV(const char* format, va_list args) {
    if (format == nullptr) {
        return std::string();
    }
    va_list measure;
    va_copy(measure, args);
    // The analyzer does not follow va_copy of an array-typed va_list (x86-64); measure is set.
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (length <= 0) {
        return std::string();
    }
    std::vector<char> buffer(static_cast<size_t>(length) + 1);
    std::vsnprintf(buffer.data(), buffer.size(), format, args);
    return std::string(buffer.data(), static_cast<size_t>(length));
}

void deliver(const CAppLogRecord& record) {
    SinkState& state = sinkState();
    std::lock_guard<std::mutex> guard(state.lock);
    if (state.sink) {
        state.sink(record);
    } else {
        writeToStandardError(record);
    }
}

CAppLogRecord makeRecord(const char* function, const char* file, int line,
                         Logging::DebugImportance importance) {
    CAppLogRecord record;
    record.function = function != nullptr ? function : "";
    record.file = file != nullptr ? file : "";
    record.line = line;
    record.importance = importance;
    return record;
}

}  // namespace

void CAppLog::LogDebugMessage(const char* function, const char* file, int line,
                              Logging::DebugImportance importance, const char* format, ...) {
    CAppLogRecord record = makeRecord(function, file, line, importance);
    va_list args;
    va_start(args, format);
    record.message = formatV(format, args);
    va_end(args);
    deliver(record);
}

void CAppLog::LogReturnCode(const char* function, const char* file, int line,
                            Logging::DebugImportance importance, const char* callee, uint32_t code,
                            const char* text1, const char* text2, ...) {
    CAppLogRecord record = makeRecord(function, file, line, importance);
    record.callee = callee != nullptr ? callee : "";
    record.code = code;
    va_list args;
    va_start(args, text2);
    record.message = formatV(text1, args);
    va_end(args);
    deliver(record);
}

CAppLogSink CAppLog::SetSink(CAppLogSink sink) {
    SinkState& state = sinkState();
    std::lock_guard<std::mutex> guard(state.lock);
    std::swap(state.sink, sink);
    return sink;
}

CAppLogSink CAppLog::SyslogSink() {
    return [](const CAppLogRecord& record) {
        ::syslog(SyslogPriority(record.importance), "%s", FormatRecordText(record).c_str());
    };
}

int CAppLog::SyslogPriority(Logging::DebugImportance importance) {
    switch (importance) {
        case Logging::DBG_Error:
            return LOG_ERR;
        case Logging::DBG_Warning:
            return LOG_WARNING;
        case Logging::DBG_Informational:
            return LOG_INFO;
        case Logging::DBG_Trace:
            return LOG_DEBUG;
    }
    return LOG_NOTICE;
}

std::string CAppLog::StandardErrorPrefix(Logging::DebugImportance importance) {
    if (!standardErrorIsJournal()) {
        return std::string();
    }
    // The journal reads a leading "<N>" as the line's priority, as the kernel's log does.
    return "<" + std::to_string(SyslogPriority(importance)) + ">";
}

std::string CAppLog::FormatRecord(const CAppLogRecord& record) {
    std::string line;
    line.push_back(static_cast<char>(record.importance));
    line += ' ';
    line += FormatRecordText(record);
    return line;
}

std::string CAppLog::FormatRecordText(const CAppLogRecord& record) {
    std::string line = record.function;
    line += ' ';
    line += record.file;
    line += ':';
    line += std::to_string(record.line);
    if (!record.callee.empty()) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned int>(record.code));
        line += ' ';
        line += record.callee;
        line += " returned ";
        line += code;
        if (!record.message.empty()) {
            line += ": ";
        }
    } else if (!record.message.empty()) {
        line += ' ';
    }
    line += record.message;
    return line;
}

#ifndef ATOMICFILEREPLACE_H
#define ATOMICFILEREPLACE_H

// Crash-safe replacement of a whole file. Internal to the XML layer: not installed.
//
//   qnfile::ReplaceResult result = qnfile::replaceFileAtomically(path, content, 0644);
//   if (!result.ok()) { log result.step and result.error (an errno value) }

#include <sys/types.h>

#include <string>

namespace qnfile {

// The outcome of a replacement: error is 0 on success, otherwise the errno value of the
// system call named by step.
struct ReplaceResult {
    int error = 0;
    const char* step = "";
    bool ok() const { return error == 0; }
};

// Makes path hold exactly content, with the given mode, such that a crash at any moment
// leaves either the complete previous file or the complete new one. The content goes to a
// temporary file created beside path (".<name>.XXXXXX", same directory and so the same file
// system), which is written, given mode, fsynced and renamed over path; then the directory is
// fsynced so that the rename itself is durable.
//
// On a failure before the rename, the temporary file is removed and path is untouched. A
// failure of the final directory fsync is reported too: path then already holds the new
// content, but its durability was not confirmed. A process killed between creating and
// renaming the temporary file leaves that hidden temporary file behind; path stays intact.
ReplaceResult replaceFileAtomically(const std::string& path, const std::string& content,
                                    mode_t mode);

}  // namespace qnfile

#endif  // ATOMICFILEREPLACE_H

// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_ATOMICFILEREPLACE_H
#define QUILLNET_ATOMICFILEREPLACE_H

// Crash-safe replacement of a whole file. Internal to the XML layer: not installed.
//
//   qnfile::ReplaceResult result =
//       qnfile::replaceFileAtomically(path, content, 0644, qnfile::EXISTING_REPLACE);
//   switch (result.outcome) { ... }   // on a failure, result.step and result.error (errno)

#include <sys/types.h>

#include <string>

namespace qnfile {

// What to do when the target exists at the moment the new file is given its name.
enum ExistingFile {
    EXISTING_REPLACE,  // the new file replaces it
    EXISTING_KEEP,     // it stays, whenever it appeared; the new file is dropped
};

enum ReplaceOutcome {
    OUTCOME_WRITTEN,     // the target holds the new content, durably
    OUTCOME_KEPT,        // EXISTING_KEEP and the target existed: nothing changed
    OUTCOME_NOT_SYNCED,  // the target holds the new content; the directory sync failed
    OUTCOME_FAILED,      // the target is untouched; step and error say why
};

// The outcome, and for OUTCOME_FAILED and OUTCOME_NOT_SYNCED the system call that failed
// (step) and its errno value (error).
struct ReplaceResult {
    ReplaceOutcome outcome = OUTCOME_WRITTEN;
    int error = 0;
    const char* step = "";
};

// Makes path hold exactly content, with the given mode, such that a process killed or a
// machine crashing at any moment leaves either the complete previous file or the complete
// new one.
//
// Every step works relative to one descriptor of path's directory, opened once, so a
// directory (or a link to it) swapped meanwhile cannot redirect a later step. The content
// goes into an unnamed file in that directory (O_TMPFILE), which is given its owner and group
// (root:root when root writes; the writer's own otherwise), no access ACL and mode before
// anything is written, then written and fsynced, linked under a temporary name
// (".<name>.<pid>.<random>"), closed, and renamed over path (EXISTING_KEEP: renamed only if
// path does not exist, atomically, so that a file created meanwhile by another writer is
// never replaced); last the directory is fsynced. So the file that takes the name never
// inherits a setgid directory's group or a default ACL, and always is a new inode: no
// descriptor opened on the previous file can change it. Where the file system refuses
// O_TMPFILE, the temporary name is created at once instead.
//
// A failure before the final rename removes the temporary name and leaves path untouched. A
// process killed in the instant between naming and renaming leaves the temporary name
// behind; every later call removes each such name whose writer process no longer exists
// (the pid in the name), never one of a writer still running. Writers sharing the directory
// from another pid namespace are not told apart: removing such a writer's name only makes
// its rename fail, which it reports, with the target untouched.
ReplaceResult replaceFileAtomically(const std::string& path, const std::string& content,
                                    mode_t mode, ExistingFile existing);

// The same, through dirFd, a descriptor of the directory that the caller opened (and audited)
// itself, which must be readable (O_RDONLY | O_DIRECTORY: the directory is listed for strays
// and fsynced through it): baseName is the file's name in it, path names the file in records.
// Nothing is looked up by the directory's path, so what the caller examined is what is written.
ReplaceResult replaceFileAtomicallyAt(int dirFd, const std::string& baseName,
                                      const std::string& path, const std::string& content,
                                      mode_t mode, ExistingFile existing);

}  // namespace qnfile

#endif  // QUILLNET_ATOMICFILEREPLACE_H

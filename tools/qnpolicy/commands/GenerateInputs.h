// SPDX-License-Identifier: Apache-2.0
#ifndef QNPOLICY_GENERATEINPUTS_H
#define QNPOLICY_GENERATEINPUTS_H

// What generate reads besides its options: installer arguments from a file or standard input,
// and the file already at the policy path, examined through the directory its audit ended on.

#include <cstddef>
#include <string>
#include <vector>

#include "safety/PathAudit.h"

namespace qnpolicy::tool {

// Why reading installer arguments from a file failed: the exit status, the JSON error kind,
// and a message naming the file (and the line, for a line refused).
struct ArgumentFileFailure {
    int exitStatus = 0;  // 0: read
    const char* kind = "";
    std::string message;
};

// Appends to rArguments one argument per line of the file at path ("-": standard input), as
// they come: nothing trimmed, empty lines skipped. A line that ends with a carriage return
// (a CRLF line end) or holds a NUL byte refuses the whole file with its line number, and so
// does input beyond XmlParser::kMaxStreamBytes (exit 65); a file that does not exist is 66,
// one that cannot be read 2. So a server list of any length fits one "upal=" line, where the
// kernel limits a command line.
ArgumentFileFailure ReadArgumentFile(const std::string& path, std::vector<std::string>& rArguments);

// An owner, group, mode, ACL or link count of the policy file that is not the one the tool
// writes, which a repair changes by writing a new inode.
struct Repair {
    const char* attribute;  // "owner", "group", "mode", "acl" or "links"
    std::string was;
    std::string now;
};

// What is at the policy file's name in the directory a writer's audit ended on.
struct ExistingFile {
    enum Kind {
        NONE,       // nothing
        REGULAR,    // a regular file
        DIRECTORY,  // a directory, which no store can replace
        OTHER,      // a FIFO, socket or device
        UNKNOWN,    // something that cannot be examined
    };
    Kind eKind = NONE;
    // REGULAR, when asked to read it: its first bytes, at most the limit asked, and whether it
    // holds more; readError is the errno of a failed read (0: read, or not asked).
    std::string content;
    bool bOversized = false;
    int readError = 0;
    // REGULAR: what differs from a file the tool writes. A run that is not root's never asks
    // for root as owner or group, nor judges an ACL: it could not give a file to root, and the
    // mode shows any ACL that grants write.
    std::vector<Repair> repairs;
};

// Examines name in directory without following a link, reading at most limit bytes (plus one,
// to tell a larger file) when bRead.
ExistingFile ExamineExistingFile(const CDirectoryHandle& directory, const std::string& name,
                                 bool bRead, size_t limit);

}  // namespace qnpolicy::tool

#endif  // QNPOLICY_GENERATEINPUTS_H

// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_LOCALPOLICYDOCUMENT_H
#define QUILLNET_LOCALPOLICYDOCUMENT_H

// The policy document as values, for client components and tools alike: installer arguments
// checked into settings, settings rendered into the document's bytes, bytes stored atomically in
// a directory, and a document read from a path or from bytes into a record, with an optional
// observer of what the reader does with each element. Each operation returns what happened
// (statuses, the failed step and its errno, refused arguments and why, where a parse stopped),
// so that no caller has to read a log record to decide anything.
//
//   std::string directory;
//   std::string name;
//   pManager->GetLocalPolicyLocation(directory, name);
//   const ArgumentCheck check = CheckInstallerArguments(args, count);
//   std::string bytes;
//   if (RenderPolicyDocument(check.settings, directory, bytes) == 0) {
//       const StoreResult stored = StorePolicyDocument(directory, bytes, true);
//       // stored.eOutcome, and for a failure stored.step ("open of the directory", "write",
//       // "fsync", "rename", ...) and stored.error (its errno value)
//   }
//   const DocumentRead read = ReadPolicyFile(directory + kPolicyFileName, ReadOptions());
//
// The manager's operations stay as they are and use these: LoadLocalQuillnetPolicy reads
// through the same load path as ReadPolicyFile (parse, status, FIPS retention), and
// GenerateLocalPolicy is CheckInstallerArguments, RenderPolicyDocument and StorePolicyDocument
// plus the manager's warnings. The operations log the records the manager logs for them (the
// parser's and the writer's failures, the reader's two warnings, the load's FIPS line and
// failure record) unless their options say not to; the argument check logs nothing.
//
// Stable for clients: the names, the fields and what they mean; a later version may add fields
// at the end of a structure and enumerators at the end of an enumeration. What an observer
// receives lives only during its OnRead call: the views of a ReadEvent point into the parser's
// buffers, so copy what must outlive the call; its pSetting points into the settings
// catalogue, which lives until the process exits. The operations share no state that one call
// changes, so they may run on several threads at once; of two stores into one directory at
// once, the one that renames last leaves its file (without overwrite, the later one keeps the
// earlier one's).

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "GenDefs.h"
#include "LocalPolicySettings.h"
#include "LocalQNPolicyInfo.h"
#include "QuillnetExport.h"
#include "XmlLocalQNPolMgr.h"

namespace qnpolicy {

// The policy file's name; its path is the main installation directory (with its trailing
// separator, see XmlLocalQNPolMgr::GetLocalPolicyLocation) followed by this name.
inline constexpr char kPolicyFileName[] = "QuillnetLocalPolicy.xml";

// ---- Installer arguments ------------------------------------------------------------------

// The vocabulary as the manager's table holds it: abbreviation to row, the catalogue's
// settings that have an abbreviation. Built once; the manager's table is a copy of it.
using PolicyVocabulary = std::map<std::string, LocalPolicySetting>;
QUILLNET_API const PolicyVocabulary& LocalPolicyVocabulary();

// The catalogue's settings that have an installer abbreviation, in ascending abbreviation order
// (the order of the manager's table), and the one of an abbreviation, compared exactly (null
// for none): the vocabulary looked up in the catalogue itself, without the table's copies.
QUILLNET_API const std::vector<const LocalPolicySettingInfo*>& InstallerSettings();
QUILLNET_API const LocalPolicySettingInfo* FindInstallerSetting(std::string_view abbreviation);

// The one value-matching rule of generation: value is accepted when allowedValues is empty
// (any text, left as given) or equals one of them ignoring ASCII letter case, whole strings
// and nothing trimmed; it then takes that entry's spelling. A value that matches none is left
// as given.
QUILLNET_API bool SameTextIgnoringCase(std::string_view a, std::string_view b);
template <typename AllowedValues>
bool MatchAllowedValue(const AllowedValues& allowedValues, std::string& value) {
    if (allowedValues.empty()) {
        return true;
    }
    for (const std::string& allowed : allowedValues) {
        if (SameTextIgnoringCase(allowed, value)) {
            value = allowed;
            return true;
        }
    }
    return false;
}

// Why generation does not use an argument, in the order the reasons are tested.
enum class ArgumentRefusal {
    MISSING_EQUALS,        // no "=" in it
    EMPTY_VALUE,           // nothing after the first "="; with bStrict, a server list of no name
    UNKNOWN_ABBREVIATION,  // the text before it is no abbreviation (they are case-sensitive)
    VALUE_NOT_ALLOWED,     // the value matches none of the row's allowed values
    SERVER_NAME,           // bPlainServerNames: a server name holds white space or a control
    DUPLICATE,             // an earlier argument already set the same element
};

// One installer argument, split at its first "=".
struct InstallerArgument {
    size_t index = 0;          // its position among the arguments given
    std::string text;          // as given
    std::string abbreviation;  // before the first "="
    std::string value;         // after it; accepted: in the spelling the options ask for
    const LocalPolicySettingInfo* pSetting = nullptr;  // its setting, when the abbreviation is one
};

struct RefusedArgument {
    InstallerArgument argument;  // its value as given
    ArgumentRefusal eReason;
    size_t usedIndex = 0;    // DUPLICATE: the index of the argument whose value is used
    std::string serverName;  // SERVER_NAME: the first name that breaks the rule
};

// The settings a document is rendered from: element name to text, in the two sections.
struct PolicySettings {
    std::map<std::string, std::string> policies;        // direct children of the root
    std::map<std::string, std::string> updatePolicies;  // children of "UpdatePolicy"
};

struct ArgumentCheck {
    std::vector<InstallerArgument> accepted;  // in argument order
    std::vector<RefusedArgument> refused;     // in argument order; null entries are not here
    PolicySettings settings;                  // the accepted values by element
};

// How CheckInstallerArguments decides. The defaults are generation's own rules, the manager's
// GenerateLocalPolicy hands its own table lookup and valueIsAllowed; a caller that is stricter
// than an installer (the command-line tool) asks for more.
struct ArgumentCheckOptions {
    // The setting an abbreviation stands for, null when none (default: FindInstallerSetting).
    std::function<const LocalPolicySettingInfo*(const std::string& abbreviation)> findSetting;
    // Whether value is allowed for setting, turning it into the allowed spelling (default:
    // MatchAllowedValue over setting.allowedValues).
    std::function<bool(const LocalPolicySettingInfo& setting, std::string& value)> matchValue;
    // A server list that names no server (only separators) is refused as an empty value.
    bool bStrict = false;
    // Accepted values take the spelling the reader applies ("TLS" becomes "tls", see
    // AppliedSpelling), not the vocabulary's, so that every setting written takes effect.
    bool bAppliedSpelling = false;
    // The server-name rule: a server list holding a name with white space or a control
    // character anywhere (HasBlankOrControl) is refused: the reader would keep it as one name.
    bool bPlainServerNames = false;
};

// Checks installer arguments as generation does: null entries are skipped; the others are
// refused for the first reason that applies, or accepted with their value in the spelling the
// options ask for. Logs nothing.
QUILLNET_API ArgumentCheck CheckInstallerArguments(const char* const* policyArgs,
                                                   size_t numPolicyArgs,
                                                   const ArgumentCheckOptions& options = {});

// ---- Rendering and storing ------------------------------------------------------------------

// The server names a server list value holds, as the document gets them: the value cut at
// every "," and ";", empty pieces dropped, blanks kept.
QUILLNET_API std::vector<std::string> SplitServerList(const std::string& value);

// The document generation stores for these settings, byte for byte: the root with its four
// attributes, the ordinary settings in name order, then "UpdatePolicy" with the update
// settings in name order (the server list cut at "," and ";" into one "ServerName" per
// non-empty piece). 0, or the writer's status for a name or text XML cannot carry, logged as
// the writer logs it, naming directory's policy file.
QUILLNET_API STATUSCODE RenderPolicyDocument(const PolicySettings& settings,
                                             const std::string& directory, std::string& rDocument);

// One setting element as a document states it, for rendering in an order of the caller's
// choosing: its name and text (the server list's text holds its names, cut as above), and
// whether it belongs in the "UpdatePolicy" section.
struct StatedSetting {
    std::string element;
    std::string text;
    bool bUpdateSection = false;
};

// The same form for settings in the order given: consecutive settings of the update section
// share one "UpdatePolicy" element. RenderPolicyDocument is this with the ordinary settings,
// then the update settings, each in name order; so a document rendered in its own order comes
// back byte for byte.
QUILLNET_API STATUSCODE RenderPolicyDocumentInOrder(const std::vector<StatedSetting>& settings,
                                                    const std::string& directory,
                                                    std::string& rDocument);

// What storing a document did.
struct StoreResult {
    enum Outcome {
        WRITTEN,     // the file holds the bytes, durably
        KEPT,        // no overwrite and a file was there: nothing was written
        EXISTS,      // no overwrite and a file took the name while the new one was written: kept
        NOT_SYNCED,  // the file holds the bytes, but the directory's sync failed (step, error)
        FAILED,      // nothing changed; step and error say why (an empty directory: no step)
    };
    Outcome eOutcome = WRITTEN;
    STATUSCODE status = 0;  // the writer's status: 0, FILE_EXISTS, NOT_SYNCED, FILE_WRITE, ...
    std::string step;       // NOT_SYNCED, FAILED: the system call that failed
    int error = 0;          // and its errno value
};

// Stores bytes as "QuillnetLocalPolicy.xml" in directory (with its trailing separator), crash-
// safely (see QNCSaxWriter.h): a new inode, mode 0644, no access ACL, root:root when root
// stores it. Without bOverwrite an existing file is kept, whenever it appeared. Logs a failure
// as generation does: the writer's record, then the manager's "writeLocalPolicy" record with
// the status.
QUILLNET_API StoreResult StorePolicyDocument(const std::string& directory, const std::string& bytes,
                                             bool bOverwrite);
// The same through directoryFd, a readable descriptor (O_RDONLY | O_DIRECTORY) of the directory
// the caller opened and examined itself: the bytes become fileName in exactly that directory,
// whatever happens to its path meanwhile; directory (with its trailing separator) names it in
// records. Without bOverwrite anything at fileName is kept, a dangling link or an entry that
// cannot be examined included.
QUILLNET_API StoreResult StorePolicyDocumentAt(int directoryFd, const std::string& directory,
                                               const std::string& fileName,
                                               const std::string& bytes, bool bOverwrite);

// ---- Reading --------------------------------------------------------------------------------

// What the reader did with an element at its start, with its text, or with an attribute.
enum class ReadAction {
    READ,                     // START: the reader acts on it (a setting awaiting its text, the
                              // root, the section, the list); TEXT: the text was applied;
                              // ATTRIBUTE: the root's version was stored
    UNCHANGED,                // TEXT: read, but the setting keeps its value (an exclusion that
                              // is not "true", a tunnel text the reader does not apply, a
                              // caching list without an option)
    IGNORED_UNKNOWN,          // START: a name the reader does not know; its text changes nothing
    IGNORED_OUTSIDE_SECTION,  // START, TEXT: an update permission or the server list outside
                              // "UpdatePolicy" (a permission's text is logged as misplaced)
    IGNORED_OUTSIDE_LIST,     // START: a server name outside an authorized server list
    IGNORED,                  // TEXT: of an element whose text is never read (the root, the
                              // section, the list, an ignored element); ATTRIBUTE: any but the
                              // root's version
    NEWER_VERSION,            // ATTRIBUTE: the root's version, stored and logged as newer than
                              // the client's
};

// One event of a read, as the reader handled it.
struct ReadEvent {
    enum Type { START, ATTRIBUTE, TEXT, END };
    Type eType = START;
    ReadAction eAction = ReadAction::READ;
    std::string_view element;  // the element's name; TEXT: empty when the reader read no text
    std::string_view name;     // ATTRIBUTE: the attribute's name
    std::string_view text;     // TEXT: the element's text; ATTRIBUTE: the attribute's value
    const LocalPolicySettingInfo* pSetting = nullptr;  // the element's catalogue row, or null
    unsigned long line = 0;                            // where the event's markup starts, 1-based
    unsigned long column = 0;
};

// Sees every event of a read, in document order, after the reader has handled it.
class QUILLNET_API ReadObserver {
  public:
    virtual ~ReadObserver() = default;
    virtual void OnRead(const ReadEvent& event) = 0;
};

struct ReadOptions {
    bool bSecure = true;  // refuse a DOCTYPE, as the client does
    bool bLog = true;     // log what loading the file logs
    ReadObserver* pObserver = nullptr;
    // false: the record's server list stays empty, though every name is read as ever (the
    // observer sees each applied); for a caller that watches the read and needs no list.
    bool bKeepServerNames = true;
};

// A document read as a fresh manager's first load reads it.
struct DocumentRead {
    STATUSCODE status = 0;     // 0: read to its end, or (from a path) no file there
    bool bExists = true;       // from a path: anything exists there (a dangling link included)
    unsigned long line = 0;    // on failure: where and why the parser stopped (line 0: the input
    unsigned long column = 0;  // as a whole)
    std::string reason;
    // Defaults plus what was read; its FIPS flag is the file's value after a complete read
    // (a first load applies it) and false after a failure or without a file.
    LocalQNPolicyInfo record;
    bool bFileUseFIPSMode = false;  // what the document's FipsMode says, as far as it was read
};

// Reads the policy document at path as a fresh manager's first load reads it. Nothing at the
// path gives the defaults and status 0, as loading does; a file whose size or modification
// time changed while it was read is refused (XMLPARSER_ERROR_FILE_CHANGED, XmlParser.h).
QUILLNET_API DocumentRead ReadPolicyFile(const std::string& path, const ReadOptions& options);
// Reads an in-memory document; name stands for it in records.
QUILLNET_API DocumentRead ReadPolicyBytes(std::string_view bytes, const std::string& name,
                                          const ReadOptions& options);
// Reads what fd delivers (standard input, a pipe) as it arrives, under the parser's limits
// and at most 64 MiB; name stands for it in records. fd stays open.
QUILLNET_API DocumentRead ReadPolicyStream(int fd, const std::string& name,
                                           const ReadOptions& options);

}  // namespace qnpolicy

#endif  // QUILLNET_LOCALPOLICYDOCUMENT_H

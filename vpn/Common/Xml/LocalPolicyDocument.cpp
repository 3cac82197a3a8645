// SPDX-License-Identifier: Apache-2.0
// The document layer: arguments to settings, settings to bytes, bytes to a stored file, and a
// document to a record through the reader, each returning what happened as values.

#include "LocalPolicyDocument.h"
#include "LocalPolicyReader.h"

#include <fcntl.h>
#include <strings.h>  // strncasecmp
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "QNCSaxWriter.h"
#include "TokenParser.h"
#include "TstringPairList.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlLocalQNPolMgrRecords.h"
#include "XmlParser.h"
#include "sysutils.h"

namespace qnpolicy {

namespace {

constexpr char kServerListDelimiters[] = ",;";

// Reads a document as a fresh manager's first load reads it: a reader over read's record and
// reader state of its own, a retention that starts at NONE.
void readDocument(DocumentRead& read, const std::string& name, const DocumentSource& source,
                  const ReadOptions& options) {
    std::string_view currentElement;
    const LocalPolicySettingInfo* pCurrentSetting = nullptr;
    bool bAuthorizedServerList = false;
    bool bUpdatePolicySection = false;
    PolicyReader reader(read.record, read.bFileUseFIPSMode, currentElement, pCurrentSetting,
                        bAuthorizedServerList, bUpdatePolicySection);
    XmlLocalQNPolMgr::RETAINED_FIPS_MODE retained = XmlLocalQNPolMgr::NONE;
    const PolicyLoad load = LoadPolicyDocument(name, source, reader, reader, options, retained);
    read.status = load.status;
    read.line = load.failure.line;
    read.column = load.failure.column;
    read.reason = load.failure.reason;
}

}  // namespace

// ---- Installer arguments ----

const PolicyVocabulary& LocalPolicyVocabulary() {
    // The catalogue's settings that have an abbreviation (a server name has none): name,
    // section and allowed values in their order.
    static const PolicyVocabulary vocabulary = [] {
        PolicyVocabulary rows;
        for (const LocalPolicySettingInfo& info : LocalPolicySettings()) {
            if (info.abbreviation.empty()) {
                continue;
            }
            LocalPolicySetting& setting = rows[info.abbreviation];
            setting.tstrFullName = info.element;
            setting.bIsUpdatePolicy = info.section == LocalPolicySection::UPDATE_POLICY;
            setting.listAllowedValues.assign(info.allowedValues.begin(), info.allowedValues.end());
        }
        return rows;
    }();
    return vocabulary;
}

const std::vector<const LocalPolicySettingInfo*>& InstallerSettings() {
    static const std::vector<const LocalPolicySettingInfo*> settings = [] {
        std::vector<const LocalPolicySettingInfo*> rows;
        for (const LocalPolicySettingInfo& info : LocalPolicySettings()) {
            if (!info.abbreviation.empty()) {
                rows.push_back(&info);
            }
        }
        std::sort(rows.begin(), rows.end(),
                  [](const LocalPolicySettingInfo* a, const LocalPolicySettingInfo* b) {
                      return a->abbreviation < b->abbreviation;
                  });
        return rows;
    }();
    return settings;
}

const LocalPolicySettingInfo* FindInstallerSetting(std::string_view abbreviation) {
    const std::vector<const LocalPolicySettingInfo*>& settings = InstallerSettings();
    const auto found =
        std::lower_bound(settings.begin(), settings.end(), abbreviation,
                         [](const LocalPolicySettingInfo* row, std::string_view text) {
                             return row->abbreviation < text;
                         });
    return found != settings.end() && (*found)->abbreviation == abbreviation ? *found : nullptr;
}

bool SameTextIgnoringCase(std::string_view a, std::string_view b) {
    // Whole texts: a value with an embedded NUL must not match its prefix.
    return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

namespace {

// Why an accepted server list must still be refused under the options: no name in it, or a
// name that breaks the server-name rule (that name in rServerName). NONE when it may be used.
enum class ServerListFault { NONE, NO_SERVER, SERVER_NAME };
ServerListFault serverListFault(const std::string& value, const ArgumentCheckOptions& options,
                                std::string& rServerName) {
    const std::vector<std::string> servers = SplitServerList(value);
    if (options.bStrict && servers.empty()) {
        return ServerListFault::NO_SERVER;
    }
    for (const std::string& server : servers) {
        if (options.bPlainServerNames && HasBlankOrControl(server)) {
            rServerName = server;
            return ServerListFault::SERVER_NAME;
        }
    }
    return ServerListFault::NONE;
}

}  // namespace

ArgumentCheck CheckInstallerArguments(const char* const* policyArgs, size_t numPolicyArgs,
                                      const ArgumentCheckOptions& options) {
    ArgumentCheck check;
    // The index of the argument that set each element.
    std::map<std::string, size_t> setBy;
    for (size_t i = 0; i < numPolicyArgs; ++i) {
        if (policyArgs[i] == nullptr) {
            continue;
        }
        InstallerArgument argument;
        argument.index = i;
        argument.text = policyArgs[i];
        RefusedArgument refusal;
        const auto refuse = [&check, &argument, &refusal](ArgumentRefusal eReason) {
            refusal.argument = std::move(argument);
            refusal.eReason = eReason;
            check.refused.push_back(std::move(refusal));
        };
        const std::string::size_type posOfEqual = argument.text.find('=');
        if (posOfEqual == std::string::npos) {
            refuse(ArgumentRefusal::MISSING_EQUALS);
            continue;
        }
        argument.abbreviation = argument.text.substr(0, posOfEqual);
        argument.value = argument.text.substr(posOfEqual + 1);
        if (argument.value.empty()) {
            refuse(ArgumentRefusal::EMPTY_VALUE);  // an abbreviation without a value asks nothing
            continue;
        }
        argument.pSetting = options.findSetting ? options.findSetting(argument.abbreviation)
                                                : FindInstallerSetting(argument.abbreviation);
        if (argument.pSetting == nullptr) {
            refuse(ArgumentRefusal::UNKNOWN_ABBREVIATION);
            continue;
        }
        const LocalPolicySettingInfo& setting = *argument.pSetting;
        // A refused value is left as given, so that a message can quote the installer's text.
        std::string value = argument.value;
        if (!(options.matchValue ? options.matchValue(setting, value)
                                 : MatchAllowedValue(setting.allowedValues, value))) {
            refuse(ArgumentRefusal::VALUE_NOT_ALLOWED);
            continue;
        }
        if (setting.kind == LocalPolicySettingKind::SERVER_LIST) {
            const ServerListFault eFault = serverListFault(value, options, refusal.serverName);
            if (eFault != ServerListFault::NONE) {
                refuse(eFault == ServerListFault::NO_SERVER ? ArgumentRefusal::EMPTY_VALUE
                                                            : ArgumentRefusal::SERVER_NAME);
                continue;
            }
        }
        const auto used = setBy.emplace(setting.element, i);
        if (!used.second) {
            refusal.usedIndex = used.first->second;
            refuse(ArgumentRefusal::DUPLICATE);
            continue;
        }
        argument.value = options.bAppliedSpelling ? AppliedSpelling(setting, value) : value;
        (setting.section == LocalPolicySection::UPDATE_POLICY
             ? check.settings.updatePolicies
             : check.settings.policies)[setting.element] = argument.value;
        check.accepted.push_back(std::move(argument));
    }
    return check;
}

// ---- Rendering and storing ----

std::vector<std::string> SplitServerList(const std::string& value) {
    std::vector<std::string> servers;
    TTokenParser<char> authorizedListParser(value);
    std::string tstrServerValue;
    while (authorizedListParser.NextToken(tstrServerValue, kServerListDelimiters)) {
        if (!tstrServerValue.empty()) {  // adjacent, leading or trailing separators name none
            servers.push_back(tstrServerValue);
        }
    }
    return servers;
}

STATUSCODE RenderPolicyDocument(const PolicySettings& settings, const std::string& directory,
                                std::string& rDocument) {
    std::vector<StatedSetting> ordered;
    ordered.reserve(settings.policies.size() + settings.updatePolicies.size());
    for (const auto& [element, text] : settings.policies) {
        ordered.push_back(StatedSetting{element, text, false});
    }
    for (const auto& [element, text] : settings.updatePolicies) {
        ordered.push_back(StatedSetting{element, text, true});
    }
    return RenderPolicyDocumentInOrder(ordered, directory, rDocument);
}

STATUSCODE RenderPolicyDocumentInOrder(const std::vector<StatedSetting>& settings,
                                       const std::string& directory, std::string& rDocument) {
    QNCSaxWriter xmlWriter(directory, kPolicyFileName, kRootElement);
    TStrPairList rootAttrs;
    rootAttrs.emplace_back("xmlns", kDocumentNamespace);
    rootAttrs.emplace_back("xmlns:xsi", kSchemaInstanceNamespace);
    rootAttrs.emplace_back("xsi:schemaLocation",
                           std::string(kDocumentNamespace) + " " + kSchemaFile);
    rootAttrs.emplace_back(kVersionAttribute, kClientVersion);

    // The statuses of the building calls are not examined: the writer records the first
    // failure and takeDocument reports it.
    xmlWriter.startDocument(&rootAttrs);
    bool bInSection = false;
    for (const StatedSetting& setting : settings) {
        if (setting.bUpdateSection != bInSection) {
            if (bInSection) {
                xmlWriter.endElement(kUpdatePolicyElement);
            } else {
                xmlWriter.startElement(kUpdatePolicyElement, nullptr);
            }
            bInSection = setting.bUpdateSection;
        }
        xmlWriter.startElement(setting.element, nullptr);
        if (setting.element == kAuthorizedServerListElement) {
            for (const std::string& server : SplitServerList(setting.text)) {
                xmlWriter.startElement(kServerNameElement, nullptr);
                xmlWriter.characters(server);
                xmlWriter.endElement(kServerNameElement);
            }
        } else {
            xmlWriter.characters(setting.text);
        }
        xmlWriter.endElement(setting.element);
    }
    if (bInSection) {
        xmlWriter.endElement(kUpdatePolicyElement);
    }
    xmlWriter.endDocument();
    return xmlWriter.takeDocument(rDocument);
}

namespace {

// Stores through directoryFd, or by the directory's name when it is -1; logs a failure as
// generation does.
StoreResult store(int directoryFd, const std::string& directory, const std::string& fileName,
                  const std::string& bytes, bool bOverwrite) {
    StoreResult result;
    QNCSaxWriter xmlWriter(directory, fileName, kRootElement);
    xmlWriter.keepExistingFile(!bOverwrite);
    xmlWriter.storeThroughDirectory(directoryFd);
    result.status = xmlWriter.storeDocument(bytes);
    result.step = xmlWriter.failedStep();
    result.error = xmlWriter.failedError();
    switch (result.status) {
        case QNCSAXWRITER_SUCCESS:
            result.eOutcome = StoreResult::WRITTEN;
            return result;
        case QNCSAXWRITER_ERROR_FILE_EXISTS:
            result.eOutcome = StoreResult::EXISTS;  // another writer's file appeared meanwhile
            return result;
        case QNCSAXWRITER_ERROR_NOT_SYNCED:
            // The file holds the new document, but its durability is not confirmed: reported
            // with its status, as a failure of the write.
            result.eOutcome = StoreResult::NOT_SYNCED;
            break;
        default:
            result.eOutcome = StoreResult::FAILED;
            break;
    }
    records::StoreFailed(result.status);
    return result;
}

}  // namespace

StoreResult StorePolicyDocument(const std::string& directory, const std::string& bytes,
                                bool bOverwrite) {
    if (!bOverwrite && !directory.empty() && qnsys::fileExists(directory + kPolicyFileName)) {
        StoreResult kept;
        kept.eOutcome = StoreResult::KEPT;
        return kept;
    }
    return store(-1, directory, kPolicyFileName, bytes, bOverwrite);
}

StoreResult StorePolicyDocumentAt(int directoryFd, const std::string& directory,
                                  const std::string& fileName, const std::string& bytes,
                                  bool bOverwrite) {
    struct stat entry {};
    if (!bOverwrite &&
        (::fstatat(directoryFd, fileName.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 ||
         (errno != ENOENT && errno != ENOTDIR))) {
        StoreResult kept;
        kept.eOutcome = StoreResult::KEPT;
        return kept;
    }
    return store(directoryFd, directory, fileName, bytes, bOverwrite);
}

// ---- Reading ----

PolicyLoad LoadPolicyDocument(const std::string& path, const DocumentSource& source,
                              XmlMgr& handler, PolicyReader& reader, const ReadOptions& options,
                              XmlLocalQNPolMgr::RETAINED_FIPS_MODE& rRetained) {
    PolicyLoad load;
    XmlParser parser(&handler);
    parser.LogFailures(options.bLog);
    reader.Begin(options, &parser);
    struct ParseEnd {
        PolicyReader& rReader;
        ~ParseEnd() { rReader.End(); }
    } parseEnd{reader};
    const char* callee = "XmlParser::parseFile";
    if (source.pBytes != nullptr) {
        callee = "XmlParser::parseBuffer";
        load.status =
            parser.parseBuffer(source.pBytes->data(), source.pBytes->size(), options.bSecure, path);
    } else if (source.streamFd >= 0) {
        callee = "XmlParser::parseStream";
        load.status = parser.parseStream(source.streamFd, options.bSecure, path);
    } else {
        load.status = parser.parseFile(path, options.bSecure);
    }
    if (load.status != XMLPARSER_SUCCESS) {
        load.failure = parser.LastFailure();
        if (options.bLog) {
            records::LoadFailed(callee, load.status);
        }
        return load;
    }
    load.bFileDisagrees =
        ApplyFipsRetention(rRetained, reader.FileUseFIPSMode(), reader.Record(), options.bLog);
    return load;
}

DocumentRead ReadPolicyFile(const std::string& path, const ReadOptions& options) {
    DocumentRead read;
    read.bExists = qnsys::fileExists(path);
    if (read.bExists) {
        readDocument(read, path, DocumentSource(), options);
    }
    return read;
}

DocumentRead ReadPolicyBytes(std::string_view bytes, const std::string& name,
                             const ReadOptions& options) {
    DocumentRead read;
    DocumentSource source;
    source.pBytes = &bytes;
    readDocument(read, name, source, options);
    return read;
}

DocumentRead ReadPolicyStream(int fd, const std::string& name, const ReadOptions& options) {
    DocumentRead read;
    DocumentSource source;
    source.streamFd = fd;
    readDocument(read, name, source, options);
    return read;
}

bool ApplyFipsRetention(XmlLocalQNPolMgr::RETAINED_FIPS_MODE& rRetained, bool bFileUseFIPSMode,
                        LocalQNPolicyInfo& rRecord, bool bLog) {
    if (rRetained == XmlLocalQNPolMgr::NONE) {
        rRetained = bFileUseFIPSMode ? XmlLocalQNPolMgr::ENABLED : XmlLocalQNPolMgr::DISABLED;
    }
    rRecord.UseFIPSMode(rRetained == XmlLocalQNPolMgr::ENABLED);
    if (bLog) {
        records::FipsMode(rRecord.UseFIPSMode());
    }
    return bFileUseFIPSMode != rRecord.UseFIPSMode();
}

}  // namespace qnpolicy

// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_LOCALPOLICYREADER_H
#define QUILLNET_LOCALPOLICYREADER_H

// The policy document reader and the one load path that runs it. The reader turns the parse
// events of one "QuillnetLocalPolicy.xml" into settings of a record, over whichever fields it is
// bound to (the manager's own, or a document read's); what each element means comes from the
// settings catalogue, how its text is applied from its kind (LocalPolicyKinds.h). Its callbacks
// are defined here, inline, so that the manager's callbacks cost no more than the reader's own
// work. Internal to the library: not installed.

#include <string>
#include <string_view>

#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "VersionCompare.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlLocalQNPolMgrRecords.h"
#include "XmlParser.h"

namespace qnpolicy {

// PolicyReader is the reader over the fields it is bound to for its lifetime: the record, the
// file's FIPS value and the reader state. It is the XmlMgr handler of a document read; the
// manager, which stays the handler of its own load, owns one and hands it each event.
class PolicyReader final : public XmlMgr {
  public:
    PolicyReader(LocalQNPolicyInfo& rRecord, bool& rbFileUseFIPSMode,
                 std::string_view& rCurrentElement, const LocalPolicySettingInfo*& rpCurrentSetting,
                 bool& rbAuthorizedServerList, bool& rbUpdatePolicySection)
        : m_rRecord(rRecord),
          m_rbFileUseFIPSMode(rbFileUseFIPSMode),
          m_rCurrentElement(rCurrentElement),
          m_rpCurrentSetting(rpCurrentSetting),
          m_rbAuthorizedServerList(rbAuthorizedServerList),
          m_rbUpdatePolicySection(rbUpdatePolicySection) {}

    LocalQNPolicyInfo& Record() const { return m_rRecord; }
    bool FileUseFIPSMode() const { return m_rbFileUseFIPSMode; }

    // Before a parse: clears the file's FIPS value and the reader state (a parse that stopped
    // inside a section must not change how the next file is read), and takes the options: the
    // manager's records when bLog, every event to pObserver (null: none) with the position
    // pParser gives, the server names kept in the record or not.
    void Begin(const ReadOptions& options, const XmlParser* pParser) {
        m_rbFileUseFIPSMode = false;
        m_rCurrentElement = std::string_view();
        m_rpCurrentSetting = nullptr;
        m_rbAuthorizedServerList = false;
        m_rbUpdatePolicySection = false;
        m_bLog = options.bLog;
        m_bKeepServerNames = options.bKeepServerNames;
        m_pObserver = options.pObserver;
        m_pParser = pParser;
    }
    // After it: the parser is gone.
    void End() { m_pParser = nullptr; }

    // The element's catalogue row is looked up once, here, in constant time: the names are
    // distinct, so the exact lookup finds the one row the reader's matching order would. Only an
    // element whose text or attributes can act becomes current; the text of any other element
    // (the section, an unknown name) changes nothing, so it is not kept.
    void addElement(const std::string& elementName) override {
        m_rCurrentElement = std::string_view();
        m_rpCurrentSetting = nullptr;
        const LocalPolicySettingInfo* setting = FindLocalPolicySetting(elementName);
        ReadAction eAction = ReadAction::READ;
        if (setting == nullptr) {
            if (elementName == kUpdatePolicyName) {
                m_rbUpdatePolicySection = true;
            } else if (elementName == kRootName) {
                m_rCurrentElement = kRootName;  // its version attribute counts
            } else {
                eAction = ReadAction::IGNORED_UNKNOWN;
            }
        } else if (setting->kind == LocalPolicySettingKind::SERVER_LIST) {
            // The list counts only inside the update-policy section; it never awaits text of its
            // own.
            if (m_rbUpdatePolicySection) {
                m_rbAuthorizedServerList = true;
            } else {
                eAction = ReadAction::IGNORED_OUTSIDE_SECTION;
            }
        } else if (setting->kind == LocalPolicySettingKind::SERVER_NAME &&
                   !m_rbAuthorizedServerList) {
            eAction = ReadAction::IGNORED_OUTSIDE_LIST;
        } else {
            m_rCurrentElement = setting->element;
            m_rpCurrentSetting = setting;
            // Its text will not count: the section cannot change before a leaf's text arrives.
            if (setting->section == LocalPolicySection::UPDATE_POLICY && !m_rbUpdatePolicySection) {
                eAction = ReadAction::IGNORED_OUTSIDE_SECTION;
            }
        }
        if (m_pObserver != nullptr) {
            notify(ReadEvent::START, eAction, elementName, setting);
        }
    }

    void endElement(const std::string& elementName) override {
        m_rCurrentElement = std::string_view();
        m_rpCurrentSetting = nullptr;
        if (elementName == kUpdatePolicyName) {
            m_rbUpdatePolicySection = false;
        } else if (elementName == kServerListName) {
            m_rbAuthorizedServerList = false;
        }
        if (m_pObserver != nullptr) {
            notify(ReadEvent::END, ReadAction::READ, elementName,
                   FindLocalPolicySetting(elementName));
        }
    }

    void setElementValue(const std::string& elementValue) override {
        const LocalPolicySettingInfo* setting = m_rpCurrentSetting;
        if (setting == nullptr) {
            if (m_pObserver != nullptr) {
                notify(ReadEvent::TEXT, ReadAction::IGNORED, std::string_view(), nullptr,
                       std::string_view(), elementValue);
            }
            return;
        }
        ReadAction eAction = ReadAction::READ;
        // An element of the update-policy section counts only inside it.
        if (setting->section == LocalPolicySection::UPDATE_POLICY && !m_rbUpdatePolicySection) {
            if (m_bLog) {
                records::StructureIncorrect();
            }
            eAction = ReadAction::IGNORED_OUTSIDE_SECTION;
        } else if (keeps(*setting) &&
                   KindOf(setting->kind)
                           .apply(*setting, elementValue, m_rRecord, m_rbFileUseFIPSMode) ==
                       TextEffect::UNCHANGED) {
            eAction = ReadAction::UNCHANGED;
        }
        if (m_pObserver != nullptr) {
            notify(ReadEvent::TEXT, eAction, setting->element, setting, std::string_view(),
                   elementValue);
        }
    }

    void addAttribute(const std::string& attributeName,
                      const std::string& attributeValue) override {
        if (m_rCurrentElement != kRootName || attributeName != kVersionName) {
            if (m_pObserver != nullptr) {
                notify(ReadEvent::ATTRIBUTE, ReadAction::IGNORED, m_rCurrentElement,
                       m_rpCurrentSetting, attributeName, attributeValue);
            }
            return;
        }
        // Stored whatever the comparison finds; a newer document is read like any other.
        m_rRecord.QNVersion(attributeValue);
        // The document's text is compared without being turned into a list of all its
        // components: a hostile attribute of millions of separators must not cost a list node
        // each. The client's version is built at its first use.
        static const Version clientVersion(kClientVersion, kVersionSeparators);
        const bool bNewer = IsVersionTextGreater(attributeValue, kVersionSeparators, clientVersion);
        if (bNewer && m_bLog) {
            records::NewerVersion();
        }
        if (m_pObserver != nullptr) {
            notify(ReadEvent::ATTRIBUTE, bNewer ? ReadAction::NEWER_VERSION : ReadAction::READ,
                   kRootName, nullptr, attributeName, attributeValue);
        }
    }

  private:
    // Separators of the components of a version text.
    static constexpr char kVersionSeparators[] = ".,";
    // The structural names as views: comparing against them checks the length first.
    static constexpr std::string_view kRootName = kRootElement;
    static constexpr std::string_view kVersionName = kVersionAttribute;
    static constexpr std::string_view kUpdatePolicyName = kUpdatePolicyElement;
    static constexpr std::string_view kServerListName = kAuthorizedServerListElement;

    // Whether a text of setting goes into the record: all do, but a server name only when the
    // read keeps the names; one that does not still reads it as applied.
    bool keeps(const LocalPolicySettingInfo& setting) const {
        return m_bKeepServerNames || setting.kind != LocalPolicySettingKind::SERVER_NAME;
    }

    // The event reaches the observer with where it is.
    void notify(ReadEvent::Type eType, ReadAction eAction, std::string_view element,
                const LocalPolicySettingInfo* pSetting, std::string_view name = std::string_view(),
                std::string_view text = std::string_view()) const {
        ReadEvent event;
        event.eType = eType;
        event.eAction = eAction;
        event.element = element;
        event.name = name;
        event.text = text;
        event.pSetting = pSetting;
        if (m_pParser != nullptr) {
            event.line = m_pParser->CurrentLine();
            event.column = m_pParser->CurrentColumn();
        }
        m_pObserver->OnRead(event);
    }

    LocalQNPolicyInfo& m_rRecord;
    bool& m_rbFileUseFIPSMode;
    std::string_view& m_rCurrentElement;  // a view of the catalogue's name, or of the root's
    const LocalPolicySettingInfo*& m_rpCurrentSetting;
    bool& m_rbAuthorizedServerList;
    bool& m_rbUpdatePolicySection;
    bool m_bLog = true;
    bool m_bKeepServerNames = true;
    ReadObserver* m_pObserver = nullptr;
    const XmlParser* m_pParser = nullptr;
};

// What one load of a policy document did.
struct PolicyLoad {
    STATUSCODE status = 0;        // 0: parsed to its end; else the parser's status
    XmlParser::Failure failure;   // on failure: where and why the parser stopped
    bool bFileDisagrees = false;  // after success: the file's FIPS value is not the one in force
};

// Where a load's document comes from: the file at the load's path, or the bytes pBytes points
// to, or what streamFd delivers to its end (standard input, a pipe); the path then stands for
// them in records.
struct DocumentSource {
    const std::string_view* pBytes = nullptr;
    int streamFd = -1;
};

// The one load path, shared by the manager's load and the document layer's read: the reader
// begins (see PolicyReader::Begin), a parser with handler (the reader itself, or the manager
// that hands it each event) reads the document from source, and then
//   - after a failure: logs the load's failure record (as "LoadLocalQuillnetPolicy", with the
//     parser's operation as callee and its status) when options.bLog, and the parser's own
//     record went before it; the retention is not applied;
//   - after success: applies the FIPS retention with rRetained (ApplyFipsRetention).
PolicyLoad LoadPolicyDocument(const std::string& path, const DocumentSource& source,
                              XmlMgr& handler, PolicyReader& reader, const ReadOptions& options,
                              XmlLocalQNPolMgr::RETAINED_FIPS_MODE& rRetained);

// The FIPS retention of one manager, after a load that parsed the file (the rule is the FIPS
// setting's, in the settings catalogue): fixes the retained mode if none is, sets the record's
// flag from it, and returns whether the file now disagrees; logs "FIPS mode is %s." (as
// "LoadLocalQuillnetPolicy") when bLog.
bool ApplyFipsRetention(XmlLocalQNPolMgr::RETAINED_FIPS_MODE& rRetained, bool bFileUseFIPSMode,
                        LocalQNPolicyInfo& rRecord, bool bLog);

}  // namespace qnpolicy

#endif  // QUILLNET_LOCALPOLICYREADER_H

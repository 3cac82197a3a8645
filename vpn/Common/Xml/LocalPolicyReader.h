// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_LOCALPOLICYREADER_H
#define QUILLNET_LOCALPOLICYREADER_H

// The policy document reader: the four parse callbacks that turn the events of one
// "QuillnetLocalPolicy.xml" into settings of a record, over whichever fields a ReaderState
// names (the manager's own, or a read's), reporting to an optional observer. What each element
// means comes from the settings catalogue, how its text is applied from its kind
// (LocalPolicyKinds.h). Defined here, inline, so that the manager's callbacks cost no more
// than the reader's own work. Internal to the library: not installed.

#include <string>
#include <string_view>

#include "AppLogHere.h"
#include "LocalPolicyDocument.h"
#include "LocalPolicyKinds.h"
#include "VersionCompare.h"
#include "XmlLocalQNPolMgrConstants.h"
#include "XmlParser.h"

namespace qnpolicy {

// The fields one reader works on, and how it reports.
struct ReaderState {
    LocalQNPolicyInfo& record;
    bool& bFileUseFIPSMode;
    std::string_view& currentElement;  // a view of the catalogue's name, or of the root's
    const LocalPolicySettingInfo*& pCurrentSetting;
    bool& bAuthorizedServerList;
    bool& bUpdatePolicySection;
    bool bLog = true;
    ReadObserver* pObserver = nullptr;
    const XmlParser* pParser = nullptr;  // where events are, for the observer
};

namespace reader {

// Separators of the components of a version text.
inline constexpr char kVersionSeparators[] = ".,";
inline constexpr char kStructureIncorrectMessage[] = "Local Policy XML structure is incorrect.";
inline constexpr char kNewerVersionMessage[] =
    "The parsed Local Security Policy File version is newer than the current Quillnet Client. "
    "Unexpected behaviors can result.";

// The structural names as views: comparing against them checks the length first.
inline constexpr std::string_view kRootName = kRootElement;
inline constexpr std::string_view kVersionName = kVersionAttribute;
inline constexpr std::string_view kUpdatePolicyName = kUpdatePolicyElement;

// The events reach the observer, when there is one, with where they are.
inline void notify(const ReaderState& state, ReadEvent::Type eType, ReadAction eAction,
                   std::string_view element, const LocalPolicySettingInfo* pSetting,
                   std::string_view name = std::string_view(),
                   std::string_view text = std::string_view()) {
    ReadEvent event;
    event.eType = eType;
    event.eAction = eAction;
    event.element = element;
    event.name = name;
    event.text = text;
    event.pSetting = pSetting;
    if (state.pParser != nullptr) {
        event.line = state.pParser->CurrentLine();
        event.column = state.pParser->CurrentColumn();
    }
    state.pObserver->OnRead(event);
}

// The element's catalogue row is looked up once, here, in constant time: the names are
// distinct, so the exact lookup finds the one row the reader's matching order would. Only an
// element whose text or attributes can act becomes current; the text of any other element
// (the section, an unknown name) changes nothing, so it is not kept.
inline void addElement(ReaderState& state, const std::string& elementName) {
    state.currentElement = std::string_view();
    state.pCurrentSetting = nullptr;
    const LocalPolicySettingInfo* setting = FindLocalPolicySetting(elementName);
    ReadAction eAction = ReadAction::READ;
    if (setting == nullptr) {
        if (elementName == kUpdatePolicyName) {
            state.bUpdatePolicySection = true;
        } else if (elementName == kRootName) {
            state.currentElement = kRootName;  // its version attribute counts
        } else {
            eAction = ReadAction::IGNORED_UNKNOWN;
        }
    } else if (setting->kind == LocalPolicySettingKind::SERVER_LIST) {
        // The list counts only inside the update-policy section; it never awaits text of its
        // own.
        if (state.bUpdatePolicySection) {
            state.bAuthorizedServerList = true;
        } else {
            eAction = ReadAction::IGNORED_OUTSIDE_SECTION;
        }
    } else if (setting->kind == LocalPolicySettingKind::SERVER_NAME &&
               !state.bAuthorizedServerList) {
        eAction = ReadAction::IGNORED_OUTSIDE_LIST;
    } else {
        state.currentElement = setting->element;
        state.pCurrentSetting = setting;
        // Its text will not count: the section cannot change before a leaf's text arrives.
        if (setting->section == LocalPolicySection::UPDATE_POLICY && !state.bUpdatePolicySection) {
            eAction = ReadAction::IGNORED_OUTSIDE_SECTION;
        }
    }
    if (state.pObserver != nullptr) {
        notify(state, ReadEvent::START, eAction, elementName, setting);
    }
}

inline void endElement(ReaderState& state, const std::string& elementName) {
    state.currentElement = std::string_view();
    state.pCurrentSetting = nullptr;
    if (elementName == kUpdatePolicyName) {
        state.bUpdatePolicySection = false;
    } else if (elementName == kAuthorizedServerListElement) {
        state.bAuthorizedServerList = false;
    }
    if (state.pObserver != nullptr) {
        notify(state, ReadEvent::END, ReadAction::READ, elementName,
               FindLocalPolicySetting(elementName));
    }
}

inline void setElementValue(ReaderState& state, const std::string& elementValue) {
    const LocalPolicySettingInfo* setting = state.pCurrentSetting;
    if (setting == nullptr) {
        if (state.pObserver != nullptr) {
            notify(state, ReadEvent::TEXT, ReadAction::IGNORED, std::string_view(), nullptr,
                   std::string_view(), elementValue);
        }
        return;
    }
    ReadAction eAction = ReadAction::READ;
    // An element of the update-policy section counts only inside it.
    if (setting->section == LocalPolicySection::UPDATE_POLICY && !state.bUpdatePolicySection) {
        if (state.bLog) {
            APPLOG_MESSAGE(DBG_Warning, "%s", kStructureIncorrectMessage);
        }
        eAction = ReadAction::IGNORED_OUTSIDE_SECTION;
    } else if (KindOf(setting->kind)
                   .apply(*setting, elementValue, state.record, state.bFileUseFIPSMode) ==
               TextEffect::UNCHANGED) {
        eAction = ReadAction::UNCHANGED;
    }
    if (state.pObserver != nullptr) {
        notify(state, ReadEvent::TEXT, eAction, setting->element, setting, std::string_view(),
               elementValue);
    }
}

inline void addAttribute(ReaderState& state, const std::string& attributeName,
                         const std::string& attributeValue) {
    if (state.currentElement != kRootName || attributeName != kVersionName) {
        if (state.pObserver != nullptr) {
            notify(state, ReadEvent::ATTRIBUTE, ReadAction::IGNORED, state.currentElement,
                   state.pCurrentSetting, attributeName, attributeValue);
        }
        return;
    }
    // Stored whatever the comparison finds; a newer document is read like any other.
    state.record.QNVersion(attributeValue);
    // The document's text is compared without being turned into a list of all its components:
    // a hostile attribute of millions of separators must not cost a list node each.
    static const Version clientVersion(kClientVersion, kVersionSeparators);
    const bool bNewer = IsVersionTextGreater(attributeValue, kVersionSeparators, clientVersion);
    if (bNewer && state.bLog) {
        APPLOG_MESSAGE(DBG_Warning, "%s", kNewerVersionMessage);
    }
    if (state.pObserver != nullptr) {
        notify(state, ReadEvent::ATTRIBUTE, bNewer ? ReadAction::NEWER_VERSION : ReadAction::READ,
               kRootName, nullptr, attributeName, attributeValue);
    }
}

}  // namespace reader

}  // namespace qnpolicy

#endif  // QUILLNET_LOCALPOLICYREADER_H

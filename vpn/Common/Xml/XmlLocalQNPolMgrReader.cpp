// The policy document reader: the manager's four parse-event callbacks, which turn the
// events of one "QuillnetLocalPolicy.xml" into settings of the policy record. What each
// element means comes from the settings catalogue.

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "AppLogHere.h"
#include "LocalPolicySettings.h"
#include "LocalQNPolicyOptionTexts.h"
#include "StringUtils.h"
#include "VersionCompare.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlLocalQNPolMgrConstants.h"

using qnpolicy::kAppLogSourceFile;

namespace {

// Separators of the components of a version text.
constexpr char kVersionSeparators[] = ".,";

// The one text a boolean setting reads as true; every other text is false.
constexpr std::string_view kTrue = "true";

constexpr char kStructureIncorrectMessage[] = "Local Policy XML structure is incorrect.";
constexpr char kNewerVersionMessage[] =
    "The parsed Local Security Policy File version is newer than the current Quillnet Client. "
    "Unexpected behaviors can result.";

// The structural names as views: comparing against them checks the length first.
constexpr std::string_view kRootElement = qnpolicy::kRootElement;
constexpr std::string_view kVersionAttribute = qnpolicy::kVersionAttribute;
constexpr std::string_view kUpdatePolicyElement = qnpolicy::kUpdatePolicyElement;

}  // namespace

// The element's catalogue row is looked up once, here, in constant time: the names are
// distinct, so the exact lookup finds the one row the reader's matching order would. Only an
// element whose text or attributes can act becomes current; the text of any other element
// (the section, an unknown name) changes nothing, so it is not kept.
void XmlLocalQNPolMgr::addElement(const std::string& elementName) {
    m_currentElement = std::string_view();
    m_pCurrentSetting = nullptr;
    const LocalPolicySettingInfo* setting = FindLocalPolicySetting(elementName);
    if (setting == nullptr) {
        if (elementName == kUpdatePolicyElement) {
            m_bUpdatePolicySection = true;
        } else if (elementName == kRootElement) {
            m_currentElement = kRootElement;  // its version attribute counts
        }
        return;
    }
    if (setting->kind == LocalPolicySettingKind::SERVER_LIST) {
        // The list counts only inside the update-policy section; it never awaits text of its
        // own.
        if (m_bUpdatePolicySection) {
            m_bAuthorizedServerList = true;
        }
        return;
    }
    if (setting->kind == LocalPolicySettingKind::SERVER_NAME && !m_bAuthorizedServerList) {
        return;
    }
    m_currentElement = setting->element;
    m_pCurrentSetting = setting;
}

void XmlLocalQNPolMgr::endElement(const std::string& elementName) {
    m_currentElement = std::string_view();
    m_pCurrentSetting = nullptr;
    if (elementName == kUpdatePolicyElement) {
        m_bUpdatePolicySection = false;
        return;
    }
    static const std::string& serverListElement =
        FindLocalPolicySettingOfKind(LocalPolicySettingKind::SERVER_LIST)->element;
    if (elementName == serverListElement) {
        m_bAuthorizedServerList = false;
    }
}

void XmlLocalQNPolMgr::setElementValue(const std::string& elementValue) {
    // Text to option, the inverse of sg_restrictPrefCachingOptionToStrMap; one per process,
    // filled at its first use. Only one parse runs at a time in the process.
    static std::map<std::string, RestrictPrefCachingOption> restrictPrefCachingStrToOptionMap;

    const LocalPolicySettingInfo* setting = m_pCurrentSetting;
    if (setting == nullptr) {
        return;
    }
    const bool b = elementValue == kTrue;
    switch (setting->kind) {
        case LocalPolicySettingKind::FIPS_MODE:
            // The record's own FIPS flag is derived by the loader after the parse.
            m_bFileUseFIPSMode = b;
            break;
        case LocalPolicySettingKind::FLAG:
            (m_LocalQNPolicyInfo.*(setting->setter))(b);
            break;
        case LocalPolicySettingKind::CACHING_LIST:
            if (restrictPrefCachingStrToOptionMap.empty()) {
                for (const auto& optionText : sg_restrictPrefCachingOptionToStrMap) {
                    restrictPrefCachingStrToOptionMap.emplace(optionText.second, optionText.first);
                }
            }
            // Tokens are looked up untrimmed; an unknown one counts as "false", which clears
            // every restriction and ends the list.
            for (const std::string& token :
                 CStringUtils::tokenize(elementValue, sg_restrictPrefCachingDelim)) {
                const auto found = restrictPrefCachingStrToOptionMap.find(token);
                const RestrictPrefCachingOption option =
                    found != restrictPrefCachingStrToOptionMap.end() ? found->second
                                                                     : RESTRICT_PREF_CACHING_FALSE;
                m_LocalQNPolicyInfo.RestrictPrefCaching(option);
                if (option == RESTRICT_PREF_CACHING_FALSE) {
                    break;
                }
            }
            break;
        case LocalPolicySettingKind::TUNNEL_PROTOCOL: {
            // Only the applied texts, exactly, select an option; any other keeps the record's
            // setting. The texts are distinct, so the order they are tried in does not matter.
            const std::vector<std::string>& texts = LocalPolicyAppliedTunnelTexts();
            for (size_t option = 0; option < texts.size(); ++option) {
                if (elementValue == texts[option]) {
                    m_LocalQNPolicyInfo.RestrictTunnelProtocols(
                        static_cast<RestrictTunnelProtocolOption>(option));
                    break;
                }
            }
            break;
        }
        case LocalPolicySettingKind::CERT_STORE_EXCLUSION:
            // Anything but "true" makes no call: an exclusion once made stays.
            if (b) {
                m_LocalQNPolicyInfo.ExcludeCertStores(setting->excludeMask);
            }
            break;
        case LocalPolicySettingKind::UPDATE_PERMISSION:
            if (!m_bUpdatePolicySection) {
                APPLOG_MESSAGE(DBG_Warning, "%s", kStructureIncorrectMessage);
                break;
            }
            (m_LocalQNPolicyInfo.*(setting->setter))(b);
            break;
        case LocalPolicySettingKind::SERVER_LIST:
            break;  // never current (see addElement)
        case LocalPolicySettingKind::SERVER_NAME:
            // Current only inside an authorized list (see addElement); kept as it came.
            m_LocalQNPolicyInfo.AddToAuthorizedServerList(elementValue);
            break;
    }
}

void XmlLocalQNPolMgr::addAttribute(const std::string& attributeName,
                                    const std::string& attributeValue) {
    if (m_currentElement != kRootElement || attributeName != kVersionAttribute) {
        return;
    }
    // Stored whatever the comparison finds; a newer document is read like any other.
    m_LocalQNPolicyInfo.QNVersion(attributeValue);
    // The document's text is compared without being turned into a list of all its components:
    // a hostile attribute of millions of separators must not cost a list node each.
    static const Version clientVersion(qnpolicy::kClientVersion, kVersionSeparators);
    if (IsVersionTextGreater(attributeValue, kVersionSeparators, clientVersion)) {
        APPLOG_MESSAGE(DBG_Warning, "%s", kNewerVersionMessage);
    }
}

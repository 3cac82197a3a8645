// The policy document reader: the manager's four parse-event callbacks, which turn the
// events of one "QuillnetLocalPolicy.xml" into settings of the policy record.

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "AppLog.h"
#include "LocalQNPolicyOptionTexts.h"
#include "StringUtils.h"
#include "VersionCompare.h"
#include "XmlLocalQNPolMgr.h"
#include "XmlLocalQNPolMgrConstants.h"

namespace {

// Separators of the components of a version text.
constexpr char kVersionSeparators[] = ".,";

// The one text a boolean setting reads as true; every other text is false.
constexpr std::string_view kTrue = "true";

constexpr char kStructureIncorrectMessage[] = "Local Policy XML structure is incorrect.";
constexpr char kNewerVersionMessage[] =
    "The parsed Local Security Policy File version is newer than the current Quillnet Client. "
    "Unexpected behaviors can result.";

// The tunnel-protocol texts the reader applies, exactly and in this order.
constexpr std::string_view kTunnelFalse = "false";
constexpr std::string_view kTunnelIpsec = "ipsec";
constexpr std::string_view kTunnelTls = "tls";

// The structural names as views: comparing against them checks the length first.
constexpr std::string_view kRootElement = qnpolicy::kRootElement;
constexpr std::string_view kVersionAttribute = qnpolicy::kVersionAttribute;
constexpr std::string_view kUpdatePolicyElement = qnpolicy::kUpdatePolicyElement;
constexpr std::string_view kAuthorizedServerListElement = qnpolicy::kAuthorizedServerListElement;
constexpr std::string_view kServerNameElement = qnpolicy::kServerNameElement;

// What the text of a recognised element does.
enum class RowKind {
    FILE_FIPS_MODE,   // notes the file's FIPS value for the loader
    RECORD_FLAG,      // a boolean setter of the record
    CACHING_LIST,     // the preference-caching list
    TUNNEL_PROTOCOL,  // the tunnel-protocol restriction
    EXCLUDE_MASK,     // "true" ORs a certificate-store mask into the record
    UPDATE_FLAG,      // a boolean update permission, applied only inside "UpdatePolicy"
    SERVER_NAME,      // one authorized server
};

using FlagSetter = void (LocalQNPolicyInfo::*)(bool);

// Names are string views so that a comparison first checks the length: most names differ in
// length, and the reader compares every element's name with the table.
struct DispatchRow {
    std::string_view name;
    RowKind kind;
    uint32_t mask;      // EXCLUDE_MASK
    FlagSetter setter;  // RECORD_FLAG and UPDATE_FLAG
};

// The element names the reader acts on, in the order they are tried; the first match acts.
constexpr DispatchRow kDispatchTable[] = {
    {"FipsMode", RowKind::FILE_FIPS_MODE, 0, nullptr},
    {"BypassDownloader", RowKind::RECORD_FLAG, 0, &LocalQNPolicyInfo::BypassDownloader},
    {"BypassDefaultLocalization", RowKind::RECORD_FLAG, 0,
     &LocalQNPolicyInfo::BypassDefaultLocalization},
    {"RestrictScriptWebDeploy", RowKind::RECORD_FLAG, 0,
     &LocalQNPolicyInfo::RestrictScriptWebDeploy},
    {"RestrictHelpWebDeploy", RowKind::RECORD_FLAG, 0, &LocalQNPolicyInfo::RestrictHelpWebDeploy},
    {"RestrictResourceWebDeploy", RowKind::RECORD_FLAG, 0,
     &LocalQNPolicyInfo::RestrictResourceWebDeploy},
    {"RestrictLocalizationWebDeploy", RowKind::RECORD_FLAG, 0,
     &LocalQNPolicyInfo::RestrictLocalizationWebDeploy},
    {"RestrictWebLaunch", RowKind::RECORD_FLAG, 0, &LocalQNPolicyInfo::RestrictWebLaunchMode},
    {"StrictCertificateTrust", RowKind::RECORD_FLAG, 0, &LocalQNPolicyInfo::StrictCertTrustMode},
    {"EnableCRLCheck", RowKind::RECORD_FLAG, 0, &LocalQNPolicyInfo::EnableCRLCheck},
    {"OCSPRevocation", RowKind::RECORD_FLAG, 0, &LocalQNPolicyInfo::EnableOCSPRevocation},
    {"RestrictPreferenceCaching", RowKind::CACHING_LIST, 0, nullptr},
    {"RestrictTunnelProtocols", RowKind::TUNNEL_PROTOCOL, 0, nullptr},
    {"ExcludeMacNativeCertStore", RowKind::EXCLUDE_MASK, LocalQNPolicyInfo::kMacNativeCertStoreMask,
     nullptr},
    {"ExcludeWinNativeCertStore", RowKind::EXCLUDE_MASK, LocalQNPolicyInfo::kWinNativeCertStoreMask,
     nullptr},
    {"ExcludePemFileCertStore", RowKind::EXCLUDE_MASK, LocalQNPolicyInfo::kPemFileCertStoreMask,
     nullptr},
    {"ExcludeFirefoxNSSCertStore", RowKind::EXCLUDE_MASK,
     LocalQNPolicyInfo::kFirefoxNSSCertStoreMask, nullptr},
    {"RestrictServerCertStore", RowKind::RECORD_FLAG, 0,
     &LocalQNPolicyInfo::SetRestrictServerCertStore},
    {"AllowSoftwareUpdatesFromAnyServer", RowKind::UPDATE_FLAG, 0,
     &LocalQNPolicyInfo::SetSoftwareUpdateLock},
    {"AllowComplianceModuleUpdatesFromAnyServer", RowKind::UPDATE_FLAG, 0,
     &LocalQNPolicyInfo::SetComplianceModuleSoftwareUpdateLock},
    {"AllowVPNProfileUpdatesFromAnyServer", RowKind::UPDATE_FLAG, 0,
     &LocalQNPolicyInfo::SetVPNProfileUpdateLock},
    {"AllowManagementVPNProfileUpdatesFromAnyServer", RowKind::UPDATE_FLAG, 0,
     &LocalQNPolicyInfo::SetMgmtVPNProfileUpdateLock},
    {"AllowPlexoProfileUpdatesFromAnyServer", RowKind::UPDATE_FLAG, 0,
     &LocalQNPolicyInfo::SetPlexoProfileUpdateLock},
    {"AllowServiceProfileUpdatesFromAnyServer", RowKind::UPDATE_FLAG, 0,
     &LocalQNPolicyInfo::SetServiceProfileUpdateLock},
    {"AllowScriptUpdatesFromAnyServer", RowKind::UPDATE_FLAG, 0,
     &LocalQNPolicyInfo::SetScriptUpdateLock},
    {"AllowHelpUpdatesFromAnyServer", RowKind::UPDATE_FLAG, 0,
     &LocalQNPolicyInfo::SetHelpUpdateLock},
    {"AllowResourceUpdatesFromAnyServer", RowKind::UPDATE_FLAG, 0,
     &LocalQNPolicyInfo::SetResourceUpdateLock},
    {"AllowLocalizationUpdatesFromAnyServer", RowKind::UPDATE_FLAG, 0,
     &LocalQNPolicyInfo::SetLocalizationUpdateLock},
    {kServerNameElement, RowKind::SERVER_NAME, 0, nullptr},
};

constexpr size_t longestRowName() {
    size_t longest = 0;
    for (const DispatchRow& row : kDispatchTable) {
        longest = row.name.size() > longest ? row.name.size() : longest;
    }
    return longest;
}

// The rows grouped by the length of their names, each group in table order: a lookup compares
// only names of the element's own length (every element's text is looked up, so this is on
// the path of each server name), and the first match in table order still acts.
class DispatchIndex {
  public:
    DispatchIndex() {
        for (const DispatchRow& row : kDispatchTable) {
            m_byLength[row.name.size()].push_back(&row);
        }
    }

    // The first row whose name is the element's, or null when the reader ignores the element.
    const DispatchRow* find(std::string_view elementName) const {
        if (elementName.size() >= m_byLength.size()) {
            return nullptr;
        }
        for (const DispatchRow* row : m_byLength[elementName.size()]) {
            if (row->name == elementName) {
                return row;
            }
        }
        return nullptr;
    }

  private:
    std::array<std::vector<const DispatchRow*>, longestRowName() + 1> m_byLength;
};

const DispatchRow* findRow(std::string_view elementName) {
    static const DispatchIndex index;
    return index.find(elementName);
}

}  // namespace

void XmlLocalQNPolMgr::addElement(const std::string& elementName) {
    m_currentElement.clear();
    if (elementName == kUpdatePolicyElement) {
        m_bUpdatePolicySection = true;
    }
    if (elementName == kAuthorizedServerListElement) {
        // The list counts only inside "UpdatePolicy"; it never awaits text of its own.
        if (m_bUpdatePolicySection) {
            m_bAuthorizedServerList = true;
        }
        return;
    }
    if (elementName == kServerNameElement && !m_bAuthorizedServerList) {
        return;
    }
    m_currentElement = elementName;
}

void XmlLocalQNPolMgr::endElement(const std::string& elementName) {
    m_currentElement.clear();
    if (elementName == kAuthorizedServerListElement) {
        m_bAuthorizedServerList = false;
    } else if (elementName == kUpdatePolicyElement) {
        m_bUpdatePolicySection = false;
    }
}

void XmlLocalQNPolMgr::setElementValue(const std::string& elementValue) {
    // Text to option, the inverse of sg_restrictPrefCachingOptionToStrMap; one per process,
    // filled at its first use. Only one parse runs at a time in the process.
    static std::map<std::string, RestrictPrefCachingOption> restrictPrefCachingStrToOptionMap;

    const DispatchRow* row = findRow(m_currentElement);
    if (row == nullptr) {
        return;
    }
    const bool b = elementValue == kTrue;
    switch (row->kind) {
        case RowKind::FILE_FIPS_MODE:
            // The record's own FIPS flag is derived by the loader after the parse.
            m_bFileUseFIPSMode = b;
            break;
        case RowKind::RECORD_FLAG:
            (m_LocalQNPolicyInfo.*(row->setter))(b);
            break;
        case RowKind::CACHING_LIST:
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
        case RowKind::TUNNEL_PROTOCOL:
            // Only these exact lower-case texts apply; any other keeps the record's setting.
            if (elementValue == kTunnelFalse) {
                m_LocalQNPolicyInfo.RestrictTunnelProtocols(RESTRICT_TUNNEL_PROTOCOL_FALSE);
            } else if (elementValue == kTunnelIpsec) {
                m_LocalQNPolicyInfo.RestrictTunnelProtocols(RESTRICT_TUNNEL_PROTOCOL_IPSEC);
            } else if (elementValue == kTunnelTls) {
                m_LocalQNPolicyInfo.RestrictTunnelProtocols(RESTRICT_TUNNEL_PROTOCOL_TLS);
            }
            break;
        case RowKind::EXCLUDE_MASK:
            // Anything but "true" makes no call: an exclusion once made stays.
            if (b) {
                m_LocalQNPolicyInfo.ExcludeCertStores(row->mask);
            }
            break;
        case RowKind::UPDATE_FLAG:
            if (!m_bUpdatePolicySection) {
                CAppLog::LogDebugMessage("setElementValue", qnpolicy::kSourceFile, __LINE__,
                                         Logging::DBG_Warning, "%s", kStructureIncorrectMessage);
                break;
            }
            (m_LocalQNPolicyInfo.*(row->setter))(b);
            break;
        case RowKind::SERVER_NAME:
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
        CAppLog::LogDebugMessage("addAttribute", qnpolicy::kSourceFile, __LINE__,
                                 Logging::DBG_Warning, "%s", kNewerVersionMessage);
    }
}
